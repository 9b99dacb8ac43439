// Replaces words in a value of a request where it stands: in the bytes that were sent, whatever they are encoded in.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "checks/check_result.h"
#include "checks/request_values.h"
#include "common/text.h"

namespace qiv {

/// Calls find(decoded, edits) with the value as its place decodes it, once, and adds what it found (places of the
/// decoded text) to *edits as places of the text that the value is a view of, encoded as the value is. Bytes beside
/// them stay as they were sent. A value that lies over an earlier edit is left alone, as is what a value holds behind
/// its first 8 MiB of escaped text.
void EditValue(const RequestValue& value, std::string_view text,
               const std::function<void(std::string_view decoded, TextEdits* found)>& find, TextEdits* edits);

}  // namespace qiv

// Lets go of most values at one look, before anything is decoded, copied or asked of a detector.
#pragma once

#include <string_view>

#include "checks/request_values.h"

namespace qiv {

/// Whether a value holds nothing that the detectors by form (SQL, scripting) could find in any of its forms
/// (value_forms.h), and the place's whole text holds it as well. What it would be decoded to is read in passing. One
/// pass, which ends at the first byte that tells.
bool IsPlainValue(const RequestValue& value);

/// The same of one form: a text that is not decoded any more.
bool IsPlainText(std::string_view text);

}  // namespace qiv

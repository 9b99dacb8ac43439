// One character reference at a time, for who has to know where each stood. DecodeHtmlEntities (text.h) reads whole
// texts.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/text_encoding.h"

namespace qiv {

/// Appends what the reference stands for that `text` begins with, characters above 0x7F in `encoding` (GBK or UTF-8).
/// Its bytes; 0 and nothing appended when there is none.
std::size_t DecodeHtmlEntity(std::string_view text, TextEncoding encoding, std::string* out);

}  // namespace qiv

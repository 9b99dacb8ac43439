// The decodings that scripts hide their text behind. Lenient like the functions of the script languages: what is not
// part of the code is left out or stays. Linear; thread safe.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

std::string DecodeBase64(std::string_view text);
std::string DecodeHex(std::string_view text);
std::string DecodeRot13(std::string_view text);
/// "%XX" everywhere, "+" as a blank when `plus`.
std::string DecodeUrl(std::string_view text, bool plus);
std::string DecodeUuencoded(std::string_view text);
/// "=XX" is a byte, "=" at the end of a line joins it with the next.
std::string DecodeQuotedPrintable(std::string_view text);

}  // namespace qiv

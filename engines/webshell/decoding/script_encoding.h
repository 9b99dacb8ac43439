// Undoes the encoding of "VBScript.Encode" and "JScript.Encode" pages.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// The page with each piece between "#@~^" and "^#~@" decoded; what is no such piece stays. Lengths and check sums are
/// not looked at. Linear.
std::string DecodeEncodedScript(std::string_view page);

}  // namespace qiv

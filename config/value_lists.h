// How list values are brought into the form in which the record holds them. Texts in GBK. Thread safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/ip_address.h"

namespace qiv {

/// Items separated by ",", trimmed, empty ones dropped, wrapped: " asp, php" is ",asp,php,"; no item is "".
std::string WrapNames(std::string_view text);

/// The same for file name extensions, which are lower-cased and may be separated by "|" too.
std::string WrapExtensions(std::string_view text);

/// A wrapped list of methods in lower case; the markers "|RPC|" and "|OTHER|" in upper case.
std::string LowerMethods(std::string_view wrapped);

/// Items separated by "|", empty ones dropped.
std::vector<std::string> BarItems(std::string_view text);

/// The address ranges of a list; items that are none count for nothing.
CIpRanges RangesOf(std::string_view list);

/// Without the bytes below 0x20 and 0x7F, so that the text can stand in a header.
std::string WithoutControls(std::string_view text);

}  // namespace qiv

// The sources of taint of a PHP file: the variables that the server fills in before the file runs.
#pragma once

#include <cstdint>
#include <string_view>

#include "engines/webshell/php/value.h"

namespace qiv {

/// What the client wrote, and nothing before it.
inline constexpr std::uint32_t kRequestOrigin = kFromRequest | kWholeRequest;

/// The number of a superglobal variable in its table, from 1 on; 0: none.
std::uint8_t SuperglobalNumber(std::string_view name);

/// What the superglobal of that number (from 1 on) brings.
std::uint32_t SuperglobalOrigin(std::uint8_t number);

/// What an element of $_SERVER tells.
std::uint32_t ServerOrigin(std::string_view key);

}  // namespace qiv

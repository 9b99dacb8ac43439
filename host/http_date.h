// Dates of HTTP headers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv::host {

/// "Sun, 06 Nov 1994 08:49:37 GMT".
std::string HttpDate(std::int64_t unix_seconds);

/// Reads the form above. False for anything else.
bool ParseHttpDate(std::string_view text, std::int64_t* unix_seconds);

/// The present moment; made once a second and thread.
const std::string& CurrentHttpDate();

}  // namespace qiv::host

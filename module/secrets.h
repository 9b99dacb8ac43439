// Keeps passwords out of logs.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// The text with "***" in place of each value that stands behind a name like a password's ("pass...", "pwd...",
/// "secretrkey...", "authorization"), as forms ("password=x&"), JSON ("password":"x"), multipart contents and quoted
/// headers write it. Names are found without regard to case. Linear.
std::string WithoutSecrets(std::string_view text);

}  // namespace qiv

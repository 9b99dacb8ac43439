// The pages that webshells show: file managers, command consoles and panels that nobody put on the site on purpose.
#pragma once

#include <cstddef>
#include <string_view>

#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Judges the text of a response that is an HTML page or plain text, by what it is made of: names and claims of known
/// panels, what they show of the system, the tables of a file manager, forms that take commands, code or files, and
/// words of attack. No one of these is enough. Fills *result on a hit. Linear; looks at the first kOutputBytes.
bool IsWebshellOutput(std::string_view text, WebshellResult* result);

/// Panels put their name, system and forms at the head of their page, before the list of files.
inline constexpr std::size_t kOutputBytes = 64 * 1024;

}  // namespace qiv

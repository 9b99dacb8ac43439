// Colours of what a terminal shows: --color and NO_COLOR.
#pragma once

#include <string>

#include "command_line/command.h"
#include "port/console.h"

namespace qiv {

enum class Color { kRed, kYellow, kGreen };

/// Adds --color; `when` keeps "auto", "always" or "never".
void AddColorOption(CCommand* command, std::string* when);

/// Whether what goes to the stream is to be coloured. "auto": where it is a terminal, unless NO_COLOR is set to
/// something.
bool WantsColor(const std::string& when, OutputStream stream);

/// The text within the terminal's sequences for it; as it is unless `wanted`.
std::string Colored(const std::string& text, Color color, bool wanted);

}  // namespace qiv

// Scripts with which a shell completes commands, options and their values.
#pragma once

#include <string>

#include "command_line/command.h"

namespace qiv {

enum class CompletedShell { kBash, kZsh, kPowershell };

/// A script for the shell to read. Names and choices must be free of blanks and quotes, as those of options are.
std::string CompletionScript(const CCommand& program, CompletedShell shell);

}  // namespace qiv

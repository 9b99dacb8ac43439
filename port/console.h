// The command line and the standard streams of a program.
#pragma once

#include <string>
#include <vector>

namespace qiv {

/// The arguments after the program's name, UTF-8 on every system.
std::vector<std::string> CommandLineArguments(int argc, char** argv);

/// Standard input and output carry bytes as they are, and a console shows UTF-8. Call once, before any of them is used.
void PrepareStandardStreams();

/// Columns of the terminal that standard error goes to; 0 when it goes elsewhere.
int TerminalWidth();

enum class OutputStream { kOutput, kError };

/// Whether the stream goes to a terminal that obeys sequences for colours (ESC [ ... m). A console that has to be told
/// to obey them is told.
bool ShowsColor(OutputStream stream);

}  // namespace qiv

// The subcommands of qivctl. Each function adds one group from its own file; a command's callback sets *exit_code
// (tools/report.h) when it has run.
#pragma once

namespace CLI {
class App;
}

namespace qiv {

void AddInitCommand(CLI::App* app, int* exit_code);
void AddSettingsCommands(CLI::App* app, int* exit_code);  ///< pack, unpack, lint
void AddLibraryCommand(CLI::App* app, int* exit_code);
void AddCipherCommands(CLI::App* app, int* exit_code);  ///< encrypt, decrypt
void AddCheckCommand(CLI::App* app, int* exit_code);
void AddReferenceCommand(CLI::App* app, int* exit_code);
void AddAreaCommand(CLI::App* app, int* exit_code);
void AddListCommands(CLI::App* app, int* exit_code);  ///< deny, auth, verify, forgive, lists
void AddEventCommand(CLI::App* app, int* exit_code);
void AddExemptCommand(CLI::App* app, int* exit_code);
void AddLogCommand(CLI::App* app, int* exit_code);
void AddScanCommand(CLI::App* app, int* exit_code);
void AddServiceCommand(CLI::App* app, int* exit_code);

}  // namespace qiv

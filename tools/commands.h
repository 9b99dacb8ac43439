// The subcommands of qivctl. Each function adds one group from its own file; a command returns its exit code
// (tools/report.h).
#pragma once

#include "command_line/command.h"

namespace qiv {

void AddInitCommand(CCommand* program);
void AddSettingsCommands(CCommand* program);  ///< pack, unpack, lint, set
void AddLibraryCommand(CCommand* program);
void AddCipherCommands(CCommand* program);  ///< encrypt, decrypt
void AddCheckCommand(CCommand* program);
void AddReferenceCommand(CCommand* program);
void AddAreaCommand(CCommand* program);
void AddListCommands(CCommand* program);           ///< deny, auth, verify, forgive, lists
void AddDocumentationCommands(CCommand* program);  ///< completions, man
void AddEventCommand(CCommand* program);
void AddExemptCommand(CCommand* program);
void AddLogCommand(CCommand* program);
void AddReportCommand(CCommand* program);
void AddRulesCommand(CCommand* program);
void AddScanCommand(CCommand* program);
void AddServiceCommand(CCommand* program);
void AddStatusCommand(CCommand* program);
void AddTopCommand(CCommand* program);

}  // namespace qiv

// Finds what is doubtful in readable settings: what the module would ignore, or read as something else than was meant.
#pragma once

#include "tools/settings_document.h"

namespace qiv {

/// Adds a finding with its line for each doubtful key or value, and errors for what cannot be packed.
void LintSettings(const CSettingsDocument& settings, CReport* report);

}  // namespace qiv

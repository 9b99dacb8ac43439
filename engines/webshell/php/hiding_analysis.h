// Names the way in which a PHP file hides a dangerous call.
#pragma once

#include "common/language.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Fills `result` for a finding of kind kHidden or kRequestCall: category "Hide", the way's name, the hidden function.
void ReportHiding(const PhpFinding& finding, Language language, WebshellResult* result);

}  // namespace qiv

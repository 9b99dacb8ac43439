// Names the way in which a PHP file hides a dangerous call.
#pragma once

#include "engines/webshell/php/flow.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// For a finding of kind kHidden or kRequestCall whose detail `result` holds: category "Hide" and the way's finding.
void ReportHiding(PhpFindingKind kind, HidingWay way, WebshellResult* result);

}  // namespace qiv

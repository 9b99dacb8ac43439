// Judges a PHP text by what it does.
#pragma once

#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Whether `text` (bytes of a file that holds "<?") does what a backdoor does; fills `result` with the first finding.
/// Linear; memory is bounded by a multiple of the text, and `walks` pays for passes and for code inside the code.
bool AnalysePhp(std::string_view text, CWalkBudget* walks, WebshellResult* result);

}  // namespace qiv

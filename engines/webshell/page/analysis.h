// Judges ASP and ASPX pages by what they do.
#pragma once

#include <string>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/signatures/signature_library.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Whether `text` (bytes of a file that holds "<%") is a backdoor as an ASP page or, if not, as an ASPX page or
/// handler; fills `result` with the first finding. Where limits kept something from being followed and nothing was
/// found, sets result->partial. `searched`: lower-case text without blanks that holds none of the library's rules, by
/// the size of `text`; empty for none; let go of early. `walks` pays for passes. Linear.
bool AnalysePage(const CSignatureLibrary& library, std::string_view text, std::string searched, CWalkBudget* walks,
                 WebshellResult* result);

}  // namespace qiv

// Judge ASP and ASPX pages by what they do.
#pragma once

#include <string_view>

#include "common/language.h"
#include "engines/webshell/signatures/signature_library.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Whether `text` (bytes of a file that holds "<%") is an ASP backdoor; fills `result` with the first finding. Linear.
bool AnalyseAsp(const CSignatureLibrary& library, std::string_view text, Language language, WebshellResult* result);

/// The same for ASPX pages and handlers.
bool AnalyseAspx(std::string_view text, Language language, WebshellResult* result);

}  // namespace qiv

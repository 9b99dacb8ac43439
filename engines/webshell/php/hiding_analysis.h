// Names the way in which a PHP file hides a dangerous call, and puts labels before details.
#pragma once

#include <string>
#include <string_view>

#include "common/language.h"
#include "common/messages.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// For a finding of kind kHidden or kRequestCall whose detail `result` holds: category "Hide" and the way's name.
void ReportHiding(PhpFindingKind kind, HidingWay way, Language language, WebshellResult* result);

/// "Label: detail", with the colon of the language. `detail` in GBK, as the result.
std::string LabelledDetail(Language language, MessageId label, std::string_view detail);

}  // namespace qiv

// Derives what block pages need from the response section.
#pragma once

#include "config/website_config.h"

namespace qiv {

/// `response.ret_content` in UTF-8, the other texts in GBK. Thread safe.
PageSettings MakePageSettings(const ResponseSettings& response);

}  // namespace qiv

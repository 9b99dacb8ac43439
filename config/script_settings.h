// The script that is inserted into pages, prepared.
#pragma once

#include <string>

#include "config/url_exemptions.h"

namespace qiv {

struct PreparedScript {
  std::string code;          ///< UTF-8, "{{freeurls}}" filled in; empty: none is inserted
  CUrlExemptions urls;       ///< pages that receive it
  CUrlExemptions free_urls;  ///< and those of them that do not
};

}  // namespace qiv

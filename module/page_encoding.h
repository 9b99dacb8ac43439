// The encoding in which a page goes out.
#pragma once

#include <string>
#include <string_view>

#include "checks/check_result.h"

namespace qiv {

struct PageSettings;

struct EncodedPage {
  std::string text;
  std::string_view charset;  ///< "gbk" or "utf-8"
};

/// GBK for requests in GBK, except for a complete custom page that does not name it: that one is sent the other way
/// round. A page in UTF-8 that holds a character without a GBK form stays in UTF-8 in any case.
std::string_view PageCharset(std::string_view page, const PageSettings& settings, const RequestDecision& request);

/// `page` is in UTF-8, or (custom pages alone) in GBK.
EncodedPage EncodePage(std::string page, const PageSettings& settings, const RequestDecision& request);

}  // namespace qiv

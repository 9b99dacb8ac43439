#include "module/page_encoding.h"

#include <utility>

#include "common/char_set.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::size_t kShortestUtf8 = 3;  // bytes; a shorter text is not taken for UTF-8
constexpr std::string_view kGbk = "gbk";

bool IsUtf8Page(std::string_view page) { return page.size() >= kShortestUtf8 && CCharSet::IsValidUtf8(page); }

bool FitsGbk(std::string_view utf8) { return CCharSet::LocalToUtf8(CCharSet::Utf8ToLocal(utf8)) == utf8; }

}  // namespace

std::string_view PageCharset(std::string_view page, const PageSettings& settings, const RequestDecision& request) {
  const bool converted_content = settings.content_charset && request.custom_page;
  if (request.gbk_page == converted_content) return "utf-8";
  return IsUtf8Page(page) && !FitsGbk(page) ? "utf-8" : kGbk;
}

EncodedPage EncodePage(std::string page, const PageSettings& settings, const RequestDecision& request) {
  const std::string_view charset = PageCharset(page, settings, request);
  if (charset == kGbk) {
    if (IsUtf8Page(page)) page = CCharSet::Utf8ToLocal(page);
  } else if (!CCharSet::IsValidUtf8(page)) {
    page = CCharSet::LocalToUtf8(page);
  }
  return {std::move(page), charset};
}

}  // namespace qiv

#include "config/page_settings.h"

#include <string>
#include <string_view>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "config/value_lists.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestTitle = 64;  // bytes; what tabs and histories show of a title

std::string RedirectUrl(std::string_view setting) {
  std::string url = WithoutControls(Trim(setting));
  if (url.empty()) return url;
  const std::string lower = CCharSet::LowerAscii(url);
  if (!lower.starts_with("http://") && !lower.starts_with("https://")) url.insert(0, "http://");
  return url;
}

bool IsWholePage(std::string_view lower) {
  if (lower.find("<html") != std::string_view::npos) return true;
  std::size_t at = 0;
  for (const std::string_view tag : {"<head>", "<title>", "<body>"}) {
    at = lower.find(tag, at);
    if (at == std::string_view::npos) return false;
    at += tag.size();
  }
  return true;
}

/// Whether the first "charset" that the content names is gbk or gb2312.
bool NamesGbk(std::string_view lower) {
  constexpr std::string_view kCharset = "charset";
  const std::size_t found = lower.find(kCharset);
  if (found == std::string_view::npos) return false;
  const std::size_t name = lower.find_first_not_of(" \t\r\n=\"'", found + kCharset.size());
  if (name == std::string_view::npos) return false;
  const std::string_view rest = lower.substr(name);
  const std::string_view charset = rest.substr(0, rest.find_first_of(" \t\r\n;\"'/>"));
  return charset == "gbk" || charset == "gb2312";
}

std::string BreakLines(std::string_view text) { return ReplaceAll(ReplaceAll(text, "\r\n", "<br>"), "\n", "<br>"); }

}  // namespace

PageSettings MakePageSettings(const ResponseSettings& response) {
  PageSettings page;
  page.redirect_url = RedirectUrl(response.ret_url);
  const bool goes_nowhere = response.ret_status == kStatusFound && page.redirect_url.empty();
  page.status = goes_nowhere ? kStatusForbidden : response.ret_status;
  page.type = response.ret_type;
  page.content_charset = true;
  if (page.type != PageSettings::kCustom) return page;

  const std::string lower = CCharSet::LowerBytes(response.ret_content);  // UTF-8
  page.complete_page = IsWholePage(lower);
  page.content_charset = !NamesGbk(lower);
  page.content = page.complete_page ? response.ret_content : BreakLines(response.ret_content);
  page.plain_title = page.content.find('<') != std::string::npos || page.content.size() > kLongestTitle;
  return page;
}

}  // namespace qiv

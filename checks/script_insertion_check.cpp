#include "checks/script_insertion_check.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "checks/response_charset.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

/// Whether the rest of a page, behind "</body", is its end: blanks, comments, "</html>". Anything else, and the tag
/// stood in a string of a script, or in what is no page.
bool IsEndOfPage(std::string_view rest) {
  std::size_t at = rest.find('>');
  if (at == kNowhere || rest.substr(0, at).find('<') != kNowhere) return false;
  for (++at; at < rest.size(); ++at) {
    if (IsSpace(rest[at])) continue;
    const bool comment = rest.compare(at, 4, "<!--") == 0;
    if (!comment && !BeginsNoCase(rest.substr(at), "</html")) return false;
    at = comment ? rest.find("-->", at + 2) : rest.find('>', at);
    if (at == kNowhere) return true;
    if (comment) at += 2;
  }
  return true;
}

/// In GBK and UTF-8 neither "<" nor "/" is a part of another character.
std::size_t LastBodyEnd(std::string_view page) {
  constexpr std::string_view kBody = "body";
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  std::size_t begin = page.starts_with(kMark) ? kMark.size() : 0;
  while (begin < page.size() && IsSpace(page[begin])) ++begin;
  if (page.substr(begin, 1) != "<") return kNowhere;
  for (std::size_t end = page.rfind("</"); end != kNowhere; end = end == 0 ? kNowhere : page.rfind("</", end - 1)) {
    const std::string_view name = page.substr(end + 2);
    if (!BeginsNoCase(name, kBody) || (name.size() != kBody.size() && IsWordByte(name[kBody.size()]))) continue;
    return IsEndOfPage(name) ? end : kNowhere;
  }
  return kNowhere;
}

bool IsHtml(std::string_view type) {
  return type.empty() || BeginsNoCase(type, "text/html") || BeginsNoCase(type, "application/xhtml");
}

/// The script in the page's charset; empty when it cannot be written there.
std::string ScriptFor(const ResponseText& response, const std::string& code) {
  const ResponseEncodings& encodings = EncodingsOf(response);
  if (encodings.encodings.empty() || encodings.encodings[0] >= TextEncoding::kWideLittle) return {};
  if (CCharSet::IsAscii(code)) return code;
  if (encodings.only_ascii) return {};
  // A page that may be in either is UTF-8 if it can be.
  const bool utf8 =
      encodings.encodings[0] == TextEncoding::kUtf8 && (encodings.encodings.size() == 1 || encodings.valid_utf8);
  if (utf8) return code;
  return CCharSet::Survives(code) ? CCharSet::Utf8ToLocal(code) : std::string();
}

}  // namespace

bool GetsScript(const RequestFacts& facts, const WebsiteConfig& site) {
  const PreparedScript& script = site.script;
  return !script.code.empty() && script.urls.Matches(facts.raw_url, facts.path) &&
         !(!script.free_urls.Empty() && script.free_urls.Matches(facts.raw_url, facts.path));
}

void ScriptInsertionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const PreparedScript& script = context.config.script;
  const ResponseText& response = context.response;
  if (response.text.empty() || !response.whole || !response.may_change || context.log_only) return;
  if (!IsHtml(response.type) || !GetsScript(facts, context.config)) return;
  const std::size_t end = LastBodyEnd(response.text);
  if (end == kNowhere) return;
  std::string code = ScriptFor(response, script.code);
  if (code.empty() || response.text.substr(0, end).ends_with(code)) return;

  DecidedEdits edits;
  if (result.request.edits) edits = *result.request.edits;
  edits.response.Add({end, 0}, edits.response.texts.size());
  edits.response.texts.push_back(std::move(code));
  KeepApart(&edits.response);
  result.request.edits = std::make_shared<const DecidedEdits>(std::move(edits));
}

}  // namespace qiv

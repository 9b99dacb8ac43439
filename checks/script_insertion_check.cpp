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

/// In GBK and UTF-8 neither "<" nor "/" is a part of another character.
std::size_t LastBodyEnd(std::string_view page) {
  constexpr std::string_view kBody = "body";
  for (std::size_t end = page.rfind("</"); end != kNowhere; end = end == 0 ? kNowhere : page.rfind("</", end - 1)) {
    const std::string_view name = page.substr(end + 2);
    if (BeginsNoCase(name, kBody) && (name.size() == kBody.size() || !IsWordByte(name[kBody.size()]))) return end;
  }
  return kNowhere;
}

bool IsHtml(std::string_view type) {
  return type.empty() || BeginsNoCase(type, "text/html") || BeginsNoCase(type, "application/xhtml");
}

/// The script in the page's charset; empty when it cannot be written there.
std::string ScriptFor(const ResponseText& response, const std::string& code) {
  const ResponseEncodings encodings = EncodingsOf(response);
  if (encodings.encodings.empty() || encodings.encodings[0] >= TextEncoding::kWideLittle) return {};
  if (CCharSet::IsAscii(code)) return code;
  if (encodings.only_ascii) return {};
  // A page that may be in either is UTF-8 if it can be.
  const bool utf8 = encodings.encodings[0] == TextEncoding::kUtf8 &&
                    (encodings.encodings.size() == 1 || CCharSet::IsValidUtf8(response.text));
  if (utf8) return code;
  return CCharSet::Survives(code) ? CCharSet::Utf8ToLocal(code) : std::string();
}

}  // namespace

void ScriptInsertionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const PreparedScript& script = context.config.script;
  const ResponseText& response = context.response;
  if (script.code.empty() || response.text.empty() || !response.whole || !response.may_change || context.log_only)
    return;
  if (!IsHtml(response.type) || !script.urls.Matches(facts.raw_url, facts.path)) return;
  if (!script.free_urls.Empty() && script.free_urls.Matches(facts.raw_url, facts.path)) return;
  const std::size_t end = LastBodyEnd(response.text);
  if (end == kNowhere) return;
  std::string code = ScriptFor(response, script.code);
  if (code.empty() || response.text.substr(0, end).ends_with(code)) return;

  DecidedEdits edits;
  if (result.request.edits) edits = *result.request.edits;
  edits.response.push_back({{end, 0}, std::move(code)});
  KeepApart(&edits.response);
  result.request.edits = std::make_shared<const DecidedEdits>(std::move(edits));
}

}  // namespace qiv

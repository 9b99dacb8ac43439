#include "module/page_renderer.h"

#include <array>
#include <cstdio>
#include <utility>
#include <vector>

#include "checks/form_target.h"
#include "checks/shown_text.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "config/website_config.h"
#include "module/page_encoding.h"
#include "port/clock.h"

namespace qiv {
namespace {

constexpr std::string_view kPageHead =
    "<!DOCTYPE html><html lang=\"zh-CN\"><head><meta charset=\"{{charset}}\"><meta name=\"viewport\" "
    "content=\"width=device-width, initial-scale=1.0\"><meta http-equiv=\"Content-Type\" content=\"text/html; "
    "charset={{charset}}\" /><title>{{title}}</title></head>";
// The comment stays open on purpose: it swallows what the application may still append.
constexpr std::string_view kPageEnd =
    "<script>if(window.stop){window.stop();}else{document.execCommand(\"stop\");}</script><!--";
constexpr std::string_view kWordsBody = "<body>{{words}}</body></html>";
constexpr std::string_view kPasswordForm =
    "<form name=\"form1\" method=\"post\" action=\"{{url}}\">\n"
    "<p align=\"left\">------------------------------------&nbsp;</p>\n"
    "<p align=\"left\">{{prompt}}</p>\n"
    "<p align=\"left\">\n"
    "<input type=\"password\" name=\"secretrkey{{randip}}\">\n"
    "</p>\n"
    "<input type=\"submit\" name=\"Submit\" value=\"{{submit}}\">\n"
    "</p>\n"
    "<p align=\"left\">------------------------------------&nbsp;</p>\n"
    "</form>\n";

std::string ToUtf8(std::string_view local) { return CCharSet::LocalToUtf8(local); }

/// A text of ours in UTF-8.
std::string PageText(Language language, MessageId id) { return ToUtf8(Message(language, id)); }

/// A value from outside. Decoding comes first: UTF-8 has no byte that could swallow the markup after it. Braces are
/// escaped too: nothing that handles the page later may take them for a placeholder.
std::string Safe(std::string_view local) { return ReplaceAll(HtmlEscape(ToUtf8(local)), "{", "&#123;"); }

std::string CurrentTime() {
  const CalendarTime now = LocalTime(UnixSeconds());
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month, now.day, now.hour,
                now.minute, now.second);
  return text.data();
}

std::string PasswordForm(const RequestFacts& facts, const CheckContext& context) {
  const Language language = context.config.language;
  const std::string prompt = PageText(language, MessageId::kPasswordPrompt);
  const std::string submit = PageText(language, MessageId::kPasswordSubmit);
  const std::string address = Safe(facts.client_ip);
  const std::string action = Safe(FormAction(facts.raw_url));  // ASCII
  return Substitute(
      kPasswordForm,
      std::array<Placeholder, 4>{
          {{"{{url}}", action}, {"{{prompt}}", prompt}, {"{{randip}}", address}, {"{{submit}}", submit}}});
}

/// Custom words belong to the site, so they are part of the template: a placeholder in them works.
std::string CustomTemplate(const PageSettings& page, const std::string& default_title) {
  const std::string_view title = page.plain_title ? std::string_view(default_title) : std::string_view(page.content);
  const std::string head = Substitute(kPageHead, std::array<Placeholder, 1>{{{"{{title}}", title}}});
  return head + Substitute(kWordsBody, std::array<Placeholder, 1>{{{"{{words}}", page.content}}}).append(kPageEnd);
}

/// Substitutes the values and, knowing the whole page by then, the charset it goes out in.
std::string WithCharset(std::string_view text, std::vector<Placeholder> values, std::string_view appended,
                        const PageSettings& settings, const RequestDecision& request) {
  const std::string_view charset = PageCharset(Substitute(text, values).append(appended), settings, request);
  values.push_back({"{{charset}}", charset});
  return Substitute(text, values).append(appended);
}

}  // namespace

std::string Substitute(std::string_view text, std::span<const Placeholder> placeholders) {
  std::string result;
  result.reserve(text.size());
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t open = text.find("{{", at);
    result += text.substr(at, open - at);
    if (open == std::string_view::npos) break;
    at = open;
    const Placeholder* found = nullptr;
    for (const Placeholder& placeholder : placeholders) {
      if (text.substr(open).starts_with(placeholder.name)) found = &placeholder;
    }
    result += found ? found->value : text.substr(open, 1);
    at += found ? found->name.size() : 1;
  }
  return result;
}

std::string RenderPage(const RequestFacts& facts, const CheckContext& context, CheckResult& result,
                       std::string_view appended) {
  const PageSettings& page = context.config.page;
  const Language language = context.config.language;
  RequestDecision& request = result.request;
  if (page.type == PageSettings::kRedirect && !page.redirect_url.empty()) {
    return ("302 Found " + ToUtf8(page.redirect_url)).append(appended);  // the site's own text
  }
  if (!request.prepared_page.empty()) return WithCharset(request.prepared_page, {}, appended, page, request);

  const std::string title = PageText(language, MessageId::kPageTitle);
  const bool with_form = context.config.response.passwd && request.page_detail;
  std::string text;
  std::string form;
  std::vector<Placeholder> values;
  // Everything a placeholder refers to has to outlive the substitution below.
  std::array<std::string, 5> safe;
  const std::string event = Safe(request.event_id);
  if (page.type == PageSettings::kCustom) values.push_back({"{{event_id}}", event});
  if (page.type == PageSettings::kCustom && page.complete_page) {
    text = page.content;
    request.custom_page = true;
  } else if (page.type == PageSettings::kCustom) {
    text = CustomTemplate(page, title);
  } else {
    const bool detailed = page.type == PageSettings::kDetailed;
    text = std::string(kPageHead);
    text += PageText(language, detailed ? MessageId::kDetailedPageBody : MessageId::kShortPageBody);
    text += kPageEnd;
    safe = {Safe(facts.client_ip), CurrentTime(), Safe(ShownFullUrl(facts)), Safe(result.reason), Safe(result.item)};
    values.insert(values.end(), {{"{{title}}", title},
                                 {"{{ip}}", safe[0]},
                                 {"{{time}}", safe[1]},
                                 {"{{url}}", safe[2]},
                                 {"{{detail}}", safe[3]},
                                 {"{{note}}", safe[4]}});
  }
  if (with_form && text.find("{{secretrkey}}") != std::string::npos) form = PasswordForm(facts, context);
  values.push_back({"{{secretrkey}}", form});
  return WithCharset(text, values, appended, page, request);
}

}  // namespace qiv

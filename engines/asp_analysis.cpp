#include "engines/asp_analysis.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/decoders.h"
#include "engines/page_script.h"
#include "engines/risk_words.h"
#include "engines/script_encoding.h"
#include "engines/virus_builtin.h"
#include "engines/virus_rule.h"

namespace qiv {
namespace {

constexpr std::size_t kLargestScript = 105472;  // a longer file with a database's signature is one
constexpr std::size_t kLargePage = 102400;      // longer pages that begin like an application's are one
constexpr std::size_t kVariantLimit = 2048;     // step 7 is for short files
constexpr std::size_t kSmallPage = 4096;        // a page that does little but write a file the request names
constexpr std::string_view kInclude = "<!--#include";
constexpr std::string_view kIncludeBlank = "<!--#include ";

bool Holds(std::string_view text, std::string_view what) { return text.find(what) != std::string_view::npos; }

std::string WithoutBlanks(std::string_view text) {
  std::string copy(text);
  std::erase(copy, ' ');
  return copy;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
  return lower;
}

// A page of an application: long, and beginning with an include or a session.
bool IsLargeOrdinaryPage(std::string_view text) {
  if (text.size() <= kLargePage) return false;
  const std::size_t include = text.find(kIncludeBlank);
  if (include >= 3 && include <= 49 && text.find("<%") < include) return true;
  const std::size_t session = text.find("session(\"");
  return session >= 3 && session <= 59 && text.find("<?") < session;
}

std::string_view ScriptPart(std::string_view text) {
  const std::size_t open = text.find("<%");
  if (open != std::string_view::npos && open < text.find(kIncludeBlank)) text.remove_prefix(open + 2);
  const std::size_t include = text.rfind(kInclude);
  const std::size_t close = text.rfind("%>");
  if (include != std::string_view::npos && close != std::string_view::npos && include < close)
    text = text.substr(0, close);
  return text;
}

// What a short page says once its removal texts, blanks and string joins are gone.
std::string JoinedCopy(const CVirusLibrary& library, std::string_view text) {
  std::string copy = WithoutBlanks(text);
  for (const std::string& removed : library.Removal()) copy = ReplaceAll(copy, removed, "");
  for (const std::string_view join : {"\"+\"", "'+'", "\"&\"", "'&'"}) copy = ReplaceAll(copy, join, "");
  return copy;
}

bool RunsRequest(std::string_view copy) {
  constexpr std::string_view kRuns[] = {
      "eval(request",   "evalrequest",           "eval(eval(",           "execute(eval(",  "execute(request",
      "executerequest", "executeglobal(request", "executeglobalrequest", "eval(\"request", "execute(\"request",
      "eval\"(request", "execute\"(request",     "eval\"&request",       ":eval,",         ":eval}"};
  return std::any_of(std::begin(kRuns), std::end(kRuns), [copy](std::string_view run) { return Holds(copy, run); });
}

bool IsVariant(const CVirusLibrary& library, std::string_view text) {
  std::string copy = JoinedCopy(library, text);
  if (RunsRequest(copy)) return true;
  if (Holds(copy, "strreverse") || Holds(copy, "reverse(")) {
    const std::string reversed(copy.rbegin(), copy.rend());
    if (Holds(reversed, "evalrequest") || Holds(reversed, "eval(request") || Holds(reversed, "execute(request") ||
        Holds(reversed, "evalrequest") || Holds(reversed, "executerequest")) {
      return true;
    }
  }
  if (Holds(copy, "unescape(") && RunsRequest(DecodeUrl(copy, false))) return true;
  // Letters filled in by replace(): "e#v#al".
  const bool runs = Holds(copy, "execute") || Holds(copy, "eval");
  if (runs && (Holds(copy, "replace(") || Holds(copy, "split(") || Holds(copy, "mid("))) {
    std::string letters;
    for (const char c : copy) {
      if (c >= 'a' && c <= 'z') letters += c;
    }
    return Holds(letters, "requestx") || Holds(letters, "evalrequest") || Holds(letters, "executerequest") ||
           Holds(copy, "execute(d(") || Holds(copy, "execute(unescape(");
  }
  return false;
}

bool Fill(Language language, MessageId name, std::string_view detail, WebshellResult* result, bool suspicious = false) {
  *result = {};
  result->name = Message(language, name);
  result->detail = detail;
  result->kind = kAspRuleKind;
  result->suspicious = suspicious;
  return true;
}

// A server-side include of what is no script: a picture or text that an upload form lets through.
bool IncludesPicture(std::string_view text) {
  constexpr std::string_view kEnds[] = {".jpg\"", ".gif\"", ".png\"", ".bmp\"", ".jpeg\"", ".rar\""};
  for (std::size_t p = text.find(kInclude); p != std::string_view::npos; p = text.find(kInclude, p + 1)) {
    const std::string_view line = text.substr(p, std::min<std::size_t>(text.substr(p, 256).find("-->"), 256));
    if (std::any_of(std::begin(kEnds), std::end(kEnds), [line](std::string_view end) { return Holds(line, end); }))
      return true;
  }
  return false;
}

// Classic pages hold none of these.
bool IsAspx(std::string_view page) {
  constexpr std::string_view kMarks[] = {"<%@page",
                                         "<%@webhandler",
                                         "<%@webservice",
                                         "<%@import",
                                         "<%@control",
                                         "<%@master",
                                         "<%@assembly",
                                         "runat=\"server\"language=\"jscript\"",
                                         "language=\"jscript\"runat=\"server\"",
                                         "usingsystem",
                                         "importsystem"};
  const std::string copy = BlankFreeLower(page);
  return std::any_of(std::begin(kMarks), std::end(kMarks), [&](std::string_view mark) { return Holds(copy, mark); });
}

std::string LowerPage(std::string_view text) {
  return Lower(Holds(text, "#@~^") ? DecodeEncodedScript(text) : std::string(text));
}

// A dangerous object whose name shows only once the strings are joined, or a script engine that is fed the request.
std::string_view HiddenObject(std::string_view page, std::string_view code) {
  constexpr std::string_view kObjects[] = {"scripting.filesystemobject", "wscript.shell", "adodb.stream",
                                           "shell.application", "scriptcontrol"};
  for (const std::string_view object : kObjects) {
    if (Holds(code, object) && !Holds(page, object)) return object;
  }
  const bool engine = Holds(code, "scriptcontrol") && Holds(code, "request");
  return engine && (Holds(code, ".addcode") || Holds(code, ".executestatement") || Holds(code, ".eval"))
             ? kObjects[4]
             : std::string_view{};
}

}  // namespace

bool AnalyseAsp(const CVirusLibrary& library, std::string_view text, Language language, WebshellResult* result) {
  const std::string page = LowerPage(text);
  if (page.size() > kLargestScript && Holds(page, "standard jet db")) return false;
  if (Holds(WithoutBlanks(page), "@codepage=65000"))
    return Fill(language, MessageId::kUtf7Script, "@codepage=65000", result);
  if (IsLargeOrdinaryPage(page)) return false;
  const std::string_view script = ScriptPart(page);
  if (const VirusRule* const rule = library.Find(BlankFreeLower(script), text.size()).rule) {
    *result = {rule->name, {}, rule->terms.front(), rule->terms.front(), kAspRuleKind, rule->size_limit, false, false};
    return true;
  }
  const std::string code = JoinStrings(ServerCode(page));
  const PageFlow flow = FollowPage(code, PageKind::kAsp);
  if ((flow.reach & (kReachesCode | kReachesCommand)) != 0) {
    const bool joined = !Holds(page, flow.detail);  // the word shows only once the strings are joined
    return Fill(language, joined ? MessageId::kAspVariant : MessageId::kAspBackdoor, flow.detail, result);
  }
  if ((flow.reach & kHiddenCode) != 0) return Fill(language, MessageId::kAspVariant, "execute", result);
  if (const std::string_view object = HiddenObject(page, code); !object.empty())
    return Fill(language, MessageId::kAspVariant, object, result);
  if (text.size() < kVariantLimit && IsVariant(library, page))
    return Fill(language, MessageId::kAspVariant, "eval", result);
  if ((flow.reach & kReachesFile) != 0 && text.size() <= kSmallPage) {
    return Fill(language, MessageId::kSuspectedFiles, flow.detail, result);
  }
  const RiskScore risk = ScoreRiskWords(page, RiskLanguage::kAsp);
  if (risk.score >= kPageRiskLimit && !Holds(page, "<?php"))
    return Fill(language, MessageId::kSuspectedFiles, risk.heaviest, result);
  if (Holds(text, "#@~^")) return Fill(language, MessageId::kAspVariant, "#@~^", result, true);
  if (IncludesPicture(page)) return Fill(language, MessageId::kSuspiciousReference, kInclude, result, true);
  return false;
}

bool AnalyseAspx(std::string_view text, Language language, WebshellResult* result) {
  const std::string page = Lower(text);
  if (page.size() > kLargestScript && Holds(page, "standard jet db")) return false;
  if (IsLargeOrdinaryPage(page)) return false;
  const std::string code = JoinStrings(ServerCode(page));
  const PageFlow flow = FollowPage(code, PageKind::kAspx);
  if ((flow.reach & (kReachesCode | kReachesCommand | kHiddenCode)) != 0) {
    return Fill(language, MessageId::kAspxVariant, flow.detail, result);
  }
  // JScript pages evaluate text with the page's rights; ordinary ones hardly ever do.
  const bool is_aspx = IsAspx(page);
  if ((flow.reach & kReachesFile) != 0 && (is_aspx || text.size() <= kSmallPage)) {
    return Fill(language, MessageId::kSuspectedFiles, flow.detail, result);
  }
  if (!is_aspx) return false;
  if (Holds(page.substr(0, kSmallPage), "jscript") && Holds(BlankFreeLower(ReplaceAll(code, "\n", "")), "eval(")) {
    return Fill(language, MessageId::kAspxVariant, "eval", result);
  }
  if ((flow.reach & kReachesObject) != 0 && (Holds(code, "assembly") || Holds(code, "createobject"))) {
    return Fill(language, MessageId::kAspxVariant, flow.detail, result);
  }
  const RiskScore risk = ScoreRiskWords(page, RiskLanguage::kAspx);
  if (risk.score >= kPageRiskLimit) return Fill(language, MessageId::kSuspectedFiles, risk.heaviest, result);
  return false;
}

}  // namespace qiv

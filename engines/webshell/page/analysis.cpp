#include "engines/webshell/page/analysis.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/page/page.h"
#include "engines/webshell/page/policy.h"
#include "engines/webshell/risk_words.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {
namespace {

constexpr std::string_view kIncludeBlank = "<!--#include ";

std::string WithoutBlanks(std::string_view text) {
  std::string copy(text);
  std::erase(copy, ' ');
  return copy;
}

// A page of an application: long, and beginning with an include or a session.
bool IsLargeOrdinaryPage(std::string_view text) {
  if (text.size() <= kPageLargeOrdinary) return false;
  const std::size_t include = text.find(kIncludeBlank);
  if (include >= 3 && include <= 49 && text.find("<%") < include) return true;
  const std::size_t session = text.find("session(\"");
  return session >= 3 && session <= 59 && text.find("<?") < session;
}

std::string_view ScriptPart(std::string_view text) {
  const std::size_t open = text.find("<%");
  if (open != std::string_view::npos && open < text.find(kIncludeBlank)) text.remove_prefix(open + 2);
  const std::size_t include = text.rfind(kPageInclude);
  const std::size_t close = text.rfind("%>");
  if (include != std::string_view::npos && close != std::string_view::npos && include < close)
    text = text.substr(0, close);
  return text;
}

// What a short page says once its removal texts, blanks and string joins are gone.
std::string JoinedCopy(const CSignatureLibrary& library, std::string_view text) {
  std::string copy(text);
  const auto remove = [&copy](std::string_view what) {
    if (Holds(copy, what)) copy = ReplaceAll(copy, what, "");
  };
  for (const std::string& removed : library.Removal()) remove(removed);
  copy = WithoutBlanks(copy);
  for (const std::string_view join : {"\"+\"", "'+'", "\"&\"", "'&'"}) remove(join);
  return copy;
}

bool RunsRequest(std::string_view copy) {
  constexpr std::string_view kRuns[] = {
      "eval(request",   "evalrequest",           "eval(eval(",           "execute(eval(",  "execute(request",
      "executerequest", "executeglobal(request", "executeglobalrequest", "eval(\"request", "execute(\"request",
      "eval\"(request", "execute\"(request",     "eval\"&request",       ":eval,",         ":eval}"};
  for (const std::string_view run : kRuns) {
    for (std::size_t p = copy.find(run); p != std::string_view::npos; p = copy.find(run, p + 1)) {
      if (p == 0 || (copy[p - 1] != '.' && !IsWordByte(copy[p - 1]))) return true;  // no object's own
    }
  }
  return false;
}

bool IsVariant(const CSignatureLibrary& library, std::string_view text) {
  std::string copy = JoinedCopy(library, text);
  if (RunsRequest(copy)) return true;
  if (Holds(copy, "strreverse") || Holds(copy, "reverse(")) {
    const std::string reversed(copy.rbegin(), copy.rend());
    if (RunsRequest(reversed)) return true;
  }
  if (Holds(copy, "unescape(") && RunsRequest(DecodeUrl(copy, false))) return true;
  return false;
}

bool Fill(MessageId finding, std::string_view detail, WebshellResult* result, bool suspicious = false) {
  *result = {};
  result->finding = finding;
  result->detail = detail;
  result->kind = kAspRuleKind;
  result->suspicious = suspicious;
  return true;
}

// A server-side include of what is no script: a picture or text that an upload form lets through.
bool IncludesPicture(std::string_view text) {
  constexpr std::string_view kEnds[] = {".jpg\"", ".gif\"", ".png\"", ".bmp\"", ".jpeg\"", ".rar\""};
  for (std::size_t p = text.find(kPageInclude); p != std::string_view::npos; p = text.find(kPageInclude, p + 1)) {
    const std::string_view line = text.substr(p, std::min<std::size_t>(text.substr(p, 256).find("-->"), 256));
    if (std::any_of(std::begin(kEnds), std::end(kEnds), [line](std::string_view end) { return Holds(line, end); }))
      return true;
  }
  return false;
}

// Whether the words are a shell's: many, or some in a page that works on what the request names. Articles and forums
// speak of shells as well; of classic pages only the code counts.
bool SpeaksLikeShell(CPage* page, PageKind kind, std::uint32_t reach, std::string_view* word) {
  const bool aspx = kind == PageKind::kAspx;
  RiskScore risk;
  if (aspx) {
    risk = ScoreRiskWords(page->Plain(), RiskLanguage::kAspx);
  } else {
    if (reach == 0) return false;
    const RiskScore basic = ScoreRiskWords(page->Code().basic, RiskLanguage::kAsp);
    const RiskScore braces = ScoreRiskWords(page->Code().braces, RiskLanguage::kAsp);
    risk = basic.score > braces.score ? basic : braces;
  }
  *word = risk.heaviest;
  bool strong = false;
  const std::int32_t score = risk.score + PageReachScore(reach, &strong);
  return score >= (strong ? kPageRiskLimit : aspx ? kAspxSilentLimit : kAspSilentLimit);
}

// Ordinary pages leave to their class what they do; of those that hold it themselves and use what the request says,
// few risk words in the code itself are enough.
bool CodeSpeaksLikeShell(CPage* page, std::uint32_t reach, std::string_view* word) {
  if ((reach & kReadsRequest) == 0 || page->Facts().Has(kPageIsPart)) return false;
  const PageCode& code = page->Code();
  const RiskScore risk = ScoreRiskWords(code.basic + "\n" + code.braces + "\n" + code.attributes, RiskLanguage::kAspx);
  *word = risk.heaviest;
  bool strong = false;
  return risk.score + PageReachScore(reach, &strong) >= kOwnPageLimit;
}

class CPageJudge {
 public:
  CPageJudge(const CSignatureLibrary& library, CPage* page, CWalkBudget* walks, WebshellResult* result)
      : library_(library), page_(*page), walks_(*walks), result_(*result) {}

  bool JudgeAsp();
  bool JudgeAspx();

 private:
  bool Report(MessageId finding, std::string_view detail, bool suspicious = false) {
    return Fill(finding, detail, &result_, suspicious);
  }
  bool Meets(PageStage stage, const PageFlow& flow) {
    const PagePolicy* const row = FindPagePolicy(stage, &page_);
    return row != nullptr && Report(row->name, row->detail.empty() ? flow.detail : row->detail, row->suspicious);
  }

  const CSignatureLibrary& library_;
  CPage& page_;
  CWalkBudget& walks_;
  WebshellResult& result_;
};

bool CPageJudge::JudgeAsp() {
  const std::string_view plain = page_.Plain();
  const PageFlow& flow = page_.Follow(PageKind::kAsp, &walks_);
  const bool is_short = page_.Text().size() < kPageVariant;
  const MessageId variant = is_short ? MessageId::kAspVariant : MessageId::kAspBackdoor;
  if ((flow.reach & (kReachesCode | kReachesCommand)) != 0) {
    const bool joined = !Holds(plain, flow.detail);  // the word shows only once the strings are joined
    return Report(joined ? variant : MessageId::kAspBackdoor, flow.detail);
  }
  if ((flow.reach & (kHiddenCode | kHiddenObject)) != 0) return Report(variant, flow.detail);
  if (is_short && IsVariant(library_, plain)) return Report(MessageId::kAspVariant, "eval");
  if (Meets(PageStage::kFiles, flow)) return true;
  std::string_view word;
  const bool is_php = plain.find("<?php") < plain.find("<%");  // its own analysis found nothing
  if (!is_php && SpeaksLikeShell(&page_, PageKind::kAsp, flow.reach, &word))
    return Report(MessageId::kSuspectedFiles, word);
  if (Holds(page_.Text(), "#@~^") && !page_.Facts().Has(kPageIsPart)) return Report(variant, "#@~^", true);
  return IncludesPicture(plain) && Report(MessageId::kSuspiciousReference, kPageInclude, true);
}

bool CPageJudge::JudgeAspx() {
  const bool is_aspx = page_.Facts().Has(kPageIsAspx);
  const PageCode& code = page_.Code();
  // VBScript declares no types.
  if (!is_aspx && page_.Text().size() > kPageSmall && code.braces.empty() && !Holds(code.basic, " as ")) return false;
  const PageFlow& flow = page_.Follow(PageKind::kAspx, &walks_);
  if (Meets(PageStage::kRuns, flow) || Meets(PageStage::kFiles, flow)) return true;
  std::string_view word;
  if (is_aspx &&
      (SpeaksLikeShell(&page_, PageKind::kAspx, flow.reach, &word) || CodeSpeaksLikeShell(&page_, flow.reach, &word)))
    return Report(MessageId::kSuspectedFiles, word);
  return Meets(PageStage::kUploads, flow);
}

// The library's rule that the page's script hits; null for none. Both copies are gone when the walks begin.
const SignatureRule* RuleOf(const CSignatureLibrary& library, std::string_view plain, std::string searched,
                            std::size_t size) {
  const std::string script = BlankFreeLower(ScriptPart(plain));
  return script != searched ? library.Find(script, size).rule : nullptr;
}

}  // namespace

bool AnalysePage(const CSignatureLibrary& library, std::string_view text, std::string searched, CWalkBudget* walks,
                 WebshellResult* result) {
  const std::string plain = PlainPage(text);
  if (text.size() > kPageLargestScript && Holds(plain, "standard jet db")) return false;
  if (Holds(plain, "@") && Holds(WithoutBlanks(plain), "@codepage=65000"))
    return Fill(MessageId::kUtf7Script, "@codepage=65000", result);
  if (IsLargeOrdinaryPage(plain)) return false;
  const SignatureRule* const rule = RuleOf(library, plain, std::move(searched), text.size());
  if (rule != nullptr) {
    *result = WebshellResult::OfRule(*rule);
    result->kind = kAspRuleKind;
    return true;
  }
  CPage page(text, plain);
  CPageJudge judge(library, &page, walks, result);
  // ASPX pages are judged as such alone.
  if (!page.Facts().Has(kPageIsAspx) && judge.JudgeAsp()) return true;
  if (judge.JudgeAspx()) return true;
  result->partial = result->partial || page.IsPartial();
  return false;
}

}  // namespace qiv

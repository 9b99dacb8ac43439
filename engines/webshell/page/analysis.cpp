#include "engines/webshell/page/analysis.h"

#include <algorithm>
#include <iterator>
#include <optional>
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
  if (!Holds(copy, "request") && !Holds(copy, "eval")) return false;  // each holds one of them
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

bool Fill(MessageId finding, std::string_view detail, TextPlace place, WebshellResult* result,
          bool suspicious = false) {
  *result = {};
  result->finding = finding;
  result->detail = detail;
  result->place = place;
  result->kind = kAspRuleKind;
  result->suspicious = suspicious;
  return true;
}

// A server-side include of what is no script: a picture or text that an upload form lets through. Without length: none.
TextPlace PictureIncluded(std::string_view text) {
  constexpr std::string_view kEnds[] = {".jpg\"", ".gif\"", ".png\"", ".bmp\"", ".jpeg\"", ".rar\""};
  for (std::size_t p = text.find(kPageInclude); p != std::string_view::npos; p = text.find(kPageInclude, p + 1)) {
    const std::string_view line = text.substr(p, std::min<std::size_t>(text.substr(p, 256).find("-->"), 256));
    if (std::any_of(std::begin(kEnds), std::end(kEnds), [line](std::string_view end) { return Holds(line, end); }))
      return {p, line.size()};
  }
  return {};
}

/// The heaviest of the words that tell, and where it stands in the page.
struct SpokenWord {
  std::string_view word;
  TextPlace place;
};

// Whether the words are a shell's: many, or some in a page that works on what the request names. Articles and forums
// speak of shells as well; of classic pages only the code counts.
std::optional<SpokenWord> SpeaksLikeShell(CPage* page, PageKind kind, std::uint32_t reach) {
  const bool aspx = kind == PageKind::kAspx;
  RiskScore risk;
  ScriptSyntax syntax = ScriptSyntax::kBasic;
  if (aspx) {
    risk = ScoreRiskWords(page->Plain(), RiskLanguage::kAspx);
  } else {
    if (reach == 0) return std::nullopt;
    const RiskScore basic = ScoreRiskWords(page->Code().basic, RiskLanguage::kAsp);
    const RiskScore braces = ScoreRiskWords(page->Code().braces, RiskLanguage::kAsp);
    syntax = basic.score > braces.score ? ScriptSyntax::kBasic : ScriptSyntax::kBraces;
    risk = basic.score > braces.score ? basic : braces;
  }
  bool strong = false;
  const std::int32_t score = risk.score + PageReachScore(reach, &strong);
  if (score < (strong ? kPageRiskLimit : aspx ? kAspxSilentLimit : kAspSilentLimit)) return std::nullopt;
  const TextPlace place{risk.begin, risk.heaviest.size()};
  return SpokenWord{risk.heaviest, aspx ? place : PlaceInPage(page->Plain(), {syntax, place})};
}

// Ordinary pages leave to their class what they do; of those that hold it themselves and use what the request says,
// few risk words in the code itself are enough.
std::optional<SpokenWord> CodeSpeaksLikeShell(CPage* page, std::uint32_t reach) {
  if ((reach & kReadsRequest) == 0 || page->Facts().Has(kPageIsPart)) return std::nullopt;
  const PageCode& code = page->Code();
  const RiskScore risk = ScoreRiskWords(code.basic + "\n" + code.braces + "\n" + code.attributes, RiskLanguage::kAspx);
  bool strong = false;
  if (risk.score + PageReachScore(reach, &strong) < kOwnPageLimit) return std::nullopt;
  const std::size_t braces = code.basic.size() + 1;  // where they begin
  const bool is_basic = risk.begin < braces;
  const PageCodePlace place{is_basic ? ScriptSyntax::kBasic : ScriptSyntax::kBraces,
                            {risk.begin - (is_basic ? 0 : braces), risk.heaviest.size()}};
  return SpokenWord{risk.heaviest, PlaceInPage(page->Plain(), place)};
}

class CPageJudge {
 public:
  CPageJudge(const CSignatureLibrary& library, CPage* page, CWalkBudget* walks, WebshellResult* result)
      : library_(library), page_(*page), walks_(*walks), result_(*result) {}

  bool JudgeAsp();
  bool JudgeAspx();
  /// Whether what was reported is code that the page's own evaluates.
  bool IsInner() const { return inner_; }

 private:
  bool Report(MessageId finding, std::string_view detail, TextPlace place, bool suspicious = false) {
    return Fill(finding, detail, place, &result_, suspicious);
  }
  bool Report(MessageId finding, const PageFlow& flow, std::string_view detail, bool suspicious = false) {
    inner_ = flow.place.inner;
    return Report(finding, detail, PlaceInPage(page_.Plain(), flow.place), suspicious);
  }
  bool Meets(PageStage stage, const PageFlow& flow) {
    const PagePolicy* const row = FindPagePolicy(stage, &page_);
    return row != nullptr && Report(row->name, flow, row->detail.empty() ? flow.detail : row->detail, row->suspicious);
  }

  const CSignatureLibrary& library_;
  CPage& page_;
  CWalkBudget& walks_;
  WebshellResult& result_;
  bool inner_ = false;
};

bool CPageJudge::JudgeAsp() {
  const std::string_view plain = page_.Plain();
  const PageFlow& flow = page_.Follow(PageKind::kAsp, &walks_);
  const bool is_short = page_.Text().size() < kPageVariant;
  const MessageId variant = is_short ? MessageId::kAspVariant : MessageId::kAspBackdoor;
  if ((flow.reach & (kReachesCode | kReachesCommand)) != 0) {
    const bool joined = !Holds(plain, flow.detail);  // the word shows only once the strings are joined
    return Report(joined ? variant : MessageId::kAspBackdoor, flow, flow.detail);
  }
  if ((flow.reach & (kHiddenCode | kHiddenObject)) != 0) return Report(variant, flow, flow.detail);
  if (is_short && IsVariant(library_, plain)) return Report(MessageId::kAspVariant, "eval", TextPlace{});
  if (Meets(PageStage::kFiles, flow)) return true;
  const bool is_php = plain.find("<?php") < plain.find("<%");  // its own analysis found nothing
  if (!is_php) {
    if (const auto spoken = SpeaksLikeShell(&page_, PageKind::kAsp, flow.reach))
      return Report(MessageId::kSuspectedFiles, spoken->word, spoken->place);
  }
  constexpr std::string_view kEncoded = "#@~^";
  if (Holds(page_.Text(), kEncoded) && !page_.Facts().Has(kPageIsPart))
    return Report(variant, kEncoded, TextPlace{}, true);
  const TextPlace picture = PictureIncluded(plain);
  return picture.length != 0 && Report(MessageId::kSuspiciousReference, kPageInclude, picture, true);
}

bool CPageJudge::JudgeAspx() {
  const bool is_aspx = page_.Facts().Has(kPageIsAspx);
  const PageCode& code = page_.Code();
  // VBScript declares no types.
  if (!is_aspx && page_.Text().size() > kPageSmall && code.braces.empty() && !Holds(code.basic, " as ")) return false;
  const PageFlow& flow = page_.Follow(PageKind::kAspx, &walks_);
  if (Meets(PageStage::kRuns, flow) || Meets(PageStage::kFiles, flow)) return true;
  if (is_aspx) {
    std::optional<SpokenWord> spoken = SpeaksLikeShell(&page_, PageKind::kAspx, flow.reach);
    if (!spoken) spoken = CodeSpeaksLikeShell(&page_, flow.reach);
    if (spoken) return Report(MessageId::kSuspectedFiles, spoken->word, spoken->place);
  }
  return Meets(PageStage::kUploads, flow);
}

// Whether the page's script hits a rule of the library. Both copies are gone when the walks begin.
bool HitsRule(const CSignatureLibrary& library, std::string_view plain, std::string searched, std::size_t size,
              WebshellResult* result) {
  const std::string_view part = ScriptPart(plain);
  const std::string script = BlankFreeLower(part);
  const SignatureRule* const rule = script != searched ? library.Find(script, size).rule : nullptr;
  if (rule == nullptr) return false;
  *result = WebshellResult::OfRule(*rule);
  result->kind = kAspRuleKind;
  result->place = PlaceInBlanks(part, script, rule->terms.front());
  result->place.offset += static_cast<std::size_t>(part.data() - plain.data());
  return true;
}

bool JudgePage(const CSignatureLibrary& library, std::string_view text, const std::string& plain, std::string searched,
               CWalkBudget* walks, WebshellResult* result) {
  if (text.size() > kPageLargestScript && Holds(plain, "standard jet db")) return false;
  constexpr std::string_view kUtf7 = "@codepage=65000";
  if (Holds(plain, "@") && Holds(WithoutBlanks(plain), kUtf7)) return Fill(MessageId::kUtf7Script, kUtf7, {}, result);
  if (IsLargeOrdinaryPage(plain)) return false;
  if (HitsRule(library, plain, std::move(searched), text.size(), result)) return true;
  CPage page(text, plain);
  CPageJudge judge(library, &page, walks, result);
  // ASPX pages are judged as such alone.
  if ((!page.Facts().Has(kPageIsAspx) && judge.JudgeAsp()) || judge.JudgeAspx()) {
    if (judge.IsInner()) result->view = TextView::kInner;
    return true;
  }
  result->partial = result->partial || page.IsPartial();
  return false;
}

}  // namespace

bool AnalysePage(const CSignatureLibrary& library, std::string_view text, std::string searched, CWalkBudget* walks,
                 WebshellResult* result) {
  const std::string plain = PlainPage(text);
  if (!JudgePage(library, text, plain, std::move(searched), walks, result)) return false;
  if (plain.size() != text.size()) result->view = TextView::kDecoded;
  return true;
}

}  // namespace qiv

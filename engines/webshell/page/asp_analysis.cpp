#include "engines/webshell/page/asp_analysis.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/decoding/script_encoding.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/risk_words.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {
namespace {

constexpr std::size_t kLargestScript = 105472;  // a longer file with a database's signature is one
constexpr std::size_t kLargePage = 102400;      // longer pages that begin like an application's are one
constexpr std::size_t kVariantLimit = 2048;     // only short files are called variants
constexpr std::size_t kSmallPage = 4096;        // a page that does little but write a file the request names
constexpr std::size_t kReaderPage = 2048;       // a page that does nothing but show any file of the disk
constexpr std::size_t kWriterPage = 16384;      // the same, anywhere on the disk
// Where the request was not seen to name anything.
constexpr std::int32_t kSilentAspLimit = 120;
constexpr std::int32_t kSilentAspxLimit = 110;
// Of the code alone of an ASPX page whose class lies nowhere else. Ordinary ones hold next to none: most score
// below 40.
constexpr std::int32_t kOwnPageLimit = 65;
constexpr std::string_view kInclude = "<!--#include";
constexpr std::string_view kIncludeBlank = "<!--#include ";

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

// Directives that classic pages must not hold.
bool HasAspxDirective(const PageCode& code) {
  constexpr std::string_view kDirectives[] = {"@page",    "@webhandler", "@webservice", "@import",
                                              "@control", "@master",     "@assembly",   "@application"};
  return std::any_of(std::begin(kDirectives), std::end(kDirectives),
                     [&](std::string_view mark) { return Holds(code.attributes, mark); });
}

// Classic pages hold none of these but in texts.
bool IsAspx(std::string_view page, const PageCode& code) {
  constexpr std::string_view kClasses[] = {"using system", "import system", "imports system", "request.files"};
  const std::string_view head = page.substr(0, kSmallPage);
  return HasAspxDirective(code) || std::any_of(std::begin(kClasses), std::end(kClasses),
                                               [&](std::string_view mark) { return Holds(head, mark); });
}

// Lower-cased, encoded pieces decoded, full-width letters narrow.
std::string PlainPage(std::string_view text) {
  std::string page = Lower(Holds(text, "#@~^") ? DecodeEncodedScript(text) : std::string(text));
  std::size_t out = 0;
  for (std::size_t i = 0; i < page.size();) {
    const std::size_t length = CCharSet::CharacterLength(page, i);
    const auto lead = static_cast<unsigned char>(page[i]);
    if (length == 2 && lead == 0xA3 && static_cast<unsigned char>(page[i + 1]) > 0xA0) {
      const char narrow = static_cast<char>(static_cast<unsigned char>(page[i + 1]) - 0x80);
      page[out++] = narrow >= 'A' && narrow <= 'Z' ? static_cast<char>(narrow | 0x20) : narrow;
    } else {
      for (std::size_t k = 0; k < length; ++k) page[out++] = page[i + k];
    }
    i += length;
  }
  page.resize(out);
  return page;
}

// Whether the page is a part of an application: it includes others, or its class lies elsewhere.
bool IsPart(std::string_view page, const PageCode& code) {
  constexpr std::string_view kParts[] = {"codebehind=", "codefile=", "masterpagefile=", "src="};
  const std::size_t inherits = code.attributes.find("inherits=");
  if (inherits != std::string::npos && !code.attributes.substr(inherits).starts_with("inherits=system.web.ui."))
    return true;
  return Holds(page, kInclude) || Holds(page, "user.identity") || Holds(page, "isauthenticated") ||
         std::any_of(std::begin(kParts), std::end(kParts),
                     [&](std::string_view p) { return Holds(code.attributes, p); });
}

bool ReadsAnyFile(std::uint32_t reach, std::string_view page, const PageCode& code) {
  return (reach & kReadsRequested) != 0 && page.size() <= kReaderPage && !IsPart(page, code);
}

// The request names a file and says what is written to it, in a page that does little else. A session may be such a
// page's own; below the site's root, applications write files for those who are signed in.
bool WritesAnyFile(std::uint32_t reach, std::string_view page, const PageCode& code) {
  if (IsPart(page, code)) return false;
  if ((reach & kWritesItself) != 0 && (reach & kContentRequested) != 0) return true;
  if (page.size() > kWriterPage) return false;
  const bool uploads = Holds(page, "request.files") || Holds(page, "postedfile");
  if ((reach & kWritesItself) != 0 && uploads) return true;
  if ((reach & kContentRequested) == 0) return false;
  if ((reach & kPathRequested) != 0) return true;
  if (Holds(page, "session")) return false;
  return ((reach & kPathBelow) != 0 && page.size() <= kReaderPage) ||
         ((reach & kPathMapped) != 0 && page.size() <= kSmallPage);
}

std::int32_t Weight(std::uint32_t reach) {
  constexpr struct {
    std::uint32_t bit;
    std::int32_t weight;
  } kWeights[] = {{kHiddenFiles, 40}, {kReadsRequested, 20},   {kPathRequested, 15},
                  {kPathMapped, 5},   {kContentRequested, 10}, {kRunsText, 15}};
  std::int32_t sum = 0;
  for (const auto& row : kWeights) sum += (reach & row.bit) != 0 ? row.weight : 0;
  return sum;
}

// The request names a database server and says what it is to run, or where its tables are written to.
bool IsSqlConsole(std::uint32_t reach, std::string_view page, const PageCode& code) {
  return (reach & kConnects) != 0 && (reach & (kRunsSql | kPathMapped | kPathRequested)) != 0 && !IsPart(page, code);
}

// Whether the words are a shell's: many, or some in a page that works on what the request names. Articles and forums
// speak of shells as well; of classic pages only the code counts.
bool SpeaksLikeShell(std::string_view page, const PageCode& code, std::uint32_t reach, PageKind kind,
                     std::string_view* word) {
  constexpr std::uint32_t kStrong =
      kPathRequested | kReadsRequested | kUsesShell | kRunsText | kHiddenFiles | kConnects;
  const bool strong = (reach & kStrong) != 0;
  RiskScore risk;
  if (kind == PageKind::kAspx) {
    risk = ScoreRiskWords(page, RiskLanguage::kAspx);
  } else {
    const RiskScore basic = ScoreRiskWords(code.basic, RiskLanguage::kAsp);
    const RiskScore braces = ScoreRiskWords(code.braces, RiskLanguage::kAsp);
    risk = basic.score > braces.score ? basic : braces;
    if (reach == 0) return false;
  }
  *word = risk.heaviest;
  const std::int32_t silent = kind == PageKind::kAspx ? kSilentAspxLimit : kSilentAspLimit;
  return risk.score + Weight(reach) >= (strong ? kPageRiskLimit : silent);
}

// Ordinary pages leave to their class what they do; of those that hold it themselves and use what the request says,
// few of the trade's words in the code itself are enough.
bool CodeSpeaksLikeShell(std::string_view page, const PageCode& code, std::uint32_t reach, std::string_view* word) {
  if ((reach & kHearsClient) == 0 || IsPart(page, code)) return false;
  const RiskScore risk = ScoreRiskWords(code.basic + "\n" + code.braces + "\n" + code.attributes, RiskLanguage::kAspx);
  *word = risk.heaviest;
  return risk.score + Weight(reach) >= kOwnPageLimit;
}

// A page as both analyses see it.
struct Page {
  std::string_view text;  // as it is
  std::string_view plain;
  const PageCode& code;
  bool is_aspx;
  Language language;
  CWalkBudget& walks;
  bool partial = false;  // something was not followed
};

bool JudgeAsp(const CSignatureLibrary& library, Page* page, WebshellResult* result) {
  const auto& [text, plain, code, is_aspx, language, walks, partial] = *page;
  const PageFlow flow = FollowPage(code, PageKind::kAsp, &walks);
  page->partial = page->partial || (flow.reach & kLosesSight) != 0;
  const MessageId variant = text.size() < kVariantLimit ? MessageId::kAspVariant : MessageId::kAspBackdoor;
  if ((flow.reach & (kReachesCode | kReachesCommand)) != 0) {
    const bool joined = !Holds(plain, flow.detail);  // the word shows only once the strings are joined
    return Fill(language, joined ? variant : MessageId::kAspBackdoor, flow.detail, result);
  }
  if ((flow.reach & (kHiddenCode | kHiddenObject)) != 0) return Fill(language, variant, flow.detail, result);
  if (text.size() < kVariantLimit && IsVariant(library, plain))
    return Fill(language, MessageId::kAspVariant, "eval", result);
  if (WritesAnyFile(flow.reach, plain, code) || ReadsAnyFile(flow.reach, plain, code) ||
      IsSqlConsole(flow.reach, plain, code))
    return Fill(language, MessageId::kSuspectedFiles, flow.detail, result);
  std::string_view word;
  const bool is_php = plain.find("<?php") < plain.find("<%");  // its own analysis found nothing
  if (!is_php && SpeaksLikeShell(plain, code, flow.reach, PageKind::kAsp, &word))
    return Fill(language, MessageId::kSuspectedFiles, word, result);
  if (Holds(text, "#@~^") && !IsPart(plain, code)) return Fill(language, variant, "#@~^", result, true);
  if (IncludesPicture(plain)) return Fill(language, MessageId::kSuspiciousReference, kInclude, result, true);
  return false;
}

bool JudgeAspx(Page* page, WebshellResult* result) {
  const auto& [text, plain, code, is_aspx, language, walks, partial] = *page;
  // VBScript declares no types.
  if (!is_aspx && text.size() > kSmallPage && code.braces.empty() && !Holds(code.basic, " as ")) return false;
  const PageFlow flow = FollowPage(code, PageKind::kAspx, &walks);
  page->partial = page->partial || (flow.reach & kLosesSight) != 0;
  if ((flow.reach & (kReachesCode | kReachesCommand | kHiddenCode | kHiddenObject)) != 0)
    return Fill(language, MessageId::kAspxVariant, flow.detail, result);
  // JScript pages evaluate text with the page's rights; ordinary ones hardly ever do.
  if ((flow.reach & kEvaluates) != 0 && !code.braces.empty() &&
      (Holds(plain, "jscript") || Holds(code.attributes, "language=javascript")) &&
      !Holds(code.attributes, "@language=") && (is_aspx || code.basic.empty()))
    return Fill(language, MessageId::kAspxVariant, "eval", result);
  if (WritesAnyFile(flow.reach, plain, code) || ReadsAnyFile(flow.reach, plain, code) ||
      IsSqlConsole(flow.reach, plain, code))
    return Fill(language, MessageId::kSuspectedFiles, flow.detail, result);
  std::string_view word;
  if (is_aspx && SpeaksLikeShell(plain, code, flow.reach, PageKind::kAspx, &word))
    return Fill(language, MessageId::kSuspectedFiles, word, result);
  if (is_aspx && CodeSpeaksLikeShell(plain, code, flow.reach, &word))
    return Fill(language, MessageId::kSuspectedFiles, word, result);
  // Examples in books do so as well.
  if ((flow.reach & kUploadsToRoot) != 0 && plain.size() <= kReaderPage && !IsPart(plain, code) &&
      !Holds(plain, "getextension") && !Holds(plain, "contenttype"))
    return Fill(language, MessageId::kSuspectedFiles, flow.detail, result, true);
  return false;
}

}  // namespace

bool AnalysePage(const CSignatureLibrary& library, std::string_view text, std::string_view searched, Language language,
                 CWalkBudget* walks, WebshellResult* result) {
  const std::string plain = PlainPage(text);
  if (text.size() > kLargestScript && Holds(plain, "standard jet db")) return false;
  if (Holds(plain, "@") && Holds(WithoutBlanks(plain), "@codepage=65000"))
    return Fill(language, MessageId::kUtf7Script, "@codepage=65000", result);
  if (IsLargeOrdinaryPage(plain)) return false;
  const std::string script = BlankFreeLower(ScriptPart(plain));
  const SignatureRule* const rule = script != searched ? library.Find(script, text.size()).rule : nullptr;
  if (rule != nullptr) {
    *result = {rule->name, {}, rule->terms.front(), rule->terms.front(), kAspRuleKind, rule->size_limit};
    return true;
  }
  const PageCode code = ServerCode(plain);
  Page page{text, plain, code, IsAspx(plain, code), language, *walks};
  // ASPX pages are judged as such alone.
  if (!page.is_aspx && JudgeAsp(library, &page, result)) return true;
  if (JudgeAspx(&page, result)) return true;
  result->partial = result->partial || page.partial;
  return false;
}

}  // namespace qiv

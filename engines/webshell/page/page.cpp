#include "engines/webshell/page/page.h"

#include <algorithm>
#include <iterator>

#include "common/char_set.h"
#include "engines/webshell/decoding/script_encoding.h"

namespace qiv {
namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
  return lower;
}

// Directives that classic pages must not hold.
bool HasAspxDirective(const PageCode& code) {
  constexpr std::string_view kDirectives[] = {"@page",    "@webhandler", "@webservice", "@import",
                                              "@control", "@master",     "@assembly",   "@application"};
  return std::any_of(std::begin(kDirectives), std::end(kDirectives),
                     [&](std::string_view mark) { return Holds(code.attributes, mark); });
}

}  // namespace

CPage::CPage(std::string_view text, std::string_view plain)
    : text_(text),
      plain_(plain),
      code_(ServerCode(plain)),
      facts_(plain.size(), [this](std::uint64_t fact) { return HasFact(fact); }) {}

const PageFlow& CPage::Follow(PageKind kind, CWalkBudget* walks) {
  if (flow_ && !flow_->depends_on_kind) return *flow_;
  flow_ = FollowPage(code_, kind, walks);
  constexpr std::uint64_t kAllReach = 0xFFFFFFFF;
  facts_.Set(kAllReach, false);
  facts_.Set(flow_->reach, true);
  partial_ = partial_ || (flow_->reach & kIncomplete) != 0;
  return *flow_;
}

bool CPage::HasFact(std::uint64_t fact) const {
  switch (fact) {
    case kPageIsAspx:
      return IsAspx();
    case kPageIsPart:
      return IsPart();
    case kPageSession:
      return Holds(plain_, "session");
    case kPageTakesFiles:
      return Holds(plain_, "request.files") || Holds(plain_, "postedfile");
    case kPageChecksFiles:
      return Holds(plain_, "getextension") || Holds(plain_, "contenttype");
    case kPageBasic:
      return !code_.basic.empty();
    case kPageBraces:
      return !code_.braces.empty();
    case kPageJscript:
      return Holds(plain_, "jscript") || Holds(code_.attributes, "language=javascript");
    case kPageOnlyLanguage:
      return Holds(code_.attributes, "@language=");
    default:
      return false;
  }
}

// Classic pages hold none of these but in texts.
bool CPage::IsAspx() const {
  constexpr std::string_view kClasses[] = {"using system", "import system", "imports system", "request.files"};
  constexpr std::size_t kHead = 4096;  // bytes
  const std::string_view head = plain_.substr(0, kHead);
  return HasAspxDirective(code_) || std::any_of(std::begin(kClasses), std::end(kClasses),
                                                [&](std::string_view mark) { return Holds(head, mark); });
}

bool CPage::IsPart() const {
  constexpr std::string_view kParts[] = {"codebehind=", "codefile=", "masterpagefile=", "src="};
  const std::size_t inherits = code_.attributes.find("inherits=");
  if (inherits != std::string::npos && !code_.attributes.substr(inherits).starts_with("inherits=system.web.ui."))
    return true;
  return Holds(plain_, kPageInclude) || Holds(plain_, "user.identity") || Holds(plain_, "isauthenticated") ||
         std::any_of(std::begin(kParts), std::end(kParts),
                     [&](std::string_view p) { return Holds(code_.attributes, p); });
}

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

}  // namespace qiv

#include "engines/webshell/webshell_scan.h"

#include <optional>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/page/analysis.h"
#include "engines/webshell/php/analysis.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_text.h"

namespace qiv {
namespace {

constexpr std::size_t kShortestScript = 10;  // bytes: a mark, and a call of something with what the request says

CSignatureLibrary BuildLibrary(std::string_view text, std::string_view user_rules, std::string_view free_code) {
  CSignatureLibrary::Parts parts;
  BuiltinSignatures builtin = ReadBuiltinSignatures();
  for (const std::string_view list : {TaggedPart(text, "trojan_rules"), user_rules, std::string_view(builtin.rules)}) {
    for (SignatureRule& rule : ParseSignatureRules(list)) parts.rules.push_back(std::move(rule));
  }
  for (const std::string_view list : {TaggedPart(text, "trojan_free"), free_code}) {
    for (std::string& code : ParseSignatureTexts(list)) parts.free_code.push_back(std::move(code));
  }
  parts.removal = std::move(builtin.removal);
  for (std::string& removed : ParseSignatureTexts(TaggedPart(text, "trojan_removal")))
    parts.removal.push_back(std::move(removed));
  parts.whole_word = Trim(TaggedPart(text, "trojan_wholeword")) == "1";
  return CSignatureLibrary(std::move(parts));
}

// A text in UTF-16 as single bytes; what is no ASCII becomes "?".
std::string NarrowUtf16(std::string_view text, bool big_endian) {
  std::string narrow;
  narrow.reserve(text.size() / 2);
  for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
    const char low = text[i + (big_endian ? 1 : 0)];
    const char high = text[i + (big_endian ? 0 : 1)];
    narrow += high == '\0' && static_cast<unsigned char>(low) < 0x80 ? low : '?';
  }
  return narrow;
}

// A text in the local code page and what is searched of it.
struct LocalText {
  explicit LocalText(std::string_view text) : view(text) {
    if (!CCharSet::IsAscii(text)) {
      converted = CCharSet::ToLocal(std::string(text));
      view = converted;
    }
    copy = BlankFreeLower(view);
  }
  LocalText(const LocalText&) = delete;
  LocalText& operator=(const LocalText&) = delete;

  std::string converted;
  std::string_view view;  // of the text, or of `converted`
  std::string copy;
};

}  // namespace

CQivLibs::CQivLibs() : CQivLibs({}, {}, {}) {}

CQivLibs::CQivLibs(std::string_view library_text, std::string_view user_rules, std::string_view free_code)
    : library_(BuildLibrary(library_text, user_rules, free_code)) {}

bool CQivLibs::WebshellScan(std::string_view text, WebshellResult* result) const {
  CWalkBudget walks(0);
  return WebshellScan(text, Depth::kWhole, &walks, result);
}

bool CQivLibs::WebshellScan(std::string_view text, Depth depth, CWalkBudget* walks, WebshellResult* result) const {
  result->known_good = result->partial = false;
  if (text.empty() || text.size() > kLongestText) return false;
  const std::size_t size = text.size();
  std::string narrow;
  if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
    narrow = NarrowUtf16(text, text[0] == '\xFE');
    text = narrow;
  }
  std::optional<LocalText> local(text);
  const CSignatureLibrary::Match match = library_.Find(local->copy, size);
  if (match.known_good) {
    result->known_good = true;
    return false;
  }
  if (match.rule != nullptr) {
    *result = WebshellResult::OfRule(*match.rule);
    result->place = PlaceInBlanks(local->view, local->copy, match.rule->terms.front());
    if (!narrow.empty() || local->view != text) result->view = TextView::kConverted;
    return true;
  }
  if (size < kShortestScript || depth == Depth::kSignatures) return false;
  // A page may consist of "<script runat=server>" alone.
  constexpr std::size_t kNone = std::string_view::npos;
  const bool is_page =
      text.find("<%") != kNone || (FindNoCase(text, "<script") != kNone && FindNoCase(text, "runat") != kNone);
  walks->Begin(size);
  if (text.find("<?") != kNone) {
    local.reset();  // following PHP holds enough by itself
    if (AnalysePhp(text, walks, result)) {
      if (!narrow.empty()) result->view = TextView::kConverted;
      return true;
    }
  }
  if (is_page) {
    if (!local) local.emplace(text);
    if (local->view.size() != size) local->copy = {};  // a search of another size comes
    if (AnalysePage(library_, local->view, std::move(local->copy), walks, result)) {
      if (!narrow.empty() || local->view != text) result->view = TextView::kConverted;
      return true;
    }
  }
  result->partial = result->partial || walks->Refused();
  return false;
}

bool CQivLibs::WebshellScan(std::string* text, WebshellResult* result) const {
  const bool found = WebshellScan(std::string_view(*text), result);
  if (result->known_good) text->clear();
  return found;
}

}  // namespace qiv

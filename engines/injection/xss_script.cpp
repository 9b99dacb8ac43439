#include "engines/injection/xss_script.h"

#include <algorithm>
#include <array>
#include <string>

#include "engines/injection/xss_script_reader.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kScheme = "javascript:";
constexpr std::size_t kHead = 64;  // bytes of a URL by which it is told

constexpr bool IsLineByte(char c) { return c == '\t' || c == '\n' || c == '\r'; }

// Whether an odd number of "\" stands before the place.
bool IsEscaped(std::string_view text, std::size_t pos) {
  std::size_t begin = pos;
  while (begin > 0 && text[begin - 1] == '\\') --begin;
  return (pos - begin) % 2 != 0;
}

// The first `quote` that is, or is not, escaped.
std::size_t FindQuote(std::string_view text, char quote, bool escaped) {
  std::size_t pos = text.find(quote);
  while (pos != kNone && IsEscaped(text, pos) != escaped) pos = text.find(quote, pos + 1);
  return pos;
}

// What browsers skip in a URL: control bytes and blanks before it, line breaks and tabs in it.
std::string WithoutSkipped(std::string_view url, std::size_t most) {
  std::string plain;
  std::size_t pos = 0;
  while (pos < url.size() && static_cast<unsigned char>(url[pos]) <= ' ') ++pos;
  for (; pos < url.size() && plain.size() < most; ++pos) {
    if (!IsLineByte(url[pos])) plain += LowerByte(url[pos]);
  }
  return plain;
}

// A script of links that do nothing, or go back.
bool IsHarmless(std::string_view script) {
  constexpr std::array<std::string_view, 5> kHarmless = {"", "void(0)", "void 0", "void(null)", "false"};
  return std::find(kHarmless.begin(), kHarmless.end(), TrimBytes(script, " ;")) != kHarmless.end();
}

bool GoesBack(std::string_view script) {
  constexpr std::array<std::string_view, 5> kBack = {"history.back()", "history.go(-1)", "window.history.back()",
                                                     "window.history.go(-1)", "history.go(-2)"};
  return std::find(kBack.begin(), kBack.end(), TrimBytes(script, " ;")) != kBack.end();
}

// "data:" types whose content can hold script; of pictures' own tags none runs.
bool IsDataPage(std::string_view head) {
  constexpr std::array<std::string_view, 5> kPages = {"data:text/html", "data:text/xml", "data:image/svg",
                                                      "data:application/xhtml", "data:application/xml"};
  return std::any_of(kPages.begin(), kPages.end(),
                     [&](std::string_view page) { return head.substr(0, page.size()) == page; });
}

}  // namespace

std::optional<TextPlace> FindScriptBreakout(std::string_view text) {
  const bool has_backslash = text.find('\\') != kNone;
  for (const char quote : {'\'', '"', '`'}) {
    for (const bool escaped : {false, true}) {
      if (escaped && !has_backslash) continue;
      const std::size_t at = FindQuote(text, quote, escaped);
      if (at == kNone) continue;
      CScriptReader reader(text, at + 1, quote);
      if (reader.Runs(ScriptStart::kBehindString)) return TextPlace{at, reader.Position() - at};
    }
  }
  const std::string_view hole_text = text.substr(0, FindQuote(text, '`', false));
  for (std::size_t hole = hole_text.find("${"); hole != kNone;) {
    CScriptReader reader(text, hole + 2, '`');
    if (reader.Runs(ScriptStart::kHole)) return TextPlace{hole, reader.Position() - hole};
    hole = hole_text.find("${",
                          std::max(reader.Position(), hole + 2));  // where reading stopped, so each byte is read once
  }
  return std::nullopt;
}

std::size_t CNamedTags::NextTag(std::size_t quote, std::size_t from) {
  std::size_t& next = next_[quote];
  if (next >= from && next != 0) return next;
  const char mark = kQuotes[quote];
  const std::string tag = mark + std::string("<script>") + mark;
  next = std::min(text_.find(tag, from), text_.size());
  return next;
}

// Where the script ends that begins at `from`.
std::size_t CNamedTags::FindClose(std::size_t from) const {
  for (std::size_t at = text_.find(kClose, from); at != kNone; at = text_.find(kClose, at + 1)) {
    const std::size_t behind = at + kClose.size();
    if (behind == text_.size() || IsSpace(text_[behind]) || text_[behind] == '/' || text_[behind] == '>') return at;
  }
  return text_.size();
}

// Comments of HTML change where a script ends and which of its lines run, and templates hold code: the reader knows
// neither.
bool CNamedTags::IsBeyondReading() {
  if (!beyond_reading_) {
    beyond_reading_ = std::any_of(kBeyondReading.begin(), kBeyondReading.end(),
                                  [this](std::string_view mark) { return text_.find(mark) != kNone; });
  }
  return *beyond_reading_;
}

bool CNamedTags::IsNamed(std::size_t begin, std::size_t end) {
  if (begin == 0 || end >= text_.size() || text_[begin - 1] != text_[end]) return false;
  const std::size_t quote = kQuotes.find(text_[end]);
  if (quote == kNone || IsBeyondReading()) return false;
  if (close_ < end) close_ = FindClose(end);
  // Documents name the tag often. Where the next one in such quotes stands behind an operand, what follows it decides
  // here as well, and that tag is asked about by itself.
  if (const std::size_t next = NextTag(quote, end); next < close_) {
    CScriptReader reader(text_.substr(0, next + 1), end, '\0');
    if (reader.Runs(ScriptStart::kStatement)) return false;
    if (reader.Position() <= next || reader.IsBehindOperand()) return true;
  }
  const std::size_t most = std::min(close_ - end, left_);
  CScriptReader reader(text_.substr(0, end + most), end, '\0');
  const bool runs = reader.Runs(ScriptStart::kStatement);
  left_ -= std::min(reader.Position() - end + 1, left_);
  return !runs && left_ > 0;
}

bool IsRunningUrl(std::string_view value, UrlPlace place) {
  // Few values begin like one; the others cost nothing.
  std::size_t first = 0;
  while (first < value.size() && static_cast<unsigned char>(value[first]) <= ' ') ++first;
  if (first == value.size()) return false;
  const bool possible = place == UrlPlace::kAnywhere ? value.find("script") != kNone || value.find('&') != kNone
                                                     : std::string_view("jvd&").find(value[first]) != kNone;
  if (!possible) return false;
  std::string decoded;
  const std::size_t reference = value.find('&');
  if (reference != kNone && (place == UrlPlace::kAnywhere || reference < value.find_first_of("/?"))) {
    decoded = DecodeHtmlEntities(value);
    value = decoded;
  }
  if (place == UrlPlace::kAnywhere) return WithoutSkipped(value, value.size()).find(kScheme) != kNone;
  const std::string head = WithoutSkipped(value, kHead);
  if (head.starts_with("vbscript:")) return true;
  if (head.starts_with(kScheme)) return !IsHarmless(value.substr(value.find(':') + 1));
  return place == UrlPlace::kAttribute && IsDataPage(head);
}

bool IsScriptUrl(std::string_view value) {
  std::string decoded;
  while (!value.empty() && (value.front() == '"' || value.front() == '\'')) value.remove_prefix(1);
  while (!value.empty() && static_cast<unsigned char>(value.front()) <= ' ') value.remove_prefix(1);
  if (value.empty() || (value.front() != 'j' && value.front() != '&')) return false;
  const std::string_view head = value.substr(0, kHead);
  if (head.find('&') < head.find_first_of("/?")) {
    decoded = DecodeHtmlEntities(value);
    value = decoded;
  }
  if (!std::string_view(WithoutSkipped(value, kHead)).starts_with(kScheme)) return false;
  std::string script(value.substr(value.find(':') + 1));
  if (script.find('%') != kNone) script = PercentDecode(script);
  if (IsHarmless(script) || GoesBack(script)) return false;
  return CScriptReader(script, 0, '\0').Runs(ScriptStart::kStatement);
}

bool IsWholeScript(std::string_view value) { return CScriptReader(value, 0, '\0').Runs(ScriptStart::kWhole); }

}  // namespace qiv

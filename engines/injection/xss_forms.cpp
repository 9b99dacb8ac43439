#include "engines/injection/xss_forms.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/injection/xss_markup.h"
#include "engines/injection/xss_script.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kShownOfDecoded = 200;  // bytes of a value that stand for a place in its decoded copy

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// Escapes of script strings ("\x3c", "\u003c", "\u{3c}", "\74") as what they stand for; none above one byte.
std::string UnescapeScript(std::string_view text) {
  constexpr std::size_t kMostDigits = 6;
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    if (text[pos] != '\\' || pos + 1 == text.size()) {
      plain += text[pos++];
      continue;
    }
    const char kind = text[++pos];
    const bool octal = kind >= '0' && kind <= '7';
    bool braces = false;
    std::size_t digits = octal ? 3 : kind == 'x' ? 2 : kind == 'u' ? 4 : 0;
    if (digits == 0) {
      plain += kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
      ++pos;
      continue;
    }
    if (!octal) ++pos;
    if (kind == 'u' && pos < text.size() && text[pos] == '{') {
      braces = true;
      digits = kMostDigits;
      ++pos;
    }
    unsigned code = 0;
    for (; digits > 0 && pos < text.size() && HexDigit(text[pos]) >= 0 && (!octal || HexDigit(text[pos]) < 8);
         --digits) {
      code = code * (octal ? 8 : 16) + static_cast<unsigned>(HexDigit(text[pos++]));
    }
    if (braces && pos < text.size() && text[pos] == '}') ++pos;
    plain += code < 0x80 ? LowerByte(static_cast<char>(code)) : '?';
  }
  return plain;
}

// Whether it may hold "<" as one of these escapes.
bool HoldsEscapedTag(std::string_view text) {
  for (std::size_t pos = text.find('\\'); pos != kNone; pos = text.find('\\', pos + 1)) {
    const std::string_view rest = text.substr(pos + 1, 10);
    if (rest.starts_with("x3c") || rest.starts_with("u003c") || rest.starts_with("74") || rest.starts_with("074") ||
        (rest.starts_with("u{") && rest.find("3c}") != kNone)) {
      return true;
    }
  }
  return false;
}

// Whether it holds "%XX" or "%uXXXX" of a byte that makes markup or script: a control byte, a letter, one of these.
bool HoldsPercentEscape(std::string_view text) {
  for (std::size_t pos = text.find('%'); pos != kNone; pos = text.find('%', pos + 1)) {
    const std::string_view rest = text.substr(pos + 1, 2);
    if (rest.size() < 2 || HexDigit(rest[1]) < 0) continue;
    if (rest[0] == 'u' || rest[0] == '0' || (rest[0] >= '4' && rest[0] < '8')) return true;
    for (const std::string_view one : {"22", "27", "28", "3c", "3d"}) {
      if (rest == one) return true;
    }
  }
  return false;
}

XssFinding FindElements(std::string_view text, const InjectionLibrary& library, XssKinds kinds, bool hidden_too) {
  if (text.find('<') == kNone) return {};
  CMarkupReader reader(text, library, kinds);
  XssFinding found = reader.Read(MarkupStart::kElement);
  if (found.type == XssType::kNone && hidden_too && reader.PassedOverTags()) found = reader.Read(MarkupStart::kRaw);
  return found;
}

// A value that ends the element whose text it is (nobody writes the end alone) and begins a tag of its own.
XssFinding FindEndOfText(std::string_view text, XssKinds kinds) {
  if (!kinds.script) return {};
  constexpr std::array<std::string_view, 7> kTextElements = {"script",   "style",  "textarea", "title",
                                                             "noscript", "iframe", "xmp"};
  const std::size_t open = text.find('<');
  if (open == kNone || text.substr(open + 1, 1) != "/") return {};
  std::size_t end = open + 2;
  while (end < text.size() && IsLetter(text[end])) ++end;
  const std::string_view name = text.substr(open + 2, end - open - 2);
  const std::size_t next = text.find('<', end);
  const bool tag = next != kNone && next + 1 < text.size() && IsLetter(text[next + 1]);
  const bool ends_text = std::find(kTextElements.begin(), kTextElements.end(), name) != kTextElements.end();
  return tag && ends_text ? XssFinding{XssType::kScriptTag, open, next + 2} : XssFinding{};
}

XssFinding FindAttributes(std::string_view text, const InjectionLibrary& library, XssKinds kinds) {
  if (!CMarkupReader::HoldsTellingAttribute(text, library)) return {};
  CMarkupReader reader(text, library, kinds);
  for (const MarkupStart start : {MarkupStart::kDoubleQuoted, MarkupStart::kSingleQuoted, MarkupStart::kUnquoted}) {
    const XssFinding found = reader.Read(start);
    if (found.type != XssType::kNone) return found;
  }
  return {};
}

XssFinding FindScript(std::string_view text, XssKinds kinds) {
  if (!kinds.script) return {};
  if (const std::optional<TextPlace> found = FindScriptBreakout(text)) {
    return {XssType::kScriptCode, found->offset, found->offset + found->length};
  }
  return {};
}

// What a value shows of itself at a glance.
enum Sign : unsigned {
  kTag = 1U,
  kAssigns = 2U,
  kCalls = 4U,
  kQuote = 8U,
  kHole = 16U,
  kPlus = 32U,
  kReference = 64U,
  kPercent = 128U,
  kBackslash = 256U,
  kEscapes = kReference | kPercent | kBackslash,
};

constexpr std::array<std::uint16_t, 256> SignTable() {
  std::array<std::uint16_t, 256> table{};
  table['<'] = kTag;
  table['='] = kAssigns;
  table['('] = kCalls;
  table['`'] = kCalls | kQuote;
  table['"'] = table['\''] = kQuote;
  table['$'] = kHole;
  table['+'] = kPlus;
  table['&'] = kReference;
  table['%'] = kPercent;
  table['\\'] = kBackslash;
  return table;
}

unsigned SignsIn(std::string_view text) {
  static constexpr std::array<std::uint16_t, 256> kTable = SignTable();
  unsigned signs = 0;
  for (const char c : text) signs |= kTable[static_cast<unsigned char>(c)];
  return signs;
}

// What the value is behind one more decoding: a browser's, a script's, a site's.
XssFinding FindDecoded(std::string_view value, std::string_view markup, unsigned signs, const InjectionLibrary& library,
                       XssKinds kinds) {
  XssFinding found;
  const auto none = [&found] { return found.type == XssType::kNone; };
  // In event attributes and URLs a script's quotes may be written as references and percent escapes.
  if ((signs & kReference) != 0 &&
      (value.find("&#") != kNone || value.find("&apos") != kNone || value.find("&quot") != kNone)) {
    const std::string decoded = DecodeHtmlEntities(value);
    found = FindScript(decoded, kinds);
    if (none() && decoded.find("%27") != kNone) found = FindScript(PercentDecode(decoded), kinds);
  }
  // A site may decode once more than its server does.
  if (none() && (signs & kPercent) != 0 && HoldsPercentEscape(value)) {
    const std::string decoded = CCharSet::LowerBytes(PercentDecode(markup));
    found = FindElements(decoded, library, kinds, false);
    if (none()) found = FindAttributes(decoded, library, kinds);
    if (none()) found = FindScript(decoded, kinds);
  }
  // A script may write its string into the page.
  if (none() && (signs & kBackslash) != 0 && HoldsEscapedTag(value)) {
    found = FindElements(UnescapeScript(value), library, kinds, false);
  }
  return found;
}

// What was found in a decoded copy stands for the beginning of the value.
XssFinding InDecoded(XssFinding found, std::string_view value) {
  if (found.type != XssType::kNone) found = {found.type, 0, CCharSet::Prefix(value, kShownOfDecoded).size()};
  return found;
}

}  // namespace

XssFinding FindXssForm(std::string_view value, const InjectionLibrary& library, XssKinds kinds) {
  const unsigned signs = SignsIn(value);
  if ((signs & (kTag | kAssigns | kCalls | kEscapes)) == 0) return {};  // most values
  // "+" is a blank in markup, where nothing is added.
  std::string blanked;
  std::string_view markup = value;
  if ((signs & kPlus) != 0 && (signs & (kTag | kAssigns | kPercent)) != 0) {
    blanked = value;
    std::replace(blanked.begin(), blanked.end(), '+', ' ');
    markup = blanked;
  }
  XssFinding found;
  const auto none = [&found] { return found.type == XssType::kNone; };
  if ((signs & kTag) != 0) found = FindElements(markup, library, kinds, true);
  if (none() && (signs & kTag) != 0) found = FindEndOfText(markup, kinds);
  if (none() && (signs & kAssigns) != 0) found = FindAttributes(markup, library, kinds);
  if (none() && (signs & (kAssigns | kCalls)) != 0 && (signs & (kQuote | kHole)) != 0) found = FindScript(value, kinds);
  if (!none()) return found;
  if (kinds.loading && IsScriptUrl(value)) return InDecoded({XssType::kScriptLoading, 0, 0}, value);
  if (kinds.script && (signs & kCalls) != 0 && IsWholeScript(value))
    return InDecoded({XssType::kScriptCode, 0, 0}, value);
  if ((signs & kEscapes) != 0) found = InDecoded(FindDecoded(value, markup, signs, library, kinds), value);
  return found;
}

}  // namespace qiv

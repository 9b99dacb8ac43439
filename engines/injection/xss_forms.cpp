#include "engines/injection/xss_forms.h"

#include <algorithm>
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

// Whether it holds "%XX" or "%uXXXX" of a byte that markup or script is made of.
bool HoldsPercentEscape(std::string_view text) {
  for (std::size_t pos = text.find('%'); pos != kNone; pos = text.find('%', pos + 1)) {
    const std::string_view rest = text.substr(pos + 1, 3);
    if (rest.size() >= 2 && (rest[0] == 'u' || (rest[0] >= '0' && rest[0] < '8')) && HexDigit(rest[1]) >= 0)
      return true;
  }
  return false;
}

XssFinding FindElements(std::string_view text, const InjectionLibrary& library) {
  if (text.find('<') == kNone) return {};
  CMarkupReader reader(text, library);
  XssFinding found = reader.Read(MarkupStart::kElement);
  if (found.type == XssType::kNone && reader.PassedOverTags()) found = reader.Read(MarkupStart::kRaw);
  return found;
}

XssFinding FindAttributes(std::string_view text, const InjectionLibrary& library) {
  if (!CMarkupReader::HoldsTellingAttribute(text, library)) return {};
  CMarkupReader reader(text, library);
  for (const MarkupStart start : {MarkupStart::kDoubleQuoted, MarkupStart::kSingleQuoted, MarkupStart::kUnquoted}) {
    const XssFinding found = reader.Read(start);
    if (found.type != XssType::kNone) return found;
  }
  return {};
}

XssFinding FindScript(std::string_view text) {
  if (const std::optional<TextPlace> found = FindScriptBreakout(text)) {
    return {XssType::kScriptCode, found->offset, found->offset + found->length};
  }
  return {};
}

// What was found in a decoded copy stands for the beginning of the value.
XssFinding InDecoded(XssFinding found, std::string_view value) {
  if (found.type != XssType::kNone) found = {found.type, 0, CCharSet::Prefix(value, kShownOfDecoded).size()};
  return found;
}

}  // namespace

XssFinding FindXssForm(std::string_view value, const InjectionLibrary& library) {
  // "+" is a blank in markup, where nothing is added.
  std::string blanked;
  std::string_view markup = value;
  if (value.find('+') != kNone && value.find_first_of("<=") != kNone) {
    blanked = value;
    std::replace(blanked.begin(), blanked.end(), '+', ' ');
    markup = blanked;
  }
  XssFinding found = FindElements(markup, library);
  if (found.type == XssType::kNone) found = FindAttributes(markup, library);
  if (found.type == XssType::kNone) found = FindScript(value);
  if (found.type != XssType::kNone) return found;
  if (IsScriptUrl(value)) return InDecoded({XssType::kScriptLoading, 0, 0}, value);
  if (IsWholeScript(value)) return InDecoded({XssType::kScriptCode, 0, 0}, value);
  // In event attributes and URLs a script's quotes may be written as references and percent escapes.
  if (value.find("&#") != kNone || value.find("&apos") != kNone || value.find("&quot") != kNone) {
    const std::string decoded = DecodeHtmlEntities(value);
    found = InDecoded(FindScript(decoded), value);
    if (found.type == XssType::kNone && decoded.find("%27") != kNone)
      found = InDecoded(FindScript(PercentDecode(decoded)), value);
  }
  // A site may decode once more than its server does.
  if (found.type == XssType::kNone && HoldsPercentEscape(value)) {
    const std::string decoded = CCharSet::LowerBytes(PercentDecode(value));
    found = FindElements(decoded, library);
    if (found.type == XssType::kNone) found = FindAttributes(decoded, library);
    if (found.type == XssType::kNone) found = FindScript(decoded);
    found = InDecoded(found, value);
  }
  // A script may write its string into the page.
  if (found.type == XssType::kNone && HoldsEscapedTag(value)) {
    found = InDecoded(FindElements(UnescapeScript(value), library), value);
  }
  return found;
}

}  // namespace qiv

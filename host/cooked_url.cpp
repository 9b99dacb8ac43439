#include "host/cooked_url.h"

#include <algorithm>

#include "base/hex.h"
#include "host/ascii.h"
#include "host/http_parser.h"

namespace qiv::host {
namespace {

bool Fail(const char* text, const char** reason) {
  *reason = text;
  return false;
}

/// Takes %uXXXX at the front of `text`.
bool TakeWideEscape(std::string_view* text, char16_t* unit) {
  const int value = HexNumber(*text, 2, 4);
  if (value < 0) return false;
  *unit = static_cast<char16_t>(value);
  text->remove_prefix(6);
  return true;
}

/// Bytes of one UTF-8 sequence at the front; 0 when there is no valid one. Gives its code point.
std::size_t Utf8Length(std::string_view bytes, char32_t* point) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned first = byte(0);
  const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (length == 0 || first > 0xF4 || bytes.size() < length) return 0;
  char32_t value = length == 1 ? first : first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    value = (value << 6) | (byte(i) & 0x3F);
  }
  const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
  if (overlong || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) return 0;
  *point = value;
  return length;
}

/// UTF-8 where it is valid, else each byte as one unit: the front end never refuses bytes above 0x7F.
void AppendDecoded(std::string_view bytes, std::u16string* out) {
  while (!bytes.empty()) {
    char32_t point = 0;
    std::size_t length = Utf8Length(bytes, &point);
    if (length == 0) {
      point = static_cast<unsigned char>(bytes.front());
      length = 1;
    }
    if (point >= 0x10000) {
      out->push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
      out->push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
    } else {
      out->push_back(static_cast<char16_t>(point));
    }
    bytes.remove_prefix(length);
  }
}

bool DecodePath(std::string_view path, std::u16string* out, const char** reason) {
  std::string bytes;  // decoded bytes not yet taken as UTF-8
  while (!path.empty()) {
    char c = path.front();
    if (c != '%') {
      bytes.push_back(c);
      path.remove_prefix(1);
      continue;
    }
    if (path.size() > 1 && (path[1] == 'u' || path[1] == 'U')) {
      char16_t unit = 0;
      if (!TakeWideEscape(&path, &unit)) return Fail("Invalid URL.", reason);
      AppendDecoded(bytes, out);
      bytes.clear();
      if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) return Fail("Invalid URL.", reason);
      out->push_back(unit);
      continue;
    }
    const int byte = EscapedByte(path, 0);
    if (byte < 0) return Fail("Invalid URL.", reason);
    c = static_cast<char>(byte);
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return Fail("Invalid URL.", reason);
    bytes.push_back(c);
    path.remove_prefix(3);
  }
  AppendDecoded(bytes, out);
  for (const char16_t unit : *out) {
    if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0)) return Fail("Invalid URL.", reason);
  }
  return true;
}

/// Appends the canonical form of a decoded path, which begins with a slash of either kind.
bool AppendCanonical(std::u16string_view path, std::u16string* out, const char** reason) {
  const std::size_t base = out->size();
  std::size_t segments = 0;
  out->push_back(u'/');
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(u"/\\"), path.size());
    const std::u16string_view segment = path.substr(0, end);
    const bool last = end == path.size();
    path.remove_prefix(last ? end : end + 1);
    if (segment.empty() || segment == u".") continue;
    if (segment == u"..") {
      if (out->size() == base + 1) return Fail("Invalid URL.", reason);
      out->pop_back();
      while (out->back() != u'/') out->pop_back();
      continue;
    }
    if (segment.size() > kMaxSegmentChars || ++segments > kMaxSegments) return Fail("Invalid URL.", reason);
    out->append(segment);
    if (!last) out->push_back(u'/');
  }
  return true;
}

void AppendWidened(std::string_view bytes, std::u16string* out) {
  for (const char c : bytes) out->push_back(static_cast<unsigned char>(c));
}

}  // namespace

bool CookUrl(std::string_view raw_url, std::string_view authority, bool secure, CookedUrl* cooked,
             const char** reason) {
  std::string_view target = raw_url;
  if (!target.empty() && target.front() != '/' && target != "*") {
    const std::size_t scheme = target.find("://");
    if (scheme == std::string_view::npos) return Fail("Invalid URL.", reason);
    target.remove_prefix(scheme + 3);
    const std::size_t end = std::min(target.find_first_of("/?"), target.size());
    authority = target.substr(0, end);
    target.remove_prefix(end);
  }
  const std::size_t question = std::min(target.find('?'), target.size());
  std::u16string decoded;
  if (!DecodePath(target.substr(0, question), &decoded, reason)) return false;

  cooked->full.clear();
  cooked->full.reserve(raw_url.size() + authority.size() + 16);
  cooked->full.append(secure ? u"https://" : u"http://");
  cooked->host_at = cooked->full.size();
  AppendDecoded(authority, &cooked->full);
  // The full URL always names the port.
  const std::size_t bracket = std::min(authority.rfind(']'), authority.size());
  const std::size_t colon = authority.find(':', bracket == authority.size() ? 0 : bracket);
  if (colon == std::string_view::npos) cooked->full.append(secure ? u":443" : u":80");
  cooked->host_length = cooked->full.size() - cooked->host_at;
  if (decoded == u"*") {
    cooked->full.append(u"/*");
  } else if (!AppendCanonical(decoded, &cooked->full, reason)) {
    return false;
  }
  cooked->path_length = cooked->full.size() - cooked->host_at - cooked->host_length;
  AppendWidened(target.substr(question), &cooked->full);
  cooked->query_length = target.size() - question;
  return true;
}

}  // namespace qiv::host

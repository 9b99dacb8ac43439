#include "config/path_readings.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

/// Nobody decodes more often; a text with deeper escapes is left with the rest of them.
constexpr int kMostDecodings = 4;

std::string DecodeWhole(std::string_view text) {
  std::string decoded(text);
  for (int i = 0; i < kMostDecodings && decoded.find('%') != std::string::npos; ++i) {
    std::string once = PercentDecode(decoded);
    if (once == decoded) break;
    decoded = std::move(once);
  }
  return decoded;
}

/// Each piece between slashes becomes UTF-8 of its own, so that odd bytes in one do not change how others read.
std::string ToUtf8(std::string_view text, bool as_gbk) {
  if (CCharSet::IsAscii(text)) return std::string(text);
  std::string utf8;
  while (true) {
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::string_view piece = text.substr(0, slash);
    const bool is_utf8 = !as_gbk && CCharSet::IsValidUtf8(piece);
    utf8 += is_utf8 ? std::string(piece) : CCharSet::LocalToUtf8(piece);
    if (slash == text.size()) return utf8;
    utf8 += '/';
    text.remove_prefix(slash + 1);
  }
}

constexpr bool IsSlash(char c) { return c == '/' || c == '\\'; }

/// Whether the path has one reading: nothing to decode, to convert, to resolve or to drop. Most requests' have.
bool IsPlain(std::string_view path) {
  if (path.empty() || path.front() != '/') return false;
  char last = 'a';
  for (const char c : path) {
    if (c == '%' || c == '\\' || c == ';' || static_cast<unsigned char>(c) >= 0x80) return false;
    if (c == '/' && (last == '/' || last == '.' || last == ' ')) return false;
    if (c == '.' && last == '/') return false;
    last = c;
  }
  return last != '.' && last != ' ';
}

void AddOnce(std::string text, std::vector<std::string>* texts) {
  if (std::find(texts->begin(), texts->end(), text) == texts->end()) texts->push_back(std::move(text));
}

}  // namespace

std::string_view PathOfUrl(std::string_view raw_url) {
  std::string_view path = raw_url.substr(0, raw_url.find('?'));
  const std::size_t scheme = path.find("://");
  if (path.starts_with('/') || scheme == std::string_view::npos) return path;
  const std::size_t slash = path.find('/', scheme + 3);
  return slash == std::string_view::npos ? std::string_view("/") : path.substr(slash);
}

std::string ResolvedPath(std::string_view path, bool loose) {
  std::string result;
  if (path.empty() || !IsSlash(path.front())) {  // what stands before the first slash is no segment
    const auto first = std::find_if(path.begin(), path.end(), IsSlash);
    result.assign(path.begin(), first);
  }
  const std::size_t root = result.size();
  for (std::size_t at = root; at < path.size();) {
    const std::size_t begin = ++at;  // behind the slash
    while (at < path.size() && !IsSlash(path[at])) ++at;
    std::string_view segment = path.substr(begin, at - begin);
    if (loose) segment = segment.substr(0, segment.find(';'));
    const bool is_up = segment == "..";
    if (loose && !is_up) segment = segment.substr(0, segment.find_last_not_of(". ") + 1);
    if (is_up) {
      const std::size_t slash = result.rfind('/');
      result.resize(slash == std::string::npos ? root : std::max(slash, root));
    } else if (!segment.empty() && segment != ".") {
      result.append("/").append(segment);
      continue;
    }
    if (at == path.size()) result += '/';  // it names a folder
  }
  return CCharSet::LowerBytes(result);
}

std::vector<std::string> TextReadings(std::string_view text) {
  std::vector<std::string> readings;
  for (const std::string& decoded : {PercentDecode(text), DecodeWhole(text)}) {
    AddOnce(ToUtf8(decoded, false), &readings);
    AddOnce(ToUtf8(decoded, true), &readings);
  }
  return readings;
}

std::vector<std::string> PathReadings(std::string_view raw_path) {
  if (IsPlain(raw_path)) return {CCharSet::LowerBytes(raw_path)};
  std::vector<std::string> paths;
  for (const std::string& reading : TextReadings(raw_path)) {
    AddOnce(ResolvedPath(reading, false), &paths);
    AddOnce(ResolvedPath(reading, true), &paths);
  }
  return paths;
}

std::string PathItemText(std::string_view written) {
  // Settings are in GBK, so only what percent-decoding brought in can be UTF-8.
  const std::string decoded = DecodeWhole(written);
  const bool is_utf8 = written.find('%') != std::string_view::npos && CCharSet::IsValidUtf8(decoded);
  return CCharSet::LowerBytes(is_utf8 ? decoded : CCharSet::LocalToUtf8(decoded));
}

}  // namespace qiv

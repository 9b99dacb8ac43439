#include "config/url_black_list.h"

#include <algorithm>
#include <utility>

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

/// The path with its segments resolved. `loose`: what servers and file systems ignore at the end of a segment is left
/// out.
std::string Resolved(std::string_view path, bool loose) {
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

void AddOnce(std::string text, std::vector<std::string>* texts) {
  if (std::find(texts->begin(), texts->end(), text) == texts->end()) texts->push_back(std::move(text));
}

/// The readings of a text as UTF-8: decoded once and wholly, from either encoding.
std::vector<std::string> Readings(std::string_view text) {
  std::vector<std::string> readings;
  for (const std::string& decoded : {PercentDecode(text), DecodeWhole(text)}) {
    AddOnce(ToUtf8(decoded, false), &readings);
    AddOnce(ToUtf8(decoded, true), &readings);
  }
  return readings;
}

std::vector<std::string> PathsOf(std::string_view raw_path) {
  std::vector<std::string> paths;
  for (const std::string& reading : Readings(raw_path)) {
    AddOnce(Resolved(reading, false), &paths);
    AddOnce(Resolved(reading, true), &paths);
  }
  return paths;
}

/// Whether resolving a path would change this piece of one.
bool IsSpelling(std::string_view piece) {
  return piece.find_first_of("\\;") != std::string_view::npos || piece.find("//") != std::string_view::npos ||
         piece.find("/./") != std::string_view::npos || piece.find("/../") != std::string_view::npos;
}

/// Settings are in GBK, so only what percent-decoding brought in can be UTF-8.
std::string ItemText(std::string_view written) {
  const std::string decoded = DecodeWhole(written);
  const bool is_utf8 = written.find('%') != std::string_view::npos && CCharSet::IsValidUtf8(decoded);
  return CCharSet::LowerBytes(is_utf8 ? decoded : CCharSet::LocalToUtf8(decoded));
}

}  // namespace

CUrlBlackList::CUrlBlackList(std::string_view setting) : literal_(setting) {
  std::vector<std::string> pieces;
  std::vector<std::string> names;
  for (const std::string_view written : Split(setting, '|')) {
    const std::string item = ItemText(written);
    const std::size_t question = item.find('?');
    const std::string_view page = std::string_view(item).substr(0, question);
    if (item.empty() || IsSpelling(page)) continue;
    if (question == std::string::npos) {
      pieces.push_back(item);
      continue;
    }
    for (const std::string_view name : Split(std::string_view(item).substr(question + 1), '&')) {
      if (name.empty()) continue;
      names.emplace_back(name);
      page_of_name_.push_back(static_cast<std::uint32_t>(pages_.size()));
    }
    pages_.emplace_back(page);
  }
  pieces_ = CMultiPattern(pieces);
  names_ = CMultiPattern(names);
}

bool CUrlBlackList::Matches(std::string_view raw_url, std::string_view path) const {
  if (Empty()) return false;
  if (literal_.Matches(raw_url, path)) return true;
  const std::size_t question = std::min(raw_url.find('?'), raw_url.size());
  const std::vector<std::string> paths = PathsOf(raw_url.substr(0, question));
  for (const std::string& read : paths) {
    bool found = false;
    pieces_.Find(read, [&found](std::uint32_t, std::size_t) {
      found = true;
      return false;
    });
    if (found) return true;
  }
  return question < raw_url.size() && MatchesQuery(raw_url.substr(question + 1), paths);
}

bool CUrlBlackList::MatchesQuery(std::string_view query, const std::vector<std::string>& paths) const {
  if (names_.Empty()) return false;
  bool found = false;
  for (const std::string& reading : Readings(query)) {
    names_.Find(CCharSet::LowerBytes(reading), [&](std::uint32_t name, std::size_t) {
      const std::string_view page = pages_[page_of_name_[name]];
      found = std::any_of(paths.begin(), paths.end(), [page](const std::string& read) { return read.ends_with(page); });
      return !found;
    });
    if (found) break;
  }
  return found;
}

}  // namespace qiv

#include "config/url_black_list.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "config/path_readings.h"

namespace qiv {
namespace {

/// Whether resolving a path would change this piece of one.
bool IsSpelling(std::string_view piece) {
  return piece.find_first_of("\\;") != std::string_view::npos || piece.find("//") != std::string_view::npos ||
         piece.find("/./") != std::string_view::npos || piece.find("/../") != std::string_view::npos;
}

}  // namespace

CUrlBlackList::CUrlBlackList(std::string_view setting) : literal_(setting) {
  std::vector<std::string> pieces;
  std::vector<std::string> names;
  for (const std::string_view written : Split(setting, '|')) {
    const std::string item = PathItemText(written);
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

bool CUrlBlackList::Matches(std::string_view raw_url, std::string_view path,
                            const std::vector<std::string>& readings) const {
  if (literal_.Matches(raw_url, path)) return true;
  const std::size_t question = std::min(raw_url.find('?'), raw_url.size());
  for (const std::string& read : readings) {
    bool found = false;
    pieces_.Find(read, [&found](std::uint32_t, std::size_t) {
      found = true;
      return false;
    });
    if (found) return true;
  }
  return question < raw_url.size() && MatchesQuery(raw_url.substr(question + 1), readings);
}

bool CUrlBlackList::MatchesQuery(std::string_view query, const std::vector<std::string>& paths) const {
  if (names_.Empty()) return false;
  bool found = false;
  for (const std::string& reading : TextReadings(query)) {
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

#include "config/path_list.h"

#include <algorithm>
#include <cstddef>

#include "common/text.h"
#include "config/path_readings.h"

namespace qiv {

bool MatchesWildcard(std::string_view text, std::string_view pattern) {
  std::size_t at = 0;
  std::size_t in_pattern = 0;
  std::size_t star = std::string_view::npos;
  std::size_t resume = 0;  // where the last star's run is taken to end
  while (at < text.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      resume = at;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == text[at]) {
      ++in_pattern;
      ++at;
    } else if (star != std::string_view::npos) {
      in_pattern = star + 1;
      at = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == std::string_view::npos;
}

CPathList::CPathList(std::string_view setting) {
  for (const std::string_view written : Split(setting, '|')) {
    const std::string text = PathItemText(Trim(written));
    std::string item = text.substr(0, text.find('?'));
    if (item.empty()) continue;
    if (item.front() != '/') item.insert(0, item.front() == '*' ? "/" : "*/");
    item = ResolvedPath(item, false);
    while (item.size() > 1 && item.ends_with('/')) item.pop_back();
    items_.push_back(std::move(item));
  }
}

bool CPathList::Holds(std::string_view path) const {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return std::any_of(items_.begin(), items_.end(), [path](const std::string& item) {
    if (item == "/") return true;
    if (item.find('*') != std::string::npos) return MatchesWildcard(path, item) || MatchesWildcard(path, item + "/*");
    return path.starts_with(item) && (path.size() == item.size() || path[item.size()] == '/');
  });
}

bool CPathList::HoldsAny(const std::vector<std::string>& readings) const {
  return !items_.empty() &&
         std::any_of(readings.begin(), readings.end(), [this](const std::string& path) { return Holds(path); });
}

bool CPathList::HoldsAll(const std::vector<std::string>& readings) const {
  return !items_.empty() && !readings.empty() &&
         std::all_of(readings.begin(), readings.end(), [this](const std::string& path) { return Holds(path); });
}

}  // namespace qiv

#include "tools/tree_walk.h"

#include <algorithm>
#include <utility>

#include "port/system_error.h"

namespace qiv {
namespace {

constexpr char kSeparator = '/';

// A folder sorts as its name with the separator, so that its files come in the order of their paths.
bool SortsBefore(const DirectoryEntry& a, const DirectoryEntry& b) {
  const auto byte_at = [](const DirectoryEntry& entry, std::size_t at) {
    if (at < entry.name.size()) return static_cast<unsigned char>(entry.name[at]);
    return static_cast<unsigned char>(entry.kind == PathKind::kDirectory ? kSeparator : '\0');
  };
  const auto differs = std::mismatch(a.name.begin(), a.name.end(), b.name.begin(), b.name.end());
  const auto at = static_cast<std::size_t>(differs.first - a.name.begin());
  return byte_at(a, at) < byte_at(b, at);
}

}  // namespace

bool MatchesGlob(std::string_view pattern, std::string_view text) {
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::string_view::npos;  // the last "*" met
  std::size_t star_end = 0;                   // what it stands for ends before this
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      star_end = t;
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++star_end;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

CTreeWalk::CTreeWalk(std::vector<std::string> paths, TreeWalkOptions options)
    : given_(std::move(paths)), options_(std::move(options)) {
  std::reverse(given_.begin(), given_.end());
}

bool CTreeWalk::IsExcluded(std::string_view name) const {
  return std::any_of(options_.exclude.begin(), options_.exclude.end(), [&](const std::string& glob) {
    return MatchesGlob(glob, glob.find(kSeparator) == std::string::npos ? name : std::string_view(path_));
  });
}

bool CTreeWalk::Next(Step* step) {
  while (true) {
    if (levels_.empty()) {
      if (given_.empty()) return false;
      if (NextGiven(step)) return true;
      continue;
    }
    Level& level = levels_.back();
    path_.resize(level.path_length);
    if (level.entries.empty()) {
      levels_.pop_back();
      continue;
    }
    const DirectoryEntry entry = std::move(level.entries.back());
    level.entries.pop_back();
    path_ += entry.name;
    if (IsExcluded(entry.name)) continue;
    if (entry.kind == PathKind::kLink) {
      ++links_;
    } else if (Visit(entry.kind == PathKind::kUnknown ? PathKindOf(path_) : entry.kind, step)) {
      return true;
    }
  }
}

bool CTreeWalk::NextGiven(Step* step) {
  path_ = std::move(given_.back());
  given_.pop_back();
  const PathKind kind = PathKindOf(path_);
  if (kind == PathKind::kMissing || kind == PathKind::kOther) {
    *step = {path_, kind == PathKind::kMissing ? "there is no such file or folder" : "is no file or folder"};
    return true;
  }
  return Visit(kind, step);
}

// Whether `step` was filled.
bool CTreeWalk::Visit(PathKind kind, Step* step) {
  switch (kind) {
    case PathKind::kFile:
      *step = {path_, {}};
      return true;
    case PathKind::kDirectory:
      return Enter(step);
    case PathKind::kUnknown:
      *step = {path_, "cannot be examined: " + LastSystemError()};
      return true;
    default:
      return false;
  }
}

bool CTreeWalk::Enter(Step* step) {
  Level level;
  DirectoryIdentity identity;
  if (!ListDirectory(path_, &level.entries, &identity)) {
    const std::string reason = LastSystemError();
    if (PathKindOf(path_) == PathKind::kMissing) return false;
    *step = {path_, "the folder cannot be read: " + reason};
    return true;
  }
  if (options_.follow_links && !entered_.insert(identity).second) return false;
  if (path_.empty() || path_.back() != kSeparator) path_ += kSeparator;
  if (options_.follow_links) {
    for (DirectoryEntry& entry : level.entries) {
      if (entry.kind == PathKind::kLink) entry.kind = PathKindOf(path_ + entry.name);
    }
  }
  std::sort(level.entries.begin(), level.entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return SortsBefore(b, a); });
  level.path_length = path_.size();
  levels_.push_back(std::move(level));
  return false;
}

}  // namespace qiv

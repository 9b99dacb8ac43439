#include "command_line/suggestion.h"

#include <algorithm>

namespace qiv {
namespace {

/// Number of single-byte insertions, removals and replacements between two words; by rows, for short words.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string Suggestion(std::string_view name, const std::vector<std::string_view>& known) {
  constexpr std::size_t kLongestName = 64;
  if (name.size() > kLongestName) return {};
  std::string_view best;
  std::size_t best_distance = name.size() / 3 + 1;
  for (const std::string_view candidate : known) {
    const std::size_t distance = EditDistance(name, candidate);
    if (distance <= best_distance && (best.empty() || distance < best_distance)) {
      best = candidate;
      best_distance = distance;
    }
  }
  return best.empty() ? std::string() : " (did you mean \"" + std::string(best) + "\"?)";
}

}  // namespace qiv

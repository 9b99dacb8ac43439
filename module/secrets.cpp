#include "module/secrets.h"

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::string_view kNames[] = {"pass", "pwd", "secretrkey", "authorization"};
// What may stand between a name and its value; one of kAssignments has to be among it.
constexpr std::string_view kBetween = "=:]\"' \t\r\n";
constexpr std::string_view kAssignments = "=:\n";
constexpr std::string_view kEnds = "&\"\r\n";

/// Where the first name at or after `from` ends, the rest of its word included; npos when there is none.
std::size_t EndOfName(std::string_view lower, std::size_t from, std::size_t (&next)[std::size(kNames)]) {
  std::size_t found = std::string_view::npos;
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    if (next[i] != std::string_view::npos && next[i] < from) next[i] = lower.find(kNames[i], from);
    found = std::min(found, next[i]);
  }
  while (found < lower.size() && (IsWordByte(lower[found]) || lower[found] == '-' || lower[found] == '.')) ++found;
  return found;
}

}  // namespace

std::string WithoutSecrets(std::string_view text) {
  const std::string lower = CCharSet::LowerBytes(text);
  std::size_t next[std::size(kNames)];
  for (std::size_t i = 0; i < std::size(kNames); ++i) next[i] = lower.find(kNames[i]);
  std::string clean;
  std::size_t kept = 0;  // what stands before it is in `clean`
  for (std::size_t name = EndOfName(lower, 0, next); name < text.size(); name = EndOfName(lower, name, next)) {
    const std::size_t value = std::min(text.find_first_not_of(kBetween, name), text.size());
    const bool assigned = text.substr(name, value - name).find_first_of(kAssignments) != std::string_view::npos;
    const std::size_t end = assigned ? std::min(text.find_first_of(kEnds, value), text.size()) : value;
    if (end > value) {
      clean.append(text.substr(kept, value - kept)).append("***");
      kept = end;
    }
    name = std::max(end, name);
  }
  return clean.append(text.substr(kept));
}

}  // namespace qiv

#include "tools/rule_changes.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "common/text.h"
#include "tools/printable.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::size_t kNamed = 6;  // rules of one kind of change that a line names

/// Lines by what names them: rules by their identifier, other lines by themselves.
using Lines = std::map<std::string, std::set<std::string_view>, std::less<>>;

bool HoldsRules(std::string_view path) {
  const bool is_family = path.starts_with("badcode/") && path != "badcode/lists.txt" && path != "badcode/ordinary.txt";
  return is_family || path.starts_with("keywords/") || path.starts_with("library/");
}

Lines LinesOf(const FileText& file) {
  Lines lines;
  for (std::string_view line : SplitUtf8(file.text, "\n")) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    lines[std::string(HoldsRules(file.path) ? line.substr(0, line.find('\t')) : line)].insert(line);
  }
  return lines;
}

/// "3 added (1, 2, 3)"; empty for none.
std::string Named(const std::vector<std::string>& names, const char* what, bool by_name) {
  if (names.empty()) return {};
  std::string text = std::to_string(names.size()) + " " + what;
  if (!by_name) return text;
  for (std::size_t i = 0; i < std::min(names.size(), kNamed); ++i)
    AppendAll(&text, {i == 0 ? " (" : ", ", PrintableUtf8(names[i])});
  return text + (names.size() > kNamed ? ", ...)" : ")");
}

std::string FileChanges(const FileText& before, const FileText& after) {
  const Lines old_lines = LinesOf(before);
  const Lines new_lines = LinesOf(after);
  std::vector<std::string> added;
  std::vector<std::string> removed;
  std::vector<std::string> changed;
  for (const auto& [name, lines] : new_lines) {
    const auto old = old_lines.find(name);
    if (old == old_lines.end()) {
      added.push_back(name);
    } else if (old->second != lines) {
      changed.push_back(name);
    }
  }
  for (const auto& [name, lines] : old_lines) {
    if (!new_lines.contains(name)) removed.push_back(name);
  }
  const bool by_name = HoldsRules(after.path);
  const std::array<std::string, 3> parts = {Named(added, by_name ? "added" : "lines added", by_name),
                                            Named(removed, by_name ? "removed" : "lines removed", by_name),
                                            Named(changed, "changed", by_name)};
  std::string text;
  for (const std::string& part : parts) {
    if (!part.empty()) AppendAll(&text, {text.empty() ? "" : "; ", part});
  }
  return text.empty() ? "comments changed" : text;
}

}  // namespace

std::string RuleChanges(const std::vector<FileText>& before, const std::vector<FileText>& after) {
  std::map<std::string, std::pair<const FileText*, const FileText*>> files;
  for (const FileText& file : before) files[file.path].first = &file;
  for (const FileText& file : after) files[file.path].second = &file;
  std::string text;
  for (const auto& [path, both] : files) {
    const auto& [old, now] = both;
    if (path == "VERSION" || (old != nullptr && now != nullptr && old->text == now->text)) continue;
    const FileText none{path, ""};
    const bool is_rules = path.ends_with(".txt");
    std::string what = old == nullptr ? "new" : now == nullptr ? "gone" : is_rules ? "" : "changed";
    if (is_rules) AppendAll(&what, {what.empty() ? "" : ": ", FileChanges(old ? *old : none, now ? *now : none)});
    AppendAll(&text,
              {"  ", PrintableUtf8(path), std::string(path.size() < 26 ? 26 - path.size() : 1, ' '), what, "\n"});
  }
  return text;
}

std::size_t CountRules(const FileText& file) { return HoldsRules(file.path) ? LinesOf(file).size() : 0; }

bool HasRule(const std::vector<FileText>& files, std::string_view identifier) {
  return std::any_of(files.begin(), files.end(), [identifier](const FileText& file) {
    return HoldsRules(file.path) && LinesOf(file).contains(identifier);
  });
}

}  // namespace qiv

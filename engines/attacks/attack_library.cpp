#include "engines/attacks/attack_library.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace qiv {
namespace {

std::vector<std::string_view> Records(std::string_view text, std::string_view tag) {
  std::vector<std::string_view> records = Split(TaggedPart(text, tag), "{#}");
  for (std::string_view& record : records) record = TrimBytes(record, "\r\n");
  std::erase(records, std::string_view());
  return records;
}

std::string Tagged(std::string_view tag, const std::string& records) {
  std::string text;
  AppendAll(&text, {"<", tag, ">\n", records, "</", tag, ">\n"});
  return text;
}

}  // namespace

bool ReadAttackLibrary(std::string_view text, AttackLibraryText* library, AttackFault* fault) {
  for (const std::string_view tag : kAttackTags) {
    if (HasTag(text, tag) && !IsTagDamaged(text, tag)) continue;
    *fault = {std::string(tag), "is not there, or not closed"};
    return false;
  }
  for (const std::string_view record : Records(text, kAttackTags[0])) {
    const std::vector<std::string_view> fields = Split(record, "{*}");
    std::vector<std::string> words;
    if (fields.size() == 2) {
      for (const std::string_view word : Split(fields[1], ' ')) words.emplace_back(word);
    }
    if (words.empty()) {
      *fault = {std::string(fields[0]), "is no list of words"};
      return false;
    }
    library->lists[std::string(fields[0])] = std::move(words);
  }
  for (const std::string_view record : Records(text, kAttackTags[1])) {
    const std::vector<std::string_view> fields = Split(record, "{*}");
    const auto& families = AttackFamilies();
    const auto family = fields.size() != 7 ? families.end()
                                           : std::find_if(families.begin(), families.end(),
                                                          [&](const AttackFamily& f) { return f.name == fields[1]; });
    if (family == families.end()) {
      *fault = {std::string(fields[0]), "is no rule of a family"};
      return false;
    }
    library->rules.push_back({std::string(fields[0]), std::string(fields[2]), std::string(fields[3]),
                              std::string(fields[4]), std::string(fields[5]), std::string(fields[6]),
                              static_cast<std::size_t>(family - families.begin())});
  }
  return true;
}

std::string WriteAttackLibrary(const AttackLibraryText& library) {
  std::string lists;
  for (const auto& [name, words] : library.lists) {
    AppendAll(&lists, {name, "{*}"});
    for (const std::string& word : words) AppendAll(&lists, {&word == &words.front() ? "" : " ", word});
    lists += "{#}\n";
  }
  std::string rules;
  for (const AttackRule& rule : library.rules) {
    AppendAll(&rules, {rule.identifier, "{*}", AttackFamilies()[rule.family].name, "{*}", rule.where, "{*}",
                       rule.pattern, "{*}", rule.remark, "{*}", rule.hits, "{*}", rule.misses, "{#}\n"});
  }
  return Tagged(kAttackTags[0], lists) + Tagged(kAttackTags[1], rules);
}

}  // namespace qiv

#include "config/local_form.h"

#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kLostTextBytes = 1024;  // what an event shows of a detail

bool IsListType(KeyType type) {
  return type == KeyType::kList || type == KeyType::kNames || type == KeyType::kExtensions || type == KeyType::kRules;
}

bool IsOurs(std::string_view text) { return text.size() >= 3 && CCharSet::IsValidUtf8(text); }

/// Where the item at the head of the text ends: before its separator. The separators are ASCII, so bytes will do.
std::size_t ItemEnd(KeyType type, std::string_view text) {
  if (type == KeyType::kExtensions) return text.find_first_of(",|");
  return text.find(KeySeparator(type));
}

}  // namespace

bool ItemSurvives(KeyType type, std::string_view item, std::size_t matched_fields) {
  if (!IsListType(type)) return true;
  std::size_t end = type == KeyType::kRules ? item.find("{*}") : item.npos;
  while (end != item.npos && --matched_fields != 0) end = item.find("{*}", end + 1);
  return CCharSet::Survives(item.substr(0, end));
}

std::string ToLocalForm(KeyType type, std::string_view utf8, std::vector<std::string>* lost,
                        std::size_t matched_fields) {
  if (CCharSet::IsAscii(utf8)) return std::string(utf8);
  if (CCharSet::Survives(utf8)) return CCharSet::Utf8ToLocal(utf8);
  if (type == KeyType::kText) return std::string(utf8);
  if (!IsListType(type)) return CCharSet::Utf8ToLocal(utf8);
  std::string kept;
  const std::size_t separator = type == KeyType::kExtensions ? 1 : KeySeparator(type).size();
  while (!utf8.empty()) {
    const std::size_t end = ItemEnd(type, utf8);
    const std::string_view item = utf8.substr(0, end);
    const std::string_view whole = end == utf8.npos ? utf8 : utf8.substr(0, end + separator);
    if (ItemSurvives(type, item, matched_fields)) {
      kept += CCharSet::Utf8ToLocal(whole);
    } else {
      lost->emplace_back(Trim(item));
    }
    utf8.remove_prefix(whole.size());
  }
  return kept;
}

std::string TaggedToLocalForm(KeyType type, std::string_view text, std::vector<std::string>* lost) {
  return IsOurs(text) ? ToLocalForm(type, text, lost) : std::string(text);
}

std::string LibraryToLocalForm(std::string text, std::span<const std::string_view> tags, std::vector<std::string>* lost,
                               std::size_t matched_fields) {
  if (!IsOurs(text)) return text;
  if (CCharSet::Survives(text)) return CCharSet::ToLocal(std::move(text));
  std::string local;
  for (const std::string_view tag : tags) {
    if (!HasTag(text, tag)) continue;
    const std::string records = ToLocalForm(KeyType::kRules, TaggedPart(text, tag), lost, matched_fields);
    AppendAll(&local, {"<", tag, ">", records, "</", tag, ">\n"});
  }
  return local;
}

StateFault LostItems(std::string list, const std::vector<std::string>& lost) {
  StateFault fault{std::move(list), MessageId::kStateItemsLost, ""};
  for (const std::string& item : lost) {
    if (fault.detail.size() > kLostTextBytes) break;
    if (!fault.detail.empty()) fault.detail += " | ";
    fault.detail += item;
  }
  return fault;
}

}  // namespace qiv

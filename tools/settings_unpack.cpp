// UnpackSettings: the text of _config.db to readable settings.
#include <initializer_list>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "tools/settings_document.h"

namespace qiv {
namespace {

/// Parts that the firewall service wrote in the local code page become UTF-8.
std::string Utf8(std::string_view text) {
  return CCharSet::IsValidUtf8(text) ? std::string(text) : CCharSet::LocalToUtf8(text);
}

void AddTaggedValue(std::string_view text, std::string_view tag, KeyType type, bool references, JsonObject* out) {
  if (!HasTag(text, tag)) return;
  std::unique_ptr<IJsonValue> value = ReadableValue(TaggedPart(text, tag), type);
  out->Set(std::string(tag), references ? EscapedReferences(std::move(value)) : std::move(value));
}

void AddScalar(std::string_view text, const ConfigKey& key, JsonObject* out) {
  AddTaggedValue(text, key.name, key.type, TakesReferences(key.section, key.name), out);
}

/// One section: strings of known keys are shown as arrays where that reads better, everything else as it is.
std::unique_ptr<IJsonValue> ReadableSection(std::string_view section, const JsonObject& stored) {
  auto readable = std::make_unique<JsonObject>();
  for (const JsonObject::Member* const member : stored.Members()) {
    const auto& [name, item] = *member;
    const ConfigKey* const key = FindConfigKey(section, name);
    const bool is_known_text = key != nullptr && item->AsString() != nullptr;
    std::unique_ptr<IJsonValue> value =
        is_known_text ? ReadableValue(item->AsString()->Value(), key->type) : CloneJson(*item);
    readable->Set(name, TakesReferences(section, name) ? EscapedReferences(std::move(value)) : std::move(value));
  }
  return readable;
}

void AddSection(std::string_view settings, std::string_view section, JsonObject* out, CReport* report) {
  if (!HasTag(settings, section)) return;
  const std::string_view part = TaggedPart(settings, section);
  const std::string_view json = JsonOfPart(part);
  if (json.empty() && section == "website_base") return;  // the part may hold the switch alone
  JsonError error;
  const std::unique_ptr<IJsonValue> value = ParseJson(json, &error);
  if (value == nullptr || value->AsObject() == nullptr) {
    report->Finding(0, "<" + std::string(section) + "> holds no JSON object, at byte " + std::to_string(error.offset) +
                           " of its text: " + error.message);
    return;
  }
  out->Set(std::string(section), ReadableSection(section, *value->AsObject()));
}

void AddCommonAreas(std::string_view settings, JsonObject* out) {
  if (!HasTag(settings, "system_common_areas")) return;
  const std::string_view part = TaggedPart(settings, "system_common_areas");
  std::unique_ptr<IJsonValue> value = ParseJson(part);
  if (value == nullptr || value->AsObject() == nullptr) value = ReadableValue(part, KeyType::kList);
  out->Set("system_common_areas", std::move(value));
}

void AddIpSets(std::string_view ip_lists, JsonObject* out) {
  auto sets = std::make_unique<JsonObject>();
  for (const IpSetKey& key : IpSetKeys()) {
    if (!HasTag(ip_lists, key.name)) continue;
    const std::string_view part = TaggedPart(ip_lists, key.name);
    if (key.is_key_list || !(HasTag(part, "ipv4") || HasTag(part, "ipv6"))) {
      sets->Set(std::string(key.name), EscapedReferences(ReadableValue(part, KeyType::kList)));
      continue;
    }
    auto set = std::make_unique<JsonObject>();
    for (const std::string_view family : {"ipv4", "ipv6"})
      AddTaggedValue(part, family, KeyType::kList, true, set.get());
    sets->Set(std::string(key.name), std::move(set));
  }
  if (sets->Size() != 0) out->Set("ip_sets", std::move(sets));
}

}  // namespace

std::string UnpackSettings(std::string_view config_text, CReport* report) {
  const ConfigParts parts = SplitConfigText(config_text);
  if (!parts.has_settings) {
    report->Error(0, std::string(ConfigStatusText(ConfigStatus::kNoSettingsPart)));
    return {};
  }
  const std::string settings = Utf8(parts.settings);
  if (!settings.empty() && settings.find('<') == std::string::npos) {
    report->Error(0, "the settings cannot be read: enciphered with another key, or damaged");
    return {};
  }
  JsonObject readable;
  for (const ConfigKey& key : ScalarKeys()) {
    if (!key.section.empty()) continue;
    const bool in_base = key.name == "website_on_servers";
    AddScalar(in_base ? TaggedPart(settings, "website_base") : settings, key, &readable);
  }
  if (HasTag(settings, "website_other")) {
    auto other = std::make_unique<JsonObject>();
    for (const ConfigKey& key : ScalarKeys()) {
      if (!key.section.empty()) AddScalar(TaggedPart(settings, "website_other"), key, other.get());
    }
    readable.Set("website_other", std::move(other));
  }
  for (const std::string_view section : ConfigSections()) AddSection(settings, section, &readable, report);
  AddCommonAreas(settings, &readable);
  AddIpSets(Utf8(parts.ip_lists), &readable);
  return WriteJson(readable, 2) + "\n";
}

}  // namespace qiv

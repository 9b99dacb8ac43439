// PackSettings: readable settings to the text of _config.db.
#include <algorithm>
#include <initializer_list>
#include <span>
#include <utility>

#include "common/aes.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "config/local_form.h"
#include "tools/settings_document.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

std::string Tagged(std::string_view tag, std::string_view content) {
  std::string text = "<";
  text.append(tag).append(">").append(content).append("</").append(tag).append(">");
  return text;
}

/// The first tag of the file's own that the text holds, as "<name>" or "</name>"; empty when it holds none. Such a text
/// would be cut in the wrong place when the file is read.
std::string HeldTag(std::string_view text) {
  const auto holds = [text](std::string_view name) {
    return HasTag(text, name) || HasTag(text, "/" + std::string(name));
  };
  for (const std::string_view name : ConfigSections()) {
    if (holds(name)) return std::string(name);
  }
  for (const ConfigKey& key : ScalarKeys()) {
    if (holds(key.name)) return std::string(key.name);
  }
  for (const IpSetKey& key : IpSetKeys()) {
    if (holds(key.name)) return std::string(key.name);
  }
  for (const std::string_view name : {"website_other", "system_common_areas", "ipv4", "ipv6", "qivips_websiteiplibpart",
                                      "qivips_websiteconfigpart"}) {
    if (holds(name)) return std::string(name);
  }
  return {};
}

class CPacker {
 public:
  CPacker(const CSettingsDocument& settings, CReport* report) : settings_(settings), report_(*report) {}

  std::string Settings() {
    std::string text;
    for (const ConfigKey& key : ScalarKeys()) {
      if (key.section.empty() && key.name != "website_on_servers") text += TaggedValue("", key.name, key.type);
    }
    text += Other();
    for (const std::string_view section : ConfigSections()) text += Section(section);
    if (const IJsonValue* const areas = settings_.Find("", "system_common_areas"); areas != nullptr) {
      const bool is_object = areas->AsObject() != nullptr;
      text += is_object ? Tagged("system_common_areas", JsonText(*areas))
                        : TaggedValue("", "system_common_areas", KeyType::kList);
    }
    return text;
  }

  /// What the stored form has no place for.
  void LeftOut() {
    for (const JsonObject::Member* const member : settings_.Root().Members()) {
      const auto& [name, value] = *member;
      const JsonObject* const object = value->AsObject();
      if (!IsTopLevelKey(name)) LeftOut(*value, name);
      if (object == nullptr || (name != "website_other" && name != "ip_sets")) continue;
      for (const JsonObject::Member* const inner : object->Members()) {
        const bool known = name == "ip_sets" ? IsIpSet(inner->first) : FindConfigKey(name, inner->first) != nullptr;
        if (!known) LeftOut(*inner->second, inner->first);
      }
    }
  }

  std::string IpLists() {
    const IJsonValue* const sets = settings_.Find("", "ip_sets");
    if (sets == nullptr) return {};
    if (sets->AsObject() == nullptr) {
      report_.Error(settings_.Where(*sets), "\"ip_sets\" is no object");
      return {};
    }
    std::string text;
    for (const IpSetKey& key : IpSetKeys()) {
      const IJsonValue* const value = sets->AsObject()->Find(key.name);
      if (value != nullptr) text += Tagged(key.name, IpSet(*value, key));
    }
    return text;
  }

 private:
  void LeftOut(const IJsonValue& value, const std::string& name) {
    report_.Finding(settings_.Where(value), "\"" + name + "\" is unknown and was left out");
  }

  static bool IsIpSet(std::string_view name) {
    return std::any_of(IpSetKeys().begin(), IpSetKeys().end(),
                       [name](const IpSetKey& key) { return key.name == name; });
  }

  static bool IsTopLevelKey(std::string_view name) {
    const std::span<const std::string_view> sections = ConfigSections();
    return FindConfigKey("", name) != nullptr || name == "website_other" || name == "system_common_areas" ||
           name == "ip_sets" || std::find(sections.begin(), sections.end(), name) != sections.end();
  }

  /// JSON in which no "<" stands, so that no value can be taken for a tag.
  static std::string JsonText(const IJsonValue& value) { return ReplaceAll(WriteJson(value), "<", "\\u003c"); }

  /// The module leaves out the items that its code page cannot hold; here is somebody who can write them otherwise.
  void CheckItems(const IJsonValue& value, std::string_view name, KeyType type) {
    if (const JsonArray* const array = value.AsArray()) {
      for (const std::unique_ptr<IJsonValue>& item : array->Items()) CheckItem(*item, item->Text(), name, type);
    } else {
      const std::string text = value.Text();
      for (const std::string_view item : SplitUtf8(text, KeySeparator(type))) CheckItem(value, item, name, type);
    }
  }

  void CheckItem(const IJsonValue& value, std::string_view item, std::string_view name, KeyType type) {
    if (ItemSurvives(type, item)) return;
    report_.Error(settings_.Where(value), "\"" + std::string(name) +
                                              "\" has an entry with characters that GBK does not" +
                                              " have, so the module cannot look for it: \"" + std::string(item) + "\"");
  }

  std::string TextOfValue(const IJsonValue& value, std::string_view name, KeyType type) {
    std::string text;
    if (!ValueText(value, type, &text)) {
      report_.Error(settings_.Where(value), "\"" + std::string(name) + "\" is no text, number or array of them");
    } else if (const std::string tag = HeldTag(text); !tag.empty()) {
      report_.Error(settings_.Where(value),
                    "\"" + std::string(name) + "\" holds the tag <" + tag + ">, as the file's own");
    } else if (text.find('\0') != std::string::npos) {
      report_.Error(settings_.Where(value), "\"" + std::string(name) + "\" holds a zero byte");
    }
    CheckItems(value, name, type);
    return text;
  }

  std::string TaggedValue(std::string_view section, std::string_view name, KeyType type) {
    const IJsonValue* const value = settings_.Find(section, name);
    return value == nullptr ? std::string() : Tagged(name, TextOfValue(*value, name, type));
  }

  std::string Other() {
    const IJsonValue* const other = settings_.Find("", "website_other");
    if (other == nullptr) return {};
    if (other->AsObject() == nullptr) report_.Error(settings_.Where(*other), "\"website_other\" is no object");
    std::string text;
    for (const ConfigKey& key : ScalarKeys()) {
      if (!key.section.empty()) text += TaggedValue(key.section, key.name, key.type);
    }
    return Tagged("website_other", text);
  }

  /// It stands before the section's object, so it must not look like the beginning of one.
  std::string OnServers() {
    std::string text = TaggedValue("", "website_on_servers", KeyType::kFlag);
    if (text.find_first_of("{}") != std::string::npos) {
      report_.Error(settings_.Where(*settings_.Find("", "website_on_servers")), "\"website_on_servers\" is no switch");
    }
    return text;
  }

  std::string Section(std::string_view section) {
    std::string content;
    if (section == "website_base") content = OnServers();
    const IJsonValue* const value = settings_.Find("", section);
    if (value == nullptr) return content.empty() ? content : Tagged(section, content);
    if (value->AsObject() == nullptr) {
      report_.Error(settings_.Where(*value), "\"" + std::string(section) + "\" is no object");
      return {};
    }
    JsonObject packed;
    for (const JsonObject::Member* const member : value->AsObject()->Members()) {
      const auto& [name, item] = *member;
      const ConfigKey* const key = FindConfigKey(section, name);
      std::string text;
      if (key != nullptr) CheckItems(*item, name, key->type);
      if (key != nullptr && (item->AsArray() != nullptr || item->AsObject() != nullptr)) {
        if (!ValueText(*item, key->type, &text)) {
          report_.Error(settings_.Where(*item), "\"" + name + "\" is no text, number or array of them");
        }
        packed.SetText(name, std::move(text));
      } else {
        packed.Set(name, CloneJson(*item));
      }
    }
    return Tagged(section, content + JsonText(packed));
  }

  std::string IpSet(const IJsonValue& value, const IpSetKey& key) {
    const JsonObject* const object = value.AsObject();
    if (object == nullptr || key.is_key_list) return TextOfValue(value, key.name, KeyType::kList);
    std::string text;
    for (const std::string_view family : {"ipv4", "ipv6"}) {
      const IJsonValue* const list = object->Find(family);
      if (list != nullptr) text += Tagged(family, TextOfValue(*list, key.name, KeyType::kList));
    }
    return text;
  }

  const CSettingsDocument& settings_;
  CReport& report_;
};

}  // namespace

std::string PackSettings(const CSettingsDocument& settings, CReport* report) {
  CPacker packer(settings, report);
  const std::string ip_lists = packer.IpLists();
  const std::string text = packer.Settings();
  if (report->HasError()) return {};
  packer.LeftOut();
  WebsiteConfig config;
  const ConfigStatus status = ParseConfigParts(ip_lists, text, &config);
  // A website that is switched off on purpose is nothing to remark on.
  if (status != ConfigStatus::kLoaded && status != ConfigStatus::kNotOnServers) {
    report->Finding(0, "the module will refuse these settings: " + std::string(ConfigStatusText(status)));
  }
  return Tagged("qivips_websiteiplibpart", ip_lists) + "\n" +
         Tagged("qivips_websiteconfigpart", encrypt_text("", text)) + "\n";
}

}  // namespace qiv

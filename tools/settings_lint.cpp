#include "tools/settings_lint.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "command_line/suggestion.h"
#include "common/ip_address.h"
#include "common/text.h"
#include "config/value_lists.h"
#include "tools/lint_relations.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::vector<std::string_view> KnownKeys(std::string_view section) {
  std::vector<std::string_view> names;
  for (const ConfigKey& key : ConfigKeys(section)) names.push_back(key.name);
  for (const ConfigKey& key : ScalarKeys()) {
    if (key.section == section) names.push_back(key.name);
  }
  if (section == "ip_sets") {
    for (const IpSetKey& key : IpSetKeys()) names.push_back(key.name);
  }
  if (section.empty()) {
    names.insert(names.end(), {"website_other", "system_common_areas", "ip_sets"});
    for (const std::string_view name : ConfigSections()) names.push_back(name);
  }
  return names;
}

class CLinter {
 public:
  CLinter(const CSettingsDocument& settings, CReport* report) : settings_(settings), report_(*report) {}

  void Run() {
    const std::vector<std::string_view> top = KnownKeys("");
    for (const JsonObject::Member* const member : settings_.Root().Members()) {
      const auto& [name, value] = *member;
      if (std::find(top.begin(), top.end(), name) == top.end()) {
        Find(*value, "unknown key " + Quoted(name) + Suggestion(name, top));
      } else if (FindConfigKey("", name) != nullptr) {
        Value("", name, *value);
      } else if (name != "system_common_areas") {
        Section(name, *value);
      }
    }
    for (const LintRemark& remark : LintRelations(settings_)) {
      const Place place = remark.value == nullptr ? Place() : settings_.Where(*remark.value);
      if (remark.is_note) {
        report_.Note(place, remark.message);
      } else {
        report_.Finding(place, remark.message);
      }
    }
  }

 private:
  void Find(const IJsonValue& value, std::string message) {
    report_.Finding(settings_.Where(value), std::move(message));
  }

  void Section(const std::string& section, const IJsonValue& value) {
    const JsonObject* const object = value.AsObject();
    if (object == nullptr) {
      report_.Error(settings_.Where(value), Quoted(section) + " is no object");
      return;
    }
    const std::vector<std::string_view> known = KnownKeys(section);
    for (const JsonObject::Member* const member : object->Members()) {
      const auto& [name, item] = *member;
      if (std::find(known.begin(), known.end(), name) == known.end()) {
        Find(*item, "unknown key " + Quoted(name) + " in " + section + ElsewhereOr(name, Suggestion(name, known)));
      } else if (section == "ip_sets") {
        IpSet(name, *item);
      } else {
        Value(section, name, *item);
      }
    }
  }

  /// A key of another section is no misspelling.
  static std::string ElsewhereOr(std::string_view name, std::string suggestion) {
    for (const ConfigKey& key : ConfigKeys()) {
      if (key.name == name) return "; it belongs in " + std::string(key.section);
    }
    return suggestion;
  }

  void Value(std::string_view section, const std::string& name, const IJsonValue& value) {
    const ConfigKey& key = *FindConfigKey(section, name);
    std::string text;
    if (!ValueText(value, key.type, &text)) {
      report_.Error(settings_.Where(value), Quoted(name) + " is no text, number or array of them");
      return;
    }
    Separators(key, value);
    switch (key.type) {
      case KeyType::kNumber:
      case KeyType::kSwitch:
      case KeyType::kDigits:
        Number(key, value, text);
        break;
      case KeyType::kAddresses:
        Addresses(name, value);
        break;
      case KeyType::kFlag:
        if (!text.empty() && text != "0" && text != "1") {
          Find(value, Quoted(name) + " is off: only \"1\" switches it on, not " + Quoted(text));
        }
        break;
      case KeyType::kExtensions:
        Extensions(name, value, text);
        break;
      case KeyType::kRules:
        if (section == "website_sql") Rules(name, value, text);
        break;
      default:
        break;
    }
    if (const std::string_view idle = NoEffectText(key.reader); !idle.empty() && !text.empty() && text != "0") {
      Find(value, Quoted(name) + " " + std::string(idle));
    }
    // Of a number as the loader reads it: "02" is 2.
    const std::string read = key.type == KeyType::kNumber ? std::to_string(ToNumber(text)) : text;
    if (!key.values.choices.empty() && !text.empty() && !IsChoice(read, key.values)) {
      Find(value, Quoted(name) + " is none of " + ChoiceNames(key.values) + ": " + Quoted(text) + " reads as " +
                      OtherName(key.values));
    }
  }

  void Number(const ConfigKey& key, const IJsonValue& value, const std::string& text) {
    if (text.empty()) return;
    const std::string name = Quoted(key.name);
    if (value.AsBoolean() != nullptr) {
      Find(value, name + " is a number: write 1 or 0, " + text + " reads as 0");
      return;
    }
    const bool has_sign = key.type != KeyType::kDigits && (text[0] == '-' || text[0] == '+');
    const std::string_view digits = std::string_view(text).substr(has_sign ? 1 : 0);
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
      const std::string held = std::to_string(key.type == KeyType::kDigits ? std::int64_t{DigitsToNumber(text)}
                                                                           : std::int64_t{ToNumber(text)});
      Find(value, name + " is no whole number: " + Quoted(text) + " reads as " + held);
    } else if (text[0] == '-' && ToNumber(text) != 0) {
      Find(value, name + " is negative");
    } else if (IsBeyondRange(key.type, digits)) {
      Find(value, name + " is too large: " + text);
    } else if (key.type == KeyType::kSwitch && ToNumber(text) > 1) {
      Find(value, name + " is a switch: write 1 or 0, " + text + " switches it on");
    }
  }

  static bool IsBeyondRange(KeyType type, std::string_view digits) {
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    const std::string limit = type == KeyType::kDigits ? std::to_string(std::numeric_limits<std::uint32_t>::max())
                                                       : std::to_string(std::numeric_limits<std::int32_t>::max());
    return digits.size() > limit.size() || (digits.size() == limit.size() && digits > limit);
  }

  /// An array item that holds the separator becomes several entries.
  void Separators(const ConfigKey& key, const IJsonValue& value) {
    if (value.AsArray() == nullptr || key.type == KeyType::kText) return;
    const std::string_view separator = KeySeparator(key.type);
    for (const std::unique_ptr<IJsonValue>& item : value.AsArray()->Items()) {
      std::string text = item->Text();
      if (key.type == KeyType::kRules && text.ends_with(separator)) text.resize(text.size() - separator.size());
      if (text.find(separator) != std::string::npos) {
        Find(*item, Quoted(key.name) + " has an entry that holds " + Quoted(separator) + " and is read as several");
      } else if (text.empty()) {
        Find(*item, Quoted(key.name) + " has an empty entry");
      }
    }
  }

  void Extensions(const std::string& name, const IJsonValue& value, const std::string& text) {
    const std::string wrapped = WrapExtensions(text);
    if (wrapped.find(",.") != std::string::npos || wrapped.find(",!.") != std::string::npos) {
      Find(value, Quoted(name) + " names an extension with its dot; extensions are written without");
    }
  }

  void Rules(const std::string& name, const IJsonValue& value, const std::string& text) {
    if (value.AsArray() != nullptr) {
      for (const std::unique_ptr<IJsonValue>& item : value.AsArray()->Items()) RuleRecord(name, *item, item->Text());
      return;
    }
    for (const std::string_view record : SplitUtf8(text, "{#}")) RuleRecord(name, value, std::string(record));
  }

  void RuleRecord(const std::string& name, const IJsonValue& value, const std::string& record) {
    if (Trim(record).empty()) return;
    const std::vector<std::string_view> fields = SplitUtf8(record, "{*}");
    constexpr std::size_t kFields = 4;
    if (fields.size() < kFields) {
      Find(value, Quoted(name) + " has a rule with fewer than 4 fields divided by \"{*}\"; it is skipped: " +
                      Quoted(record.substr(0, 60)));
      return;
    }
    const std::size_t equals = fields[0].find("==");
    const std::string_view words = equals == std::string_view::npos ? fields[0] : fields[0].substr(equals + 2);
    if (words.find_first_not_of('*') == std::string_view::npos) {
      Find(value, Quoted(name) + " has a rule without words; it never matches: " + Quoted(record.substr(0, 60)));
    }
  }

  void Addresses(std::string_view name, const IJsonValue& value) {
    if (value.AsArray() != nullptr) {
      for (const std::unique_ptr<IJsonValue>& item : value.AsArray()->Items()) Addresses(name, *item);
      return;
    }
    std::vector<CIpRanges::Malformed> malformed;
    CIpRanges().Add(value.Text(), &malformed);
    for (const CIpRanges::Malformed& item : malformed) {
      Find(value, Quoted(name) + " has an entry that is no address or range: " + Quoted(item.item));
    }
  }

  void IpSet(const std::string& name, const IJsonValue& value) {
    const auto key = std::find_if(IpSetKeys().begin(), IpSetKeys().end(),
                                  [&name](const IpSetKey& candidate) { return candidate.name == name; });
    if (key->is_key_list) return;
    const JsonObject* const families = value.AsObject();
    if (families == nullptr) {
      Addresses(name, value);
      return;
    }
    for (const JsonObject::Member* const member : families->Members()) {
      if (member->first == "ipv4" || member->first == "ipv6") {
        Addresses(name, *member->second);
      } else {
        Find(*member->second,
             "unknown key " + Quoted(member->first) + " in " + name + Suggestion(member->first, {"ipv4", "ipv6"}));
      }
    }
  }

  const CSettingsDocument& settings_;
  CReport& report_;
};

}  // namespace

void LintSettings(const CSettingsDocument& settings, CReport* report) {
  CLinter(settings, report).Run();
  // Whatever packing refuses is an error here too; what it merely doubts has been said with a line.
  CReport packing("");
  PackSettings(settings, &packing);
  if (packing.HasError() && !report->HasError()) PackSettings(settings, report);
}

}  // namespace qiv

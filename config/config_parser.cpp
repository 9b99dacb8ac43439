#include "config/config_parser.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "common/aes.h"
#include "common/char_set.h"
#include "common/json.h"
#include "common/text.h"
#include "config/address_sets.h"
#include "config/config_keys.h"
#include "config/local_form.h"
#include "config/page_settings.h"
#include "config/value_lists.h"
#include "engines/injection/rule_text.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr std::string_view kIpListPart = "qivips_websiteiplibpart";
constexpr std::string_view kSettingsPart = "qivips_websiteconfigpart";
constexpr std::string_view kEmptyReferer = "|{$empty}|";

/// The name of the switch that stands in <website_base>, in front of the JSON.
constexpr std::string_view kOnServers = "website_on_servers";

MessageId SectionReason(std::string_view section) {
  constexpr std::pair<std::string_view, MessageId> kReasons[] = {
      {"website_base", MessageId::kSectionBase},       {"website_request", MessageId::kSectionRequest},
      {"website_protect", MessageId::kSectionProtect}, {"website_sql", MessageId::kSectionSql},
      {"website_attack", MessageId::kSectionAttack},   {"website_response", MessageId::kSectionResponse},
      {"website_lists", MessageId::kSectionLists},
  };
  for (const auto& [name, reason] : kReasons) {
    if (name == section) return reason;
  }
  return MessageId::kSectionOther;
}

std::string_view WithoutSwitch(std::string_view part) {
  constexpr std::string_view kEnd = "</website_on_servers>";
  const std::size_t end = part.find(kEnd);
  return end == std::string_view::npos ? part : part.substr(end + kEnd.size());
}

/// The values of one JSON part. A part without a JSON object reads as an empty one.
class CSection {
 public:
  CSection(std::string_view settings, std::string_view name, ConfigFaults* faults) : name_(name), faults_(*faults) {
    const std::string_view part = TaggedPart(settings, name);
    const std::string_view json = JsonOfPart(part);
    std::unique_ptr<IJsonValue> value;
    // A service that writes in the local code page is understood too.
    value = CCharSet::IsValidUtf8(json) ? ParseJson(json) : ParseJson(CCharSet::LocalToUtf8(json));
    if (value != nullptr && value->AsObject() != nullptr) value_ = std::move(value);
    if (IsTagDamaged(settings, name) || (value_ == nullptr && !Trim(WithoutSwitch(part)).empty())) {
      faults_.sections.push_back({name_, SectionReason(name), ""});
    }
  }

  bool Empty() const { return value_ == nullptr || value_->AsObject()->Size() == 0; }

  std::string Utf8(std::string_view key) const {
    return value_ == nullptr ? std::string() : value_->AsObject()->GetText(key);
  }
  /// In GBK, without the items that have no such form.
  std::string Text(std::string_view key, KeyType type) const {
    std::vector<std::string> lost;
    std::string text = ToLocalForm(type, Utf8(key), &lost);
    if (!lost.empty()) faults_.items.push_back(LostItems(name_ + "." + std::string(key), lost));
    return text;
  }

 private:
  const std::string name_;
  ConfigFaults& faults_;
  std::unique_ptr<IJsonValue> value_;
};

// Reading is by type alone; what single keys need beyond that follows below.
#define QIV_NUMBER(member, key, reader, meaning, ...) \
  out->member = ReadNumber(section.Text(key, KeyType::kNumber), KeyValues{__VA_ARGS__});
#define QIV_SWITCH(member, key, reader, meaning) out->member = ToNumber(section.Text(key, KeyType::kSwitch));
#define QIV_DIGITS(member, key, reader, meaning) out->member = DigitsToNumber(section.Text(key, KeyType::kDigits));
#define QIV_FLAG(member, key, reader, meaning) out->member = section.Text(key, KeyType::kFlag) == "1";
#define QIV_TEXT(member, key, reader, ...) out->member = section.Text(key, KeyType::kText);
#define QIV_LIST(member, key, reader, meaning) out->member = section.Text(key, KeyType::kList);
#define QIV_RULES(member, key, reader, meaning) out->member = section.Text(key, KeyType::kRules);
#define QIV_NAMES(member, key, reader, meaning) out->member = WrapNames(section.Text(key, KeyType::kNames));
#define QIV_EXTENSIONS(member, key, reader, meaning) \
  out->member = WrapExtensions(section.Text(key, KeyType::kExtensions));
// What is no address is skipped later.
#define QIV_ADDRESSES(member, key, reader, meaning) out->member = section.Text(key, KeyType::kAddresses);
#define QIV_BODY(member, key, reader, meaning) out->member = section.Text(key, KeyType::kFlag) == "1";
#define QIV_BODY_IF(member, key, with, reader, meaning) QIV_BODY(member, key, reader, meaning)
#define QIV_CHOICE(member, key, reader, meaning, ...) \
  out->member = ReadChoice(section.Text(key, KeyType::kChoice), KeyValues{__VA_ARGS__});

void ReadKeys(const CSection& section, BaseSettings* out) {
#include "config/keys_base.def"
}
void ReadKeys(const CSection& section, RequestSettings* out) {
#include "config/keys_request.def"
}
void ReadKeys(const CSection& section, ProtectSettings* out) {
#include "config/keys_protect.def"
}
void ReadKeys(const CSection& section, InjectionSettings* out) {
#include "engines/injection/injection_keys.def"
}
void ReadKeys(const CSection& section, AttackSettings* out) {
#include "config/keys_attack.def"
}
void ReadKeys(const CSection& section, ResponseSettings* out) {
#include "config/keys_response.def"
}
void ReadKeys(const CSection& section, ListSettings* out) {
#include "config/keys_lists.def"
}

#undef QIV_NUMBER
#undef QIV_SWITCH
#undef QIV_DIGITS
#undef QIV_FLAG
#undef QIV_TEXT
#undef QIV_LIST
#undef QIV_RULES
#undef QIV_NAMES
#undef QIV_EXTENSIONS
#undef QIV_CHOICE
#undef QIV_ADDRESSES
#undef QIV_BODY
#undef QIV_BODY_IF

void FinishBase(const ExtendedFunctions& extended, BaseSettings* base) {
  if (extended.scripts) return;
  base->js = 0;
  base->js_urls.clear();
  base->js_out_freeurls.clear();
  base->js_out_codes.clear();
}

void FinishRequest(RequestSettings* request) {
  request->types = LowerMethods(request->types);
  request->xframe_allowfrom = WithoutControls(Trim(request->xframe_allowfrom));
}

void FinishProtect(ProtectSettings* protect) {
  if (protect->link_empty_refer != 0) protect->link_white_referers += kEmptyReferer;
}

void FinishResponse(ResponseSettings* response) {
  // Without a limit the other keys of smart blocking are not looked at.
  if (response->lock_freq == 0) {
    response->lock_time = 0;
    response->lock_freq_sec = ReadNumber("", FindConfigKey("website_response", "lock_freq_sec")->values);
  }
  response->lock = response->lock && response->lock_freq != 0 && response->lock_time != 0;
}

// Whether a flag of the section has the body captured: the rows of the table that say so.
#define QIV_NUMBER(...)
#define QIV_SWITCH QIV_NUMBER
#define QIV_DIGITS QIV_NUMBER
#define QIV_FLAG QIV_NUMBER
#define QIV_TEXT QIV_NUMBER
#define QIV_LIST QIV_NUMBER
#define QIV_NAMES QIV_NUMBER
#define QIV_EXTENSIONS QIV_NUMBER
#define QIV_RULES QIV_NUMBER
#define QIV_CHOICE QIV_NUMBER
#define QIV_ADDRESSES QIV_NUMBER
#define QIV_BODY(member, key, reader, meaning) \
  if (settings.member) return true;
#define QIV_BODY_IF(member, key, with, reader, meaning) \
  if (settings.with != 0 && settings.member) return true;
bool CapturesBody(const BaseSettings& settings) {
#include "config/keys_base.def"
  return false;
}
bool CapturesBody(const RequestSettings& settings) {
#include "config/keys_request.def"
  return false;
}
bool CapturesBody(const InjectionSettings& settings) {
#include "engines/injection/injection_keys.def"
  return false;
}
#undef QIV_NUMBER
#undef QIV_SWITCH
#undef QIV_DIGITS
#undef QIV_FLAG
#undef QIV_TEXT
#undef QIV_LIST
#undef QIV_NAMES
#undef QIV_EXTENSIONS
#undef QIV_RULES
#undef QIV_CHOICE
#undef QIV_ADDRESSES
#undef QIV_BODY
#undef QIV_BODY_IF

/// A tagged value in GBK, without the items that have no such form.
std::string TaggedText(std::string_view text, std::string_view tag, KeyType type, ConfigFaults* faults) {
  std::vector<std::string> lost;
  std::string local = TaggedToLocalForm(type, TaggedPart(text, tag), &lost);
  if (!lost.empty()) faults->items.push_back(LostItems(std::string(tag), lost));
  return local;
}

/// The tags beside the seven sections that are opened and not closed, or the reverse.
void FindDamagedTags(std::string_view settings, std::string_view ip_lists, ConfigFaults* faults) {
  const auto look = [faults](std::string_view text, std::string_view tag) {
    if (IsTagDamaged(text, tag)) faults->sections.push_back({std::string(tag), MessageId::kSectionOther, ""});
  };
  for (const ConfigKey& key : ScalarKeys()) look(settings, key.name);
  for (const std::string_view tag : {"website_other", "system_common_areas"}) look(settings, tag);
  for (const IpSetKey& key : IpSetKeys()) look(ip_lists, key.name);
}

void ReadSwitches(std::string_view settings, WebsiteConfig* config, ConfigFaults* faults) {
  const bool chinese = ReadChoice(TaggedPart(settings, "language"), FindConfigKey("", "language")->values) != 0;
  config->language = chinese ? Language::kChinese : Language::kEnglish;
  config->library_enabled = TaggedPart(settings, "sys_is_qiv") == "1";
  config->ipv6_protection = TaggedPart(settings, "enable_ipv6prot") == "1";
  config->extend_functions = WrapNames(TaggedPart(settings, "extend_functions"));
  config->extended = ReadExtendedFunctions(config->extend_functions);

  const std::string_view other = TaggedPart(settings, "website_other");
  const std::string_view minutes = TaggedPart(other, "sys_temp_time");
  const bool is_zero = !minutes.empty() && minutes.find_first_not_of('0') == std::string_view::npos;
  if (const std::uint32_t value = DigitsToNumber(minutes); value != 0 || is_zero) config->sys_temp_time = value;
  config->trojan_freecode = TaggedText(other, "trojan_freecode", KeyType::kRules, faults);
  config->trojan_usertrojan = TaggedText(other, "trojan_usertrojan", KeyType::kRules, faults);
  config->sys_trust_ip = TaggedText(other, "sys_trust_ip", KeyType::kAddresses, faults);
  config->sys_log_ex = TaggedText(other, "sys_log_ex", KeyType::kText, faults);
  config->log_requests = WrapNames(config->sys_log_ex).find(",request,") != std::string::npos;
}

/// False when no part holds a member.
bool ReadSections(std::string_view settings, WebsiteConfig* config, ConfigFaults* faults) {
  const CSection base(settings, "website_base", faults);
  const CSection request(settings, "website_request", faults);
  const CSection protect(settings, "website_protect", faults);
  const CSection sql(settings, "website_sql", faults);
  const CSection attack(settings, "website_attack", faults);
  const CSection response(settings, "website_response", faults);
  const CSection lists(settings, "website_lists", faults);
  if (base.Empty() && request.Empty() && protect.Empty() && sql.Empty() && attack.Empty() && response.Empty() &&
      lists.Empty()) {
    return false;
  }
  config->system_common_areas = TaggedText(settings, "system_common_areas", KeyType::kText, faults);

  ReadKeys(base, &config->base);
  config->base.js_out_codes = base.Utf8("js_out_codes");  // goes out in the page's charset
  FinishBase(config->extended, &config->base);
  ReadKeys(request, &config->request);
  config->request.ill_replace_newkey = request.Utf8("ill_replace_newkey");  // goes out in the text's encoding
  FinishRequest(&config->request);
  ReadKeys(protect, &config->protect);
  FinishProtect(&config->protect);
  ReadKeys(sql, &config->sql);
  ReadKeys(attack, &config->attack);
  ReadKeys(response, &config->response);
  config->response.ret_content = response.Utf8("ret_content");  // goes out in UTF-8
  FinishResponse(&config->response);
  ReadKeys(lists, &config->lists);
  return true;
}

/// What is reported of items that cannot be read.
StateFault MalformedFault(const MalformedItems& malformed) {
  std::string items;
  for (const std::string& item : malformed.items) AppendAll(&items, {items.empty() ? "" : ", ", item});
  return {malformed.key, MessageId::kStateMalformedItems, items};
}

/// Words of a switch that is off are not looked for.
void PrepareWords(const RequestSettings& request, PreparedWords* words) {
  const auto if_on = [](std::int32_t on, const std::string& list) { return on != 0 ? list : std::string(); };
  words->words = CSensitiveWords(if_on(request.ill_block, request.ill_block_keys),
                                 if_on(request.ill_replace, request.ill_replace_keys),
                                 if_on(request.ill_record, request.ill_record_keys));
  words->block_white_urls = CUrlExemptions(request.ill_block_white_urls);
  words->replace_white_urls = CUrlExemptions(request.ill_replace_white_urls);
  words->new_word_utf8 = WithoutControls(request.ill_replace_newkey);  // it may come to stand in a header
  words->new_word = CCharSet::Utf8ToLocal(words->new_word_utf8);
}

void PrepareScript(const BaseSettings& base, PreparedScript* script) {
  if (base.js == 0) return;
  script->code = ReplaceAll(base.js_out_codes, "{{freeurls}}", CCharSet::LocalToUtf8(base.js_out_freeurls));
  script->urls = CUrlExemptions(base.js_urls);
  std::string free_urls;
  for (const std::string_view url : Split(base.js_out_freeurls, ',')) AppendAll(&free_urls, {url, "|"});
  script->free_urls = CUrlExemptions(free_urls);
}

void Prepare(WebsiteConfig* config, ConfigFaults* faults) {
  // The site's keyword lists are user-defined rules without a separator setting; the standard one divides words.
  const char separator = RuleWordSeparator("");
  config->get_rules = CKeywordRules(ParseRules(config->sql.get_keys, separator, true));
  config->post_rules = CKeywordRules(ParseRules(config->sql.post_keys, separator, true));
  config->header_rules = CKeywordRules(ParseRules(config->sql.header_keys, separator, true));
  config->injection_exemptions = CUrlExemptions(config->sql.allow_urls);
  config->prepared_lists = PrepareLists(config->lists, config->sys_trust_ip);
  PrepareWords(config->request, &config->words);
  PrepareScript(config->base, &config->script);
  std::vector<MalformedItems> malformed;
  config->access = PrepareAccess(*config, &malformed);
  for (const MalformedItems& list : malformed) faults->items.push_back(MalformedFault(list));
  config->page = MakePageSettings(config->response);
  config->need_post_body = CapturesBody(config->base) || CapturesBody(config->request) || CapturesBody(config->sql);
}

}  // namespace

std::string_view ConfigStatusText(ConfigStatus status) {
  switch (status) {
    case ConfigStatus::kLoaded:
      return "loaded";
    case ConfigStatus::kUnreadable:
      return "the file is missing or cannot be read";
    case ConfigStatus::kTooShort:
      return "the file is shorter than 3 bytes";
    case ConfigStatus::kTooLong:
      return "the file is longer than 100 MiB";
    case ConfigStatus::kNoSettingsPart:
      return "the file holds no <qivips_websiteconfigpart>";
    case ConfigStatus::kNoBasePart:
      return "the settings hold no <website_base>: enciphered with another key, or damaged";
    case ConfigStatus::kNotOnServers:
      return "website_on_servers is not \"1\": the website is not protected";
    case ConfigStatus::kNoSections:
      return "none of the seven sections holds a key";
    case ConfigStatus::kOutOfMemory:
      return "out of memory";
  }
  return "unknown status";
}

ConfigParts SplitConfigText(std::string_view file_text) {
  ConfigParts parts;
  parts.ip_lists = TaggedPart(file_text, kIpListPart);
  parts.has_settings = HasTag(file_text, kSettingsPart);
  parts.settings = DecryptOrThrow("", Trim(TaggedPart(file_text, kSettingsPart)));
  return parts;
}

std::string_view JsonOfPart(std::string_view part) {
  const std::size_t first = part.find('{');
  const std::size_t last = part.rfind('}');
  if (first == std::string_view::npos || last == std::string_view::npos || last < first) return {};
  return part.substr(first, last - first + 1);
}

ConfigStatus ParseConfigParts(std::string_view ip_lists, std::string_view settings, WebsiteConfig* config,
                              ConfigFaults* faults) {
  ConfigFaults unwanted;
  if (faults == nullptr) faults = &unwanted;
  if (!HasTag(settings, "website_base")) return ConfigStatus::kNoBasePart;
  if (TaggedPart(TaggedPart(settings, "website_base"), kOnServers) != "1") return ConfigStatus::kNotOnServers;
  ReadSwitches(settings, config, faults);
  if (!ReadSections(settings, config, faults)) return ConfigStatus::kNoSections;
  FindDamagedTags(settings, ip_lists, faults);
  ReadAddressSets(ip_lists, &config->addresses, &faults->items);
  Prepare(config, faults);
  return ConfigStatus::kLoaded;
}

ConfigStatus ParseConfigText(std::string_view file_text, WebsiteConfig* config, ConfigFaults* faults) {
  if (file_text.size() < kConfigMinBytes) return ConfigStatus::kTooShort;
  const ConfigParts parts = SplitConfigText(file_text);
  if (!parts.has_settings) return ConfigStatus::kNoSettingsPart;
  if (faults != nullptr && IsTagDamaged(file_text, kIpListPart)) {
    faults->sections.push_back({std::string(kIpListPart), MessageId::kSectionOther, ""});
  }
  return ParseConfigParts(parts.ip_lists, parts.settings, config, faults);
}

ConfigStatus LoadConfigFile(const std::string& path, WebsiteConfig* config) {
  try {
    std::string text;
    switch (ReadWholeFile(path, kConfigMaxBytes, &text)) {
      case ReadFileResult::kUnreadable:
        return ConfigStatus::kUnreadable;
      case ReadFileResult::kTooLarge:
        return ConfigStatus::kTooLong;
      case ReadFileResult::kOk:
        break;
    }
    return ParseConfigText(text, config);
  } catch (const std::bad_alloc&) {
    return ConfigStatus::kOutOfMemory;
  }
}

}  // namespace qiv

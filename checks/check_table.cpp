#include "checks/check_table.h"

#include "checks/access_check.h"
#include "checks/badcode_check.h"
#include "checks/badcode_output_check.h"
#include "checks/file_inclusion_check.h"
#include "checks/flood_check.h"
#include "checks/injection_check.h"
#include "checks/lists_check.h"
#include "checks/password_check.h"
#include "checks/request_shape_check.h"
#include "checks/script_insertion_check.h"
#include "checks/sensitive_words_check.h"
#include "checks/sensitive_words_output_check.h"
#include "checks/smart_blocking.h"
#include "checks/upload_check.h"
#include "checks/webshell_check.h"
#include "checks/webshell_output_check.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::uint32_t If(bool on, std::uint32_t parts) { return on ? parts : 0; }

std::uint32_t QueryParts(const WebsiteConfig& config) { return kPartQuery | If(config.extended.path, kPartPath); }

std::uint32_t ListsParts(const WebsiteConfig& config) {
  const ListSettings& lists = config.lists;
  return kPartClient | If(config.attack.e404 != 0, kPartForwarded) | If(lists.status_url != 0, kPartUrl | kPartPath) |
         If(lists.status_ua != 0, kPartAgent) | If(lists.status_rf != 0, kPartReferer);
}

std::uint32_t PasswordParts(const WebsiteConfig& config) {
  return If(config.response.passwd && !config.response.passwd_key.empty(), kPartClient | kPartCookie | kPartBody);
}

std::uint32_t OverflowParts(const WebsiteConfig& config) {
  return If(config.attack.overflow != 0, kPartUrl | kPartHeaders | kPartBody);
}

std::uint32_t UrlParts(const WebsiteConfig& config) {
  return If(config.base.xforwardedfor != 0, kPartForwarded) | If(config.base.url != 0, kPartUrl);
}

std::uint32_t SpiderParts(const WebsiteConfig& config) {
  return If(config.attack.spider != 0, kPartClient | kPartAgent);
}

std::uint32_t ProxyParts(const WebsiteConfig& config) { return If(config.attack.agent != 0, kPartForwarded); }

std::uint32_t FloodParts(const WebsiteConfig& config) {
  const AttackSettings& attack = config.attack;
  return If(attack.cc != 0 && attack.cc_lock_freq != 0 && attack.cc_lock_time != 0,
            kPartClient | kPartPath | kPartQuery | kPartCookie);
}

std::uint32_t MethodParts(const WebsiteConfig& config) { return If(config.request.type != 0, kPartMethod); }

std::uint32_t UploadParts(const WebsiteConfig& config) {
  const RequestSettings& request = config.request;
  const bool photo = request.photo != 0;
  return If(photo && request.photo_get != 0, kPartQuery) |
         If(config.base.upload || (photo && request.photo_post), kPartBody);
}

std::uint32_t WebshellParts(const WebsiteConfig& config) {
  const BaseSettings& base = config.base;
  return If(base.trojan != 0, If(base.trojan_get != 0, QueryParts(config)) | If(base.trojan_post, kPartBody) |
                                  If(base.trojan_header != 0, kPartHeaders));
}

std::uint32_t StaticParts(const WebsiteConfig& config) {
  return If(config.protect.static_ != 0 && !config.access.static_urls.Empty(), kPartPath);
}

std::uint32_t AdminParts(const WebsiteConfig& config) {
  return If(config.protect.admin != 0 && !config.access.admin_urls.Empty(), kPartClient | kPartPath);
}

std::uint32_t TimeLimitParts(const WebsiteConfig& config) {
  return If(config.protect.timelimit != 0 && !config.access.timelimit_limit_urls.Empty(), kPartPath | kPartTime);
}

std::uint32_t HotlinkParts(const WebsiteConfig& config) {
  return If(config.protect.link != 0 && !config.access.link_file_types.Empty(), kPartPath | kPartReferer);
}

std::uint32_t FileTypeParts(const WebsiteConfig& config) {
  return If(config.protect.type != 0 && !config.access.type_file_types.Empty(), kPartPath);
}

std::uint32_t InjectionParts(const WebsiteConfig& config) {
  const InjectionSettings& sql = config.sql;
  const bool xss = sql.xss != 0;
  return If(sql.get != 0 || (xss && sql.xss_get != 0), QueryParts(config)) |
         If(sql.post || (xss && sql.xss_post != 0), kPartBody) |
         If(sql.header != 0 || (xss && sql.xss_header != 0), kPartHeaders);
}

std::uint32_t FileInclusionParts(const WebsiteConfig& config) {
  return If(FileGroups(config) != 0, QueryParts(config) | kPartPath | kPartBody | kPartHeaders);
}

std::uint32_t BadcodeParts(const WebsiteConfig& config) {
  const BaseSettings& base = config.base;
  return If(base.badcode != 0, If(base.badcode_get != 0, QueryParts(config) | kPartPath) |
                                   If(base.badcode_post, kPartBody) | If(base.badcode_header != 0, kPartHeaders));
}

std::uint32_t WordParts(const WebsiteConfig& config) {
  const RequestSettings& request = config.request;
  const auto wants = [&config](bool block, bool replace, bool record) {
    return WordUses(config, block, replace, record) != 0;
  };
  return If(wants(request.ill_block_get != 0, request.ill_replace_get != 0, request.ill_record_get != 0),
            QueryParts(config)) |
         If(wants(request.ill_block_post, request.ill_replace_post, request.ill_record_post), kPartBody) |
         If(wants(request.ill_block_header != 0, request.ill_replace_header != 0, request.ill_record_header != 0),
            kPartHeaders);
}

std::uint32_t ListingParts(const WebsiteConfig& config) {
  return If(config.base.url != 0 && config.base.url_dir_list != 0, kPartUrl | kPartResponse);
}

std::uint32_t WebshellOutputParts(const WebsiteConfig& config) {
  return If(config.base.trojan != 0 && config.base.trojan_webout != 0, kPartResponse);
}

std::uint32_t BadcodeOutputParts(const WebsiteConfig& config) {
  return If(config.base.badcode != 0 && config.base.badcode_webout != 0, kPartResponse);
}

std::uint32_t WordOutputParts(const WebsiteConfig& config) {
  const RequestSettings& request = config.request;
  return If(WordUses(config, request.ill_block_webout != 0, request.ill_replace_webout != 0,
                     request.ill_record_webout != 0) != 0,
            kPartResponse);
}

std::uint32_t ScriptParts(const WebsiteConfig& config) {
  return If(!config.script.code.empty() && !config.script.urls.Empty(), kPartUrl | kPartResponse);
}

std::size_t Head(const RequestFacts&, const WebsiteConfig&) { return kMostResponseBytes; }

std::size_t OutputWordBytes(const RequestFacts& facts, const WebsiteConfig& config) {
  return OutputWordUses(facts, config) != 0 ? kMostEditedBytes : 0;
}

std::size_t ScriptBytes(const RequestFacts& facts, const WebsiteConfig& config) {
  return GetsScript(facts, config) ? kMostEditedBytes : 0;
}

std::uint32_t NotFoundParts(const WebsiteConfig& config) {
  const AttackSettings& attack = config.attack;
  return If(attack.e404 != 0 && attack.e404_lock_freq != 0 && attack.e404_lock_time != 0, kPartClient | kPartPath);
}

// The order is part of the protection. The authorization password comes first: what its form sent may reach nobody
// else. Cheap tests of addresses and shapes come first, so that an attack in bulk costs little; tests of who may come
// here at all come before tests of what the request says; injection comes last because it reads every byte of query,
// body and headers. What only changes a response comes behind what may block it.
constexpr CheckRow kRows[] = {
    {"lists", Stage::kLists, ListsCheck, ListsParts},
    {"password", Stage::kRequest, PasswordCheck, PasswordParts},
    {"overflow", Stage::kRequest, OverflowCheck, OverflowParts},
    {"url", Stage::kRequest, UrlCheck, UrlParts},
    {"spider", Stage::kRequest, SpiderCheck, SpiderParts},
    {"proxy", Stage::kRequest, ProxyCheck, ProxyParts},
    {"flood", Stage::kRequest, FloodCheck, FloodParts},
    {"method", Stage::kRequest, MethodCheck, MethodParts},
    {"upload", Stage::kRequest, UploadCheck, UploadParts},
    {"webshell", Stage::kRequest, WebshellCheck, WebshellParts},
    {"file_inclusion", Stage::kRequest, FileInclusionCheck, FileInclusionParts},
    {"static_directory", Stage::kRequest, StaticDirectoryCheck, StaticParts},
    {"admin", Stage::kRequest, AdminCheck, AdminParts},
    {"time_limit", Stage::kRequest, TimeLimitCheck, TimeLimitParts},
    {"hotlink", Stage::kRequest, HotlinkCheck, HotlinkParts},
    {"file_type", Stage::kRequest, FileTypeCheck, FileTypeParts},
    {"injection", Stage::kRequest, InjectionCheck, InjectionParts},
    {"badcode", Stage::kRequestAlways, BadcodeCheck, BadcodeParts},
    {"words", Stage::kRequestAlways, SensitiveWordsCheck, WordParts, nullptr, true},
    {"directory_listing", Stage::kResponseBody, DirectoryListingCheck, ListingParts, Head},
    {"badcode_output", Stage::kResponseBody, BadcodeOutputCheck, BadcodeOutputParts, Head},
    {"webshell_output", Stage::kResponseBody, WebshellOutputCheck, WebshellOutputParts, Head},
    {"words_output", Stage::kResponseBody, SensitiveWordsOutputCheck, WordOutputParts, OutputWordBytes, true},
    {"script_insertion", Stage::kResponseBody, ScriptInsertionCheck, ScriptParts, ScriptBytes},
    {"not_found", Stage::kNotFound, NotFoundCheck, NotFoundParts},
    {"smart_blocking", Stage::kAfterDecision, SmartBlockingCheck},
};

}  // namespace

std::span<const CheckRow> CheckTable() { return kRows; }

}  // namespace qiv

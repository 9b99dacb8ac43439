// What every check does that found a webshell: the texts of the block, its flags, its statistics.
#pragma once

#include <string>
#include <string_view>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "common/messages.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// Statistics categories: content that was sent to the site, and content that the site sent.
inline constexpr std::string_view kWebshellStatistics = "trojan";
inline constexpr std::string_view kWebshellOutputStatistics = "trojanhtml";

/// A finding in words, GBK.
struct WebshellWords {
  std::string name;      ///< of the finding or rule
  std::string category;  ///< "Hide", "Risk characteristics"; empty for most
  std::string detail;    ///< behind its label, if it has one
};
WebshellWords WordsOf(const WebshellResult& found, Language language);

/// The begin of what stands at the finding's place of the text that was scanned, GBK; empty where that has no place of
/// its own in it.
std::string WebshellExcerpt(const WebshellResult& found, std::string_view text);

/// Where a webshell was found.
struct WebshellPlace {
  std::string_view place;  ///< in texts, the same in both languages: "GET", "POST", "Header", "File", "Response"
  std::string_view name;   ///< of the parameter, header or file, GBK; empty: none
  MessageId item = MessageId::kWebshellItem;  ///< the protection that found it
  std::string_view statistics = kWebshellStatistics;
  std::string_view excerpt = {};  ///< WebshellExcerpt; empty: not to be shown
};

/// Blocks, counted by smart blocking:
///   item    "Webshell Protection(GET)"
///   reason  "Deny webshell(GET),Type:ASP backdoor"
///   detail  "Deny webshell(GET[q]),Type:ASP backdoor(Hide),Keywords:eval,Connective:eval request(1)"
void BlockWebshell(const WebshellPlace& place, const WebshellResult& found, const RequestFacts& facts,
                   const CheckContext& context, CheckResult& result);

/// Tells that of what was sent there not all was examined.
void RecordPartialScan(const WebshellPlace& place, const char* check, const RequestFacts& facts,
                       const CheckContext& context);

}  // namespace qiv

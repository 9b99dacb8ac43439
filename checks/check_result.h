// The decision record of one notification.
#pragma once

#include <cstdint>
#include <string>

namespace qiv {

enum CheckStatus : std::int32_t { kUndecided = 0, kAllowed = 1, kBlocked = 2 };

/// The values of CheckResult::kind.
enum CheckKind : std::int32_t { kKindNone = 0, kKindLists = 3, kKindWebshell = 4, kKindInjection = 5, kKindUpload = 6 };

/// Fresh for each notification. A check leaves status alone, or sets it to 1 or 2 and fills the texts.
struct CheckResult {
  std::int32_t status = kUndecided;

  // The six texts, in order (GBK).
  std::string reason;  ///< shown as the page's details
  std::string detail;  ///< goes to the event log
  std::string category;
  std::string item;  ///< the note on pages
  std::string smart_block_title;
  std::string smart_block_text;

  // The two counters.
  std::uint64_t response_status = 0;  ///< status code of the page; 0: the site's setting
  std::uint64_t kind = kKindNone;

  std::int32_t log = 1;  ///< the flag that starts at 1: record the event in the log

  // Further values filled by the deciding check.
  std::int32_t smart_block = 0;  ///< lock the client at once
  std::int32_t plain_block = 0;  ///< count the block; enough of them lock the client
  std::int32_t no_count = 0;     ///< do not count it after all
  std::int32_t notify = 0;

  // For the event log.
  const char* check = "";  ///< stable name of the deciding check; static storage
  std::string rule;        ///< identifier of the rule that matched
};

/// Puts "***" in place of secrets in the texts of a decision. Called once, when a check has decided: pages, events,
/// lock requests and messages all take these texts as they are. A text for which there is no memory is emptied.
void HideSecrets(CheckResult* result) noexcept;

}  // namespace qiv

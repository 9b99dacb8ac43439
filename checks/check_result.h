// The decision record of one notification: of its checks about the request, and what they wish for its page.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/text.h"

namespace qiv {

enum CheckStatus : std::int32_t { kUndecided = 0, kAllowed = 1, kBlocked = 2 };

/// The values of CheckResult::kind.
enum CheckKind : std::int32_t {
  kKindNone = 0,
  kKindLists = 3,
  kKindWebshell = 4,
  kKindInjection = 5,
  kKindUpload = 6,
  kKindShape = 7,
  kKindAccess = 8,
  kKindFlood = 9,
  kKindFileInclusion = 10,
  kKindBadcode = 11,
  kKindWords = 12
};

/// What goes out beside or in place of a page. Each is empty unless a check has set it.
struct PreparedAnswer {
  std::string location;  ///< path on this host: the visitor is sent there (302) and sees no page
  std::string cookie;    ///< value of a Set-Cookie header
  std::string policy;    ///< value of the Content-Security-Policy of the prepared page
};

struct AttackFindings;

/// Pieces of a text, and what takes their place: one of a few texts, so that a million of them stay small.
struct TextEdits {
  struct Edit {
    std::uint32_t offset;
    std::uint32_t length;
    std::uint32_t text;  ///< index into `texts`
  };
  std::vector<Edit> edits;  ///< once KeepApart was called in order, none over another
  std::vector<std::string> texts;

  bool empty() const { return edits.empty(); }
  void Add(const TextPlace& place, std::size_t text) {
    edits.push_back({static_cast<std::uint32_t>(place.offset), static_cast<std::uint32_t>(place.length),
                     static_cast<std::uint32_t>(text)});
  }
};

/// What changes of a request, or of a response, that goes on. Made by checks, done by the module.
struct DecidedEdits {
  std::optional<std::string> query;                          ///< what stands behind the first "?" of raw_url, anew
  std::optional<std::string> body;                           ///< RequestFacts::raw_body, anew
  std::vector<std::pair<std::size_t, std::string>> headers;  ///< by index into RequestFacts::headers
  TextEdits response;                                        ///< CheckContext::response
};

/// Puts edits in order; of those over one another the first stays, of those at one place the first of the list.
void KeepApart(TextEdits* edits);

/// What the checks of a notification decide beside block or pass.
struct RequestDecision {
  bool statistics = true;     ///< whether later blocks are counted in statistics; lists clear it
  bool attack = false;        ///< the attack mark
  bool page_detail = true;    ///< whether the page may hold the password form; cleared for blocks by lists
  bool gbk_page = false;      ///< pages go out in GBK; starts as the request's headers ask
  bool custom_page = false;   ///< set when a complete custom page was used
  bool form_scanned = false;  ///< every part of a multipart form was scanned whole for webshells
  /// What the search for file inclusion found for the search for malicious code; null: it did not look.
  std::shared_ptr<const AttackFindings> attacks;
  std::shared_ptr<const DecidedEdits> edits;  ///< null: none
  /// A whole page that a check prepared, sent instead of the block page; "{{charset}}" is the one placeholder that is
  /// still substituted in it.
  std::string prepared_page;
  PreparedAnswer answer;
  /// Identifier of the event that the request's block became, for the log and the visitor; empty before a page was
  /// written.
  std::string event_id;
};

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

  RequestDecision request;

  // For the event log.
  const char* check = "";  ///< stable name of the deciding check; static storage
  std::string rule;        ///< identifier of the rule that matched
};

struct RequestFacts;
struct CheckContext;

/// What every plain block does beside its texts and rule: blocks, to be logged, reported and counted towards a lock,
/// and marks the request as an attack. Counted in `statistics` unless empty.
void BlockPlainly(CheckKind kind, std::string_view statistics, const RequestFacts& facts, const CheckContext& context,
                  CheckResult& result);

/// The category of statistics for what request and response alike may be blocked for: the lists leave requests
/// uncounted (RequestDecision::statistics), responses are always counted.
std::string_view CountedAs(std::string_view statistics, const CheckContext& context, const CheckResult& result);

/// Puts "***" in place of secrets in the texts of a decision. Called once, when a check has decided: pages, events,
/// lock requests and messages all take these texts as they are. A text for which there is no memory is emptied.
void HideSecrets(CheckResult* result) noexcept;

}  // namespace qiv

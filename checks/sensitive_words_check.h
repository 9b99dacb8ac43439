// Sensitive words in requests: what a site blocks, replaces before the application gets it, and records.
//
// A value is read as applications read it, with escaped characters and character references in the encoding that the
// bytes beside them are in; for blocks and records in the forms of value_forms.h as well. What is replaced is replaced
// where it stands. Left as they are: names, file names, headers of the protocol, keys and tokens in base64, bodies that
// are no text; and words in bodies that were sent compressed or in UTF-16, which are found all the same.
#pragma once

#include <string_view>
#include <vector>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "common/messages.h"
#include "config/sensitive_words.h"

namespace qiv {

/// The uses that the site has for words in a place, given its three switches for it; white URLs apart.
unsigned WordUses(const WebsiteConfig& site, bool block, bool replace, bool record);
/// Without those that this request's URL is exempt from.
unsigned WithoutWhiteUrls(unsigned uses, const RequestFacts& facts, const WebsiteConfig& site);

/// The texts of a finding; `place` as "GET", `name` of the parameter or header, may be empty.
///   item    "Sensitive Word Protection(GET)"
///   reason  "Deny sensitive words(GET)"
///   detail  "Deny sensitive words(GET[q]),Keywords:word"
struct WordFinding {
  std::string_view place;
  std::string_view name;
  std::string_view word;
};
void BlockWord(const WordFinding& finding, const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Events of what is replaced and recorded, held back until it is known whether the request is blocked. Should the
/// server refuse an edit, the module says so in an event of its own.
class CWordNotes {
 public:
  CWordNotes(const RequestFacts& facts, const CheckContext& context) : facts_(facts), context_(context) {}

  /// kWordsRecorded, kWordsReplaced (an event with ill_replace_log; counted in any case), or what became of a
  /// replacement: kWordsLeftOut, kWordsKept.
  void Add(MessageId reason, const WordFinding& finding);
  /// Writes them; of a request that is blocked nothing is replaced.
  void Write(bool blocked);

 private:
  struct Note {
    MessageId reason;
    CheckResult texts;
  };

  const RequestFacts& facts_;
  const CheckContext& context_;
  std::vector<Note> notes_;
};

/// Leaves status alone or sets it to 2; fills result.request.edits. Reads context.config and the request's raw texts.
void SensitiveWordsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

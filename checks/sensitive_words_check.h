// Sensitive words in requests: what a site blocks, replaces before the application gets it, and records.
//
// Each value is looked at in the forms of value_forms.h, and with character references resolved, which browsers send
// for characters that a page's charset does not hold. What is replaced is replaced where it stands, in the form in
// which the application reads it; words in bodies that were sent compressed or in UTF-16 are found, and stay.
#pragma once

#include <string_view>

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
/// An event for what is replaced (kWordsReplaced, with ill_replace_log) or recorded (kWordsRecorded), counted in
/// statistics.
void NoteWord(MessageId reason, const WordFinding& finding, const RequestFacts& facts, const CheckContext& context);

/// Leaves status alone or sets it to 2; fills result.request.edits. Reads context.config and the request's raw texts.
void SensitiveWordsCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

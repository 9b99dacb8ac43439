// The text form of signature rules, and the builder of the built-in ones.
//
// A record "pattern{*}0{*}name{*}0{*}0{*}kind{*}number" ends with "{#}"; `number` is the size limit in bytes, 0 none.
// Kind and number are a record's last two fields, so that a record with one more "0" reads the same.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {

/// Adds the record (or records) of one rule to `text`. The pattern is lower-cased. Of the extra terms
///  - one that begins with "--" spares texts that hold it; all of these go to the end of the pattern;
///  - of the others each makes a rule of its own: the pattern, `joined_by` ("++" or "!"), the term. In a pattern that
///    holds "--" they join its first piece, and "!!" in that piece becomes "++": nothing says where they would stand.
/// Without others the pattern is one rule.
void AddSignatureRule(std::string* text, std::string_view pattern, std::string_view joined_by, std::string_view name,
                      std::span<const std::string_view> extra_terms, std::uint32_t number, std::uint32_t kind);

/// The rules of `text` in order. A record of fewer than 7 fields is a pattern and, as third field, a name; it has kind
/// 4 and no limit. Records without a term are left out. A name may be in both languages (SignatureName::Text).
std::vector<SignatureRule> ParseSignatureRules(std::string_view text);

/// The first fields of the records of `text`: known-good code, the removal list. Line ends around a record are dropped.
std::vector<std::string> ParseSignatureTexts(std::string_view text);

}  // namespace qiv

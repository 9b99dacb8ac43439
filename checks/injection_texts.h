// What the injection detectors found, in words.
#pragma once

#include <string>
#include <string_view>

#include "checks/shown_text.h"
#include "common/language.h"
#include "engines/injection/injection_rule.h"
#include "engines/injection/judged_text.h"
#include "engines/injection/sql_injection_detector.h"
#include "engines/injection/xss_detector.h"

namespace qiv {

/// The match record of a finding in `text`: a copy of the rule, its remark replaced by the detail line
/// "Detail:name=value" when the text was split into parameters. A value of more than 800 bytes is shown from the rule's
/// word on, or from its beginning when the word is not in it; 800 bytes at most, not ending within a character. The
/// reserved format mismatch has a record of its own. Empty for kNone.
InjectionRule MatchRecord(const SqlFinding& finding, const JudgedText& text, const CShownText& shown,
                          Language language);

/// Empty for kNone.
std::string_view XssTypeName(XssType type, Language language);

/// What an XSS finding shows as its keyword.
std::string XssFragment(XssType type, TextPlace fragment, const CShownText& shown);

/// Where a finding's excerpt is cut: the rule's first word where it first stands in the text, else what the detector
/// found.
TextPlace ExcerptPlace(const InjectionRule& rule, TextPlace found, const JudgedText& text);

}  // namespace qiv

// What the webshell detectors report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {

/// The form of a text that a place counts in.
enum class TextView : std::uint8_t {
  kSent,       ///< the text that was scanned, as it is
  kConverted,  ///< the same in the local code page, or one byte for each two
  kDecoded,    ///< of a page: in lower case, encoded scripts decoded, full-width letters narrow
  kInner,      ///< code that the text evaluates or decodes: the place is that of what does so, in the text as it is
};

/// In no language: checks/webshell_finding.h says it in words.
struct WebshellResult {
  std::optional<MessageId> finding;   ///< what an analysis found; empty for rules
  std::optional<MessageId> category;  ///< what kind of finding it is (kHide, kRiskCharacteristics), if it is of one
  std::optional<MessageId> label;     ///< what `detail` is (kLabelFunction), if that is to be said
  std::string detail;                 ///< the matched text, or the function it was found by; GBK
  SignatureName rule_name;            ///< of the rule; empty for findings, and for rules without a name
  TextPlace place;                    ///< where it stands; without length: the text as a whole, or nowhere as such
  TextView view = TextView::kSent;    ///< of `place`
  std::string rule;                   ///< the rule's first term; empty for findings
  std::uint32_t kind = 0;             ///< rule kind number: 4 PHP, 5 ASP and ASPX
  std::uint32_t size_limit = 0;       ///< of the rule
  bool suspicious = false;            ///< a weak finding: reported, but better acted upon only in strict mode
  bool partial = false;               ///< nothing was found, but limits kept a part from being followed
  bool known_good = false;            ///< nothing was found because the text holds known-good code

  /// That `rule` was hit.
  static WebshellResult OfRule(const SignatureRule& rule) {
    WebshellResult result;
    result.rule_name = rule.name;
    result.detail = result.rule = rule.terms.front();
    result.kind = rule.number;
    result.size_limit = rule.size_limit;
    return result;
  }

  /// What stands at the place of the text that was scanned; empty where the place counts in another form of it.
  std::string_view In(std::string_view text) const {
    return view == TextView::kSent || view == TextView::kInner ? place.In(text) : std::string_view();
  }
};

}  // namespace qiv

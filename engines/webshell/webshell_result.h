// What the webshell detectors report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/messages.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {

/// In no language: checks/webshell_finding.h says it in words.
struct WebshellResult {
  std::optional<MessageId> finding;   ///< what an analysis found; empty for rules
  std::optional<MessageId> category;  ///< what kind of finding it is (kHide, kRiskCharacteristics), if it is of one
  std::optional<MessageId> label;     ///< what `detail` is (kLabelFunction), if that is to be said
  std::string detail;                 ///< the matched text, or the function it was found by; GBK
  SignatureName rule_name;            ///< of the rule; empty for findings, and for rules without a name
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

  bool operator==(const WebshellResult&) const = default;
};

}  // namespace qiv

// What the webshell detectors report.
#pragma once

#include <cstdint>
#include <string>

namespace qiv {

/// Texts in GBK, in the language of the libraries.
struct WebshellResult {
  std::string name;              ///< display name of the rule or finding
  std::string category;          ///< what kind of finding it is ("Hide", "Risk characteristics"); empty for rules
  std::string detail;            ///< the matched text, or the function it was found by; behind a label if it has one
  std::string rule;              ///< the rule's first term; empty for findings
  std::uint32_t kind = 0;        ///< rule kind number: 4 PHP, 5 ASP and ASPX
  std::uint32_t size_limit = 0;  ///< of the rule
  bool suspicious = false;       ///< a weak finding: reported, but better acted upon only in strict mode
  bool partial = false;          ///< nothing was found, but limits kept a part from being followed
  bool known_good = false;       ///< nothing was found because the text holds known-good code

  bool operator==(const WebshellResult&) const = default;
};

}  // namespace qiv

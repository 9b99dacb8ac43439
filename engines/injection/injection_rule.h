// One rule of the injection libraries and of the site's keyword lists.
#pragma once

#include <string>
#include <vector>

namespace qiv {

/// Texts in GBK, lower-cased by the loader (rule_text.h).
struct InjectionRule {
  std::string shown;               ///< first field: what pages and events show as the keyword
  std::string second = "*";        ///< second field: free text
  std::string remark;              ///< third field: remark; a per-parameter hit replaces it by the detail line
  std::string identifier;          ///< fourth field: written to statistics; "0" for a format mismatch
  std::vector<std::string> words;  ///< keyword list; the detectors look at the first word only

  bool operator==(const InjectionRule&) const = default;
};

}  // namespace qiv

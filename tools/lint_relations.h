// What lint knows of single keys' values and of keys that need one another.
#pragma once

#include <string>
#include <vector>

#include "tools/settings_document.h"

namespace qiv {

struct LintRemark {
  const IJsonValue* value;  ///< where; null for the file as a whole
  std::string message;
  bool is_note = false;  ///< in order, but it may do more than its writer knows
};

/// Features that are switched on without what they need.
std::vector<LintRemark> LintRelations(const CSettingsDocument& settings);

}  // namespace qiv

// A new installation from the rule data.
#pragma once

#include <string>

#include "common/language.h"

namespace qiv {

struct InitOptions {
  std::string directory;                   ///< of the module
  std::string rules;                       ///< folder of rule data; empty: found
  std::string profile = "default";         ///< a file of rules/settings, without ".json"
  Language language = Language::kEnglish;  ///< of the pages and of the rules' remarks
  bool force = false;                      ///< overwrite what is there
};

/// Creates DIR/settings.json, DIR/rules and DIR/own, which it refers to, DIR/config with what is packed from them, and
/// DIR/debug. Writes nothing when one of the files is there already (unless forced; the site's own files in DIR/own and
/// rules that are DIR/rules themselves stay as they are) or when the data is faulty. Messages go to stderr; the exit
/// code.
int InitInstallation(const InitOptions& options);

}  // namespace qiv

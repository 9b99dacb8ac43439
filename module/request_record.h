// What the module holds of a request from its begin to its end.
#pragma once

#include <memory>

#include "checks/request_facts.h"
#include "config/exemptions.h"
#include "config/website_config.h"
#include "engines/attacks/attack_rules.h"
#include "engines/injection/injection_library.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {

/// Filled in the first notification and shared, unchanged, by all: a request is judged to its end by the configuration
/// and the libraries that were in force when it began, however slow it is.
struct RequestRecord {
  std::shared_ptr<const WebsiteConfig> config;
  std::shared_ptr<const InjectionLibrary> library;
  std::shared_ptr<const CQivLibs> webshells;  ///< null while there is none
  std::shared_ptr<const CAttackRules> attacks;
  std::shared_ptr<const CAttackRules> leaks;
  std::shared_ptr<const CExemptions> exemptions;
  RequestFacts facts;
};

}  // namespace qiv

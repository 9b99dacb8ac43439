// Exemptions (config/exemptions.h): whether anything of a block is left when what the site exempts is taken away.
//
// An exemption must not open more than it says: a request that holds an exempted finding is not let pass for it, it is
// judged again without it. For a rule that is exempt on a path the check runs with a rule list that lacks it. For one
// that is exempt in a parameter, first the request without that parameter must pass by all rules, and then the whole
// request by all rules but those that are exempt there. Findings of detectors that have no list of rules cannot be
// taken out one by one: there the exempted finding ends the check. All this is done only when a request was blocked by
// something that is exempt somewhere.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "checks/check_table.h"
#include "module/request_record.h"
#include "port/critical_section.h"

namespace qiv {

/// Keeps the shortened rule lists that were made last. Thread safe.
class CExemptedCheck {
 public:
  /// `before`: the decision record as it was handed to the check; `blocked`: what the check decided. True when the
  /// request is to go on as if the check had found nothing; else `blocked` is the first finding that is not exempt, so
  /// that the event names what is left to exempt. Throws nothing but std::bad_alloc.
  bool IsExempt(const CheckRow& row, const RequestRecord& record, const CheckContext& context,
                const CheckResult& before, CheckResult* blocked);

 private:
  struct ShortLists {
    bool IsOf(const RequestRecord& record) const {
      return of_config == record.config && of_library == record.library && of_attacks == record.attacks;
    }

    std::set<std::string> without;
    std::shared_ptr<const WebsiteConfig> of_config;
    std::shared_ptr<const InjectionLibrary> of_library;
    std::shared_ptr<const CAttackRules> of_attacks;
    std::shared_ptr<const WebsiteConfig> config;
    std::shared_ptr<const InjectionLibrary> library;
    std::shared_ptr<const CAttackRules> attacks;
    std::shared_ptr<const CAttackRules> leaks;
  };
  std::shared_ptr<const ShortLists> Without(const std::set<std::string>& rules, const RequestRecord& record);

  CCriticalSection lock_;
  std::vector<std::shared_ptr<const ShortLists>> kept_ QIV_GUARDED_BY(lock_);  ///< the newest last
};

}  // namespace qiv

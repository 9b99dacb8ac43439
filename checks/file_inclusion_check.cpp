#include "checks/file_inclusion_check.h"

#include <memory>

#include "checks/badcode_check.h"
#include "config/website_config.h"

namespace qiv {

void FileInclusionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const unsigned groups = FileGroups(context.config);
  if (groups == 0) return;
  static constexpr AttackTexts kTexts{MessageId::kFileInclusionCategory, MessageId::kFileInclusionItem,
                                      MessageId::kFileInclusionReason, kKindFileInclusion, "file_inclusion"};
  auto findings =
      std::make_shared<const AttackFindings>(FindAttacks(facts, context, groups | BadcodeGroups(context.config)));
  if (findings->file.hit.rule) return BlockAttack(kTexts, findings->file, facts, context, result);
  result.request.attacks = std::move(findings);
}

}  // namespace qiv

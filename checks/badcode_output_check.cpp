#include "checks/badcode_output_check.h"

#include <string>

#include "checks/badcode_check.h"
#include "common/char_set.h"
#include "config/website_config.h"
#include "engines/attacks/attack_rules.h"

namespace qiv {
namespace {

// What leaks stands at the head: an error ends a page. A bound for what a look at a long page costs; what goes out in
// pieces is bounded by who hands them on.
constexpr std::size_t kSearched = 256 * 1024;
constexpr int kServerError = 500;

}  // namespace

void BadcodeOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const BaseSettings& base = context.config.base;
  if (base.badcode == 0 || base.badcode_webout == 0 || !context.leaks || context.response.text.empty()) return;
  const bool failed = context.response.status >= kServerError;
  const bool piece = context.response.part != ResponsePart::kHead;
  const std::string lowered =
      CCharSet::LowerBytes(context.response.text.substr(0, piece ? std::string_view::npos : kSearched));
  CAttackScan scan(*context.leaks);
  AttackFinding finding;
  const unsigned groups =
      unsigned{kLeaks} | (failed ? unsigned{kErrorLeaks} : 0U) | (context.response.page ? unsigned{kSourceLeaks} : 0U);
  finding.hit = scan.FindAsItStands(lowered, kInResponse, groups);
  if (finding.hit.rule == nullptr) return;
  static constexpr AttackTexts kTexts{MessageId::kBadcodeCategory, MessageId::kLeakItem, MessageId::kLeakReason,
                                      kKindBadcode, "badcode"};
  finding.place = "Response";
  result.request.statistics = true;  // the lists leave only the first phase countable
  BlockAttack(kTexts, finding, facts, context, result);
  result.plain_block = 0;
  result.request.attack = false;
  if (failed) result.response_status = kServerError;
}

}  // namespace qiv

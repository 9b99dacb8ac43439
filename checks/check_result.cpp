#include "checks/check_result.h"

#include <new>

#include "checks/check_context.h"
#include "checks/request_facts.h"
#include "common/secrets.h"

namespace qiv {

void BlockPlainly(CheckKind kind, std::string_view statistics, const RequestFacts& facts, const CheckContext& context,
                  CheckResult& result) {
  result.status = kBlocked;
  result.kind = kind;
  result.plain_block = 1;
  result.log = 1;
  result.notify = 1;
  result.request.attack = true;
  if (statistics.empty()) return;
  const std::string_view rule = result.rule.empty() ? std::string_view("-") : std::string_view(result.rule);
  context.recorder.RecordStatistics(statistics, facts.client_ip, rule);
}

void HideSecrets(CheckResult* result) noexcept {
  for (std::string* const text : {&result->reason, &result->detail, &result->item, &result->smart_block_text}) {
    try {
      *text = WithoutSecrets(*text);
    } catch (const std::bad_alloc&) {
      text->clear();
    }
  }
}

}  // namespace qiv

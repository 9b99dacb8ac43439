#include "checks/check_result.h"

#include <algorithm>
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

std::string_view CountedAs(std::string_view statistics, const CheckContext& context, const CheckResult& result) {
  return result.request.statistics || context.phase != kPhaseBegin ? statistics : std::string_view();
}

void KeepApart(TextEdits* edits) {
  std::stable_sort(edits->edits.begin(), edits->edits.end(),
                   [](const TextEdits::Edit& a, const TextEdits::Edit& b) { return a.offset < b.offset; });
  std::size_t end = 0;
  std::erase_if(edits->edits, [&end](const TextEdits::Edit& edit) {
    if (edit.offset < end) return true;
    end = std::size_t{edit.offset} + edit.length;
    return false;
  });
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

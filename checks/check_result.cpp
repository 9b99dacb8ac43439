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
  return result.request.statistics || context.phase == kPhasePostExecute ? statistics : std::string_view();
}

void KeepApart(TextEdits* edits) {
  std::stable_sort(edits->begin(), edits->end(),
                   [](const TextEdit& a, const TextEdit& b) { return a.place.offset < b.place.offset; });
  std::size_t end = 0;
  std::erase_if(*edits, [&end](const TextEdit& edit) {
    if (edit.place.offset < end) return true;
    end = edit.place.offset + edit.place.length;
    return false;
  });
}

std::string Edited(std::string_view text, const TextEdits& edits) {
  std::string edited;
  std::size_t kept = 0;
  for (const TextEdit& edit : edits) {
    AppendAll(&edited, {text.substr(kept, edit.place.offset - kept), edit.text});
    kept = edit.place.offset + edit.place.length;
  }
  return edited.append(text.substr(kept));
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

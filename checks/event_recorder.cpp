#include "checks/event_recorder.h"

namespace qiv {
namespace {

class CNoRecorder final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckResult&) override {}
  void RecordStatistics(std::string_view, std::string_view, std::string_view) override {}
};

CNoRecorder no_recorder;
IEventRecorder* recorder_in_use = &no_recorder;

}  // namespace

IEventRecorder& EventRecorder() { return *recorder_in_use; }

void SetEventRecorder(IEventRecorder* recorder) { recorder_in_use = recorder ? recorder : &no_recorder; }

void BlockPlainly(CheckKind kind, std::string_view statistics, RequestFacts& facts, CheckResult& result) {
  result.status = kBlocked;
  result.kind = kind;
  result.plain_block = 1;
  result.log = 1;
  result.notify = 1;
  facts.attack = true;
  if (statistics.empty()) return;
  const std::string_view rule = result.rule.empty() ? std::string_view("-") : std::string_view(result.rule);
  EventRecorder().RecordStatistics(statistics, facts.client_ip, rule);
}

}  // namespace qiv

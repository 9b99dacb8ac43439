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

}  // namespace qiv

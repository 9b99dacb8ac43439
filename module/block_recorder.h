// The module's recorder: blocks and failures go to the event log.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "checks/event_recorder.h"
#include "common/event_log.h"

namespace qiv {

class CBlockRecorder final : public IEventRecorder {
 public:
  explicit CBlockRecorder(const std::string& log_directory) : log_(log_directory) {}

  /// Writes an event when result.log is set.
  void RecordBlock(const RequestFacts& facts, const CheckResult& result) override;
  /// Statistics are the firewall service's; nothing keeps them while it is not linked.
  void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) override;

  /// A notification failed and let its request pass. Writes an event at most once a minute, whatever the number.
  void RecordFailure(std::string_view notification, std::string_view what) noexcept;

 private:
  CEventLog log_;
  std::atomic<std::int64_t> last_failure_{0};  ///< seconds since 1970
};

}  // namespace qiv

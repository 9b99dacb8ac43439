// The module's recorder: blocks and failures go to the event log, blocks and statistics to the firewall service.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "checks/check_context.h"
#include "common/event_log.h"
#include "config/qiv_config.h"
#include "module/service_link.h"

namespace qiv {

class CBlockRecorder final : public IEventRecorder {
 public:
  CBlockRecorder(CEventLog& log, CServiceLink& service, CQivConfig::Clock clock = &UnixSeconds)
      : log_(log), service_(service), clock_(clock) {}

  /// Writes an event when result.log is set. While the service is linked, it is told too: every block counts in a
  /// "check" line (check, client, "block"; rule), and one that asks for notification is a "msg" line (client, category,
  /// item; reason, URL).
  void RecordBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) override;
  /// Writes an event with the action "would block". The service counts it as such, and hears nothing else.
  void RecordWouldBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) override;
  /// Writes an event.
  void RecordNote(const RequestFacts& facts, const CheckContext& context, const CheckResult& note) override;
  /// A line in the request log: what was decided before the application saw the request.
  void RecordRequest(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) override;
  /// A "tongji" line (category; client, rule). Nothing keeps statistics while the service is not linked.
  void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) override;

  /// A notification failed and let its request pass. Writes an event at most once a minute, whatever the number.
  void RecordFailure(std::string_view notification, std::string_view what) noexcept;

 private:
  void WriteEvent(const RequestFacts& facts, const CheckContext& context, const CheckResult& result,
                  std::string_view url, bool log_only = false);
  void TellService(const RequestFacts& facts, const CheckContext& context, const CheckResult& result,
                   std::string_view url) noexcept;

  CEventLog& log_;
  CServiceLink& service_;
  const CQivConfig::Clock clock_;
  std::atomic<std::int64_t> last_failure_{0};  ///< seconds since 1970
};

}  // namespace qiv

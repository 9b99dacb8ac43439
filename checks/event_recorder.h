// Where blocks and statistics go.
#pragma once

#include <string_view>

#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Thread safe. Implementations never throw and never block for long.
class IEventRecorder {
 public:
  virtual ~IEventRecorder() = default;
  /// Called once for each request that was answered with a page.
  virtual void RecordBlock(const RequestFacts& facts, const CheckResult& result) = 0;
  /// Called for a request that passed although limits kept a part of it from being examined: `note` holds the texts,
  /// and the name of the check.
  virtual void RecordPartial(const RequestFacts& facts, const CheckResult& note) {
    static_cast<void>(facts), static_cast<void>(note);
  }
  /// Called at the end of a request's first notification, where the site keeps a line for every request.
  virtual void RecordRequest(const RequestFacts& facts, const CheckResult& result) {
    static_cast<void>(facts), static_cast<void>(result);
  }
  /// One statistics record ("tongji"); `rule` is "-" when there is none.
  virtual void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) = 0;
};

/// The recorder in use; one that does nothing until SetEventRecorder was called.
IEventRecorder& EventRecorder();
/// Not owned; null restores the one that does nothing. Call it before requests run.
void SetEventRecorder(IEventRecorder* recorder);

/// What every plain block does beside its texts and rule: blocks, to be logged, reported and counted towards a lock,
/// and marks the request as an attack. Counted in `statistics` unless empty.
void BlockPlainly(CheckKind kind, std::string_view statistics, RequestFacts& facts, CheckResult& result);

}  // namespace qiv

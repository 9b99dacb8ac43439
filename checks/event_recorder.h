// Where blocks and statistics go.
#pragma once

#include <string_view>

#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

struct CheckContext;

/// Thread safe. Implementations never throw and never block for long.
class IEventRecorder {
 public:
  virtual ~IEventRecorder() = default;
  /// Called once for each request that was answered with a page.
  virtual void RecordBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) = 0;
  /// Called for what a check would have blocked, had it not been told only to log (website_log_only).
  virtual void RecordWouldBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) {
    static_cast<void>(facts), static_cast<void>(context), static_cast<void>(result);
  }
  /// Called for what an operator should know of a request that is not blocked for it: limits kept a part of it from
  /// being examined, the authorization password was given. `note` holds the texts, and the name of the check.
  virtual void RecordNote(const RequestFacts& facts, const CheckContext& context, const CheckResult& note) {
    static_cast<void>(facts), static_cast<void>(context), static_cast<void>(note);
  }
  /// Called at the end of a request's first notification, where the site keeps a line for every request.
  virtual void RecordRequest(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) {
    static_cast<void>(facts), static_cast<void>(context), static_cast<void>(result);
  }
  /// One statistics record ("tongji"); `rule` is "-" when there is none.
  virtual void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) = 0;
};

/// For where nothing is recorded.
class CNoRecorder final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult&) override {}
  void RecordStatistics(std::string_view, std::string_view, std::string_view) override {}
};

}  // namespace qiv

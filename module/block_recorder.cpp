#include "module/block_recorder.h"

#include "module/page_writer.h"
#include "port/clock.h"

namespace qiv {
namespace {

constexpr std::int64_t kFailurePause = 60;  // seconds between two events about failures

}  // namespace

void CBlockRecorder::RecordBlock(const RequestFacts& facts, const CheckResult& result) {
  if (!result.log) return;
  const std::string id = CEventLog::NewEventId();
  Event event;
  event.event_id = id;
  event.site = facts.site_id;
  event.client = facts.client_ip_copy;
  event.forwarded = facts.forwarded_for_as_sent.empty() ? std::string_view() : facts.forwarded_ip_copy;
  event.method = facts.method;
  event.url = facts.raw_url;
  event.phase = facts.phase;
  event.check = result.check;
  event.item = result.item;
  event.reason = result.reason;
  event.detail = result.detail;
  event.action = "block";
  event.status = PageStatus(facts, result);
  event.rule = result.rule;
  event.user_agent = facts.user_agent;
  event.elapsed_us = MonotonicMicroseconds() - facts.started_us;
  log_.Write(event);
}

void CBlockRecorder::RecordStatistics(std::string_view, std::string_view, std::string_view) {}

void CBlockRecorder::RecordFailure(std::string_view notification, std::string_view what) noexcept {
  const std::int64_t now = UnixSeconds();
  std::int64_t last = last_failure_.load(std::memory_order_relaxed);
  if (last != 0 && now >= last && now < last + kFailurePause) return;
  if (!last_failure_.compare_exchange_strong(last, now, std::memory_order_relaxed)) return;
  Event event;
  event.check = notification;
  event.reason = "the notification failed and the request passed unchecked";
  event.detail = what;
  event.action = "error";
  log_.Write(event);
}

}  // namespace qiv

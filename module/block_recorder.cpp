#include "module/block_recorder.h"

#include <exception>

#include "checks/shown_text.h"
#include "common/messages.h"
#include "common/secrets.h"
#include "config/website_config.h"
#include "module/page_writer.h"
#include "port/clock.h"

namespace qiv {
namespace {

constexpr std::string_view kWouldBlock = "would block";
constexpr std::int64_t kFailurePause = 60;  // seconds between two events about failures

std::string_view ActionOf(const CheckResult& result) {
  if (result.status == kBlocked) return "block";
  return result.status == kAllowed ? "allow" : "pass";
}

/// What the visitor was told, where a page was written.
std::string EventId(const CheckResult& result) {
  return result.request.event_id.empty() ? CEventLog::NewEventId() : result.request.event_id;
}

/// What both logs say alike. Views into the two records.
Event EventOf(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) {
  Event event;
  event.site = facts.site_id;
  event.client = facts.client_ip;
  event.forwarded = facts.forwarded_for_as_sent.empty() ? std::string_view() : facts.forwarded_ip;
  event.method = facts.method;
  event.phase = context.phase;
  event.check = result.check;
  event.action = ActionOf(result);
  event.status = result.status == kBlocked ? PageStatus(context.config.page, result) : 0;
  event.elapsed_us = MonotonicMicroseconds() - facts.started_us;
  return event;
}

}  // namespace

void CBlockRecorder::RecordBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) {
  if (!result.log) return;
  const std::string url = ShownUrl(facts);
  WriteEvent(facts, context, result, url);
  TellService(facts, context, result, url);
}

void CBlockRecorder::RecordWouldBlock(const RequestFacts& facts, const CheckContext& context,
                                      const CheckResult& result) {
  if (!result.log) return;
  WriteEvent(facts, context, result, ShownUrl(facts), true);
  if (!service_.IsEnabled()) return;
  try {
    service_.Exchange().CountCheck(
        {.check = result.check, .client = facts.client_ip, .action = kWouldBlock, .rule = result.rule});
  } catch (const std::exception&) {
    // Out of memory: the line is lost, the request is not.
  }
}

void CBlockRecorder::RecordNote(const RequestFacts& facts, const CheckContext& context, const CheckResult& note) {
  WriteEvent(facts, context, note, ShownUrl(facts));
}

void CBlockRecorder::WriteEvent(const RequestFacts& facts, const CheckContext& context, const CheckResult& result,
                                std::string_view url, bool log_only) {
  const std::string id = EventId(result);
  const std::string user_agent = WithoutSecrets(facts.user_agent);
  Event event = EventOf(facts, context, result);
  event.event_id = id;
  event.url = url;
  event.user_agent = user_agent;
  event.item = result.item;
  event.reason = result.reason;
  event.detail = result.detail;
  event.rule = result.rule;
  std::string told;
  if (log_only) {
    told = result.detail.empty() ? result.reason : result.detail;
    told += Message(context.config.language, MessageId::kLogOnlyDetail);
    event.detail = told;
    event.action = kWouldBlock;
    event.status = 0;
  }
  log_.Write(event);
}

void CBlockRecorder::RecordRequest(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) {
  const std::string id = EventId(result);
  const std::string url = ShownUrl(facts);
  const std::string user_agent = WithoutSecrets(facts.user_agent);
  Event event = EventOf(facts, context, result);
  event.event_id = id;
  event.url = url;
  event.user_agent = user_agent;
  log_.WriteRequest(event);
}

void CBlockRecorder::TellService(const RequestFacts& facts, const CheckContext& context, const CheckResult& result,
                                 std::string_view url) noexcept {
  if (!service_.IsEnabled()) return;
  try {
    CExchangeFiles& exchange = service_.Exchange();
    exchange.CountCheck({.check = result.check, .client = facts.client_ip, .action = "block", .rule = result.rule});
    if (!result.notify || !context.config.response.notice) return;
    exchange.WriteMessage({.client = facts.client_ip,
                           .category = result.category,
                           .item = result.item,
                           .reason = result.reason,
                           .url = url});
  } catch (const std::exception&) {
    // Out of memory: the line is lost, the request is not.
  }
}

void CBlockRecorder::RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) {
  if (!service_.IsEnabled()) return;
  try {
    service_.Exchange().CountStatistics({category, client_ip, rule});
  } catch (const std::exception&) {
    // As above.
  }
}

void CBlockRecorder::RecordFailure(std::string_view notification, std::string_view what) noexcept {
  const std::int64_t now = clock_();
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

#include "module/pipeline.h"

#include <new>
#include <string>

#include "checks/event_recorder.h"
#include "common/state_recorder.h"
#include "config/website_config.h"
#include "module/facts_collector.h"
#include "module/page_writer.h"
#include "module/response_hardening.h"
#include "module/response_reader.h"
#include "common/secrets.h"
#include "port/clock.h"

namespace qiv {
namespace {

using iis::RQ_NOTIFICATION_CONTINUE;
using iis::RQ_NOTIFICATION_FINISH_REQUEST;

constexpr std::size_t kUsualHeaders = 32;
constexpr iis::USHORT kNotFound = 404;

/// Has the application answer uncompressed, so that the response can be inspected. A header is only ever replaced.
void BlankAcceptEncoding(iis::IHttpContext& context) {
  iis::IHttpRequest* request = context.GetRequest();
  iis::USHORT length = 0;
  if (!request || !request->GetHeader(iis::HttpHeaderAcceptEncoding, &length)) return;
  request->SetHeader(iis::HttpHeaderAcceptEncoding, " ", 1, 1);
}

iis::USHORT ResponseStatus(iis::IHttpContext& context) {
  iis::USHORT status = 200;
  if (iis::IHttpResponse* response = context.GetResponse()) {
    response->GetStatus(&status, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  return status;
}

/// Whether who asks, when, how often or from where decides: the same URL is then not for everybody, and an answer that
/// the system's own cache gave would pass by all of this.
bool DependsOnClient(const WebsiteConfig& config) {
  const ListSettings& lists = config.lists;
  return lists.status_url || lists.status_ua || lists.status_rf || lists.status_iparea || lists.status_malice ||
         config.attack.e404 || config.attack.cc || config.attack.agent || config.attack.spider || config.protect.link ||
         config.protect.admin || config.protect.timelimit;
}

/// A body that the checks wanted and did not get is what somebody should know of.
void ReportUnreadBody(const RequestFacts& facts, CStateRecorder& states) {
  static constexpr MessageId kReasons[] = {MessageId::kStateBodyTooLarge, MessageId::kStateBodyUnreadable,
                                           MessageId::kStateBodyNoMemory};
  if (facts.unread_body == UnreadBody::kNot) return;
  try {
    const std::string what = facts.method + " " + WithoutSecrets(facts.raw_url);
    states.Happened(StateKind::kBody, kReasons[static_cast<std::size_t>(facts.unread_body) - 1], what);
  } catch (const std::bad_alloc&) {
    // The checks go on.
  }
}

void KeepFromKernelCache(iis::IHttpContext& context) {
  constexpr iis::ULONG kByHandler = 9;  // the server's number for "a handler or module wants it so"
  if (iis::IHttpResponse* response = context.GetResponse()) response->DisableKernelCache(kByHandler);
}

void HardenResponse(const RequestFacts& facts, CheckResult& result) {
  HideServerHeaders(facts, result);
  CookieAndFrameHeaders(facts);
}

}  // namespace

void CPipeline::StartRecord(iis::IHttpContext& context, Phase phase, RequestFacts& facts) const {
  facts.phase = phase;
  facts.context = &context;
  facts.started_us = MonotonicMicroseconds();
  facts.config = config_.Current();
  facts.library = config_.Library();
  facts.webshells = config_.Webshells();
  facts.headers.reserve(kUsualHeaders);
}

bool CPipeline::IsUnprotectedIpv6(const RequestFacts& facts) const {
  return !facts.is_ipv4 && !config_.IsIpv6Protected();
}

/// Of the record that the begin of the request saved, or read again without the body. False when neither can be had.
bool CPipeline::LoadOrRebuild(iis::IHttpContext& context, Phase phase, RequestFacts& facts) {
  if (contexts_.Load(context, &facts)) {
    facts.phase = phase;
    facts.context = &context;
    return true;
  }
  StartRecord(context, phase, facts);
  return CollectFacts(context, facts) && ReadHeadersAndBody(context, facts, false);
}

void CPipeline::RunStage(Stage stage, RequestFacts& facts, CheckResult& result) const {
  for (const CheckRow& row : checks_) {
    if (row.stage != stage) continue;
    if (result.status == kBlocked) return;
    const std::int32_t before = result.status;
    row.run(facts, result);
    if (result.status == before || result.status == kUndecided) continue;
    result.check = row.name;
    HideSecrets(&result);
  }
}

// What follows a decision may fail for want of memory without changing it: a request that was blocked, perhaps with its
// page written already, must not reach the application after all.

void CPipeline::RunAfterDecision(RequestFacts& facts, CheckResult& result) const {
  for (const CheckRow& row : checks_) {
    if (row.stage != Stage::kAfterDecision) continue;
    try {
      row.run(facts, result);
    } catch (const std::bad_alloc&) {
      // Not counted.
    }
  }
}

void CPipeline::WriteBlockPage(RequestFacts& facts, const CheckResult& result, bool reset_response) {
  try {
    PageOptions options;
    options.reset_response = reset_response;
    WritePage(facts, result, contexts_, options);
  } catch (const std::bad_alloc&) {
    // What is missing of the page or of its record stays missing.
  }
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::BeginRequest(iis::IHttpContext& context) {
  config_.RefreshTick();
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;

  RequestFacts facts;
  StartRecord(context, kPhaseBegin, facts);
  if (DependsOnClient(*facts.config)) KeepFromKernelCache(context);
  if (!CollectFacts(context, facts)) return RQ_NOTIFICATION_CONTINUE;
  if (IsUnprotectedIpv6(facts)) return RQ_NOTIFICATION_CONTINUE;
  if (!ReadHeadersAndBody(context, facts, true)) return RQ_NOTIFICATION_CONTINUE;
  ReportUnreadBody(facts, *config_.States());
  contexts_.Save(context, facts);  // without it the later notifications read the request again

  CheckResult result;
  if (facts.config->response.disable_compress) BlankAcceptEncoding(context);
  RunStage(Stage::kLists, facts, result);
  if (result.status == kBlocked) {
    facts.page_detail = false;
  } else if (result.status == kUndecided) {
    RunStage(Stage::kRequest, facts, result);
  }

  if (result.status != kAllowed) HardenResponse(facts, result);
  if (result.status != kBlocked) RunStage(Stage::kRequestAlways, facts, result);
  const bool blocked = result.status == kBlocked;
  if (blocked) WriteBlockPage(facts, result);
  RunAfterDecision(facts, result);
  if (facts.config->log_requests) EventRecorder().RecordRequest(facts, result);
  return blocked ? RQ_NOTIFICATION_FINISH_REQUEST : RQ_NOTIFICATION_CONTINUE;
}

/// A blocked response goes out in no part: the page takes its place.
void CPipeline::InspectResponse(RequestFacts& facts, CheckResult& result) {
  if (WantsResponse(*facts.config)) ReadResponse(facts);
  RunStage(Stage::kResponseBody, facts, result);
  if (result.status == kBlocked) WriteBlockPage(facts, result, true);
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::PostExecuteRequestHandler(iis::IHttpContext& context) {
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;
  RequestFacts facts;
  if (!LoadOrRebuild(context, kPhasePostExecute, facts)) return RQ_NOTIFICATION_CONTINUE;
  if (IsUnprotectedIpv6(facts)) return RQ_NOTIFICATION_CONTINUE;

  CheckResult result;
  RunStage(Stage::kLists, facts, result);
  if (result.status != kBlocked) {
    if (result.status == kUndecided) {
      HardenResponse(facts, result);
      if (result.status == kBlocked) WriteBlockPage(facts, result);
    }
    if (result.status != kBlocked && !contexts_.PageWritten(context)) InspectResponse(facts, result);
    if (result.status != kBlocked) return RQ_NOTIFICATION_CONTINUE;
  }
  RunAfterDecision(facts, result);
  return RQ_NOTIFICATION_FINISH_REQUEST;
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::SendResponse(iis::IHttpContext& context,
                                                         const iis::ISendResponseProvider* provider) {
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;
  RequestFacts facts;
  if (!LoadOrRebuild(context, kPhaseSendResponse, facts)) return RQ_NOTIFICATION_CONTINUE;
  if (IsUnprotectedIpv6(facts)) return RQ_NOTIFICATION_CONTINUE;

  // A response goes out in any number of sends; only the one with the headers can still be changed, and counts.
  const bool with_headers = (!provider || provider->GetHeadersBeingSent()) && !context.GetResponseHeadersSent();
  if (with_headers && !facts.event_id.empty()) KeepPageHeaders(facts);

  const iis::USHORT status = ResponseStatus(context);
  CheckResult result;
  RunStage(Stage::kLists, facts, result);
  if (result.status == kAllowed) return RQ_NOTIFICATION_CONTINUE;
  if (result.status == kBlocked) return RQ_NOTIFICATION_FINISH_REQUEST;
  if (!with_headers) return RQ_NOTIFICATION_CONTINUE;
  HardenResponse(facts, result);
  if (result.status == kBlocked) {
    WriteBlockPage(facts, result);
    return RQ_NOTIFICATION_FINISH_REQUEST;
  }
  if (status == kNotFound && facts.config->attack.e404) RunStage(Stage::kNotFound, facts, result);
  return RQ_NOTIFICATION_CONTINUE;
}

}  // namespace qiv

#include "module/pipeline.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "checks/sensitive_words_check.h"
#include "common/secrets.h"
#include "common/state_recorder.h"
#include "common/text.h"
#include "config/website_config.h"
#include "module/facts_collector.h"
#include "module/page_writer.h"
#include "module/request_editor.h"
#include "module/response_hardening.h"
#include "module/response_reader.h"
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

/// Whether the server itself serves the path as text that checks look at. Films and archives that are resumed are not
/// of that kind, and an application that answers with parts knows what it sends.
bool IsServedAsText(std::string_view path) {
  constexpr std::string_view kTypes[] = {".htm", ".html", ".xhtml", ".shtml", ".txt", ".json", ".xml"};
  const auto ends = [path](std::string_view type) {
    return path.size() >= type.size() && EqualNoCase(path.substr(path.size() - type.size()), type);
  };
  return path.ends_with('/') || std::any_of(std::begin(kTypes), std::end(kTypes), ends);
}

/// A part of a page is not looked at: whoever asks for one gets all of it.
void DropRange(iis::IHttpContext& context) {
  iis::IHttpRequest* const request = context.GetRequest();
  iis::USHORT length = 0;
  if (!request || !request->GetHeader(iis::HttpHeaderRange, &length)) return;
  request->DeleteHeader(iis::HttpHeaderRange);
  request->DeleteHeader(iis::HttpHeaderIfRange);
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
                                           MessageId::kStateBodyNoMemory, MessageId::kStateBodyEncoded};
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

/// Holds what a check counts and notes back until it is known whether its decision stands.
class CHeldStatistics final : public IEventRecorder {
 public:
  explicit CHeldStatistics(IEventRecorder& recorder) : recorder_(recorder) {}

  void RecordBlock(const RequestFacts& facts, const CheckContext& context, const CheckResult& result) override {
    recorder_.RecordBlock(facts, context, result);
  }
  void RecordNote(const RequestFacts&, const CheckContext&, const CheckResult& note) override {
    notes_.push_back(note);
  }
  void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) override {
    held_.push_back({std::string(category), std::string(client_ip), std::string(rule)});
  }
  /// Forgets what was counted; what was noted as well when the check `runs_again`.
  void Drop(bool runs_again) {
    held_.clear();
    if (runs_again) notes_.clear();
  }
  void Release(const RequestFacts& facts, const CheckContext& context) {
    for (const CheckResult& note : notes_) recorder_.RecordNote(facts, context, note);
    for (const auto& [category, client_ip, rule] : held_) recorder_.RecordStatistics(category, client_ip, rule);
  }

 private:
  IEventRecorder& recorder_;
  std::vector<CheckResult> notes_;
  std::vector<std::array<std::string, 3>> held_;
};

/// Counts what only would have been blocked as a thing of its own.
class CLogOnlyRecorder final : public IEventRecorder {
 public:
  explicit CLogOnlyRecorder(IEventRecorder& recorder) : recorder_(recorder) {}

  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult&) override {}
  void RecordNote(const RequestFacts& facts, const CheckContext& context, const CheckResult& note) override {
    recorder_.RecordNote(facts, context, note);
  }
  void RecordStatistics(std::string_view category, std::string_view client_ip, std::string_view rule) override {
    recorder_.RecordStatistics("log_only_" + std::string(category), client_ip, rule);
  }

 private:
  IEventRecorder& recorder_;
};

void HardenResponse(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  HideServerHeaders(facts, context, result);
  CookieAndFrameHeaders(facts, context);
}

}  // namespace

/// The records that one notification works with.
struct CPipeline::Notification {
  const RequestRecord& record;
  const RequestFacts& facts;
  CheckContext context;
  CheckResult result;

  Notification(const RequestRecord& request_record, const CheckContext& of, std::string event_id)
      : record(request_record), facts(record.facts), context(of) {
    result.request.gbk_page = facts.gbk_page;
    result.request.event_id = std::move(event_id);
  }
};

std::shared_ptr<RequestRecord> CPipeline::StartRecord() const {
  auto record = std::make_shared<RequestRecord>();
  record->facts.started_us = MonotonicMicroseconds();
  record->facts.headers.reserve(kUsualHeaders);
  record->config = config_.Current();
  record->library = config_.Library();
  record->webshells = config_.Webshells();
  const std::shared_ptr<const AttackRuleSet> rules = config_.AttackRules();
  record->attacks = {rules, &rules->attacks};
  record->leaks = {rules, &rules->leaks};
  record->exemptions = config_.Exemptions();
  return record;
}

CheckContext CPipeline::ContextOf(const RequestRecord& record, Phase phase) const {
  return {*record.config,
          *record.library,
          record.webshells.get(),
          record.attacks.get(),
          services_.state,
          services_.recorder,
          phase,
          {},
          false,
          record.leaks.get()};
}

bool CPipeline::IsUnprotectedIpv6(const RequestFacts& facts) const {
  return !facts.is_ipv4 && !config_.IsIpv6Protected();
}

/// The record that the begin of the request saved, or read again without the body. False when neither can be had.
bool CPipeline::LoadOrRebuild(iis::IHttpContext& server, StoredRequest* stored) {
  *stored = contexts_.Load(server);
  if (stored->record) return true;
  const std::shared_ptr<RequestRecord> record = StartRecord();
  stored->record = record;
  return CollectFacts(server, *record->config, record->facts) &&
         ReadHeadersAndBody(server, *record->config, false, record->facts);
}

bool CPipeline::RunStage(Stage stage, Notification& notification) const {
  CheckResult& result = notification.result;
  bool found = false;
  const WebsiteConfig& config = notification.context.config;
  for (const CheckRow& row : checks_) {
    if (row.stage != stage || !row.IsOn(config)) continue;
    if (result.status == kBlocked || (stage == Stage::kRequest && result.status == kAllowed)) break;
    const bool log_only = config.extended.AnyLogOnly() && config.extended.IsLogOnly(row.name);
    const CheckVerdict verdict =
        log_only ? RunLogOnly(row, notification) : RunRow(row, notification, services_.recorder, false, &result);
    Observe(row, verdict, notification);
    found = found || verdict == CheckVerdict::kBlock || verdict == CheckVerdict::kWouldBlock;
  }
  return found;
}

void CPipeline::Observe(const CheckRow& row, CheckVerdict verdict, const Notification& notification) const {
  if (services_.observer == nullptr) return;
  services_.observer->OnCheck(row, verdict, notification.facts, notification.context);
}

/// Runs one check. What it blocks and the site exempts leaves no trace.
CheckVerdict CPipeline::RunRow(const CheckRow& row, Notification& notification, IEventRecorder& recorder, bool log_only,
                               CheckResult* result) const {
  const CheckContext& context = notification.context;
  const std::int32_t before = result->status;
  const bool exempting = !notification.record.exemptions->Empty() && row.stage != Stage::kLists;
  if (!exempting && !log_only) {
    row.run(notification.facts, context, *result);
  } else {
    CHeldStatistics held(recorder);
    const CheckContext own{context.config, context.library, context.webshells, context.attacks, context.state,
                           held,           context.phase,   context.response,  log_only,        context.leaks};
    CheckResult decided = *result;
    row.run(notification.facts, own, decided);
    context.response.encodings = own.response.encodings;  // for the checks to come
    const bool blocks = decided.status == kBlocked && before != kBlocked;
    if (exempting && blocks && exempted_.IsExempt(row, notification.record, context, *result, &decided)) {
      held.Drop(row.edits);
      if (row.edits) {
        CheckContext unblocking = own;
        unblocking.exempt_blocks = true;
        row.run(notification.facts, unblocking, *result);
      }
      held.Release(notification.facts, own);
      return CheckVerdict::kExempt;
    }
    held.Release(notification.facts, own);
    *result = std::move(decided);
  }
  if (result->status == before || result->status == kUndecided) return CheckVerdict::kPass;
  result->check = row.name;
  HideSecrets(result);
  return result->status == kBlocked ? CheckVerdict::kBlock : CheckVerdict::kAllow;
}

/// What the check would block goes on as if it had found nothing; what it allows is allowed.
CheckVerdict CPipeline::RunLogOnly(const CheckRow& row, Notification& notification) const {
  const CheckContext& context = notification.context;
  CLogOnlyRecorder recorder(services_.recorder);
  CheckResult result = notification.result;
  const CheckVerdict verdict = RunRow(row, notification, recorder, true, &result);
  if (verdict != CheckVerdict::kBlock) {
    notification.result = std::move(result);
    return verdict;
  }
  // The lists decide in every notification, about the same.
  if (row.stage == Stage::kLists && context.phase != kPhaseBegin) return CheckVerdict::kWouldBlock;
  result.request.event_id.clear();  // an event of its own
  try {
    services_.recorder.RecordWouldBlock(notification.facts, context, result);
  } catch (const std::bad_alloc&) {
    // The event is lost, the other checks go on.
  }
  return CheckVerdict::kWouldBlock;
}

// What follows a decision may fail for want of memory without changing it: a request that was blocked, perhaps with its
// page written already, must not reach the application after all.

void CPipeline::RunAfterDecision(Notification& notification) const {
  for (const CheckRow& row : checks_) {
    if (row.stage != Stage::kAfterDecision || !row.IsOn(notification.context.config)) continue;
    try {
      row.run(notification.facts, notification.context, notification.result);
      Observe(row, CheckVerdict::kPass, notification);
    } catch (const std::bad_alloc&) {
      // Not counted.
    }
  }
}

void CPipeline::WriteBlockPage(Notification& notification, bool reset_response) {
  try {
    PageOptions options;
    options.reset_response = reset_response;
    WritePage(notification.facts, notification.context, notification.result, contexts_, options);
  } catch (const std::bad_alloc&) {
    // What is missing of the page or of its record stays missing.
  }
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::BeginRequest(iis::IHttpContext& server) {
  config_.RefreshTick();
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;

  const std::shared_ptr<RequestRecord> record = StartRecord();
  const WebsiteConfig& config = *record->config;
  const bool for_everybody = !DependsOnClient(config);
  if (!for_everybody) KeepFromKernelCache(server);
  if (!CollectFacts(server, config, record->facts)) return RQ_NOTIFICATION_CONTINUE;
  if (IsUnprotectedIpv6(record->facts)) return RQ_NOTIFICATION_CONTINUE;
  if (!ReadHeadersAndBody(server, config, true, record->facts)) return RQ_NOTIFICATION_CONTINUE;
  ReportUnreadBody(record->facts, *config_.States());
  contexts_.Save(server, record);  // without it the later notifications read the request again

  Notification notification(*record, ContextOf(*record, kPhaseBegin), {});
  CheckResult& result = notification.result;
  if (config.response.disable_compress) BlankAcceptEncoding(server);
  if (IsServedAsText(record->facts.path) && WantedResponseBytes(record->facts, config) != 0) DropRange(server);
  RunStage(Stage::kLists, notification);
  if (result.status == kBlocked) {
    result.request.page_detail = false;
  } else if (result.status == kUndecided) {
    RunStage(Stage::kRequest, notification);
  }
  // What who is let pass is shown, others may not be.
  if (result.status == kAllowed && for_everybody) KeepFromKernelCache(server);

  if (result.status != kAllowed) HardenResponse(record->facts, notification.context, result);
  if (result.status != kBlocked) RunStage(Stage::kRequestAlways, notification);
  const bool blocked = result.status == kBlocked;
  if (blocked) WriteBlockPage(notification);
  if (!blocked && result.request.edits) ChangeRequest(notification);
  RunAfterDecision(notification);
  if (config.log_requests) services_.recorder.RecordRequest(record->facts, notification.context, result);
  return blocked ? RQ_NOTIFICATION_FINISH_REQUEST : RQ_NOTIFICATION_CONTINUE;
}

/// What words the application gets after all, somebody should know of.
void CPipeline::ChangeRequest(const Notification& notification) const {
  const RequestFacts& facts = notification.facts;
  const RefusedEdits refused = EditRequest(*facts.context, facts, *notification.result.request.edits);
  CWordNotes notes(facts, notification.context);
  if (refused.query) notes.Add(MessageId::kWordsKept, {"GET", {}, "-"});
  if (refused.body) notes.Add(MessageId::kWordsKept, {"POST", {}, "-"});
  if (refused.headers) notes.Add(MessageId::kWordsKept, {"Header", {}, "-"});
  notes.Write(false);
}

/// How much of the answer to this request the checks want; 0: none of it.
std::size_t CPipeline::WantedResponseBytes(const RequestFacts& facts, const WebsiteConfig& config) const {
  std::size_t most = 0;
  for (const CheckRow& row : checks_) {
    if (row.wants && row.IsOn(config)) most = std::max(most, row.wants(facts, config));
  }
  return most;
}

/// A blocked response goes out in no part: the page takes its place.
void CPipeline::InspectResponse(Notification& notification) {
  CResponseReader reader(*notification.facts.context);
  const CheckResult& result = notification.result;
  const std::size_t most = WantedResponseBytes(notification.facts, notification.context.config);
  if (most != 0) notification.context.response = reader.Read(most);
  RunStage(Stage::kResponseBody, notification);
  notification.context.response = {};
  if (result.status == kBlocked) {
    WriteBlockPage(notification, true);
  } else if (result.request.edits) {
    reader.Edit(result.request.edits->response);
  }
}

/// Looks at what one send carries of an answer that goes out before it is whole. As long as no header is out, a page
/// takes its place, and what comes behind it goes nowhere; later only the end of the connection tells that an answer is
/// not whole.
void CPipeline::InspectPiece(iis::IHttpContext& server, const StoredRequest& stored,
                             const iis::ISendResponseProvider* provider, bool with_headers) {
  CResponseReader reader(server);
  std::shared_ptr<StreamedAnswer> streamed = stored.streamed;
  if (streamed && streamed->dropped) return reader.DropPiece();
  if (stored.page_written || !provider) return;
  if (with_headers) {
    // One that goes out whole was looked at when its handler had ended.
    if ((provider->GetFlags() & iis::HTTP_SEND_RESPONSE_FLAG_MORE_DATA) == 0) return;
    if (WantedResponseBytes(stored.record->facts, *stored.record->config) == 0) return;
    streamed = std::make_shared<StreamedAnswer>();
    if (!contexts_.KeepStreamed(server, streamed)) return;
  }
  if (!streamed || streamed->left == 0) return;

  Notification notification(*stored.record, ContextOf(*stored.record, kPhaseSendResponse), {});
  notification.context.response = reader.ReadPiece(with_headers, streamed.get());
  if (notification.context.response.text.empty()) return;
  if (RunStage(Stage::kResponseBody, notification)) streamed->left = 0;  // one event an answer
  notification.context.response = {};
  CheckResult& result = notification.result;
  if (result.status != kBlocked) return;
  streamed->dropped = true;
  if (with_headers) return WriteBlockPage(notification, true);
  reader.DropPiece();
  server.GetResponse()->ResetConnection();
  contexts_.MarkPageWritten(server, {});
  services_.recorder.RecordBlock(notification.facts, notification.context, result);
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::PostExecuteRequestHandler(iis::IHttpContext& server) {
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;
  StoredRequest stored;
  if (!LoadOrRebuild(server, &stored)) return RQ_NOTIFICATION_CONTINUE;
  const RequestRecord& record = *stored.record;
  if (IsUnprotectedIpv6(record.facts)) return RQ_NOTIFICATION_CONTINUE;

  Notification notification(record, ContextOf(record, kPhasePostExecute), std::move(stored.event_id));
  CheckResult& result = notification.result;
  RunStage(Stage::kLists, notification);
  if (result.status != kBlocked) {
    if (result.status == kUndecided) {
      HardenResponse(record.facts, notification.context, result);
      if (result.status == kBlocked) WriteBlockPage(notification);
    }
    if (result.status != kBlocked && !stored.page_written) InspectResponse(notification);
    if (result.status != kBlocked) return RQ_NOTIFICATION_CONTINUE;
  }
  RunAfterDecision(notification);
  return RQ_NOTIFICATION_FINISH_REQUEST;
}

iis::REQUEST_NOTIFICATION_STATUS CPipeline::SendResponse(iis::IHttpContext& server,
                                                         const iis::ISendResponseProvider* provider) {
  if (!config_.IsConfigValid()) return RQ_NOTIFICATION_CONTINUE;
  StoredRequest stored;
  if (!LoadOrRebuild(server, &stored)) return RQ_NOTIFICATION_CONTINUE;
  const RequestRecord& record = *stored.record;
  if (IsUnprotectedIpv6(record.facts)) return RQ_NOTIFICATION_CONTINUE;

  // A response goes out in any number of sends; only the one with the headers can still be changed, and counts.
  const bool with_headers = (!provider || provider->GetHeadersBeingSent()) && !server.GetResponseHeadersSent();
  if (with_headers && !stored.event_id.empty()) KeepPageHeaders(server, stored.event_id);
  InspectPiece(server, stored, provider, with_headers);

  const iis::USHORT status = ResponseStatus(server);
  Notification notification(record, ContextOf(record, kPhaseSendResponse), std::move(stored.event_id));
  CheckResult& result = notification.result;
  RunStage(Stage::kLists, notification);
  if (result.status == kAllowed) return RQ_NOTIFICATION_CONTINUE;
  if (result.status == kBlocked) return RQ_NOTIFICATION_FINISH_REQUEST;
  if (!with_headers) return RQ_NOTIFICATION_CONTINUE;
  HardenResponse(record.facts, notification.context, result);
  if (result.status == kBlocked) {
    WriteBlockPage(notification);
    return RQ_NOTIFICATION_FINISH_REQUEST;
  }
  if (status == kNotFound && record.config->attack.e404) RunStage(Stage::kNotFound, notification);
  return RQ_NOTIFICATION_CONTINUE;
}

}  // namespace qiv

// The fixed order in which the notifications of a request consult the protection checks.
//
// The pipeline decides nothing itself: it sequences the rows of the check table, stops at the first block, has the page
// written and tells the server whether to go on. A check that is added to the table changes nothing here.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "checks/check_table.h"
#include "config/qiv_config.h"
#include "iis/httpserv.h"
#include "module/exempted_check.h"
#include "module/stored_context.h"

namespace qiv {

/// What became of a check.
enum class CheckVerdict : std::uint8_t {
  kPass,
  kAllow,
  kBlock,
  kWouldBlock,  ///< it only logs
  kExempt,      ///< what it found, the site exempts
};

/// Told of each check that was asked. Called on the thread of the request; throws nothing but std::bad_alloc.
class ICheckObserver {
 public:
  virtual ~ICheckObserver() = default;
  virtual void OnCheck(const CheckRow& row, CheckVerdict verdict, const RequestFacts& facts,
                       const CheckContext& context) = 0;
};

/// What outlives all requests and is handed to every check.
struct CheckServices {
  CheckState& state;
  IEventRecorder& recorder;
  ICheckObserver* observer = nullptr;  ///< null: nobody
};

/// One object serves all requests on all threads; each notification works on its own records.
class CPipeline {
 public:
  /// All of them must outlive the pipeline.
  CPipeline(CQivConfig& config, CStoredContexts& contexts, std::span<const CheckRow> checks, CheckServices services)
      : config_(config), contexts_(contexts), checks_(checks), services_(services) {}

  // Each returns CONTINUE or FINISH_REQUEST. They throw std::bad_alloc, and whatever a server's object throws.
  iis::REQUEST_NOTIFICATION_STATUS BeginRequest(iis::IHttpContext& server);
  iis::REQUEST_NOTIFICATION_STATUS PostExecuteRequestHandler(iis::IHttpContext& server);
  /// `provider` may be null.
  iis::REQUEST_NOTIFICATION_STATUS SendResponse(iis::IHttpContext& server, const iis::ISendResponseProvider* provider);

 private:
  struct Notification;

  std::shared_ptr<RequestRecord> StartRecord() const;
  CheckContext ContextOf(const RequestRecord& record, Phase phase) const;
  bool IsUnprotectedIpv6(const RequestFacts& facts) const;
  bool LoadOrRebuild(iis::IHttpContext& server, StoredRequest* stored);
  /// Whether a check blocked, or would have.
  bool RunStage(Stage stage, Notification& notification) const;
  CheckVerdict RunRow(const CheckRow& row, Notification& notification, IEventRecorder& recorder, bool log_only,
                      CheckResult* result) const;
  CheckVerdict RunLogOnly(const CheckRow& row, Notification& notification) const;
  void Observe(const CheckRow& row, CheckVerdict verdict, const Notification& notification) const;
  void RunAfterDecision(Notification& notification) const;
  void WriteBlockPage(Notification& notification, bool reset_response = false);
  void InspectResponse(Notification& notification);
  void InspectPiece(iis::IHttpContext& server, const StoredRequest& stored, const iis::ISendResponseProvider* provider,
                    bool with_headers);

  CQivConfig& config_;
  CStoredContexts& contexts_;
  const std::span<const CheckRow> checks_;
  const CheckServices services_;
  mutable CExemptedCheck exempted_;
};

}  // namespace qiv

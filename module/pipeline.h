// The fixed order in which the notifications of a request consult the protection checks.
//
// The pipeline decides nothing itself: it sequences the rows of the check table, stops at the first block, has the page
// written and tells the server whether to go on. A check that is added to the table changes nothing here.
#pragma once

#include <span>

#include "checks/check_table.h"
#include "config/qiv_config.h"
#include "iis/httpserv.h"
#include "module/stored_context.h"

namespace qiv {

/// One object serves all requests on all threads; each notification works on its own records.
class CPipeline {
 public:
  /// All three must outlive the pipeline.
  CPipeline(CQivConfig& config, CStoredContexts& contexts, std::span<const CheckRow> checks)
      : config_(config), contexts_(contexts), checks_(checks) {}

  // Each returns CONTINUE or FINISH_REQUEST. They throw std::bad_alloc, and whatever a server's object throws.
  iis::REQUEST_NOTIFICATION_STATUS BeginRequest(iis::IHttpContext& context);
  iis::REQUEST_NOTIFICATION_STATUS PostExecuteRequestHandler(iis::IHttpContext& context);
  /// `provider` may be null.
  iis::REQUEST_NOTIFICATION_STATUS SendResponse(iis::IHttpContext& context, const iis::ISendResponseProvider* provider);

 private:
  void StartRecord(iis::IHttpContext& context, Phase phase, RequestFacts& facts) const;
  bool IsUnprotectedIpv6(const RequestFacts& facts) const;
  bool LoadOrRebuild(iis::IHttpContext& context, Phase phase, RequestFacts& facts);
  void RunStage(Stage stage, RequestFacts& facts, CheckResult& result) const;
  void RunAfterDecision(RequestFacts& facts, CheckResult& result) const;
  void WriteBlockPage(RequestFacts& facts, const CheckResult& result, bool reset_response = false);
  void InspectResponse(RequestFacts& facts, CheckResult& result);

  CQivConfig& config_;
  CStoredContexts& contexts_;
  const std::span<const CheckRow> checks_;
};

}  // namespace qiv

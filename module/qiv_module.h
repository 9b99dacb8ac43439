// The object that the server drives one request through.
#pragma once

#include "iis/httpserv.h"

namespace qiv {

/// Thin: each notification enters the pipeline through one barrier that lets no exception out. One object a request;
/// the server deletes it through Dispose, when the response has gone out: work that nobody should wait for is done
/// then.
class CQivIpsIIsModule final : public iis::CHttpModule {
 public:
  CQivIpsIIsModule() = default;
  ~CQivIpsIIsModule() override;
  CQivIpsIIsModule(const CQivIpsIIsModule&) = delete;
  CQivIpsIIsModule& operator=(const CQivIpsIIsModule&) = delete;

  iis::REQUEST_NOTIFICATION_STATUS OnBeginRequest(iis::IHttpContext* context,
                                                  iis::IHttpEventProvider* provider) override;
  /// Never subscribed.
  iis::REQUEST_NOTIFICATION_STATUS OnExecuteRequestHandler(iis::IHttpContext* context,
                                                           iis::IHttpEventProvider* provider) override;
  iis::REQUEST_NOTIFICATION_STATUS OnPostExecuteRequestHandler(iis::IHttpContext* context,
                                                               iis::IHttpEventProvider* provider) override;
  iis::REQUEST_NOTIFICATION_STATUS OnSendResponse(iis::IHttpContext* context,
                                                  iis::ISendResponseProvider* provider) override;

 private:
  bool answers_client_ = false;  ///< false for a request that another request makes and waits for
};

}  // namespace qiv

// The object that the server drives one request through.
#pragma once

#include "iis/httpserv.h"

namespace qiv {

/// Thin: each notification enters the pipeline through one barrier that lets no exception out. Without fields; one
/// object a request; the server deletes it through Dispose.
class CQivIpsIIsModule final : public iis::CHttpModule {
 public:
  iis::REQUEST_NOTIFICATION_STATUS OnBeginRequest(iis::IHttpContext* context,
                                                  iis::IHttpEventProvider* provider) override;
  /// Never subscribed.
  iis::REQUEST_NOTIFICATION_STATUS OnExecuteRequestHandler(iis::IHttpContext* context,
                                                           iis::IHttpEventProvider* provider) override;
  iis::REQUEST_NOTIFICATION_STATUS OnPostExecuteRequestHandler(iis::IHttpContext* context,
                                                               iis::IHttpEventProvider* provider) override;
  iis::REQUEST_NOTIFICATION_STATUS OnSendResponse(iis::IHttpContext* context,
                                                  iis::ISendResponseProvider* provider) override;
};

}  // namespace qiv

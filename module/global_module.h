// The module's global object: it keeps the identifier and lives until the worker process shuts down.
#pragma once

#include "iis/httpserv.h"

namespace qiv {

class MyGlobalModule final : public iis::CGlobalModule {
 public:
  explicit MyGlobalModule(iis::HTTP_MODULE_ID id) : id_(id) {}

  /// Does no work.
  iis::GLOBAL_NOTIFICATION_STATUS OnGlobalPreBeginRequest(iis::IPreBeginRequestProvider* provider) override;
  iis::VOID Terminate() override;
  virtual ~MyGlobalModule() = default;

  iis::HTTP_MODULE_ID Id() const { return id_; }

 private:
  const iis::HTTP_MODULE_ID id_;
};

}  // namespace qiv

// IHttpConnection of the host.
#pragma once

#include "host/context_container.h"
#include "host/request_memory.h"
#include "host/wire.h"
#include "iis/httpserv.h"

namespace qiv::host {

/// Lives as long as the client connection, over several requests.
class CHostConnection final : public iis::IHttpConnection {
 public:
  explicit CHostConnection(IWire& wire) : wire_(wire) {}

  iis::BOOL IsConnected() const override { return wire_.IsConnected(); }
  void* AllocateMemory(iis::DWORD size) override { return memory_.Allocate(size); }
  iis::IHttpConnectionModuleContextContainer* GetModuleContextContainer() override {
    // The interface adds only methods behind the two that modules use.
    return reinterpret_cast<iis::IHttpConnectionModuleContextContainer*>(&container_);
  }

 private:
  IWire& wire_;
  CRequestMemory memory_;
  CContextContainer container_;
};

}  // namespace qiv::host

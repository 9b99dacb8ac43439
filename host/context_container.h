// Stored contexts of modules.
#pragma once

#include <utility>
#include <vector>

#include "iis/httpserv.h"

namespace qiv::host {

/// Owns what modules store with a request or a connection: one object per module, cleaned up once.
class CContextContainer final : public iis::IHttpModuleContextContainer {
 public:
  CContextContainer() = default;
  ~CContextContainer() { Cleanup(); }
  CContextContainer(const CContextContainer&) = delete;
  CContextContainer& operator=(const CContextContainer&) = delete;

  iis::IHttpStoredContext* GetModuleContext(iis::HTTP_MODULE_ID id) override {
    for (const auto& [owner, context] : contexts_) {
      if (owner == id) return context;
    }
    return nullptr;
  }

  /// Fails when the module has one already, even with the same object: the caller then still owns what it brought.
  iis::HRESULT SetModuleContext(iis::IHttpStoredContext* context, iis::HTTP_MODULE_ID id) override {
    if (context == nullptr || id == nullptr) return iis::MakeHresult(0x80070057);
    if (GetModuleContext(id) != nullptr) return iis::kAlreadyAssigned;
    contexts_.emplace_back(id, context);
    return 0;
  }

  void Cleanup() {
    // Taken out first: a context's cleanup may still ask for others.
    while (!contexts_.empty()) {
      iis::IHttpStoredContext* context = contexts_.back().second;
      contexts_.pop_back();
      context->CleanupStoredContext();
    }
  }

 private:
  std::vector<std::pair<iis::HTTP_MODULE_ID, iis::IHttpStoredContext*>> contexts_;
};

}  // namespace qiv::host

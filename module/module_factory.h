// Gives the server one module object per request.
#pragma once

#include "iis/httpserv.h"

namespace qiv {

/// Called on many threads. Made by RegisterModule; ends itself when the server says so.
class CQivIpsIIsModuleFactory final : public iis::IHttpModuleFactory {
 public:
  /// From the ordinary heap, not from the request's allocator.
  iis::HRESULT GetHttpModule(iis::CHttpModule** module, iis::IModuleAllocator* allocator) override;
  iis::VOID Terminate() override;
};

}  // namespace qiv

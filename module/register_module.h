// The module's entry point.
#pragma once

#include "iis/httpserv.h"

/// Called once by the server after loading the file. Returns the HRESULT of the first registration step that failed.
extern "C" iis::HRESULT RegisterModule(iis::DWORD server_version, iis::IHttpModuleRegistrationInfo* registration,
                                       iis::IHttpServer* server);

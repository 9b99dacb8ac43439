// A module whose notifications are functions of the test.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "host/in_process.h"
#include "iis/httpserv.h"

namespace qiv::host {

using ScriptStep = std::function<iis::REQUEST_NOTIFICATION_STATUS(iis::IHttpContext&)>;

/// What a scripted module registers and does. Steps without an entry return CONTINUE.
struct ModuleScript {
  iis::DWORD main = 0;
  iis::DWORD post = 0;
  iis::DWORD global = 0;
  std::u16string begin_priority = u"MEDIUM";
  std::u16string send_priority = u"MEDIUM";
  std::map<std::string, ScriptStep> steps;  ///< by method name: "OnBeginRequest", "OnAsyncCompletion"
  std::function<void(iis::IHttpContext&, iis::ISendResponseProvider&)> send_response;
  std::function<iis::GLOBAL_NOTIFICATION_STATUS()> pre_begin;
  bool factory_fails = false;
  iis::HRESULT register_result = 0;

  // What happened.
  iis::HTTP_MODULE_ID id = nullptr;
  int alive = 0;        ///< module objects
  int terminated = 0;   ///< Terminate calls
  std::string journal;  ///< free for steps
};

/// Registers a module that runs `script`, which must outlive the host.
iis::HRESULT RegisterScript(CModuleHost& host, ModuleScript& script);

}  // namespace qiv::host

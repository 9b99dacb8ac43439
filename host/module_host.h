// The modules of this process: their registration, order and end.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/host_options.h"
#include "iis/httpserv.h"

namespace qiv::host {

/// One registered module and what it asked for.
struct RegisteredModule;

/// Holds modules between RegisterModule and Terminate. Register and Load before requests run; requests may then run on
/// many threads; the destructor (or Shutdown) when none runs any more.
class CModuleHost {
 public:
  explicit CModuleHost(HostOptions options = {});
  ~CModuleHost();
  CModuleHost(const CModuleHost&) = delete;
  CModuleHost& operator=(const CModuleHost&) = delete;

  /// Calls the module's entry point. On failure the module is dropped: it takes no part in requests.
  iis::HRESULT Register(iis::RegisterModuleFunction entry, std::u16string name = u"module",
                        iis::DWORD server_version = 10);

  /// Loads a module file and registers it. On failure says why in `error`.
  bool Load(const std::string& path, std::string* error);

  /// Calls both Terminate of every module, then unloads the files.
  void Shutdown();

  const HostOptions& options() const { return options_; }

  /// Modules subscribed to a notification, in the order they are called. `bit` is one RQ_ value.
  const std::vector<const RegisteredModule*>& Order(iis::DWORD bit, bool post) const;
  const std::vector<const RegisteredModule*>& PreBeginOrder() const { return pre_begin_order_; }
  const std::vector<std::unique_ptr<RegisteredModule>>& modules() const { return modules_; }

 private:
  void Sort();

  const HostOptions options_;
  std::vector<std::unique_ptr<RegisteredModule>> modules_;
  std::vector<std::vector<const RegisteredModule*>> main_order_;  ///< by bit number
  std::vector<std::vector<const RegisteredModule*>> post_order_;
  std::vector<const RegisteredModule*> pre_begin_order_;
  std::vector<void*> files_;  ///< handles of loaded module files
  std::uintptr_t next_id_ = 1;
};

}  // namespace qiv::host

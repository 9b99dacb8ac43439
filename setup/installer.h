// Installing, updating, repairing and uninstalling the module. All of it is one transaction: after a failure the server
// is as it was before, and what could not be taken back is named.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "setup/event_source.h"
#include "setup/layout.h"
#include "setup/machine.h"
#include "setup/registration.h"
#include "setup/server_config.h"
#include "setup/transaction.h"

namespace qiv::setup {

struct InstallOptions {
  std::string source;  ///< folder of the unpacked archive
  std::string target;
  std::string language = "en-US";   ///< of a first configuration; as `qivctl init` takes it
  std::string profile = "default";  ///< the same
  std::string url;                  ///< what must still answer afterwards; empty: the first site
  std::string stamp;                ///< tells this run's backup from others
};

struct UninstallOptions {
  std::string target;
  bool with_settings = false;  ///< settings and logs go too
  std::string stamp;
};

class CInstaller {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// `tell` gets what an administrator should read, a line at a time. Both references outlive it. For one use.
  CInstaller(IMachine& machine, const ServerPlaces& places, Tell tell)
      : machine_(machine),
        places_(places),
        tell_(std::move(tell)),
        appcmd_(machine, places),
        rights_(machine, places),
        events_(machine, places) {}

  /// True when it is done. Otherwise the reason was told and everything taken back.
  bool Install(const InstallOptions& options);
  bool Uninstall(const UninstallOptions& options);

 private:
  Fault PrepareAndMake(const InstallOptions& options);
  Fault Make(const InstallOptions& options, const std::vector<std::string>& files);
  Fault MakeFolders(const std::string& target, CFileExchange* exchange);
  Fault MakeConfiguration(const InstallOptions& options);
  Fault MakeFile(const std::string& path, const std::string& content);
  Fault Register(const Registration& wanted, const std::string& stamp);
  Fault SetEventFile(const std::string& file);
  Fault LookAgain(const WebPlace& place, const WebAnswer& before);
  Fault PrepareAndRemove(const UninstallOptions& options, CFileExchange* exchange);
  void Finish(const UninstallOptions& options, CFileExchange* exchange);
  std::vector<std::string> ChangedFiles(const InstallOptions& options, const std::vector<std::string>& files);
  void RecycleAll();
  bool End(const Fault& fault);
  void Warn(const std::string& text) { tell_("warning: " + text); }

  IMachine& machine_;
  const ServerPlaces& places_;
  const Tell tell_;
  CAppcmd appcmd_;
  CRights rights_;
  CEventSource events_;
  CTransaction transaction_;
  ServerConfig before_;
  std::string backup_;     ///< the backup of this run, when there is one
  bool recycled_ = false;  ///< worker processes may have taken up what is in place
};

}  // namespace qiv::setup

// A server to install into: files in a temporary folder, and stand-ins for appcmd, icacls and our own programs that
// keep its configuration file and rights. Counts every change and refuses the one that a test names.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "setup/installer.h"
#include "setup/system_machine.h"
#include "tests/port/temporary_directory.h"

namespace qiv::setup {

class CServerStandIn : public CSystemMachine {
  CTemporaryDirectory directory_;

 public:
  enum class Failure { kNone, kRefused, kReportedOnly, kFromThereOn, kThrown };
  using Entry = std::map<std::string, std::string>;  // attributes

  CServerStandIn();

  // The state of the server.
  std::optional<Entry> loaded;  ///< in globalModules
  std::optional<Entry> used;    ///< in modules
  std::string event_file;       ///< of the module's event source
  bool elevated = true;
  std::string breaking = "none";  ///< the version of the module that answers nothing but errors
  bool module_loads = true;
  bool locks = true;  ///< this appcmd sets lockItem
  bool shared = false;
  std::string leaves_out;  ///< how one site goes without the module: "remove" or "clear"; empty: none does
  std::string site_folder = "D:\\sites";
  void WriteConfig();
  /// Gives a file the rights that its folder hands down, as a copy by hand does.
  void ResetRights(const std::string& path) { rights_.erase(path); }
  void Put(const std::string& path, const std::string& content);

  // What goes wrong.
  Failure failure = Failure::kNone;
  int at_change = 0;  ///< counted from 1
  int changes = 0;

  const std::string windows, source, target;
  const ServerPlaces places;
  std::string told;

  /// An archive with this version of every file.
  void Unpack(const std::string& version, const std::string& machine = "\x64\x86");
  bool Install();
  bool Uninstall(bool with_settings);
  /// In a few words what an administrator has; "" for nothing.
  std::string Summary();
  /// Everything: names, contents and rights.
  std::string Everything();

  bool IsElevated() override { return elevated; }
  std::string Registry(const std::string& key, const std::string& value) override;
  WebAnswer Request(const WebPlace& place) override;
  void Wait(int) override {}
  ProgramResult Ask(const Command& command) override;
  ProgramResult Run(const Command& command) override;
  Fault MakeFolder(const std::string& path) override;
  Fault Copy(const std::string& from, const std::string& to) override;
  Fault Move(const std::string& from, const std::string& to) override;
  Fault Remove(const std::string& path) override;
  Fault Write(const std::string& path, const std::string& content) override;
  Fault RemoveAtRestart(const std::string&) override { return {}; }

 private:
  Fault Change(const std::function<Fault()>& change);
  Fault Appcmd(const std::vector<std::string>& arguments);
  Fault Reg(const std::vector<std::string>& arguments);
  Fault Icacls(const std::vector<std::string>& arguments);
  std::string Image();

  std::map<std::string, std::map<std::string, std::string>> rights_;  ///< path, who, what
  std::map<std::string, decltype(rights_)> saved_;
  std::string held_;  ///< content of the file that worker processes have loaded
};

}  // namespace qiv::setup

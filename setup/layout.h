// The files of an installation: which there are, how they are exchanged, and who may do what with them.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "setup/machine.h"
#include "setup/server_config.h"
#include "setup/transaction.h"

namespace qiv::setup {

inline constexpr std::string_view kModuleFile = "QivIpsIIs.dll";
inline constexpr std::string_view kToolFile = "qivctl.exe";
inline constexpr std::string_view kSetupFile = "qivsetup.exe";
/// Names every file that an installation put into its folder; the rest there is the administrator's.
inline constexpr std::string_view kManifestFile = "installed.txt";
inline constexpr std::string_view kStagingFolder = ".new";  ///< files that are not in place yet
inline constexpr std::string_view kAsideFolder = ".old";    ///< files that were in place

/// "\\" in paths of the archive and the manifest, whatever the system.
std::vector<std::string> ManifestFiles(IMachine& machine, const std::string& target);

class CFileExchange {
 public:
  /// All three outlive it.
  CFileExchange(IMachine& machine, CTransaction& transaction, std::string target)
      : machine_(machine), transaction_(transaction), target_(std::move(target)) {}

  /// Creates the folder if it is missing, and takes it away again on rollback.
  Fault MakeFolder(const std::string& path);
  /// An empty staging folder, whatever an interrupted run left in it.
  Fault MakeStaging();
  /// Copies these files of `source` into it. The manifest, if it is among them, is written with the names in `all`.
  Fault Stage(const std::string& source, const std::vector<std::string>& files, const std::vector<std::string>& all);
  /// Moves files of the installation aside. Those that are not there are passed over.
  Fault MoveAside(const std::vector<std::string>& files);
  /// Puts the staged files into the places of the old ones, which go aside. Between the two renames of one file there
  /// is a moment without it.
  Fault Exchange(const std::vector<std::string>& files);
  /// Deletes what lies in the staging folder and aside. The paths that are still in use.
  std::vector<std::string> CleanUp();

 private:
  Fault MakeFoldersOf(const std::string& below, const std::string& file);
  Fault MoveAsideOne(const std::string& file);
  void RemoveTree(const std::string& folder, std::vector<std::string>* in_use);

  IMachine& machine_;
  CTransaction& transaction_;
  const std::string target_;
  std::set<std::string> made_;  ///< folders; in a rehearsal they are not there afterwards
};

/// Who may do what in an installation:
///
///   folder            administrators, system   worker processes (IIS_IUSRS)      everybody else
///   .                 everything               see the folder itself             nothing
///   QivIpsIIs.dll     everything               read                              nothing
///   config            everything               read; append to _out.log          nothing
///   debug             everything               add files; append, read, rename   nothing
///
/// Each step is one call of icacls; the names are identifiers, the same in every language of Windows.
class CRights {
 public:
  CRights(IMachine& machine, const ServerPlaces& places) : machine_(machine), places_(places) {}

  /// Of the folder with its config and debug, and of what is in them.
  Fault GrantFolders(const std::string& target);
  Fault GrantModule(const std::string& file);
  Fault GrantAppending(const std::string& file);
  /// Writes down the rights of the folder and everything in it, for Restore.
  Fault Save(const std::string& target, const std::string& file);
  Fault Restore(const std::string& target, const std::string& file);

 private:
  Fault Run(std::vector<std::string> arguments);

  IMachine& machine_;
  const ServerPlaces& places_;
};

}  // namespace qiv::setup

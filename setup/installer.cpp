#include "setup/installer.h"

#include <algorithm>
#include <memory>

#include "common/visitor_key.h"
#include "port/module_path.h"
#include "setup/checks.h"

namespace qiv::setup {
namespace {

constexpr int kLooks = 15;  ///< at the site afterwards, with a pause between: pools take a moment to start
constexpr int kPauseMs = 2000;
constexpr int kFirstServerError = 500;
constexpr char kSwitchedOff[] = "_config.db.off";

std::string ConfigFile(const std::string& target, std::string_view name) { return Join(Join(target, "config"), name); }

std::string TextOf(const WebAnswer& answer) {
  return answer.status != 0 ? "status " + std::to_string(answer.status) : answer.failure;
}

bool IsHealthy(const WebAnswer& answer) { return answer.status != 0 && answer.status < kFirstServerError; }

std::string JoinNames(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "\"" : ", \"") + name + "\"";
  return text;
}

}  // namespace

bool CInstaller::Install(const InstallOptions& options) {
  if (!End(Caught([&] { return PrepareAndMake(options); }))) return false;
  const Fault fault = Caught([&] {
    CFileExchange leftovers(machine_, transaction_, options.target);
    for (const std::string& file : leftovers.CleanUp()) {
      tell_(file + " is still in use; the next installation deletes it");
    }
    return Fault();
  });
  if (!fault.empty()) Warn("files that are no longer used are left for the next installation: " + fault);
  tell_(machine_.IsRehearsal() ? "nothing was changed"
                               : "done: the module is in " + options.target + " and registered for all sites");
  return true;
}

bool CInstaller::End(const Fault& fault) {
  if (fault.empty()) {
    transaction_.Commit();
    return true;
  }
  tell_("failed: " + fault);
  const std::vector<std::string> left = transaction_.Rollback();
  for (const std::string& step : left) Warn("not taken back: " + step);
  if (left.empty()) {
    tell_("the server is as it was before");
  } else if (!backup_.empty()) {
    tell_("the server's configuration before this: " + appcmd_.RestoreLine(backup_));
  }
  return false;
}

Fault CInstaller::PrepareAndMake(const InstallOptions& options) {
  std::vector<std::string> files;
  Fault fault = CheckServer(machine_, places_, &before_);
  if (fault.empty()) fault = CheckSource(machine_, options.source, &files);
  if (fault.empty()) fault = CheckTarget(machine_, places_, before_, options.source, options.target);
  if (!fault.empty()) return fault;
  std::vector<std::string> without;
  for (const Pool& pool : before_.pools) {
    if (pool.is_32_bit) without.push_back(pool.name);
  }
  if (!without.empty()) {
    Warn("these application pools run 32-bit processes, which go without the module and stay unprotected: " +
         JoinNames(without) + " (set \"Enable 32-Bit Applications\" to False there)");
  }
  const WebPlace place = options.url.empty() ? before_.first_place : WebPlace{options.url, ""};
  WebAnswer answer;
  if (place.url.empty()) {
    Warn("no site speaks HTTP, so whether requests are served afterwards is not tried; --url names one that does");
  } else {
    answer = machine_.Request(place);
    if (!IsHealthy(answer)) {
      Warn(TextOf(place) + " does not answer properly now (" + TextOf(answer) +
           "), so it cannot tell afterwards; --url names another");
    }
  }
  fault = Make(options, files);
  if (fault.empty() && IsHealthy(answer)) fault = LookAgain(place, answer);
  return fault;
}

std::vector<std::string> CInstaller::ChangedFiles(const InstallOptions& options,
                                                  const std::vector<std::string>& files) {
  std::vector<std::string> changed;
  std::string manifest;
  for (const std::string& file : files) manifest += file + "\r\n";
  for (const std::string& file : files) {
    std::string now;
    std::string wanted = manifest;
    const bool is_there = machine_.Read(Join(options.target, file), &now).empty();
    if (file != kManifestFile) machine_.Read(Join(options.source, file), &wanted);
    if (!is_there || now != wanted) changed.push_back(file);
  }
  return changed;
}

Fault CInstaller::Make(const InstallOptions& options, const std::vector<std::string>& files) {
  const std::string& target = options.target;
  const std::vector<std::string> changed = ChangedFiles(options, files);
  std::vector<std::string> obsolete = ManifestFiles(machine_, target);
  std::erase_if(obsolete, [&](const std::string& file) { return std::count(files.begin(), files.end(), file) != 0; });
  // It lives as long as the ways back.
  const auto exchange = std::make_shared<CFileExchange>(machine_, transaction_, target);
  transaction_.OnRollback("", [exchange] { return Fault(); });
  Fault fault = MakeFolders(target, exchange.get());
  if (fault.empty()) fault = exchange->Stage(options.source, changed, files);
  const std::string module = Join(target, kModuleFile);
  const bool new_module = !changed.empty() && changed.front() == kModuleFile;
  if (fault.empty() && new_module) {
    const std::string staged = Join(Join(target, kStagingFolder), kModuleFile);
    fault = rights_.GrantModule(staged);
    if (!fault.empty()) return fault;
    // In a process of its own: what it does cannot harm this one.
    const ProgramResult trial = machine_.Run({Join(options.source, kSetupFile), {"trial", staged}});
    if (!trial.Succeeded()) return "the module does not load on this machine: " + trial.output;
  }
  transaction_.OnRollback("recycle the application pools", [this] {
    if (recycled_) RecycleAll();
    return Fault();
  });
  if (fault.empty()) fault = exchange->Exchange(changed);
  // Also one that stays may have lost its right: copied by hand, or reset.
  if (fault.empty() && !new_module) fault = rights_.GrantModule(module);
  if (fault.empty()) fault = exchange->MoveAside(obsolete);
  if (fault.empty()) fault = MakeConfiguration(options);
  if (!fault.empty()) return fault;
  fault = SetEventFile(module);
  if (!fault.empty()) return fault;
  // A lock would make an error of every request to a site that was left out on purpose.
  const bool lock = before_.left_out.empty();
  if (!lock) {
    Warn(
        "these go without the module, or with a list of their own, so its entry is not locked, and a web.config can "
        "take it out: " +
        JoinNames(before_.left_out));
  }
  const std::optional<Registration::Loaded>& loaded = before_.registration.loaded;
  // However it is written.
  const bool is_there = loaded && SamePath(loaded->image, module);
  const Registration wanted{{{is_there ? loaded->image : module, std::string(kPreCondition)}},
                            {{std::string(kPreCondition), lock}}};
  if (new_module || before_.registration != wanted) {
    recycled_ = true;
    fault = Register(wanted, options.stamp);
    if (fault.empty()) RecycleAll();
  } else {
    tell_("this module is in place and registered already");
  }
  return fault;
}

Fault CInstaller::MakeFolders(const std::string& target, CFileExchange* exchange) {
  const bool was_there = machine_.Kind(target) == PathKind::kDirectory;
  Fault fault;
  // Folders above it too: what was not there goes away again.
  for (std::size_t at = target.find(kPathSeparator, 3); fault.empty() && at != std::string::npos;
       at = target.find(kPathSeparator, at + 1)) {
    fault = exchange->MakeFolder(target.substr(0, at));
  }
  for (const std::string& folder : {target, Join(target, "config"), Join(target, "debug")}) {
    if (fault.empty()) fault = exchange->MakeFolder(folder);
  }
  if (fault.empty()) fault = exchange->MakeStaging();
  if (fault.empty() && was_there) {
    const std::string saved = Join(Join(target, kStagingFolder), "rights.txt");
    fault = rights_.Save(target, saved);
    if (!fault.empty()) return fault;
    transaction_.OnRollback("give the files their former rights",
                            [this, target, saved] { return rights_.Restore(target, saved); });
  }
  return fault.empty() ? rights_.GrantFolders(target) : fault;
}

Fault CInstaller::MakeFile(const std::string& path, const std::string& content) {
  if (machine_.Kind(path) != PathKind::kMissing) return {};
  transaction_.OnRollback("delete " + path, [this, path] {
    return machine_.Kind(path) == PathKind::kMissing ? Fault() : machine_.Remove(path);
  });
  const Fault fault = machine_.Write(path, content);
  return fault.empty() ? fault : path + " cannot be written: " + fault;
}

Fault CInstaller::MakeConfiguration(const InstallOptions& options) {
  const std::string& target = options.target;
  const std::string settings = Join(target, "settings.json");
  const auto is_there = [this](const std::string& path) { return machine_.Kind(path) != PathKind::kMissing; };
  if (is_there(ConfigFile(target, "_config.db"))) {
    tell_("the settings stay as they are");
  } else if (is_there(settings) || is_there(ConfigFile(target, kSwitchedOff))) {
    Warn("protection is switched off (" + ConfigFile(target, "_config.db") + " is not there), and stays so");
  } else {
    std::vector<std::string> before;
    machine_.List(Join(target, "config"), &before, nullptr);
    transaction_.OnRollback("delete the first configuration", [this, target, settings, before] {
      Fault fault = machine_.Kind(settings) == PathKind::kMissing ? Fault() : machine_.Remove(settings);
      std::vector<std::string> now;
      machine_.List(Join(target, "config"), &now, nullptr);
      for (const std::string& file : now) {
        const bool is_new = std::count(before.begin(), before.end(), file) == 0;
        if (fault.empty() && is_new) fault = machine_.Remove(ConfigFile(target, file));
      }
      return fault;
    });
    const Command init{Join(target, kToolFile),
                       {"init", target, "--language", options.language, "--profile", options.profile, "--rules",
                        Join(target, "rules")}};
    const ProgramResult made = machine_.Run(init);
    // 1: written, with doubts that were told.
    if (!made.ended || made.exit_code < 0 || made.exit_code > 1) {
      return "the first configuration cannot be written: " + made.output;
    }
  }
  // Worker processes may not create files there.
  Fault fault = MakeFile(ConfigFile(target, "_key.db"), NewVisitorKey());
  if (fault.empty()) fault = MakeFile(ConfigFile(target, "_out.log"), "");
  return fault.empty() ? rights_.GrantAppending(ConfigFile(target, "_out.log")) : fault;
}

Fault CInstaller::Register(const Registration& wanted, const std::string& stamp) {
  if (before_.registration == wanted) return {};
  const std::string plain = std::string(kModuleName) + "-" + stamp;
  std::string name = plain;
  for (int number = 2; machine_.Kind(Join(places_.backups, name)) != PathKind::kMissing; ++number) {
    name = plain + "-" + std::to_string(number);
  }
  transaction_.OnRollback("delete the backup " + name, [this, name] {
    return machine_.Kind(Join(places_.backups, name)) == PathKind::kMissing ? Fault() : appcmd_.DeleteBackup(name);
  });
  if (Fault fault = appcmd_.AddBackup(name); !fault.empty()) return fault;
  backup_ = name;
  transaction_.OnRollback("bring the server's configuration back", [this] {
    std::vector<std::string> warnings;
    return appcmd_.Register(before_.registration, &warnings);
  });
  const Registration& now = before_.registration;
  if (now.loaded.has_value() != now.used.has_value()) {
    tell_(now.loaded ? "repairing: the module was loaded, but no request went through it"
                     : "repairing: requests were sent through a module that was not loaded");
  }
  tell_("backed up the server's configuration; to go back: " + appcmd_.RestoreLine(name));
  std::vector<std::string> warnings;
  const Fault fault = appcmd_.Register(wanted, &warnings);
  for (const std::string& warning : warnings) Warn(warning);
  return fault;
}

Fault CInstaller::SetEventFile(const std::string& file) {
  const std::string before = events_.File();
  if (SamePath(before, file)) return {};
  transaction_.OnRollback("bring the event source back", [this, before] { return events_.SetFile(before); });
  return events_.SetFile(file);
}

/// One after the other, so that never all sites start anew at once.
void CInstaller::RecycleAll() {
  for (const Pool& pool : before_.pools) {
    if (const Fault fault = appcmd_.Recycle(pool.name); !fault.empty()) {
      Warn("application pool \"" + pool.name + "\" goes on as before until it is recycled: " + fault);
    }
  }
}

Fault CInstaller::LookAgain(const WebPlace& place, const WebAnswer& before) {
  if (machine_.IsRehearsal()) return {};
  WebAnswer answer;
  for (int look = 0; look < kLooks; ++look) {
    if (look != 0) machine_.Wait(kPauseMs);
    answer = machine_.Request(place);
    if (!IsHealthy(answer)) continue;
    tell_(TextOf(place) + " answers (" + TextOf(answer) + ")");
    return {};
  }
  return TextOf(place) + " answered before (" + TextOf(before) + "), and with the module it does not (" +
         TextOf(answer) + ")";
}

bool CInstaller::Uninstall(const UninstallOptions& options) {
  CFileExchange exchange(machine_, transaction_, options.target);
  if (!End(Caught([&] { return PrepareAndRemove(options, &exchange); }))) return false;
  const Fault fault = Caught([&] {
    Finish(options, &exchange);
    return Fault();
  });
  if (!fault.empty()) Warn("the module is out, but files of it may be left in " + options.target + ": " + fault);
  return true;
}

void CInstaller::Finish(const UninstallOptions& options, CFileExchange* exchange) {
  for (const std::string& file : exchange->CleanUp()) {
    const Fault fault = machine_.RemoveAtRestart(file);
    tell_(file + (fault.empty() ? " is still in use; the system deletes it when it starts the next time"
                                : " is still in use; delete it when the worker processes have ended"));
  }
  if (machine_.IsRehearsal()) tell_("nothing was changed");
  if (machine_.IsRehearsal() || machine_.Kind(options.target) != PathKind::kDirectory) return;
  std::vector<std::string> files;
  std::vector<std::string> folders;
  machine_.List(options.target, &files, &folders);
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    const auto is_inside = [&](const std::string& file) { return file.starts_with(Join(*folder, "")); };
    if (std::none_of(files.begin(), files.end(), is_inside)) machine_.Remove(Join(options.target, *folder));
  }
  if (files.empty()) {
    machine_.Remove(options.target);
    tell_("done: nothing of the module is left");
  } else {
    tell_("done; what stays in " + options.target + ": " + std::to_string(files.size()) +
          " files (settings, logs and what others put there), " + files.front() +
          (files.size() > 1 ? " among them" : ""));
  }
}

Fault CInstaller::PrepareAndRemove(const UninstallOptions& options, CFileExchange* exchange) {
  Fault fault = CheckServer(machine_, places_, &before_);
  if (!fault.empty()) return fault;
  std::vector<std::string> files = ManifestFiles(machine_, options.target);
  const bool has_module = machine_.Kind(Join(options.target, kModuleFile)) == PathKind::kFile;
  const std::optional<Registration::Loaded>& loaded = before_.registration.loaded;
  if (loaded && !SamePath(loaded->image, Join(options.target, kModuleFile))) {
    return "the server has the module from " + loaded->image + "; --target names the folder of that installation";
  }
  if (files.empty() && !has_module && before_.registration == Registration()) {
    return "there is no installation in " + options.target;
  }
  const auto is_there = [&](std::string_view name) {
    return machine_.Kind(ConfigFile(options.target, name)) == PathKind::kFile;
  };
  const bool is_ours = !files.empty() || has_module || is_there("_config.db") || is_there(kSwitchedOff);
  if (options.with_settings && !is_ours) Warn("no installation is in " + options.target + ": nothing is deleted there");
  // One made before there was a list of its files.
  if (files.empty() && has_module) files = {std::string(kModuleFile), std::string(kToolFile), "uninstall.ps1"};
  if (options.with_settings && is_ours) {
    files.emplace_back("settings.json");
    for (const char* const folder : {"config", "debug"}) {
      std::vector<std::string> inside;
      machine_.List(Join(options.target, folder), &inside, nullptr);
      for (const std::string& file : inside) files.push_back(Join(folder, file));
    }
  }
  if (before_.registration != Registration()) {
    transaction_.OnRollback("recycle the application pools", [this] {
      if (recycled_) RecycleAll();
      return Fault();
    });
    recycled_ = true;
    fault = Register(Registration(), options.stamp);
    if (!fault.empty()) return fault;
    tell_("the module is no longer registered");
  }
  if (SamePath(events_.File(), Join(options.target, kModuleFile))) fault = SetEventFile("");
  if (fault.empty()) fault = exchange->MoveAside(files);
  if (!fault.empty()) return fault;
  RecycleAll();
  return {};
}

}  // namespace qiv::setup

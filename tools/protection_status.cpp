#include "tools/protection_status.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <utility>

#include "checks/check_table.h"
#include "common/event_log.h"
#include "common/state_recorder.h"
#include "config/address_libraries.h"
#include "config/badcode_library.h"
#include "config/config_parser.h"
#include "config/exemptions.h"
#include "config/qiv_config.h"
#include "port/clock.h"
#include "port/directory.h"
#include "port/file.h"
#include "port/system_error.h"
#include "tools/files.h"
#include "tools/list_store.h"
#include "tools/lock_obstacles.h"
#include "tools/printable.h"

namespace qiv {
namespace {

std::string NameOf(const std::string& path) { return path.substr(path.find_last_of("/\\") + 1); }

std::string Counted(std::size_t count, const char* what) { return std::to_string(count) + " " + what; }

/// One installation, loaded as a module does.
class CLoadedInstallation {
 public:
  explicit CLoadedInstallation(const std::string& directory)
      : config_(directory, &UnixSeconds, &states_),
        areas_({config_.Paths().ipv4_areas, config_.Paths().ipv6_areas, config_.Paths().bad_ips}, &states_) {
    config_.RefreshTick();
    if (config_.IsLibraryEnabled()) areas_.ReloadChanged();
  }

  ProtectionStatus Look(const std::string& directory);

 private:
  FileStatus SettingsFile() const;
  FileStatus LibraryFile(const std::string& path, bool is_read, const std::string& holds);
  void LookAtChecks(ProtectionStatus* status) const;
  void LookAtFiles(ProtectionStatus* status);
  void LookAtSettingsFaults(ProtectionStatus* status) const;
  void LookAtLists(const std::string& directory, ProtectionStatus* status) const;

  CStateRecorder states_;
  CQivConfig config_;
  CAddressLibraries areas_;
};

FileStatus CLoadedInstallation::SettingsFile() const {
  const std::string& path = config_.Paths().config_file;
  FileStatus file{NameOf(path), FileVerdict::kInForce, WrittenAt(path), ""};
  if (config_.IsConfigValid()) return file;
  file.verdict = FileVerdict::kRefused;
  const ConfigStatus status = config_.LastStatus();
  file.remark = status == ConfigStatus::kUnreadable ? CannotRead(path, kConfigMaxBytes) : ConfigStatusText(status);
  return file;
}

FileStatus CLoadedInstallation::LibraryFile(const std::string& path, bool is_read, const std::string& holds) {
  FileStatus file{NameOf(path), FileVerdict::kInForce, WrittenAt(path), holds};
  if (PathKindOf(path) == PathKind::kMissing) {
    file.verdict = FileVerdict::kMissing;
    file.remark.clear();
  } else if (!is_read) {
    file.verdict = FileVerdict::kNotRead;
    file.remark.clear();
  } else if (states_.IsFault(StateKind::kLoad, file.name)) {
    file.verdict = FileVerdict::kRefused;
    std::string first;
    file.remark = ReadFilePart(path, 0, 1, &first) == ReadFileResult::kOk ? "is damaged, of another kind or too large"
                                                                          : CannotRead(path);
  }
  return file;
}

void CLoadedInstallation::LookAtFiles(ProtectionStatus* status) {
  const ConfigPaths& paths = config_.Paths();
  const bool valid = config_.IsConfigValid();
  const bool linked = valid && config_.IsLibraryEnabled();
  const auto injection = config_.Library();
  const auto attacks = config_.AttackRules();
  status->files = {
      SettingsFile(),
      LibraryFile(paths.sql_library, valid,
                  Counted(injection->Rules().size() + injection->Keys().size() + injection->Events().size(), "rules")),
      LibraryFile(paths.sql_user_library, valid, "counted above"),
      LibraryFile(paths.webshell_library, valid, ""),
      LibraryFile(paths.badcode_library, valid,
                  Counted(attacks->attacks.Rules().size() + attacks->leaks.Rules().size(), "rules")),
      LibraryFile(paths.exemptions, true, ""),
      LibraryFile(paths.ipv4_areas, linked, ""),
      LibraryFile(paths.ipv6_areas, linked, ""),
      LibraryFile(paths.bad_ips, linked, ""),
  };
  if (valid && states_.IsFault(StateKind::kProtection, NameOf(paths.badcode_library))) {
    status->faults.push_back(NameOf(paths.badcode_library) +
                             ": no rules for file inclusion and malicious code are loaded, but those are switched on");
  }
}

void CLoadedInstallation::LookAtSettingsFaults(ProtectionStatus* status) const {
  std::string text;
  WebsiteConfig config;
  ConfigFaults faults;
  const std::string& path = config_.Paths().config_file;
  if (ReadWholeFile(path, kConfigMaxBytes, &text) != ReadFileResult::kOk) return;
  if (ParseConfigText(text, &config, &faults) != ConfigStatus::kLoaded) return;
  for (const std::vector<StateFault>* const kind : {&faults.sections, &faults.items}) {
    for (const StateFault& fault : *kind) {
      std::string line =
          NameOf(path) + ", " + fault.item + ": " + std::string(Message(Language::kEnglish, fault.reason));
      if (!fault.detail.empty()) line += " (" + Printable(fault.detail) + ")";
      status->faults.push_back(std::move(line));
    }
  }
}

void CLoadedInstallation::LookAtChecks(ProtectionStatus* status) const {
  const std::shared_ptr<const WebsiteConfig> config = config_.Current();
  const bool valid = config_.IsConfigValid();
  for (const CheckRow& row : CheckTable()) {
    const CheckMode mode = !valid || !row.IsOn(*config)           ? CheckMode::kOff
                           : config->extended.IsLogOnly(row.name) ? CheckMode::kLogOnly
                                                                  : CheckMode::kOn;
    status->checks.push_back({row.name, mode});
  }
  if (!valid) {
    status->why = status->files.front().remark;
  } else if (config->extended.log_only) {
    status->protection = ProtectionStatus::Protection::kLogOnly;
    status->why = "website_log_only is on";
  } else {
    status->protection = ProtectionStatus::Protection::kOn;
  }
}

void CLoadedInstallation::LookAtLists(const std::string& directory, ProtectionStatus* status) const {
  status->lock_obstacles = LockObstaclesOf(directory, true);
  CListStore store(directory);
  FileStatus file{NameOf(store.Path()), FileVerdict::kInForce, WrittenAt(store.Path()), ""};
  if (PathKindOf(store.Path()) == PathKind::kMissing) {
    file.verdict = FileVerdict::kMissing;
  } else if (!store.Load()) {
    file.verdict = FileVerdict::kRefused;
    file.remark = store.LoadError();
  } else {
    store.Expire(UnixSeconds());
    for (const ListEntry& entry : store.Entries()) ++status->listed[static_cast<std::size_t>(entry.list)];
    file.remark = Counted(store.Size(), "entries");
  }
  status->files.push_back(std::move(file));
}

void LookAtInjectionRules(std::size_t rules, ProtectionStatus* status) {
  const auto is_on = [](const CheckSwitch& check) {
    return check.name == "injection" && check.mode != CheckMode::kOff;
  };
  if (rules == 0 && std::any_of(status->checks.begin(), status->checks.end(), is_on)) {
    status->faults.push_back("_sql.db: no rules for injection are loaded, but those checks are switched on");
  }
}

/// Whether a line can be added; by whoever runs this, who need not be the server's account.
void LookAtLog(const std::string& directory, ProtectionStatus* status) {
  const std::string path = directory + "debug/_log.log";
  status->log_written = WrittenAt(path);
  const PathKind kind = PathKindOf(path);
  if (kind == PathKind::kMissing) {
    status->log_takes_lines = IsDirectory(directory + "debug");
    status->log_remark =
        status->log_takes_lines ? "not there yet: the module has told nothing" : "there is no folder debug";
    return;
  }
  // Nothing is added: whether it could be is known once the file is open.
  status->log_takes_lines = AppendToFile(path, "");
  if (!status->log_takes_lines) {
    status->log_remark = IsDirectory(path) ? "is a folder" : CannotWrite();
  } else if (FileSize(path).value_or(0) >= CEventLog::kRotateBytes * CEventLog::kKeptFiles) {
    status->log_takes_lines = false;
    status->log_remark = "is full, for it cannot be moved away";
  }
}

/// Whether the module told it after the file had been written: times of the log are UTC and compare as texts.
bool IsLater(const LoggedState& state, std::int64_t written) {
  const CalendarTime time = UtcTime(written);
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.999Z", time.year, time.month, time.day,
                time.hour, time.minute, time.second);
  return state.time > text.data();
}

/// What the module told and no look at the files shows: its account may have other rights than ours.
void TakeTold(ProtectionStatus* status) {
  const auto contradict = [status](const LoggedState* told, const FileStatus& file, const char* wrong) {
    if (told == nullptr || told->state != wrong || !IsLater(*told, file.written)) return;
    status->faults.push_back("the module says otherwise since " + told->time + ": " +
                             (told->file.empty() ? "protection is off" : told->file) + ": " + ReasonOf(*told));
  };
  for (const FileStatus& file : status->files) {
    if (file.verdict == FileVerdict::kInForce) contradict(status->told.Find("load", file.name), file, "fault");
  }
  const bool log_only = std::any_of(status->checks.begin(), status->checks.end(),
                                    [](const CheckSwitch& check) { return check.mode == CheckMode::kLogOnly; });
  if (status->protection == ProtectionStatus::Protection::kOn && !log_only) {
    contradict(status->told.Find("protection", ""), status->files.front(), "off");
  }
  for (const LoggedState& state : status->told.last) {
    if (state.kind == "output" && state.state == "fault") {
      status->faults.push_back(state.file + ": " + ReasonOf(state) + ", since " + state.time);
    }
  }
}

ProtectionStatus CLoadedInstallation::Look(const std::string& directory) {
  ProtectionStatus status;
  status.told = ReadStateLog(directory);
  LookAtFiles(&status);
  LookAtChecks(&status);
  LookAtInjectionRules(config_.Library()->Rules().size(), &status);
  LookAtSettingsFaults(&status);
  LookAtLists(directory, &status);
  LookAtLog(directory, &status);
  TakeTold(&status);
  return status;
}

}  // namespace

bool ProtectionStatus::InOrder() const {
  const auto refused = [](const FileStatus& file) { return file.verdict == FileVerdict::kRefused; };
  return protection == Protection::kOn && faults.empty() && log_takes_lines &&
         std::none_of(files.begin(), files.end(), refused);
}

ProtectionStatus LookAtProtection(const std::string& directory) {
  return CLoadedInstallation(directory).Look(directory);
}

}  // namespace qiv

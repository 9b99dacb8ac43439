#include "config/qiv_config.h"

#include <new>
#include <utility>
#include <vector>

#include "common/aes.h"
#include "common/rule_set_name.h"
#include "common/text.h"
#include "config/local_form.h"
#include "port/file.h"
#include "port/module_path.h"

namespace qiv {
namespace {

constexpr std::int64_t kCheckInterval = 2;  // seconds
constexpr std::uint64_t kLibraryMaxBytes = kConfigMaxBytes;
constexpr std::string_view kSqlLibraryTags[] = {"separator", "sql_rules", "sql_keys", "xss_events"};
constexpr std::string_view kConfigName = "_config.db";
constexpr const char* kBadcodeFile = "_badcode.db";
constexpr const char* kRuleSetFile = "_rules.db";
constexpr std::uint64_t kRuleSetMaxBytes = 1U << 20;  // a name and a digest for each rule file

std::string ConfigFile(const std::string& directory, const char* name) {
  return directory + "config" + kPathSeparator + name;
}

/// Whether each list that is opened is closed, and there is at least one.
bool IsSqlLibrary(std::string_view text) {
  std::size_t lists = 0;
  for (const std::string_view tag : kSqlLibraryTags) {
    if (IsTagDamaged(text, tag)) return false;
    if (HasTag(text, tag)) ++lists;
  }
  return lists != 0;
}

MessageId StatusReason(ConfigStatus status, bool is_there) {
  switch (status) {
    case ConfigStatus::kTooShort:
      return MessageId::kStateTooShort;
    case ConfigStatus::kTooLong:
      return MessageId::kStateTooLarge;
    case ConfigStatus::kNoSettingsPart:
      return MessageId::kStateNoSettings;
    case ConfigStatus::kNoBasePart:
      return MessageId::kStateNoBase;
    case ConfigStatus::kNotOnServers:
      return MessageId::kStateNotOnServers;
    case ConfigStatus::kNoSections:
      return MessageId::kStateNoSections;
    case ConfigStatus::kOutOfMemory:
      return MessageId::kStateOutOfMemory;
    case ConfigStatus::kUnreadable:
    case ConfigStatus::kLoaded:
      break;
  }
  return is_there ? MessageId::kStateUnreadable : MessageId::kStateMissing;
}

/// Has the event log name the rule set, before the first line about the load.
void NameRuleSet(const std::string& module_directory) {
  std::string text;
  ReadWholeFile(ConfigFile(module_directory, kRuleSetFile), kRuleSetMaxBytes, &text);
  SetRuleSetName(Trim(std::string_view(text).substr(0, text.find('\n'))));
}

}  // namespace

std::string LogDirectory(const std::string& module_directory) { return module_directory + "debug" + kPathSeparator; }

ConfigPaths::ConfigPaths(std::string directory)
    : module_directory(std::move(directory)),
      config_file(ConfigFile(module_directory, "_config.db")),
      out_log(ConfigFile(module_directory, "_out.log")),
      in_file(ConfigFile(module_directory, "_in.db")),
      sql_library(ConfigFile(module_directory, "_sql.db")),
      sql_user_library(ConfigFile(module_directory, "_sql_user.db")),
      ipv4_areas(ConfigFile(module_directory, "iplib.db")),
      ipv6_areas(ConfigFile(module_directory, "iplibv6.db")),
      bad_ips(ConfigFile(module_directory, "_badip.db")),
      badcode_library(ConfigFile(module_directory, kBadcodeFile)),
      webshell_library(ConfigFile(module_directory, "_trojan.db")),
      exemptions(ConfigFile(module_directory, "_exempt.db")),
      visitor_key(ConfigFile(module_directory, "_key.db")) {}

CQivConfig::CQivConfig(std::string module_directory, Clock clock, CStateRecorder* states)
    : paths_(std::move(module_directory)),
      clock_(clock),
      states_(states != nullptr ? *states : silent_),
      current_(std::make_shared<WebsiteConfig>()),
      library_(std::make_shared<InjectionLibrary>()),
      webshells_(paths_.webshell_library, &states_),
      badcode_(paths_.badcode_library, &states_),
      exemptions_(std::make_shared<CExemptions>()),
      config_file_(paths_.config_file, kConfigMaxBytes),
      exempt_file_(paths_.exemptions, CExemptions::kFileMaxBytes),
      sql_library_{CWatchedFile(paths_.sql_library, kLibraryMaxBytes), ""},
      sql_user_library_{CWatchedFile(paths_.sql_user_library, kLibraryMaxBytes), ""} {}

CQivConfig::~CQivConfig() = default;

void CQivConfig::RefreshTick() {
  const std::int64_t now = clock_();
  if (!ClaimCheck(now)) return;
  // A load that takes longer than the interval must not gather waiting requests behind it.
  if (refreshing_.exchange(true)) return;
  struct Leave {
    std::atomic<bool>& flag;
    ~Leave() { flag.store(false); }
  } const leave{refreshing_};
  Refresh(now);
}

bool CQivConfig::ClaimCheck(std::int64_t now) {
  const CAutoLock lock(config_check_lock_);
  // A last check in the future comes from a clock that was set back, or that was wrong then; it counts for nothing.
  if (last_check_ != 0 && now > last_check_ - kCheckInterval && now < last_check_ + kCheckInterval) return false;
  last_check_ = now;
  return true;
}

void CQivConfig::Refresh(std::int64_t now) {
  bool reloaded = ReloadConfig();
  // A new configuration finds its libraries in place even while the flag keeps them from being watched, at the next
  // tick if they cannot be read just now.
  if (reloaded) library_wanted_ = webshells_wanted_ = badcode_wanted_ = true;
  const bool library_enabled = IsLibraryEnabled();
  if (library_enabled || library_wanted_) reloaded |= ReloadInjectionLibrary();
  if (library_enabled || webshells_wanted_) reloaded |= ReloadWebshellLibrary();
  if (library_enabled || badcode_wanted_) reloaded |= ReloadBadcodeLibrary();
  ReloadExemptions();
  if (tick_client_ == nullptr) return;
  if (library_enabled) reloaded |= tick_client_->OnServiceTick(now);
  if (reloaded) tick_client_->OnReloaded(now);
}

/// True when a new record is in force.
bool CQivConfig::ReloadConfig() {
  using Look = CWatchedFile::Look;
  ConfigStatus status = ConfigStatus::kOutOfMemory;
  ConfigFaults faults;
  {
    const CAutoLock lock(config_file_lock_);
    try {
      std::string text;
      const Look look = config_file_.Read(&text);
      if (look == Look::kSame && config_file_.IsThere()) return false;
      if (look != Look::kSame) NameRuleSet(paths_.module_directory);
      status = look == Look::kNew        ? SwapConfig(text, &faults)
               : look == Look::kTooLarge ? ConfigStatus::kTooLong
                                         : ConfigStatus::kUnreadable;
      // A file that is there but could not be opened (another process holds it) has not been parsed, nor has one that
      // memory ran out for: it is tried again.
      if (look != Look::kAgain && status != ConfigStatus::kOutOfMemory) config_file_.Accept();
    } catch (const std::bad_alloc&) {
      status = ConfigStatus::kOutOfMemory;
    }
    if (status == ConfigStatus::kOutOfMemory) config_file_.Forget();
  }
  last_status_.store(status);
  SetSwitches(status == ConfigStatus::kLoaded);
  ReportConfig(status, faults);
  return status == ConfigStatus::kLoaded;
}

ConfigStatus CQivConfig::SwapConfig(std::string_view text, ConfigFaults* faults) {
  const CAutoLock lock(config_swap_lock_);
  ConfigStatus status = ConfigStatus::kOutOfMemory;
  try {
    spare_ = std::make_shared<WebsiteConfig>();
    status = ParseConfigText(text, spare_.get(), faults);
    if (status == ConfigStatus::kLoaded) current_.Store(spare_);
  } catch (const std::bad_alloc&) {
    status = ConfigStatus::kOutOfMemory;
  }
  spare_.reset();
  return status;
}

namespace {

/// Protection that is on and does nothing has to be seen.
void ReportProtection(const ExtendedFunctions& extended, CStateRecorder* states) {
  if (!extended.AnyLogOnly()) {
    states->Fine(StateKind::kProtection, "");
  } else if (extended.log_only) {
    states->Fault(StateKind::kProtection, "", MessageId::kStateAllLogOnly);
  } else {
    std::string checks;
    for (const std::string& check : extended.log_only_checks) checks.append(checks.empty() ? "" : ", ").append(check);
    states->Fault(StateKind::kProtection, "", {"", MessageId::kStateLogOnly, checks});
  }
}

}  // namespace

void CQivConfig::ReportConfig(ConfigStatus status, const ConfigFaults& faults) {
  if (status != ConfigStatus::kLoaded) {
    bool is_there = false;
    {
      const CAutoLock lock(config_file_lock_);
      is_there = config_file_.IsThere();
    }
    states_.Fault(StateKind::kLoad, kConfigName, StatusReason(status, is_there));
    states_.Fault(StateKind::kProtection, "", MessageId::kStateUnprotected);
    return;
  }
  const std::shared_ptr<const WebsiteConfig> config = current_.Load();
  states_.SetLanguage(config->language);
  states_.Fine(StateKind::kLoad, kConfigName);
  ReportProtection(config->extended, &states_);
  states_.Replace(StateKind::kSection, kConfigName, faults.sections);
  states_.Replace(StateKind::kItems, kConfigName, faults.items);
}

/// A refused load turns the module off and leaves the other switches as they were.
void CQivConfig::SetSwitches(bool valid) {
  if (valid) {
    const std::shared_ptr<const WebsiteConfig> config = current_.Load();
    {
      const CAutoLock lock(library_flag_lock_);
      library_enabled_ = config->library_enabled ? 1 : 0;
    }
    const CAutoLock lock(ipv6_lock_);
    ipv6_protected_ = config->ipv6_protection ? 1 : 0;
  }
  const CAutoLock lock(config_valid_lock_);
  config_valid_ = valid ? 1 : 0;
}

bool CQivConfig::TakeSqlLibrary(SqlLibrary* library, CStateRecorder* states, const std::string* file) {
  std::vector<std::string> lost;
  std::string text;
  if (file != nullptr) {
    text = LibraryToLocalForm(DecryptOrThrow("", Trim(*file)), kSqlLibraryTags, &lost);
    if (!IsSqlLibrary(text)) return false;
  }
  library->text = std::move(text);
  ReportLost(states, library->file.Name(), lost);
  return true;
}

bool CQivConfig::ReloadInjectionLibrary() {
  const CAutoLock lock(library_file_lock_);
  bool again = false;
  for (SqlLibrary* const library : {&sql_library_, &sql_user_library_}) {
    const Reload reload = ReloadFile(&library->file, &states_, [this, library](const std::string* file) {
      return TakeSqlLibrary(library, &states_, file);
    });
    again = again || reload == Reload::kAgain;
    sql_stale_ = sql_stale_ || reload == Reload::kReplaced;
  }
  library_wanted_ = again;
  if (!sql_stale_) return false;
  try {
    library_.Store(
        std::make_shared<InjectionLibrary>(InjectionLibrary::FromText(sql_library_.text, sql_user_library_.text)));
  } catch (const std::bad_alloc&) {
    states_.Fault(StateKind::kLoad, sql_library_.file.Name(), MessageId::kStateOutOfMemory);
    sql_library_.file.Forget();
    library_wanted_ = true;
    return false;
  }
  sql_stale_ = false;
  return true;
}

bool CQivConfig::ReloadWebshellLibrary() {
  const Reload reload = webshells_.ReloadChanged(*Current());
  webshells_wanted_ = reload == Reload::kAgain;
  return reload == Reload::kReplaced;
}

bool CQivConfig::ReloadBadcodeLibrary() {
  const Reload reload = badcode_.ReloadChanged();
  badcode_wanted_ = reload == Reload::kAgain;
  const std::shared_ptr<const WebsiteConfig> site = Current();
  const std::shared_ptr<const AttackRuleSet> rules = badcode_.Current();
  const bool wanted = site->base.badcode || site->request.file;
  if ((wanted && rules->attacks.Rules().empty()) ||
      (site->base.badcode && site->base.badcode_webout && rules->leaks.Rules().empty())) {
    states_.Fault(StateKind::kProtection, kBadcodeFile, MessageId::kStateNoAttackRules);
  } else {
    states_.Fine(StateKind::kProtection, kBadcodeFile);
  }
  return reload == Reload::kReplaced;
}

void CQivConfig::ReloadExemptions() {
  const CAutoLock lock(exempt_file_lock_);
  ReloadFile(&exempt_file_, &states_, [this](const std::string* text) {
    std::vector<Exemption> exemptions;
    std::size_t bad_line = 0;
    if (text != nullptr && !CExemptions::Read(*text, &exemptions, &bad_line)) return false;
    exemptions_.Store(std::make_shared<CExemptions>(std::move(exemptions)));
    return true;
  });
}

bool CQivConfig::IsConfigValid() const {
  const CAutoLock lock(config_valid_lock_);
  return config_valid_ != 0;
}

bool CQivConfig::IsIpv6Protected() const {
  const CAutoLock lock(ipv6_lock_);
  return ipv6_protected_ != 0;
}

bool CQivConfig::IsLibraryEnabled() const {
  const CAutoLock lock(library_flag_lock_);
  return library_enabled_ != 0;
}

}  // namespace qiv

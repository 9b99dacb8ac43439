#include "config/qiv_config.h"

#include <new>
#include <utility>

#include "common/aes.h"
#include "common/char_set.h"
#include "common/text.h"
#include "port/file.h"
#include "port/module_path.h"

namespace qiv {
namespace {

constexpr std::int64_t kCheckInterval = 2;  // seconds
constexpr std::uint64_t kLibraryMaxBytes = kConfigMaxBytes;

std::string ConfigFile(const std::string& directory, const char* name) {
  return directory + "config" + kPathSeparator + name;
}

/// The deciphered text of a library file; empty when there is no such file. False when it is there but cannot be read.
bool ReadLibrary(const std::string& path, std::uint64_t time, std::string* text) {
  if (time == 0) return true;
  std::string enciphered;
  switch (ReadWholeFile(path, kLibraryMaxBytes, &enciphered)) {
    case ReadFileResult::kUnreadable:
      return false;
    case ReadFileResult::kTooLarge:
      return true;
    case ReadFileResult::kOk:
      break;
  }
  *text = CCharSet::ToLocal(DecryptOrThrow("", Trim(enciphered)));
  return true;
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
      webshell_library(ConfigFile(module_directory, "_trojan.db")) {}

CQivConfig::CQivConfig(std::string module_directory, Clock clock)
    : paths_(std::move(module_directory)),
      clock_(clock),
      current_(std::make_shared<WebsiteConfig>()),
      library_(std::make_shared<InjectionLibrary>()),
      webshells_(paths_.webshell_library) {}

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
  if (last_check_ != 0 && now < last_check_ + kCheckInterval) return false;
  last_check_ = now;
  return true;
}

void CQivConfig::Refresh(std::int64_t now) {
  bool reloaded = ReloadConfig();
  // A new configuration finds its libraries in place even while the flag keeps them from being watched, at the next
  // tick if they cannot be read just now.
  if (reloaded) library_wanted_ = webshells_wanted_ = true;
  const bool library_enabled = IsLibraryEnabled();
  if (library_enabled || library_wanted_) reloaded |= ReloadInjectionLibrary();
  if (library_enabled || webshells_wanted_) reloaded |= ReloadWebshellLibrary();
  if (tick_client_ == nullptr) return;
  if (library_enabled) reloaded |= tick_client_->OnServiceTick(now);
  if (reloaded) tick_client_->OnReloaded(now);
}

/// True when a new record is in force.
bool CQivConfig::ReloadConfig() {
  ConfigStatus status = ConfigStatus::kLoaded;
  {
    const CAutoLock lock(config_file_lock_);
    // Taken before the content: a file written meanwhile is read again by the next tick.
    const std::uint64_t time = FileModificationTime(paths_.config_file);
    if (time == config_file_time_) return false;
    status = SwapConfig();
    // A file that is there but could not be opened (another process holds it) has not been parsed, nor has one that
    // memory ran out for: it is tried again.
    const bool again = status == ConfigStatus::kUnreadable || status == ConfigStatus::kOutOfMemory;
    config_file_time_ = again ? 0 : time;
  }
  last_status_.store(status);
  SetSwitches(status == ConfigStatus::kLoaded);
  return status == ConfigStatus::kLoaded;
}

ConfigStatus CQivConfig::SwapConfig() {
  const CAutoLock lock(config_swap_lock_);
  ConfigStatus status = ConfigStatus::kOutOfMemory;
  try {
    spare_ = std::make_shared<WebsiteConfig>();
    status = LoadConfigFile(paths_.config_file, spare_.get());
    if (status == ConfigStatus::kLoaded) current_.Store(spare_);
  } catch (const std::bad_alloc&) {
    status = ConfigStatus::kOutOfMemory;
  }
  spare_.reset();
  return status;
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

bool CQivConfig::ReloadInjectionLibrary() {
  const CAutoLock lock(library_file_lock_);
  const std::uint64_t time = FileModificationTime(paths_.sql_library);
  const std::uint64_t user_time = FileModificationTime(paths_.sql_user_library);
  if (time == sql_library_time_ && user_time == sql_user_library_time_) {
    library_wanted_ = false;
    return false;
  }
  try {
    std::string text;
    std::string user_text;
    // A file that cannot be opened now keeps the library as it is and is tried again.
    if (!ReadLibrary(paths_.sql_library, time, &text)) return false;
    if (!ReadLibrary(paths_.sql_user_library, user_time, &user_text)) return false;
    library_.Store(std::make_shared<InjectionLibrary>(InjectionLibrary::FromText(text, user_text)));
    // Last, so that a load that memory ran out for is tried again.
    sql_library_time_ = time;
    sql_user_library_time_ = user_time;
    library_wanted_ = false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool CQivConfig::ReloadWebshellLibrary() {
  const CWebshellLibrary::Outcome outcome = webshells_.Reload(*Current());
  webshells_wanted_ = outcome == CWebshellLibrary::Outcome::kAgain;
  return outcome == CWebshellLibrary::Outcome::kReplaced;
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

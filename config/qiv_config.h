// The one process-wide configuration object: paths, switches, the current record, the libraries, and the refresh tick.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/published.h"
#include "common/state_recorder.h"
#include "config/badcode_library.h"
#include "config/config_parser.h"
#include "config/exemptions.h"
#include "config/watched_file.h"
#include "config/webshell_library.h"
#include "config/website_config.h"
#include "engines/injection/injection_library.h"
#include "port/clock.h"
#include "port/critical_section.h"

namespace qiv {

/// Where the event logs lie: debug/ in the module's directory (given and returned with its trailing separator).
std::string LogDirectory(const std::string& module_directory);

/// Files of the module, formed once from its directory.
struct ConfigPaths {
  explicit ConfigPaths(std::string module_directory);  ///< with its trailing separator

  std::string module_directory;
  std::string config_file;       ///< config/_config.db
  std::string out_log;           ///< config/_out.log
  std::string in_file;           ///< config/_in.db
  std::string sql_library;       ///< config/_sql.db
  std::string sql_user_library;  ///< config/_sql_user.db
  std::string ipv4_areas;        ///< config/iplib.db
  std::string ipv6_areas;        ///< config/iplibv6.db
  std::string bad_ips;           ///< config/_badip.db
  std::string badcode_library;   ///< config/_badcode.db
  std::string webshell_library;  ///< config/_trojan.db
  std::string exemptions;        ///< config/_exempt.db
  std::string visitor_key;       ///< config/_key.db
};

/// What other parts of the module do inside the tick. Called by one thread at a time, with no lock held.
class ITickClient {
 public:
  virtual ~ITickClient() = default;

  /// Only while sys_is_qiv is on: reload libraries and lists that changed, read the lists of the firewall service,
  /// flush queues. True when a library was reloaded.
  virtual bool OnServiceTick(std::int64_t now) = 0;

  /// After the configuration or a library was reloaded: forget what is held for each client.
  virtual void OnReloaded(std::int64_t now) = 0;
};

/// Thread safe. Lock order: config_file_lock_ before config_swap_lock_; no other nesting. Readers of the records take
/// no lock; a reload never touches a record that somebody may be reading.
class CQivConfig {
 public:
  using Clock = std::int64_t (*)();  ///< seconds since 1970

  /// Looks at no file; every switch 0, default records. What becomes of the files is reported to `states`, which must
  /// outlive this object; null: to nobody.
  explicit CQivConfig(std::string module_directory, Clock clock = &UnixSeconds, CStateRecorder* states = nullptr);
  ~CQivConfig();
  CQivConfig(const CQivConfig&) = delete;
  CQivConfig& operator=(const CQivConfig&) = delete;

  const ConfigPaths& Paths() const { return paths_; }
  /// Where states are reported; never null.
  CStateRecorder* States() { return &states_; }

  /// The refresh tick: at most once every 2 seconds re-reads what changed on disk. Cheap otherwise, and while another
  /// thread is still at it.
  void RefreshTick();

  /// To be called before the first tick; the client must outlive this object's last tick.
  void SetTickClient(ITickClient* client) { tick_client_ = client; }

  bool IsConfigValid() const;                                      ///< the configuration-valid switch
  bool IsIpv6Protected() const;                                    ///< the IPv6-protection switch
  bool IsLibraryEnabled() const;                                   ///< sys_is_qiv
  ConfigStatus LastStatus() const { return last_status_.load(); }  ///< of the last load; kUnreadable before the first

  /// The records in force. Never null. The caller keeps them to the end of its request; no lock is taken.
  std::shared_ptr<const WebsiteConfig> Current() const { return current_.Load(); }
  std::shared_ptr<const InjectionLibrary> Library() const { return library_.Load(); }
  /// The webshell library. Null until a configuration was loaded.
  std::shared_ptr<const CQivLibs> Webshells() const { return webshells_.Current(); }

  /// The rules for attacks by families. Never null.
  std::shared_ptr<const AttackRuleSet> AttackRules() const { return badcode_.Current(); }

  /// What the site exempts. Never null.
  std::shared_ptr<const CExemptions> Exemptions() const { return exemptions_.Load(); }

  /// The identifier the server gave this module; null before registration.
  void* ModuleId() const { return module_id_.load(); }
  void SetModuleId(void* id) { module_id_.store(id); }

 private:
  bool ClaimCheck(std::int64_t now);
  void Refresh(std::int64_t now);
  bool ReloadConfig();
  ConfigStatus SwapConfig(std::string_view text, ConfigFaults* faults);
  void ReportConfig(ConfigStatus status, const ConfigFaults& faults);
  void SetSwitches(bool valid);
  bool ReloadInjectionLibrary();
  bool ReloadWebshellLibrary();
  bool ReloadBadcodeLibrary();
  void ReloadExemptions();

  const ConfigPaths paths_;
  const Clock clock_;
  CStateRecorder silent_;  // stands in when nobody listens
  CStateRecorder& states_;
  ITickClient* tick_client_ = nullptr;
  std::atomic<void*> module_id_{nullptr};
  std::atomic<bool> refreshing_{false};  ///< a thread is inside Refresh
  // A configuration was loaded and its libraries not yet; inside Refresh only.
  bool library_wanted_ = false;
  bool webshells_wanted_ = false;
  bool badcode_wanted_ = false;
  std::atomic<ConfigStatus> last_status_{ConfigStatus::kUnreadable};
  CPublished<WebsiteConfig> current_;
  CPublished<InjectionLibrary> library_;
  CWebshellLibrary webshells_;
  CBadcodeLibrary badcode_;
  CPublished<CExemptions> exemptions_;

  mutable CCriticalSection config_check_lock_;
  std::int64_t last_check_ QIV_GUARDED_BY(config_check_lock_) = 0;  ///< seconds; 0: never

  mutable CCriticalSection config_file_lock_;
  CWatchedFile config_file_ QIV_GUARDED_BY(config_file_lock_);

  CCriticalSection exempt_file_lock_;
  CWatchedFile exempt_file_ QIV_GUARDED_BY(exempt_file_lock_);

  mutable CCriticalSection config_swap_lock_;
  /// The record that a load fills. It becomes current_ when the load succeeds; the record before it goes with its last
  /// reader.
  std::shared_ptr<WebsiteConfig> spare_ QIV_GUARDED_BY(config_swap_lock_);

  mutable CCriticalSection config_valid_lock_;
  std::int32_t config_valid_ QIV_GUARDED_BY(config_valid_lock_) = 0;

  mutable CCriticalSection ipv6_lock_;
  std::int32_t ipv6_protected_ QIV_GUARDED_BY(ipv6_lock_) = 0;

  mutable CCriticalSection library_flag_lock_;
  std::int32_t library_enabled_ QIV_GUARDED_BY(library_flag_lock_) = 0;

  mutable CCriticalSection library_file_lock_;
  struct SqlLibrary {
    CWatchedFile file;
    std::string text;  ///< of the last good file, deciphered
  };
  static bool TakeSqlLibrary(SqlLibrary* library, CStateRecorder* states, const std::string* file);
  SqlLibrary sql_library_ QIV_GUARDED_BY(library_file_lock_);
  SqlLibrary sql_user_library_ QIV_GUARDED_BY(library_file_lock_);
  bool sql_stale_ QIV_GUARDED_BY(library_file_lock_) = false;  ///< a text is newer than `library_`
};

}  // namespace qiv

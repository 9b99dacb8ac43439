// The one process-wide configuration object: paths, switches, the current record, the libraries, and the refresh tick.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "config/website_config.h"
#include "engines/injection_library.h"
#include "port/critical_section.h"

namespace qiv {

/// Files of the module, formed once from its directory.
struct ConfigPaths {
  explicit ConfigPaths(std::string module_directory);  ///< with its trailing separator

  std::string module_directory;
  std::string config_file;       ///< config/_config.db
  std::string out_log;           ///< config/_out.log
  std::string in_file;           ///< config/_in.db
  std::string sql_library;       ///< config/_sql.db
  std::string sql_user_library;  ///< config/_sql_user.db
  std::string log_directory;     ///< debug/
};

/// Thread safe. Lock order: config_file_lock_ before config_swap_lock_; no other nesting.
class CQivConfig {
 public:
  /// Looks at no file; every switch 0, default records.
  explicit CQivConfig(std::string module_directory);
  ~CQivConfig();
  CQivConfig(const CQivConfig&) = delete;
  CQivConfig& operator=(const CQivConfig&) = delete;

  const ConfigPaths& Paths() const { return paths_; }

  /// The refresh tick: at most once every 2 seconds re-reads what changed on disk. Cheap otherwise.
  void RefreshTick();

  bool IsConfigValid() const;     ///< the configuration-valid switch
  bool IsIpv6Protected() const;   ///< the IPv6-protection switch
  bool IsLibraryEnabled() const;  ///< sys_is_qiv

  /// The records in force. Never null. The caller keeps them to the end of its request; no lock is taken.
  std::shared_ptr<const WebsiteConfig> Current() const { return current_.load(); }
  std::shared_ptr<const InjectionLibrary> Library() const { return library_.load(); }

  /// The identifier the server gave this module; null before registration.
  void* ModuleId() const { return module_id_.load(); }
  void SetModuleId(void* id) { module_id_.store(id); }

 private:
  bool ClaimCheck(std::int64_t now);
  bool ReloadConfig();
  bool ReloadInjectionLibrary();

  const ConfigPaths paths_;
  std::atomic<void*> module_id_{nullptr};
  std::atomic<std::shared_ptr<const WebsiteConfig>> current_;
  std::atomic<std::shared_ptr<const InjectionLibrary>> library_;

  mutable CCriticalSection config_check_lock_;
  std::int64_t last_check_ QIV_GUARDED_BY(config_check_lock_) = 0;  ///< seconds; 0: never

  mutable CCriticalSection config_file_lock_;
  std::uint64_t config_file_time_ QIV_GUARDED_BY(config_file_lock_) = 0;

  mutable CCriticalSection config_swap_lock_;
  std::shared_ptr<WebsiteConfig> spare_ QIV_GUARDED_BY(config_swap_lock_);

  mutable CCriticalSection config_valid_lock_;
  std::int32_t config_valid_ QIV_GUARDED_BY(config_valid_lock_) = 0;

  mutable CCriticalSection ipv6_lock_;
  std::int32_t ipv6_protected_ QIV_GUARDED_BY(ipv6_lock_) = 0;

  mutable CCriticalSection library_flag_lock_;
  std::int32_t library_enabled_ QIV_GUARDED_BY(library_flag_lock_) = 0;

  mutable CCriticalSection library_file_lock_;
  std::uint64_t sql_library_time_ QIV_GUARDED_BY(library_file_lock_) = 0;
  std::uint64_t sql_user_library_time_ QIV_GUARDED_BY(library_file_lock_) = 0;
};

}  // namespace qiv

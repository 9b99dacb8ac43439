// What of an installation protects and what does not: its files as a module would load them now, and what the module
// has told in its log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "config/exchange_lines.h"
#include "tools/state_log.h"

namespace qiv {

enum class FileVerdict : std::uint8_t {
  kInForce,
  kMissing,  ///< which is in order for most
  kRefused,
  kNotRead,  ///< as the settings have it, or because they do not load
};

struct FileStatus {
  std::string name;
  FileVerdict verdict = FileVerdict::kInForce;
  std::int64_t written = 0;  ///< seconds since 1970; 0: there is none
  std::string remark;        ///< what it holds, or what is wrong with it
};

enum class CheckMode : std::uint8_t { kOn, kLogOnly, kOff };

struct CheckSwitch {
  std::string name;
  CheckMode mode = CheckMode::kOff;
};

struct ProtectionStatus {
  enum class Protection : std::uint8_t {
    kOn,
    kLogOnly,  ///< requests are checked, and none is blocked
    kOff,
  };
  Protection protection = Protection::kOff;
  std::string why;  ///< it is not on
  std::vector<CheckSwitch> checks;
  std::vector<FileStatus> files;    ///< the settings first
  std::vector<std::string> faults;  ///< what does not load or cannot be written, but for whole files
  std::vector<std::string> lock_obstacles;
  std::array<std::size_t, kClientLists> listed{};  ///< clients on each list
  bool log_takes_lines = false;
  std::string log_remark;
  std::int64_t log_written = 0;
  StateLog told;

  /// Protection is on and everything loads.
  bool InOrder() const;
};

/// Changes nothing. `directory`: the module's, with its trailing separator.
ProtectionStatus LookAtProtection(const std::string& directory);

}  // namespace qiv

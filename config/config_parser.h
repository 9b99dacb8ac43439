// Turns the text of the website configuration file into a configuration record.
//
// Layout of the text (docs/file-formats.md): an IP-list part in plain text and a settings part, enciphered, made of
// tagged values and JSON parts. Nothing here throws but std::bad_alloc, whatever the text. Thread safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/state_recorder.h"
#include "config/website_config.h"

namespace qiv {

inline constexpr std::uint64_t kConfigMinBytes = 3;
inline constexpr std::uint64_t kConfigMaxBytes = 104857600;  // 100 MiB

/// What became of a load. Everything but kLoaded is a refusal.
enum class ConfigStatus {
  kLoaded,
  kUnreadable,      ///< the file is missing or cannot be read
  kTooShort,        ///< fewer than kConfigMinBytes bytes
  kTooLong,         ///< more than kConfigMaxBytes bytes
  kNoSettingsPart,  ///< no <qivips_websiteconfigpart>
  kNoBasePart,      ///< the deciphered settings hold no <website_base>: not deciphered with our key, or damaged
  kNotOnServers,    ///< <website_on_servers> is not exactly "1"
  kNoSections,      ///< none of the seven JSON parts holds a member
  kOutOfMemory,
};

/// What a load that succeeded could not use.
struct ConfigFaults {
  std::vector<StateFault> sections;  ///< that are there and cannot be read: their keys are as if missing
  std::vector<StateFault> items;     ///< lists ("website_lists.allow_urls") of which items were left out
};

/// One English sentence without a full stop, for the tool and the log.
std::string_view ConfigStatusText(ConfigStatus status);

/// The two parts of a configuration text, the settings deciphered.
struct ConfigParts {
  bool has_settings = false;
  std::string_view ip_lists;  ///< view into the text that was split
  std::string settings;
};
ConfigParts SplitConfigText(std::string_view file_text);

/// The JSON of a part: from its first "{" to its last "}", empty when it has none.
std::string_view JsonOfPart(std::string_view part);

/// Fills *config, which must be fresh, from the text of a whole file of at most kConfigMaxBytes (LoadConfigFile sees to
/// that). Only with kLoaded are the record and *faults (which may be null) meant for use.
ConfigStatus ParseConfigText(std::string_view file_text, WebsiteConfig* config, ConfigFaults* faults = nullptr);

/// The same from the parts.
ConfigStatus ParseConfigParts(std::string_view ip_lists, std::string_view settings, WebsiteConfig* config,
                              ConfigFaults* faults = nullptr);

/// Reads and parses a file. std::bad_alloc becomes kOutOfMemory.
ConfigStatus LoadConfigFile(const std::string& path, WebsiteConfig* config);

}  // namespace qiv

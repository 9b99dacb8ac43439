// A module directory with a configuration, for the life of a test.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/port/temporary_directory.h"

namespace qiv::test {

/// What goes into _config.db: per section ("website_base" ...) the members of its JSON object, and further tags.
struct Site {
  std::map<std::string, std::string> sections;
  std::string language = "en-US";
  bool ipv6 = false;
  bool linked = false;  ///< to the firewall service
  std::string log_ex;   ///< extended log settings
  std::string extend;   ///< extend_functions
};

class CInstallation {
 public:
  CInstallation();

  /// With its trailing separator.
  const std::string& Directory() const { return directory_; }
  void Write(const Site& site) const;
  /// Writes it and starts the module's process anew with it.
  void Start(const Site& site, bool may_write = true) const;
  void WriteRaw(const std::string& content) const;
  /// Line of _in.db that puts an address on the deny list for an hour.
  void Deny(const std::string& address) const;
  /// Whole content of a file in debug/; empty when there is none.
  std::string Log(const char* name = "_log.log") const;
  /// Deciphered lines of _out.log, their times replaced by "T".
  std::vector<std::string> Out() const;
  /// The same, joined, after what the module still holds was written.
  std::string AllOut() const;

 private:
  CTemporaryDirectory temporary_;
  const std::string directory_ = temporary_.Path("");
};

/// A site that checks query, body and headers for SQL injection with the library that Write stores: the rule word
/// "union" after the cut word "'".
Site InjectionSite();

}  // namespace qiv::test

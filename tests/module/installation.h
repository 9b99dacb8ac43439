// A module directory with a configuration, for the life of a test.
#pragma once

#include <map>
#include <string>

namespace qiv::test {

/// What goes into _config.db: per section ("website_base" ...) the members of its JSON object, and further tags.
struct Site {
  std::map<std::string, std::string> sections;
  std::string language = "en-US";
  bool ipv6 = false;
};

class CInstallation {
 public:
  CInstallation();
  ~CInstallation();
  CInstallation(const CInstallation&) = delete;
  CInstallation& operator=(const CInstallation&) = delete;

  /// With its trailing separator.
  const std::string& Directory() const { return directory_; }
  void Write(const Site& site) const;
  void WriteRaw(const std::string& content) const;
  /// Whole content of debug/_log.log; empty when there is none.
  std::string Log() const;

 private:
  std::string directory_;
};

/// A site that checks query, body and headers for SQL injection with the library that Write stores: the rule word
/// "union" after the cut word "'".
Site InjectionSite();

}  // namespace qiv::test

// Installations for benchmarks, each in a temporary directory that leaves with the object.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace qiv::bench {

/// A way to set a module up, by a name for the output; the others as for CBenchInstallation.
struct BenchSetting {
  const char* name;
  const char* profile;
  const char* changes;
};

class CBenchInstallation {
 public:
  /// `rules`: folder of rule data. `profile`: a shipped one. `changes`: a JSON object of sections whose members replace
  /// the profile's; empty: none.
  explicit CBenchInstallation(const std::string& rules, const std::string& profile = "default",
                              std::string_view changes = {});
  ~CBenchInstallation();
  CBenchInstallation(const CBenchInstallation&) = delete;
  CBenchInstallation& operator=(const CBenchInstallation&) = delete;

  /// Makes it the module's. False, with a message, when it cannot be used.
  bool Use() const;

 private:
  bool Change(std::string_view changes) const;

  std::filesystem::path directory_;
  bool ready_ = false;
};

}  // namespace qiv::bench

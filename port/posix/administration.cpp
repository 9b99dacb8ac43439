#include "port/administration.h"

#include <stdlib.h>
#include <unistd.h>

namespace qiv {

bool IsElevated() { return ::geteuid() == 0; }

std::string EnvironmentText(const std::string& name) {
  const char* const value = ::getenv(name.c_str());
  return value == nullptr ? std::string() : value;
}

bool SetEnvironmentText(const std::string& name, const std::string& value) {
  return ::setenv(name.c_str(), value.c_str(), 1) == 0;
}

std::string RegistryText(const std::string&, const std::string&) { return {}; }

std::string ProgramFile() {
  char file[4096];
  const ssize_t length = ::readlink("/proc/self/exe", file, sizeof file);
  return length > 0 && length < static_cast<ssize_t>(sizeof file) ? std::string(file, static_cast<std::size_t>(length))
                                                                  : std::string();
}

bool RemoveAtRestart(const std::string&) { return false; }

}  // namespace qiv

#include "tools/files.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "port/clock.h"
#include "port/file.h"
#include "port/module_path.h"
#include "port/system_error.h"

namespace qiv {
namespace {

std::atomic<bool> output_failed{false};

bool IsSeparator(char c) { return c == '/' || c == kPathSeparator; }

bool ReadStandardInput(std::string* content) {
  char buffer[4096];
  for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, stdin)) != 0;) {
    content->append(buffer, got);
    if (content->size() > kLongestInput) return false;
  }
  return std::ferror(stdin) == 0;
}

/// A folder exists when a file in it does, or when creating it changes nothing; here only the former is asked.
bool HoldsRules(const std::string& directory) { return IsFile(directory + "/settings/default.json"); }

}  // namespace

bool ReadInput(const std::string& path, std::string* content) {
  content->clear();
  if (path == "-") return ReadStandardInput(content);
  return ReadWholeFile(path, kLongestInput, content) == ReadFileResult::kOk;
}

bool ReadInput(const std::string& path, std::string* content, CReport* report) {
  if (ReadInput(path, content)) return true;
  report->Error(0, CannotRead(path));
  return false;
}

std::string CannotRead(const std::string& path, std::uint64_t limit) {
  const std::string message = "cannot be read";
  const std::string too_long = message + ": it is larger than " + std::to_string(limit >> 20) + " MiB";
  if (path == "-") return std::ferror(stdin) != 0 || std::feof(stdin) != 0 ? message : too_long;
  if (IsDirectory(path)) return message + ": it is a folder";
  std::string part;
  if (ReadFilePart(path, 0, 1, &part) != ReadFileResult::kOk) return message + ": " + LastSystemError();
  return FileSize(path).value_or(0) > limit ? too_long : message;
}

std::string CannotWrite() { return "cannot be written: " + LastSystemError(); }

bool IsFile(const std::string& path) { return FileSize(path).has_value(); }

std::int64_t WrittenAt(const std::string& path) {
  using FileClock = std::filesystem::file_time_type::clock;
  std::error_code error;
  const auto time = std::filesystem::last_write_time(std::u8string(path.begin(), path.end()), error);
  if (error) return 0;
  // The clock of files begins at another moment on each system.
  const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(FileClock::now() - time);
  return (UnixMicroseconds() / 1000 - age.count()) / 1000;
}

bool IsDirectory(const std::string& path) { return FileModificationTime(path) != 0 && !IsFile(path); }

bool MakeDirectories(const std::string& path) {
  for (std::size_t i = 1; i < path.size(); ++i) {
    // A part that cannot be created may be a drive or a share; what counts is the last one.
    if (IsSeparator(path[i]) && !IsSeparator(path[i - 1])) MakeDirectory(path.substr(0, i));
  }
  return MakeDirectory(path);
}

void WriteOutput(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) != 0 || !written) output_failed.store(true);
}

bool OutputIsGood() { return !output_failed.load(); }

std::string ResolveModuleDirectory(const std::string& given) {
  std::string directory = given;
  while (directory.size() > 1 && IsSeparator(directory.back())) directory.pop_back();
  const auto with_separator = [](std::string path) {
    if (path.empty() || !IsSeparator(path.back())) path += kPathSeparator;
    return path;
  };
  if (FileModificationTime(directory + "/config") != 0) return with_separator(directory);
  constexpr std::string_view kName = "config";
  if (!directory.ends_with(kName) || FileModificationTime(directory) == 0) return {};
  directory.resize(directory.size() - kName.size());
  if (directory.empty()) return with_separator(".");
  return IsSeparator(directory.back()) ? directory : std::string();
}

std::string FindRulesDirectory(const std::string& given) {
  if (!given.empty()) return HoldsRules(given) ? given : std::string();
  static const char anchor = 0;
  const std::string beside = ModuleDirectory(&anchor);
  for (const std::string& candidate :
       {beside + "rules", beside + "../rules", beside + "../share/qiv/rules", std::string(QIV_SOURCE_RULES)}) {
    if (HoldsRules(candidate)) return candidate;
  }
  return {};
}

}  // namespace qiv

// A directory of its own for one test, removed with everything in it, and what its files hold.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

#include "port/clock.h"
#include "port/file.h"

namespace qiv {

class CTemporaryDirectory {
 public:
  CTemporaryDirectory() {
    static std::atomic<int> counter{0};
    do {
      root_ = std::filesystem::temp_directory_path() /
              ("qiv_test_" + std::to_string(UnixMicroseconds()) + "_" + std::to_string(counter++));
    } while (!std::filesystem::create_directory(root_));
  }
  ~CTemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  CTemporaryDirectory(const CTemporaryDirectory&) = delete;
  CTemporaryDirectory& operator=(const CTemporaryDirectory&) = delete;

  const std::filesystem::path& Root() const { return root_; }
  /// Path of an entry, UTF-8.
  std::string Path(const std::string& name) const {
    const std::u8string text = (root_ / std::filesystem::path(std::u8string(name.begin(), name.end()))).u8string();
    return {text.begin(), text.end()};
  }

 private:
  std::filesystem::path root_;
};

/// What is in a file; empty when it cannot be read.
inline std::string Content(const std::string& path) {
  std::string content;
  ReadWholeFile(path, std::uint64_t{1} << 30, &content);
  return content;
}

}  // namespace qiv

// debug/_log.log and what was moved away from it, as one stream of lines; also while the module writes and moves them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "port/file_reader.h"

namespace qiv {

/// Not thread safe. Memory: one piece of a file and one line, whatever their sizes.
class CEventLogFiles {
 public:
  /// Gets each line without its end. One of more than CEventLineReader::kLongestLine comes cut to a byte more than
  /// that, so that the reader refuses it. Returns whether to go on.
  using Sink = std::function<bool(std::string_view line)>;

  /// `module_directory` with its trailing separator.
  explicit CEventLogFiles(const std::string& module_directory);

  /// All lines that are there, the oldest first; a last one without an end too. A file that is moved on meanwhile is
  /// read once, and none is missed save what the module removes. False when the sink stopped it.
  bool ReadAll(const Sink& sink);

  /// What was appended since the last call; before the first one, like ReadAll, but a last line without its end waits
  /// for it. A file that was moved away is read to its end, one that was cut short from its beginning.
  bool ReadNew(const Sink& sink);

  /// Files that are there and could not be read, by their paths.
  const std::vector<std::string>& Unreadable() const { return unreadable_; }
  /// Of the log itself.
  const std::string& Path() const { return path_; }

 private:
  struct OpenFile {
    explicit OpenFile(const std::string& file_path) : path(file_path), reader(file_path) {}

    std::string path;
    CFileReader reader;
    std::uint64_t offset = 0;
    std::string line;  // begun, and cut when too long
  };
  using Files = std::vector<std::unique_ptr<OpenFile>>;

  Files OpenAll();
  bool ReadFrom(OpenFile* file, const Sink& sink);
  static bool TakePiece(OpenFile* file, std::string_view piece, const Sink& sink);
  static bool FinishLine(OpenFile* file, const Sink& sink);
  bool TakeOver(const Sink& sink);

  const std::string path_;
  std::string piece_;
  std::unique_ptr<OpenFile> current_;   // followed
  std::unique_ptr<OpenFile> previous_;  // moved away last: who had it open may still write to it
  bool started_ = false;
  std::vector<std::string> unreadable_;
};

}  // namespace qiv

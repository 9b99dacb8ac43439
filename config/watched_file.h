// A file that is read again when it changes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/state_recorder.h"

namespace qiv {

/// One file, by its modification time at full resolution. Not thread safe: its owner's lock guards it.
class CWatchedFile {
 public:
  enum class Look {
    kSame,      ///< nothing changed since the last Accept; a file that never was counts as unchanged
    kGone,      ///< it was there and is not any more
    kNew,       ///< written since; its content was read
    kTooLarge,  ///< written since, and longer than the limit; not read
    kAgain,     ///< it is there and cannot be opened just now
  };

  CWatchedFile(std::string path, std::uint64_t max_bytes);

  /// Looks, and reads the whole file into *content when it is new. Throws nothing but std::bad_alloc. Unless Accept
  /// follows, the next look finds the same again.
  Look Read(std::string* content);
  /// What the last Read found is dealt with, be it that it was refused.
  void Accept() { known_time_ = seen_time_; }
  /// Forgets: whatever the next look finds is news.
  void Forget() { known_time_.reset(); }

  /// Whether there was a file at the last look.
  bool IsThere() const { return is_there_; }
  const std::string& Path() const { return path_; }
  /// Its name without folders.
  std::string_view Name() const;

 private:
  const std::string path_;
  const std::uint64_t max_bytes_;
  // Modification times; 0: no file.
  std::uint64_t seen_time_ = 0;
  std::optional<std::uint64_t> known_time_ = 0;
  bool is_there_ = false;
};

enum class Reload {
  kUnchanged,
  kReplaced,
  kAgain,  ///< the file cannot be opened now, or memory ran out: what is in force stays, to be tried again
};

/// One look at a file that need not be there. `take` gets the content, or null when the file is gone, and puts it in
/// force; false refuses it, and what is in force stays. It may run out of memory. What became of the file is reported;
/// with a refusal, what take has put into *why.
Reload ReloadFile(CWatchedFile* file, CStateRecorder* states, const std::function<bool(const std::string*)>& take,
                  const std::string* why = nullptr);

/// Reports the records of a library that were left out; none: that it is in order.
void ReportLost(CStateRecorder* states, std::string_view file, const std::vector<std::string>& lost);

}  // namespace qiv

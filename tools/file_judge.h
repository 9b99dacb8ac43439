// Judges files by their content, as `scan` does.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <string>
#include <string_view>

#include "engines/webshell/signatures/signature_library.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {

struct FileVerdict {
  bool found = false;
  WebshellResult finding;
  std::string excerpt;      ///< WebshellExcerpt
  std::size_t line = 0;     ///< of that place, from 1 on; 0: the detectors did not see the file whole
  std::string error;        ///< why it could not be judged, or not whole; may stand beside a finding
  bool judged = false;      ///< the detectors saw it; others cannot be scripts
  bool code_alone = false;  ///< too long for the detectors: they saw its server code only
  std::uint64_t bytes = 0;  ///< that were read
};

/// Immutable; one object serves all threads.
///
/// A file that is named as a script is shown to the detectors whole. Of any other file they see the server code alone,
/// if it holds any, and words of webshells alone are a weak finding. A file without server code is held against the
/// installation's own signatures alone: the built-in ones are words that ordinary documents hold too.
class CFileJudge {
 public:
  /// What an installation has in addition to the built-in rules, as CQivLibs takes it; each may be empty.
  CFileJudge(std::string_view library_text, std::string_view user_rules, std::string_view free_code);

  /// Reads and judges one file. A file that is gone is judged as empty. `cores` bounds how many threads compute at the
  /// same time; none is held while reading. When `stop` turns true a long file is left unfinished.
  FileVerdict Judge(const std::string& path, std::counting_semaphore<>* cores, const std::atomic<bool>& stop) const;

 private:
  class CCode;  // file_judge.cpp

  void JudgeText(const std::string& text, bool is_named, FileVerdict* verdict) const;
  void JudgeLong(const std::string& path, bool is_named, std::counting_semaphore<>* cores,
                 const std::atomic<bool>& stop, FileVerdict* verdict) const;
  bool Scan(std::string_view text, bool is_named, FileVerdict* verdict) const;

  CQivLibs libs_;
  CSignatureLibrary own_rules_;
};

}  // namespace qiv

// The webshell library: config/_trojan.db, the built-in rules and the site's own entries, kept up to date.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/published.h"
#include "common/state_recorder.h"
#include "config/watched_file.h"
#include "engines/webshell/webshell_scan.h"
#include "port/critical_section.h"

namespace qiv {

struct WebsiteConfig;

/// Thread safe. What is in force is immutable; a reader takes a counted reference without a lock.
class CWebshellLibrary {
 public:
  /// Of the enciphered file, in bytes: half of it is text, some hundred thousand rules. The automaton over them takes
  /// some 20 times the text.
  static constexpr std::uint64_t kFileMaxBytes = 16U << 20;

  /// `states` must outlive this object.
  CWebshellLibrary(std::string path, CStateRecorder* states);

  /// Builds the library anew when the file's modification time, or the site's own rules and exempt code
  /// differ from what is in force. A file that holds none of the library's lists, is cut off, or is too large, counts
  /// as unchanged; one that is gone, as empty.
  Reload ReloadChanged(const WebsiteConfig& site);

  /// Null until the first ReloadChanged.
  std::shared_ptr<const CQivLibs> Current() const { return library_.Load(); }

 private:
  bool TakeFile(const std::string* file) QIV_REQUIRES(lock_);

  CStateRecorder& states_;
  CPublished<CQivLibs> library_;

  CCriticalSection lock_;
  // What `library_` was built from.
  CWatchedFile file_ QIV_GUARDED_BY(lock_);
  std::string text_ QIV_GUARDED_BY(lock_);   ///< of the last good file, deciphered
  bool stale_ QIV_GUARDED_BY(lock_) = true;  ///< `text_` is newer than `library_`
  std::string user_rules_ QIV_GUARDED_BY(lock_);
  std::string free_code_ QIV_GUARDED_BY(lock_);
};

/// Whether a deciphered text is a webshell library: it holds at least one of the lists (kWebshellTags), and each
/// that it opens is closed.
bool IsWebshellLibrary(std::string_view text);

/// The lists of the library, as the tags that enclose them.
inline constexpr std::string_view kWebshellTags[] = {"trojan_rules", "trojan_free", "trojan_removal",
                                                     "trojan_wholeword"};

}  // namespace qiv

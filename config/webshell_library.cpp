#include "config/webshell_library.h"

#include <new>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "config/address_libraries.h"
#include "config/website_config.h"
#include "port/file.h"

namespace qiv {

bool IsWebshellLibrary(std::string_view text) {
  std::size_t lists = 0;
  for (const std::string_view tag : kWebshellTags) {
    if (!HasTag(text, tag)) continue;
    if (text.find("</" + std::string(tag) + ">") == std::string_view::npos) return false;
    ++lists;
  }
  return lists != 0;
}

CWebshellLibrary::CWebshellLibrary(std::string path) : path_(std::move(path)), library_(nullptr) {}

/// False when the file is there but cannot be opened.
bool CWebshellLibrary::TakeFile() {
  // Taken before the content: a file written meanwhile is read again.
  const std::uint64_t time = FileModificationTime(path_);
  if (time == file_time_) return true;
  std::string text;
  bool good = true;
  if (time != 0) {
    std::string enciphered;
    switch (ReadWholeFile(path_, kFileMaxBytes, &enciphered)) {
      case ReadFileResult::kUnreadable:
        return false;
      case ReadFileResult::kTooLarge:
        good = false;
        break;
      case ReadFileResult::kOk:
        text = CCharSet::ToLocal(DecipherPieces(enciphered));
        good = IsWebshellLibrary(text);
        break;
    }
  }
  if (good) {
    text_ = std::move(text);
    stale_ = true;
  }
  file_time_ = time;
  return true;
}

CWebshellLibrary::Outcome CWebshellLibrary::Reload(const WebsiteConfig& site) {
  const CAutoLock lock(lock_);
  try {
    const bool opened = TakeFile();
    const bool same_site =
        language_ == site.language && user_rules_ == site.trojan_usertrojan && free_code_ == site.trojan_freecode;
    if (stale_ || !same_site) {
      stale_ = true;  // until all is done, should memory run out
      user_rules_ = site.trojan_usertrojan;
      free_code_ = site.trojan_freecode;
      language_ = site.language;
      library_.Store(std::make_shared<CQivLibs>(language_, text_, user_rules_, free_code_));
      stale_ = false;
      return opened ? Outcome::kReplaced : Outcome::kAgain;
    }
    return opened ? Outcome::kUnchanged : Outcome::kAgain;
  } catch (const std::bad_alloc&) {
    return Outcome::kAgain;
  }
}

}  // namespace qiv

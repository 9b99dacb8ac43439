#include "config/webshell_library.h"

#include <new>
#include <utility>
#include <vector>

#include "common/text.h"
#include "config/address_libraries.h"
#include "config/local_form.h"
#include "config/website_config.h"

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

CWebshellLibrary::CWebshellLibrary(std::string path, CStateRecorder* states)
    : states_(*states), library_(nullptr), file_(std::move(path), kFileMaxBytes) {}

bool CWebshellLibrary::TakeFile(const std::string* file) {
  std::vector<std::string> lost;
  std::string text;
  if (file != nullptr) {
    text = LibraryToLocalForm(DecipherPieces(*file), kWebshellTags, &lost);
    if (!IsWebshellLibrary(text)) return false;
  }
  text_ = std::move(text);
  stale_ = true;
  ReportLost(&states_, file_.Name(), lost);
  return true;
}

Reload CWebshellLibrary::ReloadChanged(const WebsiteConfig& site) {
  const CAutoLock lock(lock_);
  const Reload file = ReloadFile(&file_, &states_,
                                 [this](const std::string* content) QIV_REQUIRES(lock_) { return TakeFile(content); });
  try {
    const bool same_site = user_rules_ == site.trojan_usertrojan && free_code_ == site.trojan_freecode;
    if (!stale_ && same_site) return file;
    stale_ = true;  // until all is done, should memory run out
    user_rules_ = site.trojan_usertrojan;
    free_code_ = site.trojan_freecode;
    library_.Store(std::make_shared<CQivLibs>(text_, user_rules_, free_code_));
    stale_ = false;
    return file == Reload::kAgain ? Reload::kAgain : Reload::kReplaced;
  } catch (const std::bad_alloc&) {
    states_.Fault(StateKind::kLoad, file_.Name(), MessageId::kStateOutOfMemory);
    file_.Forget();
    return Reload::kAgain;
  }
}

}  // namespace qiv

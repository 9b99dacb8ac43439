#include "config/watched_file.h"

#include <new>
#include <utility>

#include "config/local_form.h"
#include "port/directory.h"
#include "port/file.h"

namespace qiv {
namespace {

/// Of a file that bears the very time that stands for none (archives may date their files so).
constexpr std::uint64_t kFirstTime = 1;

}  // namespace

CWatchedFile::CWatchedFile(std::string path, std::uint64_t max_bytes) : path_(std::move(path)), max_bytes_(max_bytes) {}

CWatchedFile::Look CWatchedFile::Read(std::string* content) {
  content->clear();
  // Taken before the content: a file written meanwhile is read again.
  seen_time_ = FileModificationTime(path_);
  const PathKind kind = seen_time_ != 0 ? PathKind::kFile : PathKindOf(path_);
  is_there_ = kind != PathKind::kMissing;
  if (seen_time_ == 0 && kind == PathKind::kFile) seen_time_ = kFirstTime;
  if (is_there_ && seen_time_ == 0) {
    Forget();  // not even its time is known
    return Look::kAgain;
  }
  if (known_time_ == seen_time_) return Look::kSame;
  if (!is_there_) return Look::kGone;
  switch (ReadWholeFile(path_, max_bytes_, content)) {
    case ReadFileResult::kTooLarge:
      return Look::kTooLarge;
    case ReadFileResult::kUnreadable:
      Forget();
      return Look::kAgain;
    case ReadFileResult::kOk:
      break;
  }
  return Look::kNew;
}

std::string_view CWatchedFile::Name() const {
  const std::size_t folder = path_.find_last_of("/\\");
  return std::string_view(path_).substr(folder == std::string::npos ? 0 : folder + 1);
}

Reload ReloadFile(CWatchedFile* file, CStateRecorder* states, const std::function<bool(const std::string*)>& take,
                  const std::string* why) {
  using Look = CWatchedFile::Look;
  const auto fault = [&](MessageId reason) { states->Fault(StateKind::kLoad, file->Name(), reason); };
  try {
    std::string content;
    const Look look = file->Read(&content);
    if (look == Look::kSame) return Reload::kUnchanged;
    if (look == Look::kAgain) {
      fault(MessageId::kStateUnreadable);
      return Reload::kAgain;
    }
    if (look == Look::kTooLarge || !take(look == Look::kNew ? &content : nullptr)) {
      file->Accept();
      states->Fault(StateKind::kLoad, file->Name(),
                    {"", look == Look::kTooLarge ? MessageId::kStateTooLarge : MessageId::kStateNotOurs,
                     why ? *why : std::string()});
      return Reload::kUnchanged;
    }
    file->Accept();
    if (look == Look::kGone) {
      fault(MessageId::kStateRemoved);
    } else {
      states->Fine(StateKind::kLoad, file->Name());
    }
    return Reload::kReplaced;
  } catch (const std::bad_alloc&) {
    fault(MessageId::kStateOutOfMemory);
    return Reload::kAgain;
  }
}

void ReportLost(CStateRecorder* states, std::string_view file, const std::vector<std::string>& lost) {
  if (lost.empty()) {
    states->Fine(StateKind::kItems, file);
  } else {
    states->Fault(StateKind::kItems, file, LostItems("", lost));
  }
}

}  // namespace qiv

#include "tools/event_log_files.h"

#include <algorithm>
#include <utility>

#include "common/event_log.h"
#include "tools/event_line.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

}  // namespace

CEventLogFiles::CEventLogFiles(const std::string& module_directory) : path_(module_directory + "debug/_log.log") {}

// The newest first. They are opened in this order because files move the other way: one that moves on between two of
// these steps is met twice, and never not at all.
CEventLogFiles::Files CEventLogFiles::OpenAll() {
  Files files;
  for (int number = 0; number <= CEventLog::kKeptFiles; ++number) {
    auto file = std::make_unique<OpenFile>(number == 0 ? path_ : path_ + "." + std::to_string(number));
    const auto same = [&file](const auto& other) { return other->reader.Identity() == file->reader.Identity(); };
    if (!file->reader.IsOpen()) {
      if (FileSize(file->path)) unreadable_.push_back(file->path);
    } else if (std::none_of(files.begin(), files.end(), same)) {
      files.push_back(std::move(file));
    }
  }
  return files;
}

bool CEventLogFiles::ReadAll(const Sink& sink) {
  const Files files = OpenAll();
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    if (!ReadFrom(file->get(), sink) || !FinishLine(file->get(), sink)) return false;
  }
  return true;
}

bool CEventLogFiles::ReadNew(const Sink& sink) {
  if (previous_ && !ReadFrom(previous_.get(), sink)) return false;
  if (current_ && current_->reader.Size() < current_->offset) {
    current_->offset = 0;
    current_->line.clear();
  }
  if (current_ && !ReadFrom(current_.get(), sink)) return false;
  return TakeOver(sink);
}

// Goes on to the files that have come since, if any.
bool CEventLogFiles::TakeOver(const Sink& sink) {
  if (started_) {
    const CFileReader now(path_);
    if (!now.IsOpen() || (current_ && now.Identity() == current_->reader.Identity())) return true;
  }
  started_ = true;
  Files files = OpenAll();
  if (current_) {
    const auto is_current = [this](const auto& file) { return file->reader.Identity() == current_->reader.Identity(); };
    files.erase(std::find_if(files.begin(), files.end(), is_current), files.end());
  }
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    if (current_ && (!ReadFrom(current_.get(), sink) || !FinishLine(current_.get(), sink))) return false;
    previous_ = std::move(current_);
    current_ = std::move(*file);
    if (!ReadFrom(current_.get(), sink)) return false;
  }
  return true;
}

bool CEventLogFiles::ReadFrom(OpenFile* file, const Sink& sink) {
  while (true) {
    if (file->reader.ReadPart(file->offset, kPieceBytes, &piece_) != ReadFileResult::kOk) {
      if (std::find(unreadable_.begin(), unreadable_.end(), file->path) == unreadable_.end()) {
        unreadable_.push_back(file->path);
      }
      return true;
    }
    if (piece_.empty()) return true;
    file->offset += piece_.size();
    if (!TakePiece(file, piece_, sink)) return false;
  }
}

bool CEventLogFiles::TakePiece(OpenFile* file, std::string_view piece, const Sink& sink) {
  constexpr std::size_t kMost = CEventLineReader::kLongestLine + 1;
  while (!piece.empty()) {
    const std::size_t end = piece.find('\n');
    const std::string_view part = piece.substr(0, end);
    if (end != std::string_view::npos && file->line.empty()) {
      if (!part.empty() && !sink(part.substr(0, kMost))) return false;
    } else {
      file->line.append(part.substr(0, kMost - file->line.size()));
      if (end != std::string_view::npos && !FinishLine(file, sink)) return false;
    }
    piece.remove_prefix(end == std::string_view::npos ? piece.size() : end + 1);
  }
  return true;
}

bool CEventLogFiles::FinishLine(OpenFile* file, const Sink& sink) {
  if (file->line.empty()) return true;
  const bool go_on = sink(file->line);
  file->line.clear();
  return go_on;
}

}  // namespace qiv

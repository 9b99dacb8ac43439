#include "config/exchange_files.h"

#include <algorithm>
#include <utility>

namespace qiv {
namespace {

/// Lines between two looks at the size of _out.log: at 3 KiB at most a line, it oversteps its limit by little.
constexpr std::uint32_t kLinesBetweenLooks = 64;

// As events call them.
constexpr std::string_view kInName = "_in.db";
constexpr std::string_view kOutName = "_out.log";

}  // namespace

CClientTableSlot& CExchangeFiles::Slot(ClientList list) {
  switch (list) {
    case ClientList::kDeny:
      return deny_table_;
    case ClientList::kAuth:
      return auth_table_;
    case ClientList::kCcCheck:
      break;
  }
  return cc_check_table_;
}

const CClientTableSlot& CExchangeFiles::Slot(ClientList list) const {
  return const_cast<CExchangeFiles*>(this)->Slot(list);
}

/// One thread's turn at a reading that it took out of `files`. When it ends, an unfinished reading goes back; one that
/// was given up, for want of memory or because the file could not be opened, is begun anew at the next look.
class CExchangeFiles::CReadingTurn {
 public:
  CReadingTurn(CExchangeFiles& files, std::unique_ptr<ListReading> reading)
      : files_(files), reading_(std::move(reading)) {}
  ~CReadingTurn() {
    const CAutoLock lock(files_.in_time_lock_);
    files_.busy_ = false;
    if (outcome_ == Outcome::kGivenUp) files_.in_file_time_ = 0;
    if (outcome_ == Outcome::kUnfinished) files_.reading_ = std::move(reading_);
    files_.reading_waits_.store(files_.reading_ != nullptr, std::memory_order_relaxed);
  }
  CReadingTurn(const CReadingTurn&) = delete;
  CReadingTurn& operator=(const CReadingTurn&) = delete;

  /// True when the tables were replaced.
  bool Run(std::size_t bytes) {
    outcome_ = Outcome::kGivenUp;
    const bool whole = files_.ReadSlice(bytes, reading_.get());
    if (!whole) {
      outcome_ = Outcome::kUnfinished;
      return false;
    }
    outcome_ = reading_->result == ReadFileResult::kUnreadable ? Outcome::kGivenUp : Outcome::kDone;
    files_.ReportLists(reading_->result);
    return true;
  }

 private:
  enum class Outcome { kDone, kUnfinished, kGivenUp };
  CExchangeFiles& files_;
  std::unique_ptr<ListReading> reading_;
  Outcome outcome_ = Outcome::kGivenUp;
};

/// The reading of a file that has changed, for the caller's turn; null when there is none or it is left to
/// ContinueReading.
std::unique_ptr<CExchangeFiles::ListReading> CExchangeFiles::BeginReading(std::int64_t now) {
  std::unique_ptr<ListReading> abandoned;  // ends outside the lock
  const CAutoLock lock(in_time_lock_);
  // A clock that was set back must not stop the reading until it has caught up.
  const bool too_soon = last_read_ != 0 && now >= last_read_ && now < last_read_ + kReadInterval;
  if (busy_ || too_soon) return nullptr;
  last_read_ = now;
  const std::uint64_t time = FileModificationTime(in_file_);
  if (time == in_file_time_) return nullptr;
  const bool at_once = FileSize(in_file_).value_or(0) <= kReadAtOnceBytes;
  if (reading_ != nullptr && !at_once) return nullptr;
  auto reading = std::make_unique<ListReading>();
  in_file_time_ = time;
  abandoned.swap(reading_);
  if (at_once) {
    busy_ = true;
  } else {
    reading_ = std::move(reading);
  }
  reading_waits_.store(reading_ != nullptr, std::memory_order_relaxed);
  return reading;
}

bool CExchangeFiles::LookAtLists(std::int64_t now) {
  std::unique_ptr<ListReading> reading = BeginReading(now);
  return reading != nullptr && CReadingTurn(*this, std::move(reading)).Run(kInMaxBytes);
}

bool CExchangeFiles::ContinueReading(std::int64_t now) {
  if (!reading_waits_.load(std::memory_order_relaxed)) return false;
  std::unique_ptr<ListReading> reading;
  {
    const CAutoLock lock(in_time_lock_);
    if (busy_ || reading_ == nullptr) return false;
    reading = std::move(reading_);
    busy_ = true;
  }
  const bool slow = reading->last_slice != now;
  reading->last_slice = now;
  const std::size_t slice = slow ? std::max(kSliceBytes, reading->text.size() / kSlowSlices) : kSliceBytes;
  return CReadingTurn(*this, std::move(reading)).Run(slice);
}

bool CExchangeFiles::ReadLists(std::int64_t now) {
  bool replaced = LookAtLists(now);
  std::unique_ptr<ListReading> reading;
  {
    const CAutoLock lock(in_time_lock_);
    if (busy_ || reading_ == nullptr) return replaced;
    reading = std::move(reading_);
    busy_ = true;
  }
  CReadingTurn turn(*this, std::move(reading));
  while (!turn.Run(kInMaxBytes)) {
  }
  return true;
}

/// Takes `bytes` of the text, up to the end of a line. True when that was the last and the tables are replaced. The
/// first slice of a long file fetches its text and no more: a file that may be replaced at any time has to be read in
/// one go.
bool CExchangeFiles::ReadSlice(std::size_t bytes, ListReading* reading) {
  if (!reading->loaded) {
    reading->result = ReadWholeFile(in_file_, kInMaxBytes, &reading->text);
    if (reading->text.size() < kInMinBytes) reading->text.clear();
    reading->loaded = true;
    if (reading->text.size() > kReadAtOnceBytes) return false;
  }
  const std::string_view left = std::string_view(reading->text).substr(reading->offset);
  const std::size_t end = bytes < left.size() ? left.find('\n', bytes) : std::string_view::npos;
  const std::string_view slice = left.substr(0, end);
  ForEachLine(slice, [reading](std::string_view line) {
    const auto record = ParseListRecord(SplitFields(line));
    if (!record) return;
    reading->builders[static_cast<std::size_t>(record->list)].Add(ListKey(record->list, record->client), record->end,
                                                                  record->detail);
  });
  reading->offset += slice.size();
  if (reading->offset != reading->text.size()) return false;
  // All are built before the first is put in place: memory may run out.
  std::array<std::shared_ptr<const CClientTable>, kClientLists> tables;
  for (std::size_t i = 0; i < kClientLists; ++i) tables[i] = reading->builders[i].Build();
  for (std::size_t i = 0; i < kClientLists; ++i) Slot(static_cast<ClientList>(i)).Set(std::move(tables[i]));
  return true;
}

void CExchangeFiles::ReportLists(ReadFileResult result) const {
  if (states_ == nullptr) return;
  // No file is no fault: without a firewall service there is none.
  if (result == ReadFileResult::kOk || !FileSize(in_file_)) {
    states_->Fine(StateKind::kLoad, kInName);
  } else {
    const bool too_large = result == ReadFileResult::kTooLarge;
    states_->Fault(StateKind::kLoad, kInName,
                   too_large ? MessageId::kStateListsTooLarge : MessageId::kStateListsUnreadable);
  }
}

std::optional<CExchangeFiles::Listed> CExchangeFiles::Find(ClientList list, const CIpAddress& client,
                                                           std::int64_t now) const {
  const std::shared_ptr<const CClientTable> table = Slot(list).Get();
  const auto entry = table->Find(ListKey(list, client));
  if (!entry || entry->end <= now) return std::nullopt;
  return Listed{entry->end, std::string(entry->detail)};
}

bool CExchangeFiles::IsListed(ClientList list, const CIpAddress& client, std::int64_t now) const {
  const auto entry = Slot(list).Get()->Find(ListKey(list, client));
  return entry && entry->end > now;
}

bool CExchangeFiles::WriteLock(ClientList list, const CIpAddress& client, std::int64_t now, std::int64_t end,
                               std::initializer_list<std::string_view> details) {
  return Append(LockLine(list, client.Text(), now, end, details));
}

bool CExchangeFiles::WriteMessage(const ServiceMessage& message) { return Append(MessageLine(message)); }

bool CExchangeFiles::CountCheck(const CheckCount& check) { return Count(&check_queue_, CheckLine(check)); }

bool CExchangeFiles::CountStatistics(const StatisticsCount& statistics) {
  return Count(&statistics_queue_, StatisticsLine(statistics));
}

bool CExchangeFiles::Count(CLineQueue* queue, const std::string& line) { return queue->Add(line) || Append(line); }

bool CExchangeFiles::Append(std::string_view plain_line) {
  if (out_log_.empty()) return false;
  const std::string line = EncipherLine(plain_line);
  bool has_room = false;
  bool written = false;
  std::uint64_t lost_before = 0;
  {
    const CAutoLock lock(out_file_lock_);
    has_room = HasRoom();
    written = has_room && AppendLine(out_log_, line);
    if (written) {
      lost_before = std::exchange(lost_lines_, 0);
    } else {
      ++lost_lines_;
    }
  }
  if (states_ == nullptr) return written;
  if (!written) {
    states_->Fault(StateKind::kOutput, kOutName,
                   has_room ? MessageId::kStateOutputFailed : MessageId::kStateOutputFull);
  } else {
    states_->Fine(StateKind::kOutput, kOutName);
    if (lost_before != 0) {
      states_->Happened(StateKind::kOutput, MessageId::kStateLinesLost, std::to_string(lost_before));
    }
  }
  return written;
}

bool CExchangeFiles::HasRoom() {
  if (out_full_ || ++lines_since_look_ >= kLinesBetweenLooks) {
    lines_since_look_ = 0;
    out_full_ = FileSize(out_log_).value_or(0) >= kOutMaxBytes;
  }
  return !out_full_;
}

void CExchangeFiles::FlushIfDue(std::int64_t now) {
  {
    const CAutoLock lock(flush_time_lock_);
    // A time further away than one interval comes from a clock that was set back.
    if (now < next_flush_ && next_flush_ <= now + kFlushInterval) return;
    next_flush_ = now + kFlushInterval;
  }
  Flush();
}

void CExchangeFiles::Flush() {
  FlushQueue(&check_queue_);
  FlushQueue(&statistics_queue_);
}

void CExchangeFiles::FlushQueue(CLineQueue* queue) {
  for (const CLineQueue::Item& item : queue->Take()) {
    if (item.count > 1) {
      Append(WithCount(item.line, item.count));
    } else {
      Append(item.line);
    }
  }
}

}  // namespace qiv

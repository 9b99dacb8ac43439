#include "config/exchange_files.h"

#include <array>
#include <utility>

#include "port/file.h"

namespace qiv {
namespace {

/// Lines between two looks at the size of _out.log: at 3 KiB at most a line, it oversteps its limit by little.
constexpr std::uint32_t kLinesBetweenLooks = 64;

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

bool CExchangeFiles::ClaimRead(std::int64_t now) {
  const CAutoLock lock(in_time_lock_);
  // A clock that was set back must not stop the reading until it has caught up.
  const bool too_soon = last_read_ != 0 && now >= last_read_ && now < last_read_ + kReadInterval;
  if (reading_ || too_soon) return false;
  last_read_ = now;
  const std::uint64_t time = FileModificationTime(in_file_);
  if (time == in_file_time_) return false;
  in_file_time_ = time;
  reading_ = true;
  return true;
}

bool CExchangeFiles::ReadLists(std::int64_t now) {
  if (!ClaimRead(now)) return false;
  bool done = false;
  // Not done, be it that the file could not be opened or that memory ran out: the next tick tries again.
  struct Leave {
    CExchangeFiles& files;
    const bool& done;
    ~Leave() {
      const CAutoLock lock(files.in_time_lock_);
      files.reading_ = false;
      if (!done) files.in_file_time_ = 0;
    }
  } const leave{*this, done};

  std::string text;
  const ReadFileResult result = ReadWholeFile(in_file_, kInMaxBytes, &text);
  ReplaceTables(text.size() < kInMinBytes ? std::string_view() : std::string_view(text));
  done = result != ReadFileResult::kUnreadable;
  return true;
}

void CExchangeFiles::ReplaceTables(std::string_view file_text) {
  std::array<CClientTable::CBuilder, kClientLists> builders;
  ForEachLine(file_text, [&builders](std::string_view line) {
    const auto record = ParseListRecord(SplitFields(line));
    if (!record) return;
    builders[static_cast<std::size_t>(record->list)].Add(record->client, record->end, record->detail);
  });
  for (std::size_t i = 0; i < kClientLists; ++i) Slot(static_cast<ClientList>(i)).Set(builders[i].Build());
}

std::optional<CExchangeFiles::Listed> CExchangeFiles::Find(ClientList list, const CIpAddress& client,
                                                           std::int64_t now) const {
  const std::shared_ptr<const CClientTable> table = Slot(list).Get();
  const auto entry = table->Find(client);
  if (!entry || entry->end <= now) return std::nullopt;
  return Listed{entry->end, std::string(entry->detail)};
}

bool CExchangeFiles::IsListed(ClientList list, const CIpAddress& client, std::int64_t now) const {
  const auto entry = Slot(list).Get()->Find(client);
  return entry && entry->end > now;
}

bool CExchangeFiles::WriteLock(ClientList list, const CIpAddress& client, std::int64_t now, std::int64_t end,
                               std::initializer_list<std::string_view> details) {
  return Append(LockLine(list, client.Text(), now, end, details));
}

bool CExchangeFiles::WriteMessage(std::string_view text1, std::string_view text2, std::string_view text3,
                                  std::string_view text4, std::string_view text5) {
  return Append(MessageLine(text1, text2, text3, text4, text5));
}

bool CExchangeFiles::CountCheck(std::string_view value1, std::string_view value2, std::string_view value3,
                                std::string_view value4) {
  return Count(&check_queue_, CheckLine(value1, value2, value3, value4));
}

bool CExchangeFiles::CountStatistics(std::string_view category, std::string_view value1, std::string_view value2) {
  return Count(&statistics_queue_, StatisticsLine(category, value1, value2));
}

bool CExchangeFiles::Count(CLineQueue* queue, const std::string& line) { return queue->Add(line) || Append(line); }

bool CExchangeFiles::Append(std::string_view plain_line) {
  const std::string line = EncipherLine(plain_line);
  const CAutoLock lock(out_file_lock_);
  return HasRoom() && AppendToFile(out_log_, line);
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

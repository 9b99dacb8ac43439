#include "common/event_log.h"

#include <exception>
#include <random>

#include "base/hex.h"
#include "common/char_set.h"
#include "common/json.h"
#include "common/rule_set_name.h"
#include "port/clock.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr std::uint32_t kLinesBetweenLooks = 64;
constexpr std::int64_t kMicrosecondsBetweenLooks = 1'000'000;
constexpr std::uint64_t kStopFactor = 4;  // times the limit, when a file cannot be moved away

constexpr std::size_t kShortText = 64;
constexpr std::size_t kWordText = 32;
constexpr std::size_t kUrlText = 2048;
constexpr std::size_t kItemText = 256;
constexpr std::size_t kReasonText = 512;
constexpr std::size_t kDetailText = 1024;
constexpr std::size_t kRuleText = 128;
constexpr std::size_t kAgentText = 512;

// The longest prefix of at most `limit` bytes that does not end within a UTF-8 sequence, when cut there at all.
std::string_view Utf8Prefix(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && limit - end < 3 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

// Two-byte sequences alone do not make UTF-8: many pairs of GBK bytes look like one.
bool LooksLikeUtf8(std::string_view text) {
  bool has_long_sequence = false;
  for (const char c : text) has_long_sequence = has_long_sequence || static_cast<unsigned char>(c) >= 0xE0;
  return has_long_sequence && CCharSet::IsValidUtf8(text);
}

std::string ToUtf8(std::string_view text, std::size_t limit) {
  const std::string_view utf8 = Utf8Prefix(text, limit);
  if (CCharSet::IsAscii(utf8) || LooksLikeUtf8(utf8)) return std::string(utf8);
  return CCharSet::LocalToUtf8(CCharSet::Prefix(text, limit));
}

void AppendPadded(int value, std::size_t width, std::string* out) {
  const std::string digits = std::to_string(value);
  if (digits.size() < width) out->append(width - digits.size(), '0');
  out->append(digits);
}

// ISO 8601, UTC, with milliseconds: 2024-05-01T08:03:07.250Z
std::string TimeText(std::int64_t time_us) {
  const CalendarTime time = UtcTime(time_us / 1'000'000);
  std::string text;
  AppendPadded(time.year, 4, &text);
  text += '-';
  AppendPadded(time.month, 2, &text);
  text += '-';
  AppendPadded(time.day, 2, &text);
  text += 'T';
  AppendPadded(time.hour, 2, &text);
  text += ':';
  AppendPadded(time.minute, 2, &text);
  text += ':';
  AppendPadded(time.second, 2, &text);
  text += '.';
  AppendPadded(static_cast<int>(time_us / 1000 % 1000), 3, &text);
  text += 'Z';
  return text;
}

class CLineWriter {
 public:
  CLineWriter() { line_.reserve(1024); }

  void Text(std::string_view name, std::string_view text, std::size_t limit) {
    Name(name);
    AppendJsonString(ToUtf8(text, limit), &line_);
  }
  void Number(std::string_view name, std::int64_t value) {
    Name(name);
    line_ += std::to_string(value);
  }
  std::string Finish() {
    line_ += "}\n";
    return std::move(line_);
  }

 private:
  void Name(std::string_view name) {
    line_ += line_.empty() ? "{\"" : ",\"";
    line_.append(name).append("\":");
  }

  std::string line_;
};

// The fields that both logs begin with.
void WriteOrigin(const Event& event, CLineWriter* line) {
  line->Text("time", TimeText(event.time_us != 0 ? event.time_us : UnixMicroseconds()), kShortText);
  line->Text("event_id", event.event_id, kShortText);
  line->Number("site", event.site);
  line->Text("client", event.client, kShortText);
  line->Text("forwarded", event.forwarded, kShortText);
  line->Text("method", event.method, kWordText);
  line->Text("url", event.url, kUrlText);
}

std::string RequestLine(const Event& event) {
  CLineWriter line;
  WriteOrigin(event, &line);
  line.Text("check", event.check, kShortText);
  line.Text("action", event.action, kWordText);
  line.Number("status", event.status);
  line.Text("user_agent", event.user_agent, kAgentText);
  line.Number("elapsed_us", event.elapsed_us);
  return line.Finish();
}

std::string StateLine(const StateEvent& event) {
  CLineWriter line;
  line.Text("time", TimeText(event.time_us != 0 ? event.time_us : UnixMicroseconds()), kShortText);
  line.Text("event_id", event.event_id, kShortText);
  line.Text("kind", event.kind, kWordText);
  line.Text("state", event.state, kWordText);
  line.Text("file", event.file, kShortText);
  line.Text("item", event.item, kItemText);
  line.Text("reason", event.reason, kReasonText);
  line.Text("detail", event.detail, kDetailText);
  if (!event.version.empty()) line.Text("version", event.version, kWordText);
  if (const std::string rules = TakeRuleSetName(!event.version.empty()); !rules.empty()) {
    line.Text("rules", rules, kShortText);
  }
  return line.Finish();
}

std::uint64_t RandomSeed() {
  try {
    std::random_device device;
    return static_cast<std::uint64_t>(device()) << 32 | device();
  } catch (const std::exception&) {
    // No source of random numbers: the two clocks still differ from process to process.
    return static_cast<std::uint64_t>(UnixMicroseconds()) << 20 ^ static_cast<std::uint64_t>(MonotonicMicroseconds());
  }
}

}  // namespace

std::string EventLine(const Event& event) {
  CLineWriter line;
  WriteOrigin(event, &line);
  line.Number("phase", event.phase);
  line.Text("check", event.check, kShortText);
  line.Text("item", event.item, kItemText);
  line.Text("reason", event.reason, kReasonText);
  line.Text("detail", event.detail, kDetailText);
  line.Text("action", event.action, kWordText);
  line.Number("status", event.status);
  line.Text("rule", event.rule, kRuleText);
  line.Text("user_agent", event.user_agent, kAgentText);
  line.Number("elapsed_us", event.elapsed_us);
  return line.Finish();
}

std::string StateSentence(const StateEvent& event) {
  std::string place(event.file);
  if (!event.item.empty()) place += (place.empty() ? "" : ", ") + ToUtf8(event.item, kItemText);
  std::string sentence = (place.empty() ? "" : place + ": ") + ToUtf8(event.reason, kReasonText);
  if (!event.detail.empty()) sentence += " (" + ToUtf8(event.detail, kDetailText) + ")";
  return sentence;
}

CEventLog::CEventLog(const std::string& directory, std::uint64_t rotate_bytes)
    : events_(directory, "_log.log", rotate_bytes), requests_(directory, "_log_req.log", rotate_bytes) {}

void CEventLog::Write(const Event& event) noexcept {
  try {
    events_.Append(EventLine(event));
  } catch (const std::exception&) {
    // Out of memory: the line is lost, the request is not.
  }
}

void CEventLog::WriteState(const StateEvent& event) noexcept {
  try {
    events_.Append(StateLine(event));
  } catch (const std::exception&) {
    // As above.
  }
}

void CEventLog::WriteRequest(const Event& event) noexcept {
  try {
    requests_.Append(RequestLine(event));
  } catch (const std::exception&) {
    // As above.
  }
}

std::string CEventLog::NewEventId() {
  static const std::uint64_t seed = RandomSeed();
  static std::atomic<std::uint64_t> counter{0};
  // A bijective mix of a random start and a counter: no repetition within a process, no pattern between two.
  std::uint64_t value = seed + 0x9E3779B97F4A7C15U * ++counter;
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9U;
  value = (value ^ value >> 27) * 0x94D049BB133111EBU;
  value ^= value >> 31;
  std::string id(16, '0');
  for (std::size_t i = 0; i < id.size(); ++i) id[i] = kLowerHexDigits[value >> (60 - 4 * i) & 0xF];
  return id;
}

CEventLog::CLogFile::CLogFile(const std::string& directory, std::string_view name, std::uint64_t rotate_bytes)
    : directory_(directory), path_(directory + std::string(name)), rotate_bytes_(rotate_bytes) {}

void CEventLog::CLogFile::Append(std::string_view line) {
  if (NeedsLook()) stopped_.store(!RotateIfFull(), std::memory_order_relaxed);
  if (stopped_.load(std::memory_order_relaxed)) return;
  if (!AppendLine(path_, line) && !FileSize(path_) && MakeDirectory(directory_)) AppendLine(path_, line);
}

// True once every so many lines, and for the first line after a second: other processes write too.
bool CEventLog::CLogFile::NeedsLook() {
  const std::int64_t now = MonotonicMicroseconds();
  std::int64_t next = next_look_us_.load(std::memory_order_relaxed);
  const bool many = lines_since_look_.fetch_add(1, std::memory_order_relaxed) + 1 >= kLinesBetweenLooks;
  if (!many && now < next) return false;
  // Of several threads that get here together, one looks.
  if (!next_look_us_.compare_exchange_strong(next, now + kMicrosecondsBetweenLooks, std::memory_order_relaxed)) {
    return false;
  }
  lines_since_look_.store(0, std::memory_order_relaxed);
  return true;
}

// False when the file is far over the limit and could not be moved away.
bool CEventLog::CLogFile::RotateIfFull() {
  const auto is_full = [this](std::uint64_t times) {
    const auto size = FileSize(path_);
    return size && *size >= rotate_bytes_ * times;
  };
  if (!is_full(1)) return true;
  const CFileLock lock(path_ + ".lock");
  // Looked at again: another process may have moved it away between the first look and the lock.
  if (lock.Held() && is_full(1)) MoveAway();
  return !is_full(kStopFactor);
}

bool CEventLog::CLogFile::MoveAway() {
  // Down to the first free number the files step aside; when none is free, the oldest goes.
  int free = 1;
  while (free <= kKeptFiles && FileSize(Kept(free))) ++free;
  if (free > kKeptFiles) {
    if (!RemoveFile(Kept(kKeptFiles))) return false;
    free = kKeptFiles;
  }
  for (int number = free; number > 1; --number) {
    if (!RenameFile(Kept(number - 1), Kept(number))) return false;
  }
  return RenameFile(path_, Kept(1));
}

std::string CEventLog::CLogFile::Kept(int number) const { return path_ + "." + std::to_string(number); }

}  // namespace qiv

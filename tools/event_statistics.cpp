#include "tools/event_statistics.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "port/clock.h"

namespace qiv {
namespace {

constexpr std::int64_t kDay = 86400;
// Lengths of a bar; beyond the last they double.
constexpr std::int64_t kBarSeconds[] = {60, 600, 3600, 6 * 3600, kDay, 7 * kDay, 28 * kDay};
constexpr std::size_t kBarLengths = std::size(kBarSeconds);
constexpr std::int64_t kMonday = 4 * kDay;  // 1970-01-05: weeks begin there

// Of a URL without its query in the table; longer ones of the same beginning count as one.
constexpr std::size_t kUrlKeyBytes = 256;

std::int64_t RoundDown(std::int64_t number, std::int64_t step) {
  const std::int64_t rest = number % step;
  return number - (rest < 0 ? rest + step : rest);
}

std::int64_t WallSeconds(std::int64_t unix_seconds) {
  const CalendarTime time = LocalTime(unix_seconds);
  const std::chrono::year_month_day date{std::chrono::year(time.year),
                                         std::chrono::month(static_cast<unsigned>(time.month)),
                                         std::chrono::day(static_cast<unsigned>(time.day))};
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  return days * kDay + time.hour * 3600 + time.minute * 60 + time.second;
}

std::string_view Utf8Prefix(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

void AppendTwoDigits(int number, char before, std::string* text) {
  text->push_back(before);
  text->push_back(static_cast<char>('0' + number / 10 % 10));
  text->push_back(static_cast<char>('0' + number % 10));
}

}  // namespace

EventOutcome OutcomeOf(std::string_view action) {
  if (action == "block") return EventOutcome::kStopped;
  return action == "would block" ? EventOutcome::kWouldStop : EventOutcome::kPassed;
}

std::int64_t CLocalTimes::Wall(std::int64_t unix_seconds) {
  constexpr std::int64_t kQuarter = 900;  // no zone changes its clock at another moment
  const std::int64_t quarter = RoundDown(unix_seconds, kQuarter);
  if (quarter != quarter_) {
    quarter_ = quarter;
    offset_ = WallSeconds(quarter) - quarter;
  }
  return unix_seconds + offset_;
}

std::string WallText(std::int64_t wall_seconds) {
  const CalendarTime time = UtcTime(wall_seconds);
  std::string text = std::to_string(time.year);
  AppendTwoDigits(time.month, '-', &text);
  AppendTwoDigits(time.day, '-', &text);
  AppendTwoDigits(time.hour, ' ', &text);
  AppendTwoDigits(time.minute, ':', &text);
  AppendTwoDigits(time.second, ':', &text);
  return text;
}

std::int64_t CTimeCourse::SecondsPerBar() const {
  if (width_ < kBarLengths) return kBarSeconds[width_];
  return kBarSeconds[kBarLengths - 1] << (width_ - kBarLengths + 1);
}

std::int64_t CTimeCourse::BeginOf(std::int64_t wall_seconds) const {
  return RoundDown(wall_seconds - kMonday, SecondsPerBar()) + kMonday;
}

void CTimeCourse::Add(std::int64_t wall_seconds, EventOutcome outcome) {
  ++bars_[BeginOf(wall_seconds)][static_cast<std::size_t>(outcome)];
  while (bars_.rbegin()->first - bars_.begin()->first >= kMostBars * SecondsPerBar()) Coarsen();
}

void CTimeCourse::Coarsen() {
  ++width_;
  std::map<std::int64_t, OutcomeCounts> coarser;
  for (const auto& [begin, counts] : bars_) {
    OutcomeCounts& sum = coarser[BeginOf(begin)];
    for (std::size_t column = 0; column < counts.size(); ++column) sum[column] += counts[column];
  }
  bars_ = std::move(coarser);
}

std::vector<CTimeCourse::Bar> CTimeCourse::Bars() const {
  std::vector<Bar> bars;
  if (bars_.empty()) return bars;
  for (std::int64_t begin = bars_.begin()->first; begin <= bars_.rbegin()->first; begin += SecondsPerBar()) {
    const auto found = bars_.find(begin);
    bars.push_back({begin, found == bars_.end() ? OutcomeCounts{} : found->second});
  }
  return bars;
}

CEventStatistics::CEventStatistics(StatisticsOptions options) : options_(std::move(options)) {
  for (auto& table : tables_) table = std::make_unique<CHeavyHitters>(options_.capacity);
}

void CEventStatistics::Take(std::string_view line) {
  const EventLineFields* const event = reader_.Read(line);
  if (event == nullptr) {
    ++unreadable_;
    return;
  }
  // What was switched off before the period still counts in it.
  if (event->time < options_.until && (*event)[EventField::kKind] == "protection") TakeProtection(*event);
  if (event->time < options_.since || event->time >= options_.until) return;
  first_ = first_ == 0 ? event->time : std::min(first_, event->time);
  last_ = std::max(last_, event->time);
  if (event->IsState()) {
    TakeState(*event);
    Keep(line, kKeptStates, &states_);
  } else if ((*event)[EventField::kAction] == "error") {
    ++failures_;
    Keep(line, kKeptStates, &states_);
  } else {
    TakeRequest(*event);
    Keep(line, options_.latest, &events_);
  }
}

void CEventStatistics::TakeRequest(const EventLineFields& event) {
  const EventOutcome outcome = OutcomeOf(event[EventField::kAction]);
  const auto column = static_cast<std::size_t>(outcome);
  ++counts_[column];
  course_.Add(local_.Wall(event.time), outcome);
  const std::string_view url = event[EventField::kUrl];
  const std::string_view client = event[EventField::kClient];
  const std::string_view rule = event[EventField::kRule];
  tables_[kChecks]->Add(event[EventField::kCheck], column);
  if (!rule.empty()) tables_[kRules]->Add(rule, column, event[EventField::kReason]);
  tables_[kUrls]->Add(Utf8Prefix(url.substr(0, url.find('?')), kUrlKeyBytes), column);
  if (!options_.area_of) {
    tables_[kClients]->Add(client, column);
    return;
  }
  const std::string area = options_.area_of(client);
  tables_[kClients]->Add(client, column, area);
  tables_[kAreas]->Add(area, column);
}

void CEventStatistics::TakeState(const EventLineFields& event) {
  ++state_lines_;
  const std::string_view state = event[EventField::kState];
  if (state == "fault" || state == "off") ++faults_;
  if (!event[EventField::kVersion].empty()) version_ = event[EventField::kVersion];
}

void CEventStatistics::TakeProtection(const EventLineFields& event) {
  const std::string file(event[EventField::kFile]);
  const auto open = open_gaps_.find(file);
  const std::int64_t time = std::max(event.time, options_.since);
  if (event[EventField::kState] == "off") {
    if (open != open_gaps_.end()) return;  // another process says so too
    // Two parts can be off; a log that names endless ones is none of the module's.
    if (open_gaps_.size() < kKeptStates) {
      open_gaps_[file] = {time, 0, file, std::string(event[EventField::kReason])};
      ++gap_count_;
    }
    return;
  }
  if (open == open_gaps_.end()) return;
  ProtectionGap gap = std::move(open->second);
  open_gaps_.erase(open);
  gap.end = std::max(time, gap.begin);
  if (event.time < options_.since) {
    --gap_count_;  // over before the period began
    return;
  }
  if (gap.file.empty()) unprotected_ += gap.end - gap.begin;
  gaps_.push_back(std::move(gap));
  if (gaps_.size() > kKeptStates) gaps_.pop_front();
}

std::int64_t CEventStatistics::EndOfTime() const { return std::min(options_.now, options_.until); }

std::vector<ProtectionGap> CEventStatistics::Gaps() const {
  std::vector<ProtectionGap> gaps(gaps_.begin(), gaps_.end());
  for (const auto& [file, gap] : open_gaps_) gaps.push_back(gap);
  return gaps;
}

std::int64_t CEventStatistics::UnprotectedSeconds() const {
  const auto open = open_gaps_.find("");
  if (open == open_gaps_.end()) return unprotected_;
  return unprotected_ + std::max<std::int64_t>(EndOfTime() - open->second.begin, 0);
}

// The oldest gives its memory to the new one.
void CEventStatistics::Keep(std::string_view line, std::size_t most, std::deque<std::string>* ring) {
  if (most == 0) return;
  std::string kept;
  if (ring->size() >= most) {
    kept = std::move(ring->front());
    ring->pop_front();
  }
  kept.assign(line);
  ring->push_back(std::move(kept));
}

}  // namespace qiv

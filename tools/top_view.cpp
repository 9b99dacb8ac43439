#include "tools/top_view.h"

#include <algorithm>

#include "port/code_page.h"
#include "tools/color.h"
#include "tools/log_text.h"
#include "tools/printable.h"
#include "tools/scan_progress.h"

namespace qiv {
namespace {

constexpr std::size_t kMostParts = 16;   // of protection that the log names; there are two
constexpr int kPlainColumns = 100;       // where there is no terminal
constexpr int kTwoTables = 96;           // columns from which two tables stand side by side
constexpr std::size_t kPlainLines = 10;  // of a table, where there is no terminal
constexpr std::size_t kLockedShown = 3;
constexpr std::size_t kCountColumns = 10;
constexpr std::size_t kNameBytes = 256;  // of a URL

/// Columns that a character takes: two for those of East Asia, as terminals draw them.
std::size_t ColumnsOf(char32_t code) {
  constexpr std::pair<char32_t, char32_t> kWide[] = {{0x1100, 0x115F}, {0x2E80, 0xA4CF},   {0xAC00, 0xD7A3},
                                                     {0xF900, 0xFAFF}, {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
                                                     {0xFFE0, 0xFFE6}, {0x1F300, 0x1FAFF}, {0x20000, 0x3FFFD}};
  const auto holds = [code](const auto& range) { return code >= range.first && code <= range.second; };
  return std::any_of(std::begin(kWide), std::end(kWide), holds) ? 2 : 1;
}

/// The text in exactly so many columns, made visible, cut or filled with blanks.
std::string InColumns(std::string_view raw, std::size_t columns) {
  const std::string text = VisibleUtf8(raw);
  std::string shown;
  std::size_t used = 0;
  for (std::size_t i = 0; i < text.size();) {
    char32_t code = 0;
    const std::size_t length = std::max<std::size_t>(DecodeUtf8(text, i, &code), 1);
    const std::size_t width = ColumnsOf(code);
    if (used + width > columns) break;
    shown.append(text, i, length);
    used += width;
    i += length;
  }
  return shown.append(columns - used, ' ');
}

std::string RightAligned(const std::string& text, std::size_t columns) {
  return text.size() < columns ? std::string(columns - text.size(), ' ') + text : text;
}

std::string Bold(const std::string& text, bool colour) { return colour ? "\x1B[1m" + text + "\x1B[0m" : text; }

/// One table of so many lines and a heading.
std::vector<std::string> TableLines(std::string_view title, const CRecentEvents::Ranking& ranking, std::size_t lines,
                                    std::size_t columns, bool colour) {
  const std::size_t name_columns = columns > kCountColumns + 1 ? columns - kCountColumns - 1 : 1;
  std::vector<std::string> table{Bold(InColumns(title, columns), colour)};
  for (const auto& [name, count] : ranking) {
    table.push_back(InColumns(RightAligned(Grouped(count), kCountColumns) + " ", kCountColumns + 1) +
                    InColumns(name.empty() ? "-" : name, name_columns));
  }
  table.resize(lines + 1, std::string(columns, ' '));
  return table;
}

}  // namespace

CRecentEvents::Slot* CRecentEvents::SlotOf(std::int64_t time) {
  const std::int64_t number = time / kSlotSeconds;
  auto slot = std::find_if(slots_.begin(), slots_.end(), [number](const Slot& s) { return s.number >= number; });
  if (slot == slots_.end() || slot->number != number) {
    slot = slots_.insert(slot, Slot{number, {}});
    for (auto& table : slot->tables) table = std::make_unique<CHeavyHitters>(kTableEntries);
  }
  return &*slot;
}

void CRecentEvents::Take(const EventLineFields& event, std::int64_t now) {
  const std::int64_t time = std::min(event.time, now);
  if (time <= now - kHour || time < 0) return;
  const auto column = static_cast<std::size_t>(OutcomeOf(event[EventField::kAction]));
  Second& second = seconds_[static_cast<std::size_t>(time % kHour)];
  if (second.time != time) second = {time, {}};
  ++second.counts[column];

  while (!slots_.empty() && (slots_.front().number + 1) * kSlotSeconds <= now - kHour) slots_.pop_front();
  Slot* const slot = SlotOf(time);
  const std::string_view url = event[EventField::kUrl];
  const std::string_view rule = event[EventField::kRule];
  slot->tables[kChecks]->Add(event[EventField::kCheck], column);
  slot->tables[kClients]->Add(event[EventField::kClient], column);
  if (!rule.empty()) slot->tables[kRules]->Add(rule, column);
  slot->tables[kUrls]->Add(url.substr(0, std::min(url.find('?'), kNameBytes)), column);
}

std::uint64_t CRecentEvents::Count(std::int64_t seconds, std::int64_t now) const {
  std::uint64_t sum = 0;
  for (std::int64_t time = std::max<std::int64_t>(now - seconds + 1, 0); time <= now; ++time) {
    const Second& second = seconds_[static_cast<std::size_t>(time % kHour)];
    if (second.time != time) continue;
    for (const std::uint64_t count : second.counts) sum += count;
  }
  return sum;
}

OutcomeCounts CRecentEvents::CountsOfHour(std::int64_t now) const {
  OutcomeCounts sums{};
  for (const Second& second : seconds_) {
    if (second.time <= now - kHour) continue;
    for (std::size_t column = 0; column < sums.size(); ++column) sums[column] += second.counts[column];
  }
  return sums;
}

CRecentEvents::Ranking CRecentEvents::Top(Table table, std::size_t limit, std::int64_t now) const {
  std::map<std::string_view, std::uint64_t> sums;
  for (const Slot& slot : slots_) {
    if ((slot.number + 1) * kSlotSeconds <= now - kHour) continue;
    for (const CHeavyHitters::Entry& entry : slot.tables[table]->Entries()) sums[entry.key] += entry.Counted();
  }
  Ranking ranking(sums.begin(), sums.end());
  std::stable_sort(ranking.begin(), ranking.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  ranking.resize(std::min(limit, ranking.size()));
  return ranking;
}

CTopView::CTopView(const std::string& directory) : directory_(directory), files_(directory), lists_(directory) {}

bool CTopView::Update(std::int64_t now, const std::function<bool()>& go_on) {
  return files_.ReadNew([&](std::string_view line) {
    if (const EventLineFields* const event = reader_.Read(line)) Take(*event, now);
    return go_on();
  });
}

void CTopView::Take(const EventLineFields& event, std::int64_t now) {
  if (!event.IsState()) {
    recent_.Take(event, now);
    return;
  }
  if (event[EventField::kKind] != "protection") return;
  const std::string part(event[EventField::kFile]);
  if (protection_.size() >= kMostParts && !protection_.contains(part)) return;
  protection_[part] = {event[EventField::kState] == "on", event.time, std::string(event[EventField::kReason])};
}

std::string CTopView::ProtectionText() const {
  if (protection_.empty()) return "the log does not tell";
  std::string text;
  for (const auto& [part, state] : protection_) {
    if (state.on) continue;
    text += (text.empty() ? "OFF since " : "; ") + LocalTimeText(state.since) + ": ";
    text += (part.empty() ? "" : part + ": ") + state.reason;
  }
  return text.empty() ? "on" : text;
}

std::vector<std::string> CTopView::Locked(std::int64_t now, std::size_t limit) {
  if (!lists_.Load()) return {"the lists cannot be read: " + lists_.Path()};
  std::vector<ListEntry> locked;
  for (ListEntry& entry : lists_.Entries()) {
    if (entry.list == ClientList::kDeny && entry.end > now) locked.push_back(std::move(entry));
  }
  std::stable_sort(locked.begin(), locked.end(), [](const auto& a, const auto& b) { return a.start > b.start; });
  std::vector<std::string> lines{Grouped(locked.size())};
  for (std::size_t i = 0; i < std::min(limit, locked.size()); ++i) {
    const ListEntry& entry = locked[i];
    lines.push_back("  " + ListedText(entry.list, entry.client) + " until " + LocalTimeText(entry.end) + ": " +
                    FieldToUtf8(entry.details.substr(0, entry.details.find('\t'))));
  }
  return lines;
}

std::vector<std::string> CTopView::Frame(const Shape& shape, std::int64_t now) {
  const auto columns =
      static_cast<std::size_t>(std::max(shape.size.columns > 0 ? shape.size.columns : kPlainColumns, 20));
  const auto rate = static_cast<double>(recent_.Count(10, now)) / 10;
  const OutcomeCounts hour = recent_.CountsOfHour(now);
  const std::string protection = ProtectionText();
  std::vector<std::string> locked = Locked(now, kLockedShown);

  std::vector<std::string> frame;
  frame.push_back(
      Bold(InColumns("qivctl top  " + LocalTimeText(now) + "  " + PrintablePath(directory_), columns), shape.colour));
  frame.push_back(Colored(InColumns("Protection  " + protection, columns),
                          protection == "on" ? Color::kGreen : Color::kRed, shape.colour));
  frame.push_back(InColumns("Events      " + std::to_string(static_cast<int>(rate)) + "." +
                                std::to_string(static_cast<int>(rate * 10) % 10) + " a second, " +
                                Grouped(recent_.Count(60, now)) + " in a minute, " +
                                Grouped(hour[0] + hour[1] + hour[2]) + " in an hour",
                            columns));
  frame.push_back(InColumns("  of these  " + Grouped(hour[0]) + " stopped, " + Grouped(hour[1]) +
                                " would be stopped, " + Grouped(hour[2]) + " let pass and noted",
                            columns));
  locked[0].insert(0, "Locked now  ");
  for (const std::string& line : locked) frame.push_back(InColumns(line, columns));
  for (const std::string& path : files_.Unreadable())
    frame.push_back(InColumns(PrintablePath(path) + ": cannot be read", columns));

  const std::size_t side_by_side = columns >= kTwoTables ? 2 : 1;
  std::size_t lines = shape.lines != 0 ? shape.lines : kPlainLines;
  const auto rows = static_cast<std::size_t>(std::max(shape.size.rows, 0));
  const std::size_t table_rows = CRecentEvents::kTables / side_by_side;
  if (shape.lines == 0 && rows != 0) {
    const std::size_t room = rows > frame.size() ? (rows - frame.size()) / table_rows : 0;
    lines = room > 3 ? room - 2 : 1;  // less the heading and an empty line
  }
  constexpr std::pair<std::string_view, CRecentEvents::Table> kParts[] = {
      {"By check, last hour", CRecentEvents::kChecks},
      {"By client", CRecentEvents::kClients},
      {"By rule", CRecentEvents::kRules},
      {"By URL", CRecentEvents::kUrls}};
  const std::size_t table_columns = side_by_side == 2 ? (columns - 2) / 2 : columns;
  for (std::size_t part = 0; part < CRecentEvents::kTables; part += side_by_side) {
    frame.emplace_back();
    const std::size_t first = frame.size();
    for (std::size_t side = 0; side < side_by_side; ++side) {
      const auto& [title, table] = kParts[part + side];
      const std::vector<std::string> text =
          TableLines(title, recent_.Top(table, lines, now), lines, table_columns, shape.colour);
      for (std::size_t i = 0; i < text.size(); ++i) {
        if (side == 0) frame.push_back(text[i]);
        if (side == 1) frame[first + i] += "  " + text[i];
      }
    }
  }
  if (rows != 0 && frame.size() > rows) frame.resize(rows);
  return frame;
}

}  // namespace qiv

#include "tools/report_page.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "tools/report_html.h"
#include "tools/scan_progress.h"

namespace qiv {
namespace {

constexpr std::size_t kShownStates = 50;
constexpr std::size_t kColumns = CHeavyHitters::kColumns;
constexpr std::string_view kColumnClasses[kColumns] = {"stop", "would", "pass"};
constexpr ReportText kColumnTexts[kColumns] = {ReportText::kStopped, ReportText::kWouldStop, ReportText::kPassed};

std::string Tag(std::string_view name, std::string_view css_class, std::string_view content) {
  std::string tag = "<";
  tag.append(name);
  if (!css_class.empty()) tag.append(" class=\"").append(css_class).append("\"");
  return tag.append(">").append(content).append("</").append(name).append(">");
}

std::string Row(std::string_view term, std::string_view value, std::string_view css_class = {}) {
  return "<div>" + Tag("dt", {}, term) + Tag("dd", css_class, value) + "</div>";
}

class CPageWriter {
 public:
  CPageWriter(const CEventStatistics& statistics, const ReportPage& page) : statistics_(statistics), page_(page) {
    const OutcomeCounts& counts = statistics_.Counts();
    for (std::size_t column = 0; column < kColumns; ++column) {
      if (column == 0 || counts[column] > 0) columns_.push_back(column);
    }
  }

  std::string Write() {
    Head();
    Header();
    html_ += "<main>\n";
    Warnings();
    Tiles();
    if (statistics_.Requests() > 0) {
      Course();
      html_ += "<div class=\"tables\">\n";
      CountTable(ReportText::kByCheck, CEventStatistics::kChecks);
      CountTable(ReportText::kByArea, CEventStatistics::kAreas);
      CountTable(ReportText::kByRule, CEventStatistics::kRules);
      CountTable(ReportText::kByClient, CEventStatistics::kClients);
      html_ += "</div>\n";
      CountTable(ReportText::kByUrl, CEventStatistics::kUrls);
    }
    if (statistics_.First() != 0) {
      Gaps();
      States();
    }
    if (statistics_.Requests() > 0) Events();
    html_ += "</main>\n<script nonce=\"" + page_.nonce + "\">" + std::string(ReportScript()) +
             "</script>\n</body>\n</html>\n";
    return std::move(html_);
  }

 private:
  std::string Time(std::int64_t unix_seconds) { return WallText(local_.Wall(unix_seconds)); }
  std::string TimeCell(std::int64_t unix_seconds) { return Tag("td", "time", Time(unix_seconds)); }

  // "+08:00", now.
  std::string Zone() {
    const std::int64_t minutes = (local_.Wall(page_.now) - page_.now) / 60;
    const std::int64_t size = minutes < 0 ? -minutes : minutes;
    const auto two = [](std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    return (minutes < 0 ? "-" : "+") + two(size / 60) + ":" + two(size % 60);
  }

  void Head() {
    const bool chinese = page_.language == Language::kChinese;
    html_ += std::string("<!DOCTYPE html>\n<html lang=\"") + (chinese ? "zh-CN" : "en-US") + "\"" +
             (page_.language ? " data-chosen" : "") +
             ">\n<head>\n<meta charset=\"utf-8\">\n"
             "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'nonce-" +
             page_.nonce + "'; script-src 'nonce-" + page_.nonce +
             "'; base-uri 'none'; form-action 'none'\">\n"
             "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
             "<meta name=\"robots\" content=\"noindex\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
             "<title>" +
             std::string(PlainText(ReportText::kTitle, Language::kEnglish)) + " / " +
             std::string(PlainText(ReportText::kTitle, Language::kChinese)) +
             "</title>\n"
             "<style nonce=\"" +
             page_.nonce + "\">" + std::string(ReportStyle()) + "</style>\n</head>\n<body>\n";
    for (const bool zh : {false, true}) {
      html_ += std::string("<input class=\"language\" type=\"radio\" name=\"language\" id=\"") + (zh ? "zh" : "en") +
               "\"" + (zh == chinese ? " checked" : "") + ">\n";
    }
  }

  void Header() {
    html_ += "<header>\n<div>\n" + Tag("h1", {}, BothLanguages(ReportText::kTitle));
    if (statistics_.First() != 0) {
      html_ +=
          Tag("p", "time", BothLanguages(ReportText::kPeriod, {Time(statistics_.First()), Time(statistics_.Last())}));
    }
    std::string range;
    if (page_.since != 0) range = BothLanguages(ReportText::kSinceOnly, {Time(page_.since)});
    if (page_.until != 0)
      range += (range.empty() ? "" : " ") + BothLanguages(ReportText::kUntilOnly, {Time(page_.until)});
    if (!range.empty()) html_ += Tag("p", "soft", BothLanguages(ReportText::kOnly, {range}));
    html_ += Tag("p", "soft path", HtmlText(page_.source));
    std::string made = BothLanguages(ReportText::kMade, {Time(page_.now), Zone()});
    if (!statistics_.Version().empty()) {
      made += " \xC2\xB7 " + BothLanguages(ReportText::kVersion, {HtmlText(statistics_.Version())});
    }
    html_ += Tag("p", "soft", made) +
             "\n</div>\n<div class=\"switch\"><label for=\"en\" lang=\"en\">English</label>"
             "<label for=\"zh\" lang=\"zh-CN\">\xE4\xB8\xAD\xE6\x96\x87</label></div>\n</header>\n";
  }

  void Warnings() {
    std::string files;
    for (const std::string& path : page_.unreadable) files += (files.empty() ? "" : ", ") + HtmlText(path);
    if (!files.empty()) Warn(BothLanguages(ReportText::kUnreadableFiles, {files}));
    for (const ProtectionGap& gap : statistics_.Gaps()) {
      if (gap.end != 0) continue;
      const std::string part = gap.file.empty() ? "" : HtmlText(gap.file) + ": ";
      if (page_.until == 0) Warn(BothLanguages(ReportText::kOffNow, {part + HtmlText(gap.reason)}));
    }
    if (statistics_.First() == 0) Warn(BothLanguages(ReportText::kEmpty));
    if (statistics_.Unreadable() > 0) {
      Warn(BothLanguages(ReportText::kUnreadableLines, {Grouped(statistics_.Unreadable())}));
    }
  }

  void Warn(std::string_view content) { html_ += Tag("div", "warn", content) + "\n"; }

  void Tiles() {
    html_ += "<dl class=\"tiles\">\n";
    for (const std::size_t column : {0U, 1U, 2U}) {
      const std::uint64_t count = statistics_.Counts()[column];
      if (column == 2 && count == 0) continue;
      html_ += Row(BothLanguages(kColumnTexts[column]), Grouped(count), count > 0 ? kColumnClasses[column] : "");
    }
    const std::uint64_t faults = statistics_.Faults() + statistics_.Failures();
    html_ += Row(BothLanguages(ReportText::kFaults), Grouped(faults), faults > 0 ? "would" : "");
    const std::int64_t off = statistics_.UnprotectedSeconds();
    html_ += Row(BothLanguages(ReportText::kUnprotected), off > 0 ? Duration(static_cast<double>(off)) : "0",
                 off > 0 ? "stop" : "") +
             "</dl>\n";
  }

  std::string BarLength() {
    constexpr std::int64_t kWeek = 7 * 86400;
    const std::int64_t seconds = statistics_.Course().SecondsPerBar();
    switch (seconds) {
      case 60:
        return BothLanguages(ReportText::kBarMinute);
      case 600:
        return BothLanguages(ReportText::kBarTenMinutes);
      case 3600:
        return BothLanguages(ReportText::kBarHour);
      case 6 * 3600:
        return BothLanguages(ReportText::kBarSixHours);
      case 86400:
        return BothLanguages(ReportText::kBarDay);
      case kWeek:
        return BothLanguages(ReportText::kBarWeek);
      default:
        return BothLanguages(ReportText::kBarWeeks, {std::to_string(seconds / kWeek)});
    }
  }

  // Without the seconds, and for whole days without the time.
  std::string BarTime(std::int64_t wall_seconds) {
    return WallText(wall_seconds).substr(0, statistics_.Course().SecondsPerBar() < 86400 ? 16 : 10);
  }

  void Course() {
    const std::vector<CTimeCourse::Bar> bars = statistics_.Course().Bars();
    const auto sum = [](const CTimeCourse::Bar& bar) { return bar.counts[0] + bar.counts[1] + bar.counts[2]; };
    std::uint64_t highest = 1;
    for (const CTimeCourse::Bar& bar : bars) highest = std::max(highest, sum(bar));
    html_ += "<section>\n" + Tag("h2", {}, BothLanguages(ReportText::kOverTime));
    // Few bars are not drawn across the whole width.
    const std::size_t slots = std::max<std::size_t>(bars.size(), 24);
    html_ += "<svg class=\"course\" viewBox=\"0 0 " + std::to_string(slots * 10) +
             " 1000\" preserveAspectRatio=\"none\" aria-hidden=\"true\">\n";
    for (std::size_t i = 0; i < bars.size(); ++i) Bar(bars[i], i, highest);
    html_ += "</svg>\n<div class=\"axis\">";
    for (const std::size_t at : {std::size_t{0}, bars.size() / 2, bars.size() - 1}) {
      html_ += Tag("span", {}, at == 0 || bars.size() == slots ? BarTime(bars[at].begin) : "");
    }
    html_ += "</div>\n" +
             Tag("p", "note", BothLanguages(ReportText::kBarIs, {BarLength(), Grouped(highest)}) + Legend()) +
             "<details><summary class=\"soft\">" + BothLanguages(ReportText::kFigures) +
             "</summary>\n<div class=\"scroll\"><table><tr>" + Tag("th", {}, BothLanguages(ReportText::kTime)) +
             ColumnHeads() + "</tr>\n";
    for (const CTimeCourse::Bar& bar : bars) {
      if (sum(bar) > 0) html_ += "<tr>" + Tag("td", "time", BarTime(bar.begin)) + Cells(bar.counts) + "</tr>\n";
    }
    html_ += "</table></div></details>\n</section>\n";
  }

  void Bar(const CTimeCourse::Bar& bar, std::size_t slot, std::uint64_t highest) {
    constexpr std::uint64_t kHeight = 1000;
    const std::string x = std::to_string(slot * 10);
    std::string text = BarTime(bar.begin) + ": " + Grouped(bar.counts[0]);
    for (const std::size_t column : columns_) {
      if (column > 0) text += " / " + Grouped(bar.counts[column]);
    }
    html_ += "<g><title>" + text + "</title><rect class=\"back\" x=\"" + x + "\" width=\"10\" height=\"1000\"/>";
    std::uint64_t below = 0;
    for (std::size_t column = 0; column < kColumns; ++column) {
      if (bar.counts[column] == 0) continue;
      // What is there at all can be seen.
      const std::uint64_t height = std::max<std::uint64_t>(bar.counts[column] * kHeight / highest, 8);
      below = std::min(below + height, kHeight);
      html_ += "<rect class=\"" + std::string(kColumnClasses[column]) + "\" x=\"" + std::to_string(slot * 10 + 1) +
               "\" y=\"" + std::to_string(kHeight - below) + "\" width=\"8\" height=\"" + std::to_string(height) +
               "\"/>";
    }
    html_ += "</g>\n";
  }

  std::string Legend() {
    std::string legend;
    for (const std::size_t column : columns_) {
      legend += " <span class=\"legend\"><span class=\"key " + std::string(kColumnClasses[column]) + "\"></span>" +
                BothLanguages(kColumnTexts[column]) + "</span>";
    }
    return legend;
  }

  std::string ColumnHeads() {
    std::string heads;
    for (const std::size_t column : columns_) heads += Tag("th", "number", BothLanguages(kColumnTexts[column]));
    return heads;
  }

  std::string Cells(const OutcomeCounts& counts, std::string_view mark = {}) {
    std::string cells;
    for (const std::size_t column : columns_) {
      const std::uint64_t count = counts[column];
      cells += Tag("td", count == 0 ? "number zero" : "number", (count == 0 ? "" : std::string(mark)) + Grouped(count));
    }
    return cells;
  }

  // A thin bar as long as the key's share of the most frequent one.
  static std::string Share(const OutcomeCounts& counts, std::uint64_t most) {
    std::string share =
        "<svg class=\"share\" viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" aria-hidden=\"true\">";
    std::uint64_t x = 0;
    for (std::size_t column = 0; column < kColumns; ++column) {
      const std::uint64_t width = counts[column] * 1000 / std::max<std::uint64_t>(most, 1);
      if (width == 0) continue;
      share += "<rect class=\"" + std::string(kColumnClasses[column]) + "\" x=\"" + std::to_string(x) + "\" width=\"" +
               std::to_string(width) + "\" height=\"10\"/>";
      x += width;
    }
    return share + "</svg>";
  }

  void CountTable(ReportText title, CEventStatistics::Table which) {
    const CHeavyHitters& table = statistics_.Of(which);
    html_ += "<section>\n" + Tag("h2", {}, BothLanguages(title));
    if (which == CEventStatistics::kAreas && !page_.has_areas) {
      html_ += Tag("p", "soft", BothLanguages(ReportText::kNoAreas)) + "</section>\n";
      return;
    }
    const std::vector<const CHeavyHitters::Entry*> top = table.Top(page_.top);
    if (top.empty()) {
      html_ += Tag("p", "soft", BothLanguages(ReportText::kNothing)) + "</section>\n";
      return;
    }
    html_ += "<table><tr>" + Tag("th", {}, BothLanguages(ReportText::kName)) + ColumnHeads() + "</tr>\n";
    OutcomeCounts others = table.Totals();
    std::uint64_t most_missed = 0;
    for (const CHeavyHitters::Entry* const entry : top) {
      for (std::size_t column = 0; column < kColumns; ++column) others[column] -= entry->counts[column];
      most_missed = std::max(most_missed, entry->missed);
      const std::string note = entry->note.empty() ? "" : Tag("small", {}, HtmlText(entry->note));
      const std::string name =
          entry->key.empty() ? Tag("span", "soft", BothLanguages(ReportText::kNoName)) : HtmlText(entry->key);
      html_ += "<tr>" + Tag("td", "name", name + note + Share(entry->counts, top[0]->Counted())) +
               Cells(entry->counts, entry->missed > 0 ? "~" : "") + "</tr>\n";
    }
    if (others != OutcomeCounts{}) {
      html_ += "<tr class=\"others\">" + Tag("td", {}, BothLanguages(ReportText::kOthers)) + Cells(others) + "</tr>\n";
    }
    html_ += "</table>\n" + CountNote(which, most_missed) + "</section>\n";
  }

  std::string CountNote(CEventStatistics::Table which, std::uint64_t most_missed) {
    const CHeavyHitters& table = statistics_.Of(which);
    const std::string size = Grouped(table.Entries().size());
    std::string note = BothLanguages(ReportText::kExact, {size});
    if (table.Overflowed()) {
      note =
          BothLanguages(ReportText::kInexact, {size, Grouped(most_missed), Grouped(table.Total() / table.Capacity())});
    }
    const std::uint64_t without = statistics_.Requests() - table.Total();
    if (which == CEventStatistics::kRules && without > 0) {
      note += " " + BothLanguages(ReportText::kWithoutRule, {Grouped(without)});
    }
    return Tag("p", "note", note);
  }

  void Gaps() {
    html_ += "<section>\n" + Tag("h2", {}, BothLanguages(ReportText::kGaps));
    const std::vector<ProtectionGap> gaps = statistics_.Gaps();
    if (gaps.empty()) {
      html_ += Tag("p", "soft", BothLanguages(ReportText::kGapsNone)) + "</section>\n";
      return;
    }
    html_ += "<div class=\"scroll\"><table class=\"stack\"><tr>";
    for (const ReportText head : {ReportText::kFrom, ReportText::kTo, ReportText::kLasted, ReportText::kWhy}) {
      html_ += Tag("th", {}, BothLanguages(head));
    }
    html_ += "</tr>\n";
    for (auto gap = gaps.rbegin(); gap != gaps.rend(); ++gap) {
      const bool ended = gap->end != 0;
      const std::string part =
          gap->file.empty() ? "" : Tag("small", {}, BothLanguages(ReportText::kPart, {HtmlText(gap->file)}));
      html_ += "<tr>" + TimeCell(gap->begin) +
               (ended ? TimeCell(gap->end) : Tag("td", "stop", BothLanguages(ReportText::kStill))) +
               Tag("td", "time", ended ? Duration(static_cast<double>(gap->end - gap->begin)) : "") +
               Tag("td", "name", HtmlText(gap->reason) + part) + "</tr>\n";
    }
    html_ += "</table></div>\n";
    LatestNote(gaps.size(), statistics_.GapCount());
    html_ += "</section>\n";
  }

  void LatestNote(std::uint64_t shown, std::uint64_t all) {
    if (shown < all) {
      html_ += Tag("p", "note", BothLanguages(ReportText::kLatestOf, {Grouped(shown), Grouped(all)})) + "\n";
    }
  }

  void States() {
    html_ += "<section>\n" + Tag("h2", {}, BothLanguages(ReportText::kStates));
    const std::deque<std::string>& states = statistics_.LatestStates();
    if (states.empty()) {
      html_ += Tag("p", "soft", BothLanguages(ReportText::kNothing)) + "</section>\n";
      return;
    }
    html_ += "<div class=\"scroll\"><table class=\"stack\"><tr>" + Tag("th", {}, BothLanguages(ReportText::kTime)) +
             "<th></th>" + Tag("th", {}, BothLanguages(ReportText::kWhat)) + "</tr>\n";
    const std::size_t shown = std::min(states.size(), kShownStates);
    for (std::size_t i = 0; i < shown; ++i) State(states[states.size() - 1 - i]);
    html_ += "</table></div>\n";
    LatestNote(shown, statistics_.StateLines() + statistics_.Failures());
    html_ += "</section>\n";
  }

  void State(std::string_view line) {
    const EventLineFields* const read = reader_.Read(line);
    if (read == nullptr) return;
    const EventLineFields& state = *read;
    const bool failure = !state.IsState();
    const bool bad = failure || state[EventField::kState] == "fault" || state[EventField::kState] == "off";
    const std::string_view kind = failure ? state[EventField::kCheck] : state[EventField::kKind];
    const std::string_view word = failure ? state[EventField::kAction] : state[EventField::kState];
    std::string what = HtmlText(state[EventField::kFile]);
    if (!state[EventField::kItem].empty()) what += (what.empty() ? "" : ", ") + HtmlText(state[EventField::kItem]);
    what += (what.empty() ? "" : ": ") + HtmlText(state[EventField::kReason]);
    if (!state[EventField::kDetail].empty()) what += Tag("small", {}, HtmlText(state[EventField::kDetail]));
    html_ += "<tr>" + TimeCell(state.time) +
             Tag("td", bad ? "would time" : "pass time", HtmlText(kind) + " " + HtmlText(word)) +
             Tag("td", "name", what) + "</tr>\n";
  }

  void Events() {
    html_ += "<section>\n" + Tag("h2", {}, BothLanguages(ReportText::kLatest));
    html_ += "<div class=\"filter\" id=\"filter\" hidden><div><label for=\"text\">" +
             BothLanguages(ReportText::kFilterText) +
             "</label><input type=\"search\" id=\"text\" autocomplete=\"off\"></div>";
    const std::pair<ReportText, std::string> choices[] = {{ReportText::kFilterCheck, "check"},
                                                          {ReportText::kFilterAction, "action"}};
    for (const auto& [text, id] : choices) {
      html_ += "<div><label for=\"" + id + "\">" + BothLanguages(text) + "</label><select id=\"" + id +
               "\"><option data-en=\"" + std::string(PlainText(ReportText::kFilterAll, Language::kEnglish)) +
               "\" data-zh=\"" + std::string(PlainText(ReportText::kFilterAll, Language::kChinese)) +
               "\"></option></select></div>";
    }
    html_ +=
        "<output id=\"shown\" aria-live=\"polite\"></output></div>\n"
        "<p class=\"soft\" id=\"none\" hidden>" +
        BothLanguages(ReportText::kNoMatch) + "</p>\n<ol class=\"events\">\n";
    const std::deque<std::string>& events = statistics_.LatestEvents();
    for (auto line = events.rbegin(); line != events.rend(); ++line) Event(*line);
    html_ += "</ol>\n";
    LatestNote(events.size(), statistics_.Requests());
    html_ += Tag("p", "note", BothLanguages(ReportText::kFalseAlarm)) + "</section>\n";
  }

  void Event(std::string_view line) {
    const EventLineFields* const read = reader_.Read(line);
    if (read == nullptr) return;
    const EventLineFields& event = *read;
    const auto column = static_cast<std::size_t>(OutcomeOf(event[EventField::kAction]));
    const std::string check = HtmlText(event[EventField::kCheck]);
    const std::string action = HtmlText(event[EventField::kAction]);
    html_ += "<li data-check=\"" + check + "\" data-action=\"" + action + "\"><details><summary>" +
             Tag("span", "time", Time(event.time)) + Tag("span", kColumnClasses[column], action) +
             Tag("span", {}, check) + Tag("span", "who", HtmlText(event[EventField::kClient])) +
             Tag("span", "url", HtmlText(event[EventField::kMethod]) + " " + HtmlText(event[EventField::kUrl])) +
             "</summary>\n<dl>";
    constexpr std::pair<ReportText, EventField> kRows[] = {
        {ReportText::kItem, EventField::kItem},           {ReportText::kReason, EventField::kReason},
        {ReportText::kDetail, EventField::kDetail},       {ReportText::kRule, EventField::kRule},
        {ReportText::kForwarded, EventField::kForwarded}, {ReportText::kUserAgent, EventField::kUserAgent},
        {ReportText::kStatus, EventField::kStatus},       {ReportText::kSite, EventField::kSite}};
    for (const auto& [text, field] : kRows) {
      if (event[field].empty()) continue;
      html_ += Tag("dt", {}, BothLanguages(text)) + Tag("dd", {}, HtmlText(event[field]));
    }
    const std::string area = statistics_.AreaOf(event[EventField::kClient]);
    if (!area.empty()) html_ += Tag("dt", {}, BothLanguages(ReportText::kArea)) + Tag("dd", {}, HtmlText(area));
    html_ += Tag("dt", {}, BothLanguages(ReportText::kEvent)) +
             Tag("dd", {}, Tag("code", {}, HtmlText(event[EventField::kEventId]))) + "</dl></details></li>\n";
  }

  const CEventStatistics& statistics_;
  const ReportPage& page_;
  std::vector<std::size_t> columns_;  // of the tables: those that hold anything
  CEventLineReader reader_;
  CLocalTimes local_;
  std::string html_;
};

}  // namespace

std::string WriteReportPage(const CEventStatistics& statistics, const ReportPage& page) {
  return CPageWriter(statistics, page).Write();
}

}  // namespace qiv

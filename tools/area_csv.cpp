#include "tools/area_csv.h"

#include <optional>

#include "common/ip_address.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kMostErrors = 20;  // of one file; a file of another kind would print a million
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::optional<CIpAddress> ParseEnd(std::string_view text) {
  if (const auto address = CIpAddress::Parse(text)) return address;
  if (text == "0") return CIpAddress::FromIpv4(0);
  const std::uint32_t number = DigitsToNumber(text);
  return number != 0 ? std::optional(CIpAddress::FromIpv4(number)) : std::nullopt;
}

struct AreaLine {
  IpRange range;
  std::string_view code;
  std::string_view name;
};

std::optional<AreaLine> ParseLine(const std::vector<std::string>& fields) {
  const auto field = [&fields](std::size_t i) { return i < fields.size() ? Trim(fields[i]) : std::string_view(); };
  if (fields.size() < 2) return std::nullopt;
  if (field(0).find_first_of("/-*") != std::string_view::npos) {
    const auto range = ParseIpRange(field(0));
    return range ? std::optional(AreaLine{*range, field(1), field(2)}) : std::nullopt;
  }
  if (fields.size() < 3) return std::nullopt;
  const auto first = ParseEnd(field(0));
  const auto last = ParseEnd(field(1));
  if (!first || !last || first->IsIpv4() != last->IsIpv4() || *last < *first) return std::nullopt;
  return AreaLine{{*first, *last}, field(2), field(3)};
}

const char* Fault(CAreaBuilder::AddResult result) {
  return result == CAreaBuilder::AddResult::kTooManyAreas ? "more than 65,534 areas" : "the text is too long";
}

}  // namespace

std::vector<std::string> SplitCsvLine(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += c;
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

void ReadAreaCsv(std::string_view text, CAreaBuilder* ipv4, CAreaBuilder* ipv6, CReport* report) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  std::size_t number = 0;
  std::size_t errors = 0;
  while (!text.empty() && errors < kMostErrors) {
    const std::size_t end = text.find('\n');
    const std::string_view line = Trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    ++number;
    if (line.empty() || line.front() == '#') continue;
    const std::vector<std::string> fields = SplitCsvLine(line);
    const auto area = ParseLine(fields);
    if (!area) {
      const bool heading = number == 1 && !ParseEnd(Trim(fields[0])) && !ParseIpRange(Trim(fields[0]));
      if (!heading) report->Error(number, "neither start,end,code[,name] nor cidr,code[,name]"), ++errors;
      continue;
    }
    if (area->code.empty() || area->code == "-") continue;
    CAreaBuilder* const builder = area->range.first.IsIpv4() ? ipv4 : ipv6;
    const CAreaBuilder::AddResult result = builder->Add(area->range, area->code, area->name);
    if (result != CAreaBuilder::AddResult::kOk) report->Error(number, Fault(result)), ++errors;
  }
  if (errors == kMostErrors) report->Error(number, "too many errors; the rest was not read");
}

}  // namespace qiv

#include "tools/area_builder.h"

#include <algorithm>
#include <optional>

#include "common/area_library.h"

namespace qiv {
namespace {

constexpr std::size_t kTextMaxBytes = 0xFFFF;

void AppendNumber(std::uint64_t value, std::size_t bytes, std::string* out) {
  for (std::size_t i = 0; i < bytes; ++i) *out += static_cast<char>(value >> 8 * i);
}

}  // namespace

CAreaBuilder::AddResult CAreaBuilder::Add(const IpRange& range, std::string_view code, std::string_view name) {
  if (range.first.IsIpv4() != ipv4_) return AddResult::kOtherFamily;
  if (code.size() > kTextMaxBytes || name.size() > kTextMaxBytes) return AddResult::kTextTooLong;
  std::pair<std::string, std::string> area(code, name);
  auto known = numbers_.find(area);
  if (known == numbers_.end()) {
    if (areas_.size() >= AreaFormat::kMaxAreas) return AddResult::kTooManyAreas;
    areas_.push_back(area);
    known = numbers_.emplace(std::move(area), static_cast<std::uint16_t>(areas_.size())).first;
  }
  ranges_.push_back({range, known->second});
  return AddResult::kOk;
}

std::vector<CAreaBuilder::Start> CAreaBuilder::Sweep(std::size_t* overlaps) {
  // Outer ranges before those within them; equal ones in the order they were added.
  std::stable_sort(ranges_.begin(), ranges_.end(), [](const Range& a, const Range& b) {
    return a.range.first != b.range.first ? a.range.first < b.range.first : a.range.last > b.range.last;
  });
  std::vector<Start> starts;
  std::vector<Range> open;  // the last one holds
  const auto begin_at = [&starts](const CIpAddress& address, std::uint16_t area) {
    if (!starts.empty() && starts.back().address == address) starts.pop_back();
    if (!starts.empty() && starts.back().area == area) return;
    if (starts.empty() && area == 0) return;
    starts.push_back({address, area});
  };
  // Ends the ranges that end before `limit`; all of them without one.
  const auto close_before = [&](const std::optional<CIpAddress>& limit) {
    while (!open.empty() && (!limit || open.back().range.last < *limit)) {
      const CIpAddress last = open.back().range.last;
      while (!open.empty() && open.back().range.last <= last) open.pop_back();
      if (const auto next = last.Next()) begin_at(*next, open.empty() ? 0 : open.back().area);
    }
  };
  for (const Range& range : ranges_) {
    close_before(range.range.first);
    if (!open.empty() && range.range.last > open.back().range.last) ++*overlaps;
    open.push_back(range);
    begin_at(range.range.first, range.area);
  }
  close_before(std::nullopt);
  return starts;
}

std::string CAreaBuilder::AreaTable(std::string* text) const {
  std::string table;
  for (const auto& [code, name] : areas_) {
    AppendNumber(text->size(), 4, &table);
    AppendNumber(code.size(), 2, &table);
    AppendNumber(name.size(), 2, &table);
    *text += code;
    *text += name;
  }
  return table;
}

CAreaBuilder::File CAreaBuilder::Build() {
  File file;
  const std::vector<Start> starts = Sweep(&file.overlaps);
  file.starts = starts.size();
  if (starts.size() > AreaFormat::kMaxStarts) return file;
  std::string text;
  const std::string areas = AreaTable(&text);
  std::string& content = file.content;
  content = AreaFormat::kMagic;
  AppendNumber(AreaFormat::kVersion, 4, &content);
  AppendNumber(ipv4_ ? 4 : 6, 4, &content);
  AppendNumber(areas_.size(), 4, &content);
  AppendNumber(starts.size(), 4, &content);
  AppendNumber(text.size(), 4, &content);
  AppendNumber(0, 4, &content);  // the checksum's place
  content += areas;
  content += text;
  for (const Start& start : starts) {
    if (ipv4_) {
      AppendNumber(start.address.Ipv4(), 4, &content);
    } else {
      for (const std::uint8_t byte : start.address.Bytes()) content += static_cast<char>(byte);
    }
  }
  for (const Start& start : starts) AppendNumber(start.area, 2, &content);
  std::string checksum;
  AppendNumber(AreaFormat::Checksum(content), 4, &checksum);
  content.replace(AreaFormat::kChecksumOffset, checksum.size(), checksum);
  return file;
}

}  // namespace qiv

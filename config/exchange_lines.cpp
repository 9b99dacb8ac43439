#include "config/exchange_lines.h"

#include "common/aes.h"
#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::string_view kListNames[kClientLists] = {"denylist", "authlist", "cccheck"};
constexpr std::string_view kOrigin = "IIS";
constexpr std::size_t kTimeMaxDigits = 18;  // stays within 64 bits
constexpr std::size_t kCountField = 5;

void AppendFields(std::initializer_list<std::string_view> fields, std::string* line) {
  for (const std::string_view field : fields) {
    if (!line->empty()) *line += '\t';
    *line += CleanField(field);
  }
}

std::string Line(std::initializer_list<std::string_view> fields) {
  std::string line;
  AppendFields(fields, &line);
  return line;
}

/// A field that stands for nothing is written "-".
std::string_view OrDash(std::string_view text) { return text.empty() ? std::string_view("-") : text; }

}  // namespace

std::string_view ClientListName(ClientList list) { return kListNames[static_cast<std::size_t>(list)]; }

std::optional<ClientList> FindClientList(std::string_view name) {
  for (std::size_t i = 0; i < kClientLists; ++i) {
    if (kListNames[i] == name) return static_cast<ClientList>(i);
  }
  return std::nullopt;
}

CIpAddress ListKey(ClientList list, const CIpAddress& client) {
  return list == ClientList::kDeny ? ClientNetwork(client) : client;
}

LineFields SplitFields(std::string_view line) {
  LineFields fields;
  bool more = true;
  while (more) {
    if (fields.count == LineFields::kNamed) {
      fields.rest = line;
      for (const char c : line) fields.count += c == '\t' ? 1 : 0;
      ++fields.count;
      break;
    }
    const std::size_t tab = line.find('\t');
    more = tab != std::string_view::npos;
    fields.field[fields.count++] = line.substr(0, tab);
    line.remove_prefix(more ? tab + 1 : line.size());
  }
  return fields;
}

std::int64_t ParseTime(std::string_view text) {
  text = Trim(text);
  if (text.size() > kTimeMaxDigits) return 0;
  std::int64_t value = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return 0;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::optional<ListRecord> ParseListRecord(const LineFields& fields) {
  if (fields.count < 7 || fields.field[1] != "add") return std::nullopt;
  const auto list = FindClientList(fields.field[0]);
  if (!list) return std::nullopt;
  const std::int64_t start = ParseTime(fields.field[4]);
  const std::int64_t end = ParseTime(fields.field[5]);
  if (start == 0 || end == 0 || start >= end) return std::nullopt;
  const auto client = CIpAddress::Parse(Trim(fields.field[3]));
  if (!client) return std::nullopt;
  return ListRecord{*list, *client, start, end, fields.field[6]};
}

std::string CleanField(std::string_view text) {
  std::string clean(CCharSet::Prefix(text, kFieldMaxBytes));
  for (char& c : clean) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return clean;
}

std::string LockLine(ClientList list, std::string_view client, std::int64_t now, std::int64_t end,
                     std::initializer_list<std::string_view> details) {
  const bool ended = list == ClientList::kCcCheck && end == 0;
  std::string line =
      Line({ClientListName(list), ended ? "del" : "add", kOrigin, client, std::to_string(now), std::to_string(end)});
  AppendFields(details, &line);
  if (details.size() == 0) line += "\t-";  // a record has seven fields
  return line;
}

std::string MessageLine(const ServiceMessage& message) {
  return Line({"msg", OrDash(message.client), OrDash(message.category), OrDash(message.item), "-", "-",
               OrDash(message.reason), OrDash(message.url)});
}

std::string CheckLine(const CheckCount& check) {
  return Line(
      {"check", OrDash(check.check), OrDash(check.client), OrDash(check.action), "0", "1", OrDash(check.rule), "-"});
}

std::string StatisticsLine(const StatisticsCount& statistics) {
  return Line(
      {"tongji", OrDash(statistics.category), "-", OrDash(statistics.client), OrDash(statistics.rule), "1", "-", "-"});
}

std::string WithCount(std::string_view line, std::uint64_t count) {
  std::size_t begin = 0;
  for (std::size_t i = 0; i < kCountField; ++i) {
    begin = line.find('\t', begin);
    if (begin == std::string_view::npos) return std::string(line);
    ++begin;
  }
  const std::size_t end = line.find('\t', begin);
  std::string counted(line.substr(0, begin));
  counted += std::to_string(count);
  if (end != std::string_view::npos) counted += line.substr(end);
  return counted;
}

std::string EncipherLine(std::string_view line) {
  std::string enciphered = encrypt_text("", line);
  if (!enciphered.empty()) enciphered += '\n';
  return enciphered;
}

std::uint64_t EncipheredBytes(std::size_t size) {
  const std::uint64_t blocks = (size + CAES::kBlockSize - 1) / CAES::kBlockSize;
  return blocks == 0 ? 0 : blocks * CAES::kBlockSize * 2 + 1;
}

std::string DecipherPiece(std::string_view piece) { return decrypt_text("", piece); }

}  // namespace qiv

// The lines of the two files that the module and the firewall service share: fields separated by tabs, every line
// enciphered by itself. docs/exchange-files.md shows them all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "common/ip_address.h"

namespace qiv {

/// The lists of clients. kCcCheck: those who have to pass a verification first.
enum class ClientList { kDeny, kAuth, kCcCheck };
inline constexpr std::size_t kClientLists = 3;

/// "denylist", "authlist", "cccheck".
std::string_view ClientListName(ClientList list);
std::optional<ClientList> FindClientList(std::string_view name);

/// What stands for a client on a list: on the deny list the network that it can choose its address from, written as the
/// first address of that (2001:db8::7 is listed as 2001:db8::); on the others the address itself, since one client's
/// password says nothing of its neighbours.
CIpAddress ListKey(ClientList list, const CIpAddress& client);

/// A plain line taken apart; views into it. Fields that the line does not have are empty.
struct LineFields {
  static constexpr std::size_t kNamed = 8;
  std::array<std::string_view, kNamed> field;
  std::string_view rest;  ///< what follows the eighth field, with its tabs
  std::size_t count = 0;  ///< of all fields; at least 1
};
LineFields SplitFields(std::string_view line);

/// A client on a list until `end`. Times in seconds since 1970.
struct ListRecord {
  ClientList list = ClientList::kDeny;
  CIpAddress client;
  std::int64_t start = 0;
  std::int64_t end = 0;
  std::string_view detail;
};

/// The record of a line of _in.db. Nothing when it has fewer than seven fields, does not add, names no list, or its
/// address or its times are not valid: both times are decimal digits, above 0, and the start is before the end.
std::optional<ListRecord> ParseListRecord(const LineFields& fields);

/// Decimal digits, blanks around them allowed; 0 for any other text and for numbers beyond 18 digits.
std::int64_t ParseTime(std::string_view text);

/// What can stand in a field: control bytes (tabs and line ends would make new fields and lines, a zero byte would end
/// the deciphered text) become blanks, and the text is cut at kFieldMaxBytes, at a character boundary.
std::string CleanField(std::string_view text);
inline constexpr std::size_t kFieldMaxBytes = 1024;  // the longest text of the event log

// What the module tells of its blocks. An empty text is written "-".

/// A "msg" line: a block that somebody should hear of.
struct ServiceMessage {
  std::string_view client;
  std::string_view category;
  std::string_view item;
  std::string_view reason;
  std::string_view url;
};

/// A "check" line, counted: what a check did.
struct CheckCount {
  std::string_view check;
  std::string_view client;
  std::string_view action;
  std::string_view rule;
};

/// A "tongji" line, counted.
struct StatisticsCount {
  std::string_view category;
  std::string_view client;
  std::string_view rule;
};

// Plain lines for _out.log, every field cleaned.

/// "add", or "del" when the client's verification ended (kCcCheck with end 0).
std::string LockLine(ClientList list, std::string_view client, std::int64_t now, std::int64_t end,
                     std::initializer_list<std::string_view> details);
std::string MessageLine(const ServiceMessage& message);
std::string CheckLine(const CheckCount& check);
std::string StatisticsLine(const StatisticsCount& statistics);

/// A check or statistics line with its count (field 5) set.
std::string WithCount(std::string_view line, std::uint64_t count);

/// The line as it stands in a file, with its line end.
std::string EncipherLine(std::string_view line);
/// Its length for a plain line of `size` bytes without a zero byte.
std::uint64_t EncipheredBytes(std::size_t size);

/// Shortest enciphered piece that can hold a record: two cipher blocks in digits, because seven fields with a list name
/// and "add" have more than 16 bytes.
inline constexpr std::size_t kPieceMinDigits = 64;

/// Calls on_line(plain line) for every line of an enciphered file, be it one piece or one piece a line. Carriage
/// returns before a line end are dropped. Pieces too short for a record are passed over.
template <typename OnLine>
void ForEachLine(std::string_view file_text, OnLine&& on_line);

/// The plain text of one piece.
std::string DecipherPiece(std::string_view piece);

/// The part of *text before the next line end, which both are taken off.
inline std::string_view TakeLine(std::string_view* text) {
  const std::size_t end = text->find('\n');
  std::string_view line = text->substr(0, end);
  text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
  while (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

template <typename OnLine>
void ForEachLine(std::string_view file_text, OnLine&& on_line) {
  while (!file_text.empty()) {
    const std::string_view piece = TakeLine(&file_text);
    if (piece.size() < kPieceMinDigits) continue;
    const std::string plain = DecipherPiece(piece);
    std::string_view lines = plain;
    while (!lines.empty()) on_line(TakeLine(&lines));
  }
}

}  // namespace qiv

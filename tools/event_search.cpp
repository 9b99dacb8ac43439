#include "tools/event_search.h"

#include <cstdint>

#include "common/char_set.h"
#include "common/event_log.h"
#include "common/text.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = 4U << 20;

/// The line of a log with this text in it; empty when there is none.
std::string FindLine(const std::string& path, std::string_view wanted) {
  std::string piece;
  for (std::uint64_t offset = 0;
       ReadFilePart(path, offset, kPieceBytes, &piece) == ReadFileResult::kOk && !piece.empty();) {
    const std::size_t found = piece.find(wanted);
    const std::size_t last_end = piece.rfind('\n');
    const std::size_t whole = last_end == std::string::npos ? piece.size() : last_end + 1;
    if (found < whole) {
      const std::size_t begin = piece.rfind('\n', found) + 1;  // npos + 1 is 0
      return piece.substr(begin, piece.find('\n', found) - begin);
    }
    offset += whole;
  }
  return {};
}

}  // namespace

std::string FindEvent(const std::string& directory, const std::string& id) {
  const std::string wanted = "\"event_id\":\"" + id + "\"";
  const std::string log = directory + "debug/_log.log";
  std::string line = FindLine(log, wanted);
  for (int kept = 1; line.empty() && kept <= CEventLog::kKeptFiles; ++kept) {
    line = FindLine(log + "." + std::to_string(kept), wanted);
  }
  return line;
}

std::string CleanEventId(std::string_view given) { return CCharSet::LowerAscii(Trim(given)); }

bool IsEventId(std::string_view id) {
  return !id.empty() && id.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace qiv

#include "tools/state_log.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

#include "common/event_log.h"
#include "common/json.h"
#include "port/file.h"
#include "tools/printable.h"

namespace qiv {
namespace {

constexpr std::size_t kPieceBytes = 4U << 20;

using StateKey = std::tuple<std::string, std::string, std::string>;  // kind, file, item

struct FileStates {
  std::map<StateKey, LoggedState> last;
  std::string version;
};

void TakeLine(std::string_view line, FileStates* states) {
  // Events about requests, nearly all lines, have none.
  if (line.find("\"kind\":\"") == std::string_view::npos) return;
  const std::unique_ptr<IJsonValue> value = ParseJson(line);
  const JsonObject* const object = value == nullptr ? nullptr : value->AsObject();
  if (object == nullptr || object->GetText("kind").empty()) return;
  const auto text = [object](const char* key) { return PrintableUtf8(object->GetText(key)); };
  LoggedState state{text("time"), text("kind"),   text("state"), text("file"),
                    text("item"), text("reason"), text("detail")};
  if (const std::string version = text("version"); !version.empty()) states->version = version;
  StateKey key(state.kind, state.file, state.item);
  states->last.insert_or_assign(std::move(key), std::move(state));
}

FileStates ReadFileStates(const std::string& path) {
  FileStates states;
  std::string piece;
  for (std::uint64_t offset = 0;
       ReadFilePart(path, offset, kPieceBytes, &piece) == ReadFileResult::kOk && !piece.empty();) {
    const std::size_t last_end = piece.rfind('\n');
    const std::size_t whole = last_end == std::string::npos ? piece.size() : last_end + 1;
    offset += whole;
    std::string_view lines = std::string_view(piece).substr(0, whole);
    while (!lines.empty()) {
      const std::size_t end = lines.find('\n');
      TakeLine(lines.substr(0, end), &states);
      lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
    }
  }
  return states;
}

}  // namespace

const LoggedState* StateLog::Find(const std::string& kind, const std::string& file) const {
  for (const LoggedState& state : last) {
    if (state.kind == kind && state.file == file && state.item.empty()) return &state;
  }
  return nullptr;
}

StateLog ReadStateLog(const std::string& directory) {
  const std::string path = directory + "debug/_log.log";
  FileStates all;
  for (int kept = 0; kept <= CEventLog::kKeptFiles && !all.last.contains({"protection", "", ""}); ++kept) {
    FileStates older = ReadFileStates(kept == 0 ? path : path + "." + std::to_string(kept));
    all.last.merge(older.last);  // what a newer file says stays
    if (all.version.empty()) all.version = older.version;
  }
  StateLog log;
  log.version = all.version;
  for (auto& [key, state] : all.last) log.last.push_back(std::move(state));
  return log;
}

std::string ReasonOf(const LoggedState& state) {
  return state.detail.empty() ? state.reason : state.reason + " (" + state.detail + ")";
}

}  // namespace qiv

// The files that another program writes for the module and the tool: lines of _in.db and _out.log, the area library,
// the service's journal. An area library is also tried with its checksum put right, so that what lies behind it is
// reached.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/area_library.h"
#include "config/exchange_lines.h"
#include "tools/list_store.h"
#include "tools/log_text.h"
#include "tools/service_journal.h"

namespace {

void TryLine(std::string_view line) {
  const qiv::LineFields fields = qiv::SplitFields(line);
  std::size_t tabs = 0;
  for (const char c : line) tabs += c == '\t' ? 1 : 0;
  if (fields.count != tabs + 1) std::abort();
  if (const auto record = qiv::ParseListRecord(fields)) {
    if (record->start <= 0 || record->start >= record->end) std::abort();
    if (!qiv::ParseLockRequest(fields)) std::abort();
  }
  if (qiv::LogLineText(line).find('\n') != std::string::npos && line.find('\n') == std::string_view::npos) std::abort();
  qiv::LogLineJson(line);
  const std::string clean = qiv::CleanField(line);
  if (clean.find_first_of("\t\r\n") != std::string::npos || qiv::CleanField(clean) != clean) std::abort();
}

void TryArea(std::string_view file, bool ipv4) {
  qiv::AreaLoad result = qiv::AreaLoad::kOk;
  const auto library = qiv::CAreaLibrary::Parse(file, ipv4, &result);
  if ((library != nullptr) != (result == qiv::AreaLoad::kOk)) std::abort();
  if (!library) return;
  for (std::uint32_t top = 0; top < 256; ++top) {
    const qiv::Area* const area = library->Find(qiv::CIpAddress::FromIpv4(top << 24));
    if (area && area->code.size() != area->code_key.size()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  TryLine(text);
  qiv::ForEachLine(text, TryLine);
  qiv::ServiceJournal journal;
  if (journal.FromJson(text)) {
    qiv::ServiceJournal again;
    if (!again.FromJson(journal.ToJson()) || again.ToJson() != journal.ToJson()) std::abort();
  }
  std::string file(text);
  if (file.size() >= qiv::AreaFormat::kHeaderBytes) {
    TryArea(file, true);
    const std::uint32_t sum = qiv::AreaFormat::Checksum(file);
    for (std::size_t i = 0; i < 4; ++i) file[qiv::AreaFormat::kChecksumOffset + i] = static_cast<char>(sum >> 8 * i);
  }
  TryArea(file, true);
  TryArea(file, false);
  return 0;
}

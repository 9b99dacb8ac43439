#include "config/exemptions.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kFields = 5;
constexpr std::string_view kNothing = "-";

void AppendField(std::string_view text, std::string* line) {
  if (!line->empty()) *line += '\t';
  if (text.empty()) text = kNothing;
  for (const char c : text) *line += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? ' ' : c;
}

/// False when the line has another number of fields.
bool ReadLine(std::string_view line, Exemption* exemption) {
  std::array<std::string, kFields> fields;
  std::size_t count = 0;
  for (bool more = true; more; ++count) {
    if (count == kFields) return false;
    const std::size_t tab = line.find('\t');
    more = tab != std::string_view::npos;
    const std::string_view field = Trim(line.substr(0, tab));
    if (field != kNothing) fields[count] = field;
    line.remove_prefix(more ? tab + 1 : line.size());
  }
  *exemption = {std::move(fields[0]), std::move(fields[1]), std::move(fields[2]), std::move(fields[3]),
                std::move(fields[4])};
  return count == kFields && !exemption->rule.empty() && (exemption->path.empty() || exemption->path[0] == '/');
}

}  // namespace

std::string ExemptionLine(const Exemption& exemption) {
  std::string line;
  for (const std::string* field :
       {&exemption.rule, &exemption.path, &exemption.parameter, &exemption.date, &exemption.remark}) {
    AppendField(*field, &line);
  }
  return line;
}

bool CExemptions::Read(std::string_view text, std::vector<Exemption>* exemptions, std::size_t* bad_line) {
  exemptions->clear();
  for (*bad_line = 1; !text.empty(); ++*bad_line) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = Trim(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.starts_with('#')) continue;
    Exemption exemption;
    if (exemptions->size() == kMost || !ReadLine(line, &exemption)) return false;
    exemptions->push_back(std::move(exemption));
  }
  return true;
}

CExemptions::CExemptions(std::vector<Exemption> exemptions) : exemptions_(std::move(exemptions)) {
  for (Exemption& exemption : exemptions_) {
    exemption.rule = CCharSet::Utf8ToLocal(exemption.rule);
    exemption.path = CCharSet::LowerAscii(CCharSet::Utf8ToLocal(exemption.path));
    exemption.parameter = CCharSet::Utf8ToLocal(exemption.parameter);
  }
}

std::vector<const Exemption*> CExemptions::Find(std::string_view rule, std::string_view path) const {
  std::vector<const Exemption*> found;
  const std::string lower = CCharSet::LowerAscii(path);
  for (const Exemption& exemption : exemptions_) {
    if (exemption.rule != rule || (!exemption.path.empty() && exemption.path != lower)) continue;
    found.push_back(&exemption);
  }
  return found;
}

}  // namespace qiv

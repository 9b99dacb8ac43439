// The parameter splitter over any bytes: views inside the text, at most one a byte, and no value left out.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "common/text.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Inside(std::string_view part, std::string_view text) {
  return part.empty() || (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::vector<qiv::Parameter> parameters = qiv::SplitParameters(text);
  Require(parameters.size() <= size);
  for (const qiv::Parameter& parameter : parameters) {
    Require(Inside(parameter.value, text));
    Require(parameter.is_file_name || Inside(parameter.name, text));
  }
  // Where the text is no multipart, a value follows every "=" and "&"; the bytes left out are names and separators.
  if (text.find("--") == std::string_view::npos) {
    std::size_t covered = 0;
    for (const qiv::Parameter& parameter : parameters) covered += parameter.name.size() + parameter.value.size() + 2;
    Require(parameters.empty() ? qiv::Trim(text).find_first_not_of('&') == std::string_view::npos
                               : covered + static_cast<std::size_t>(std::count(text.begin(), text.end(), '&')) >= size);
  }
  std::size_t visited = 0;
  qiv::ForEachParameter(text, [&](const qiv::Parameter&) { return ++visited < 3; });
  Require(visited == std::min<std::size_t>(parameters.size(), 3));
  return 0;
}

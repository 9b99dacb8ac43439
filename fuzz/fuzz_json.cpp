// JSON text: what is read must be written back as text that reads the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  qiv::JsonError error;
  const auto value = qiv::ParseJson(text, &error);
  if (value == nullptr) {
    if (error.offset > size || error.message.empty()) std::abort();
    std::string quoted;
    qiv::AppendJsonString(text, &quoted);
    if (qiv::ParseJson(quoted) == nullptr) std::abort();
    return 0;
  }
  if (const auto* number = value->AsNumber()) {
    number->ToInt64();
    number->ToDouble();
  }
  const std::string written = qiv::WriteJson(*value);
  const auto again = qiv::ParseJson(qiv::WriteJson(*value, 2));
  if (again == nullptr || qiv::WriteJson(*again) != written) std::abort();
  return 0;
}

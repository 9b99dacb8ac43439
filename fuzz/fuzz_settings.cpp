// Readable settings: lint and pack take any text, and what unpack writes is stored and read back unchanged.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tools/settings_lint.h"

namespace {

/// Packed and unpacked again; empty when the text cannot be stored.
std::string RoundTrip(const std::string& text) {
  qiv::CReport report("");
  const std::unique_ptr<qiv::CSettingsDocument> settings = qiv::CSettingsDocument::Parse(text, &report);
  if (settings == nullptr) return {};
  qiv::LintSettings(*settings, &report);
  if (report.HasError()) return {};
  const std::string packed = qiv::PackSettings(*settings, &report);
  return report.HasError() ? std::string() : qiv::UnpackSettings(packed, &report);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string readable = RoundTrip(text);
  if (!readable.empty() && RoundTrip(readable) != readable) __builtin_trap();
  qiv::CReport report("");
  qiv::UnpackSettings(text, &report);
  return 0;
}

// The XSS detector over any bytes, and against the slow one where the text is short.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "engines/injection/xss_detector.h"
#include "tests/engines/injection/slow_detectors.h"

namespace {

constexpr std::size_t kShort = 300;
constexpr std::size_t kFactor = 6;  // times that a byte may be read

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const qiv::InjectionLibrary library(
      {}, {}, qiv::slow::OneWordRules({"onload", "onerror", "on", "on ", " ", "=", "'x", "onload ="}));
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::size_t work = 0;
  const std::string_view event = qiv::XssDetector::EventCheck(text, library, &work);
  const std::string_view script = qiv::XssDetector::ScriptTagCheck(text, &work);
  const std::string_view url = qiv::XssDetector::JavascriptUrlCheck(text, &work);
  Require(work <= 3 * kFactor * (size + 1));
  if (size <= kShort) {
    Require(event == qiv::slow::EventCheck(text, library.Events()));
    Require(script == qiv::slow::ScriptTagCheck(text));
    Require(url == qiv::slow::JavascriptUrlCheck(text));
  }
  qiv::InjectionSettings settings;
  settings.xss_html_action = settings.xss_script_block = settings.xss_script_load = 1;
  for (const bool per_parameter : {false, true}) {
    qiv::TextPlace fragment;
    const qiv::XssType type = qiv::XssDetector::TagCheck(text, settings, library, &fragment, per_parameter);
    Require((type != qiv::XssType::kNone) == text.substr(fragment.offset, fragment.length).starts_with('<'));
  }
  return 0;
}

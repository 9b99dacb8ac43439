// The configuration file: as it lies on disk, and (after a zero byte that ends the IP lists) as it is once deciphered.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "config/config_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t zero = text.find('\0');
  qiv::WebsiteConfig config;
  if (zero == std::string_view::npos) {
    qiv::ParseConfigText(text, &config);
    return 0;
  }
  const qiv::ConfigStatus status = qiv::ParseConfigParts(text.substr(0, zero), text.substr(zero + 1), &config);
  // Whatever was loaded keeps the promises that readers rely on.
  if (status == qiv::ConfigStatus::kLoaded) {
    if (config.attack.cc_lock_freq_sec <= 0 || config.response.lock_freq_sec <= 0) __builtin_trap();
    if (config.response.lock && config.response.lock_time <= 0) __builtin_trap();
    if (config.page.redirect_url.find_first_of("\r\n") != std::string::npos) __builtin_trap();
    config.injection_exemptions.Matches("/a?b=c", "/a");
    config.get_rules.FindFirst("union select");
  }
  return 0;
}

// Enciphered texts: any bytes decipher to something, and what was enciphered comes back up to its first zero byte.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/aes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (qiv::decrypt_text("", text).size() > (size / 2 + 15) / 16 * 16) std::abort();
  const std::string_view key = text.substr(0, size % 20);
  const std::string hex = qiv::encrypt_text(key, text);
  if (hex.size() != (size + 15) / 16 * 32) std::abort();
  if (qiv::decrypt_text(key, hex) != text.substr(0, text.find('\0'))) std::abort();
  return 0;
}

// A target with a fault that the replay must find: it reads one byte past inputs that end in a backslash.
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const volatile std::uint8_t* const bytes = data;
  return size > 0 && bytes[size - 1] == '\\' && bytes[size] == 0 ? 0 : 0;
}

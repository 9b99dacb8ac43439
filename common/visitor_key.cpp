#include "common/visitor_key.h"

#include <random>

#include "base/hex.h"

namespace qiv {

std::string NewVisitorKey() {
  std::random_device source;  // the system's generator on every platform that we build for
  std::string text;
  for (std::size_t i = 0; i < kVisitorKeyBytes; ++i) AppendHexByte(static_cast<char>(source()), &text);
  return text + "\n";
}

}  // namespace qiv

#include "engines/webshell/decoding/decoders.h"

#include <algorithm>
#include <cstdint>

#include "base/hex.h"
#include "common/text.h"

namespace qiv {
namespace {

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (IsDigit(c)) return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

}  // namespace

std::string DecodeBase64(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const int value = Base64Value(c);
    if (value < 0) {
      if (c == '=') break;
      continue;
    }
    bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFFFF;
    count += 6;
    if (count >= 8) {
      count -= 8;
      decoded += static_cast<char>(bits >> count & 0xFF);
    }
  }
  return decoded;
}

std::string DecodeHex(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    const int byte = HexNumber(text, i, 2);
    if (byte < 0) return {};
    decoded += static_cast<char>(byte);
  }
  return decoded;
}

std::string DecodeRot13(std::string_view text) {
  std::string decoded(text);
  for (char& c : decoded) {
    if (!IsLetter(c)) continue;
    const char base = (c & 0x20) != 0 ? 'a' : 'A';
    c = static_cast<char>(base + (c - base + 13) % 26);
  }
  return decoded;
}

std::string DecodeUrl(std::string_view text, bool plus) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (const int byte = EscapedByte(text, i); byte >= 0) {
      decoded += static_cast<char>(byte);
      i += 2;
    } else {
      decoded += plus && text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

std::string DecodeUuencoded(std::string_view text) {
  std::string decoded;
  for (const std::string_view line : Split(text, '\n')) {
    if (line.empty()) continue;
    const std::size_t length = static_cast<std::size_t>((line[0] - 32) & 63);
    const std::size_t begin = decoded.size();
    for (std::size_t i = 1; i + 3 < line.size(); i += 4) {
      std::uint32_t bits = 0;
      for (std::size_t k = 0; k < 4; ++k) bits = bits << 6 | static_cast<std::uint32_t>((line[i + k] - 32) & 63);
      decoded += static_cast<char>(bits >> 16 & 0xFF);
      decoded += static_cast<char>(bits >> 8 & 0xFF);
      decoded += static_cast<char>(bits & 0xFF);
    }
    decoded.resize(std::min(decoded.size(), begin + length));
  }
  return decoded;
}

std::string DecodeQuotedPrintable(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '=') {
      decoded += text[i];
      continue;
    }
    const std::string byte = DecodeHex(text.substr(i + 1, 2));
    if (byte.size() == 1) {
      decoded += byte;
      i += 2;
    } else if (i + 1 < text.size() && text[i + 1] == '\n') {
      i += 1;
    } else if (text.compare(i + 1, 2, "\r\n") == 0) {
      i += 2;
    } else {
      decoded += '=';
    }
  }
  return decoded;
}

}  // namespace qiv

#include "common/cmac.h"

#include <algorithm>
#include <cstddef>

#include "base/hex.h"

namespace qiv {
namespace {

constexpr std::size_t kBlock = CAES::kBlockSize;

/// The value doubled in the field that the standard uses.
CCmac::Tag Doubled(const CCmac::Tag& value) {
  constexpr unsigned kReduction = 0x87;
  CCmac::Tag result;
  unsigned carry = 0;
  for (std::size_t i = kBlock; i-- > 0;) {
    const unsigned shifted = static_cast<unsigned>(value[i]) << 1 | carry;
    result[i] = static_cast<std::uint8_t>(shifted);
    carry = shifted >> 8;
  }
  if (carry != 0) result[kBlock - 1] ^= kReduction;
  return result;
}

void Mix(std::string_view bytes, CCmac::Tag* block) {
  for (std::size_t i = 0; i < bytes.size(); ++i) (*block)[i] ^= static_cast<std::uint8_t>(bytes[i]);
}

}  // namespace

CCmac::CCmac(std::string_view key) : cipher_(key) {
  Tag zero{};
  cipher_.EncryptBlock(zero.data());
  whole_mask_ = Doubled(zero);
  padded_mask_ = Doubled(whole_mask_);
}

CCmac::Tag CCmac::Of(std::string_view message) const {
  constexpr std::uint8_t kPadding = 0x80;
  Tag block{};
  while (message.size() > kBlock) {
    Mix(message.substr(0, kBlock), &block);
    cipher_.EncryptBlock(block.data());
    message.remove_prefix(kBlock);
  }
  Mix(message, &block);
  if (message.size() < kBlock) block[message.size()] ^= kPadding;
  const Tag& mask = message.size() == kBlock ? whole_mask_ : padded_mask_;
  for (std::size_t i = 0; i < kBlock; ++i) block[i] ^= mask[i];
  cipher_.EncryptBlock(block.data());
  return block;
}

std::string TagText(const CCmac::Tag& tag) {
  std::string text;
  for (const std::uint8_t byte : tag) text.append({kLowerHexDigits[byte >> 4], kLowerHexDigits[byte & 15]});
  return text;
}

bool EqualInConstantTime(std::string_view a, std::string_view b) {
  std::size_t difference = a.size() ^ b.size();
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

}  // namespace qiv

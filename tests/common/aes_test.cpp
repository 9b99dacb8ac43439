#include "common/aes.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace qiv {
namespace {

using namespace std::string_literals;

std::string FromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

TEST(Aes, PublishedBlocks) {
  const struct {
    const char* source;
    const char* key;
    const char* plain;
    const char* cipher;
  } cases[] = {
      {"FIPS-197 appendix B", "2b7e151628aed2a6abf7158809cf4f3c", "3243f6a8885a308d313198a2e0370734",
       "3925841d02dc09fbdc118597196a0b32"},
      {"FIPS-197 appendix C.1", "000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
       "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {"SP 800-38A F.1.1, 1", "2b7e151628aed2a6abf7158809cf4f3c", "6bc1bee22e409f96e93d7e117393172a",
       "3ad77bb40d7a3660a89ecaf32466ef97"},
      {"all zero", "00000000000000000000000000000000", "00000000000000000000000000000000",
       "66e94bd4ef8a2c3b884cfa59ca342b2e"},
  };
  for (const auto& c : cases) {
    const CAES cipher(std::string_view(FromHex(c.key)));
    std::string block = FromHex(c.plain);
    cipher.EncryptBlock(reinterpret_cast<std::uint8_t*>(block.data()));
    EXPECT_EQ(block, FromHex(c.cipher)) << c.source;
    cipher.DecryptBlock(reinterpret_cast<std::uint8_t*>(block.data()));
    EXPECT_EQ(block, FromHex(c.plain)) << c.source;
  }
}

std::string ErrorOf(const auto& make) {
  try {
    make();
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "none";
}

TEST(Aes, Keys) {
  EXPECT_EQ(ErrorOf([] { const CAES cipher(static_cast<const char*>(nullptr)); }), "Key cannot be null");
  EXPECT_EQ(ErrorOf([] { const CAES cipher(""); }), "Key cannot be empty");
  EXPECT_EQ(ErrorOf([] { const CAES cipher(std::string_view{}); }), "Key cannot be empty");
  const std::string text = "sixteen bytes ok";
  const std::string sixteen = encrypt_text("0123456789abcdef", text);
  EXPECT_EQ(encrypt_text("0123456789abcdefXYZ", text), sixteen) << "a long key is cut";
  EXPECT_NE(encrypt_text("0123456789abcdeX", text), sixteen);
  EXPECT_EQ(encrypt_text("abc", text), encrypt_text("abc\0\0"s, text)) << "a short key is filled with zeros";
  // Files that exist are enciphered with the built-in key: it must never change.
  EXPECT_EQ(encrypt_text("", "<website_base>"), "CF744AF49AFBB916CBD95A3237038EFD");
}

TEST(Aes, TextsThereAndBack) {
  for (const std::size_t length : {0, 1, 15, 16, 17, 31, 32, 33, 4096, 100'001}) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>(1 + i * 31 % 255));
    const std::string hex = encrypt_text("key", text);
    EXPECT_EQ(hex.size(), (length + 15) / 16 * 32) << length;
    EXPECT_EQ(hex.find_first_not_of("0123456789ABCDEF"), hex.npos) << length;
    EXPECT_EQ(decrypt_text("key", hex), text) << length;
    std::string lower = hex;
    for (char& c : lower) c = static_cast<char>(c >= 'A' ? c | 0x20 : c);
    EXPECT_EQ(decrypt_text("key", lower), text) << length;
    EXPECT_EQ(decrypt_text("other", hex) == text, length == 0) << length;
  }
  EXPECT_EQ(encrypt_text(FromHex("2b7e151628aed2a6abf7158809cf4f3c"), FromHex("6bc1bee22e409f96e93d7e117393172a")),
            "3AD77BB40D7A3660A89ECAF32466EF97");
  EXPECT_EQ(decrypt_text("key", encrypt_text("key", "before\0after"s)), "before") << "ends at the first zero byte";
}

TEST(Aes, WhatIsNotHexadecimal) {
  const std::string first = "first block 16 B";
  const std::string hex = encrypt_text("key", first + "and a second one");
  // The byte that a pair stands for when a digit is none: 255 in that digit's place.
  const struct {
    const char* pair;
    const char* meaning;
  } cases[] = {{"G0", "F0"}, {"zA", "FA"}, {"3 ", "FF"}, {"\xB0\xA1", "FF"}, {"/:", "FF"}, {"@5", "F5"}, {"`g", "FF"}};
  for (const auto& c : cases) {
    EXPECT_EQ(decrypt_text("key", hex.substr(0, 32) + c.pair + hex.substr(34)),
              decrypt_text("key", hex.substr(0, 32) + c.meaning + hex.substr(34)))
        << c.pair;
    EXPECT_EQ(decrypt_text("key", hex.substr(0, 32) + c.pair + hex.substr(34)).substr(0, 16), first) << c.pair;
  }
  EXPECT_EQ(decrypt_text("key", hex + "A"), decrypt_text("key", hex)) << "a last digit without its pair";
  EXPECT_EQ(decrypt_text("key", ""), "");
  EXPECT_EQ(decrypt_text("key", "A"), "");
  // A cut text: whole blocks are read, the rest is filled with zeros and gives wrong text, no more than a block of it.
  const std::string cut = decrypt_text("key", hex.substr(0, 40));
  EXPECT_EQ(cut.substr(0, 16), first);
  EXPECT_LE(cut.size(), 32U);
}

}  // namespace
}  // namespace qiv

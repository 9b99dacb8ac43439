#include "port/code_page.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qiv {
namespace {

using namespace std::string_literals;

std::string Hex(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    text += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
    text += "0123456789ABCDEF"[c & 0xF];
    text += ' ';
  }
  return text;
}

TEST(CodePage, SamplesBothWays) {
  const struct {
    std::string gbk;
    std::string utf8;
  } cases[] = {
      {"", ""},
      {"plain ASCII\0 with a zero"s, "plain ASCII\0 with a zero"s},
      {"\xD6\xD0\xCE\xC4", "中文"},
      {"\x80", "€"},
      {"\x81\x40\xFE\x4F", "丂﨩"},          // the ends of the double-byte range
      {"\x81\x5C|\x95\x7C", "乗|晐"},        // trail bytes "\" and "|"
      {"\xA1\xA4\xA1\xAA\xA1\xAB", "·—～"},  // where published tables differ
      {"x\xB0\xA1y\xF7\xFEz", "x啊y齄z"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GbkToUtf8(c.gbk), c.utf8) << Hex(c.gbk);
    EXPECT_EQ(Utf8ToGbk(c.utf8), c.gbk) << Hex(c.utf8);
    EXPECT_EQ(Utf16ToUtf8(GbkToUtf16(c.gbk)), c.utf8) << Hex(c.gbk);
    EXPECT_EQ(Utf16ToGbk(Utf8ToUtf16(c.utf8)), c.gbk) << Hex(c.utf8);
  }
}

TEST(CodePage, MalformedGbk) {
  const std::string r = "\xEF\xBF\xBD";
  const struct {
    std::string gbk;
    std::string utf8;
  } cases[] = {
      {"a\xD6", "a" + r},    // lead byte at the end
      {"\xD6'x", r + "'x"},  // lead byte before a byte that is no trail byte: that byte stays
      {"\xD6\x7F", r + "\x7F"},     {"\xD6\xFF!", r + r + "!"},
      {"\xFF\xD6\xD0", r + "中"},   {"\xFE\xFE<", r + "<"},  // a pair without a character
      {"\xD6\n\xD0", r + "\n" + r},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GbkToUtf8(c.gbk), c.utf8) << Hex(c.gbk);
    EXPECT_EQ(Utf16ToUtf8(GbkToUtf16(c.gbk)), c.utf8) << Hex(c.gbk);
  }
}

TEST(CodePage, MalformedUtf8) {
  // Every byte of these is undecodable.
  const std::string cases[] = {"\x80", "\xC0\xAF", "\xE4\xB8", "\xED\xA0\x80", "\xF0\x9F\x98", "\xFE\xFF"};
  for (const std::string& bytes : cases) {
    const std::string around = "中" + bytes + "/x";
    EXPECT_EQ(Utf8ToUtf16(around), u"中" + std::u16string(bytes.size(), u'\uFFFD') + u"/x") << Hex(bytes);
    EXPECT_EQ(Utf8ToGbk(around), "\xD6\xD0" + std::string(bytes.size(), '?') + "/x") << Hex(bytes);
  }
}

TEST(CodePage, Utf16Surrogates) {
  const std::u16string lone_high = {u'a', 0xD83D, u'b'};
  const std::u16string lone_low = {0xDE00, u'b', 0xD83D};
  EXPECT_EQ(Utf8ToUtf16("😀"), u"😀");
  EXPECT_EQ(Utf16ToUtf8(u"a😀b"), "a😀b");
  EXPECT_EQ(Utf16ToUtf8(lone_high), "a\uFFFDb");
  EXPECT_EQ(Utf16ToUtf8(lone_low), "\uFFFDb\uFFFD");
  EXPECT_EQ(Utf16ToGbk(u"a😀b"), "a?b") << "one mark for one character";
  EXPECT_EQ(Utf16ToGbk(lone_high), "a?b");
}

TEST(CodePage, EveryCharacterSurvivesAndNoLookAlikeBecomesAscii) {
  int held = 0;
  for (char32_t code = 0x80; code < 0x10000; ++code) {
    if (code >= 0xD800 && code <= 0xDFFF) continue;
    std::string utf8;
    AppendUtf8(code, &utf8);
    const std::string gbk = Utf8ToGbk(utf8);
    std::string text = utf8 + "x\xE4" + utf8 + "yz";
    Utf8ToGbkInPlace(&text);
    ASSERT_EQ(text, gbk + "x?" + gbk + "yz");
    if (gbk == "?") continue;
    ++held;
    ASSERT_GE(static_cast<unsigned char>(gbk[0]), 0x80) << std::hex << static_cast<unsigned>(code);
    ASSERT_EQ(GbkToUtf8(gbk), utf8) << std::hex << static_cast<unsigned>(code);
  }
  EXPECT_EQ(held, 21791 + 1) << "the published table and the euro sign";
}

// All sequences of up to three bytes, and four-byte ones over the bytes where decisions change, judged by the
// definition: well formed exactly if encoding the code point gives the same bytes.
TEST(CodePage, Utf8DecodingByDefinition) {
  const auto check = [](const std::string& bytes) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    std::size_t expected = 0;
    char32_t naive = byte(0);
    if (byte(0) < 0x80) {
      expected = 1;
    } else {
      const std::size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
      naive = byte(0) & (0xFF >> (length + 1));
      for (std::size_t i = 1; i < length && i < bytes.size(); ++i) naive = naive << 6 | (byte(i) & 0x3F);
      std::string encoded;
      if (naive <= 0x10FFFF && (naive < 0xD800 || naive > 0xDFFF)) AppendUtf8(naive, &encoded);
      if (bytes.size() >= length && encoded == bytes.substr(0, length)) expected = length;
    }
    char32_t code = 0;
    ASSERT_EQ(DecodeUtf8(bytes, 0, &code), expected) << Hex(bytes);
    if (expected != 0) {
      ASSERT_EQ(code, naive) << Hex(bytes);
    }
  };
  for (int a = 0; a < 256; ++a) {
    check({static_cast<char>(a)});
    for (int b = 0; b < 256; ++b) {
      check({static_cast<char>(a), static_cast<char>(b)});
      for (const int c : {0, 0x41, 0x7F, 0x80, 0x81, 0x9F, 0xA0, 0xBE, 0xBF, 0xC0, 0xFF}) {
        check({static_cast<char>(a), static_cast<char>(b), static_cast<char>(c)});
        for (const int d : {0x7F, 0x80, 0xBF, 0xC0}) {
          check({static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)});
        }
      }
    }
  }
}

}  // namespace
}  // namespace qiv

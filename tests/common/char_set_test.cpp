#include "common/char_set.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qiv {
namespace {

using namespace std::string_literals;

// Calls visit(text) for every text of up to `longest` bytes over `alphabet`.
template <typename Visit>
void ForAllTexts(std::string_view alphabet, std::size_t longest, Visit visit) {
  std::vector<std::string> texts = {""};
  for (std::size_t i = 0; i < texts.size(); ++i) {
    visit(texts[i]);
    if (texts[i].size() == longest) continue;
    for (const char c : alphabet) texts.push_back(texts[i] + c);
  }
}

// Bytes that a double-byte text must be read by characters for: a letter and "|" that are trail bytes too, a byte that
// is none, the ends of the lead and trail ranges.
constexpr char kBytes[] = "A|'\x7F\x80\x81\xFE\xFF";
constexpr std::size_t kLongest = 5;

std::vector<std::size_t> Boundaries(std::string_view text) {
  std::vector<std::size_t> starts;
  for (std::size_t pos = 0; pos < text.size(); pos += CCharSet::CharacterLength(text, pos)) starts.push_back(pos);
  starts.push_back(text.size());
  return starts;
}

TEST(CharSet, FindPrefixAndLowerByCharacters) {
  std::size_t texts = 0;
  ForAllTexts(kBytes, kLongest, [&](const std::string& text) {
    ++texts;
    const std::vector<std::size_t> starts = Boundaries(text);
    for (const char c : std::string_view(kBytes)) {
      for (const std::size_t from : starts) {
        std::size_t expected = text.npos;
        for (const std::size_t start : starts) {
          const bool single = start < text.size() && CCharSet::CharacterLength(text, start) == 1;
          if (start >= from && single && text[start] == c && expected == text.npos) expected = start;
        }
        ASSERT_EQ(CCharSet::FindCharacter(text, c, from), expected) << ::testing::PrintToString(text) << c << from;
      }
    }
    for (std::size_t limit = 0; limit <= text.size() + 1; ++limit) {
      std::size_t expected = 0;
      for (const std::size_t start : starts) {
        if (start <= limit) expected = start;
      }
      ASSERT_EQ(CCharSet::Prefix(text, limit).size(), expected) << ::testing::PrintToString(text) << limit;
    }
    std::string lower = text;
    for (const std::size_t start : starts) {
      if (start < text.size() && text[start] == 'A') lower[start] = 'a';
    }
    ASSERT_EQ(CCharSet::LowerAscii(std::string_view(text)), lower) << ::testing::PrintToString(text);
  });
  EXPECT_EQ(texts, 37449U);
}

// The fast path takes eight bytes at once: everything around "A" to "Z", at every place in a word.
TEST(CharSet, LowerAsciiInWords) {
  for (int c = 0; c < 128; ++c) {
    for (std::size_t place = 0; place < 17; ++place) {
      std::string text(17, 'Q');
      std::string lower(17, 'q');
      text[place] = static_cast<char>(c);
      lower[place] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
      ASSERT_EQ(CCharSet::LowerAscii(std::string_view(text)), lower) << c << " at " << place;
    }
  }
  EXPECT_EQ(CCharSet::LowerAscii("ABCDEFG\xC4\x41ZZZZZZZZZ"s), "abcdefg\xC4\x41zzzzzzzzz")
      << "a double-byte character across two words";
}

TEST(CharSet, Utf8Validity) {
  const struct {
    const char* what;
    std::string bytes;
    bool valid;
  } cases[] = {
      {"three bytes", "\xE4\xB8\xAD", true}, {"four bytes, the last character", "\xF4\x8F\xBF\xBF", true},
      {"overlong slash", "\xC0\xAF", false}, {"cut", "\xE4\xB8", false},
      {"lead before ASCII", "\xE4'", false}, {"GBK", "\xD6\xD0\xCE\xC4", false},
  };
  for (const auto& c : cases) {
    for (std::size_t before = 0; before < 17; ++before) {
      for (const std::size_t after : {0, 1, 9}) {
        const std::string text = std::string(before, 'x') + c.bytes + std::string(after, 'y');
        EXPECT_EQ(CCharSet::IsValidUtf8(text), c.valid) << c.what << ", " << before << " bytes before it";
        EXPECT_FALSE(CCharSet::IsAscii(text)) << c.what;
      }
    }
  }
  EXPECT_TRUE(CCharSet::IsValidUtf8(""));
  EXPECT_TRUE(CCharSet::IsAscii("\0 plain \x7F"s));
}

TEST(CharSet, ToLocal) {
  const struct {
    std::string text;
    std::string local;
  } cases[] = {
      {"", ""},
      {"ASCII stays\0as it is"s, "ASCII stays\0as it is"s},
      {"é", "é"},                                // two bytes: too short to tell
      {"a é", "a \xA8\xA6"},                     // long enough
      {"中", "\xD6\xD0"},                        // three bytes are enough
      {"😀!", "?!"},                              // not in GBK
      {"中\xD6\xD0", "中\xD6\xD0"},              // not valid UTF-8 as a whole
      {"\xD6\xD0\xCE\xC4", "\xD6\xD0\xCE\xC4"},  // GBK already
  };
  for (const auto& c : cases) EXPECT_EQ(CCharSet::ToLocal(c.text), c.local) << c.text;
  EXPECT_EQ(CCharSet::Utf8ToLocal("é"), "\xA8\xA6") << "unconditionally";
  EXPECT_EQ(CCharSet::LocalToUtf8("\xD6\xD0|\xD6"), "中|\uFFFD");
}

}  // namespace
}  // namespace qiv

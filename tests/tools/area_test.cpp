#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "common/area_library.h"
#include "tools/area_builder.h"
#include "tools/area_csv.h"

namespace qiv {
namespace {

std::shared_ptr<const CAreaLibrary> Parse(const std::string& file, bool ipv4 = true) {
  AreaLoad result = AreaLoad::kOk;
  return CAreaLibrary::Parse(file, ipv4, &result);
}

std::string CodeOf(const CAreaLibrary& library, const CIpAddress& address) {
  const Area* const area = library.Find(address);
  return area ? std::string(area->code) : "-";
}

/// Every range paints its addresses, in the order in which they win.
TEST(AreaLibrary, AgreesWithPaintingEveryAddress) {
  constexpr int kAddresses = 64;
  std::mt19937 random(3);
  for (int round = 0; round < 400; ++round) {
    const bool ipv4 = round % 2 == 0;
    // The universe ends at the last address there is, in every second round of a family.
    const auto address = [&](int number) {
      const auto low = static_cast<std::uint32_t>(number) + (round % 4 < 2 ? 0xFFFFFFFF - (kAddresses - 1) : 5000);
      std::array<std::uint8_t, 16> bytes;
      bytes.fill(round % 4 < 2 ? 0xFF : 0x20);
      for (int i = 0; i < 4; ++i) bytes[15 - i] = static_cast<std::uint8_t>(low >> 8 * i);
      return ipv4 ? CIpAddress::FromIpv4(low) : CIpAddress::FromIpv6(bytes);
    };
    struct Painted {
      int first;
      int last;
      std::string code;
    };
    std::vector<Painted> ranges;
    CAreaBuilder builder(ipv4);
    for (std::uint32_t i = random() % 12; i > 0; --i) {
      const int first = static_cast<int>(random() % kAddresses);
      const int last = first + static_cast<int>(random() % (kAddresses - first));
      ranges.push_back({first, last, std::string(1, static_cast<char>('A' + random() % 5))});
      ASSERT_EQ(builder.Add({address(first), address(last)}, ranges.back().code, "n"), CAreaBuilder::AddResult::kOk);
    }
    std::stable_sort(ranges.begin(), ranges.end(), [](const Painted& a, const Painted& b) {
      return a.first != b.first ? a.first < b.first : a.last > b.last;
    });
    std::vector<std::string> painted(kAddresses, "-");
    for (const Painted& range : ranges) {
      for (int i = range.first; i <= range.last; ++i) painted[static_cast<std::size_t>(i)] = range.code;
    }
    const auto library = Parse(builder.Build().content, ipv4);
    ASSERT_TRUE(library);
    for (int i = 0; i < kAddresses; ++i) {
      ASSERT_EQ(CodeOf(*library, address(i)), painted[static_cast<std::size_t>(i)]) << round << " " << i;
    }
  }
}

TEST(AreaLibrary, RefusesEveryDamagedFile) {
  CAreaBuilder builder(true);
  const auto range = [](const char* text) { return ParseIpRange(text).value(); };
  builder.Add(range("1.0.0.0/8"), "AU", "Australia");
  builder.Add(range("9.0.0.0/8"), "US", "");
  const std::string good = builder.Build().content;
  ASSERT_TRUE(Parse(good));
  EXPECT_FALSE(Parse(good, false));
  for (std::size_t i = 0; i < good.size(); ++i) {
    std::string bad = good;
    bad[i] = static_cast<char>(bad[i] ^ 1);
    EXPECT_FALSE(Parse(bad)) << i;
    EXPECT_FALSE(Parse(good.substr(0, i))) << i;
  }
  EXPECT_FALSE(Parse(good + "x"));

  // A valid checksum does not make a valid file: every byte is set to its extremes and the checksum put right.
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const char byte : {'\0', '\x7F', '\xFF'}) {
      std::string bad = good;
      bad[i] = byte;
      const std::uint32_t sum = AreaFormat::Checksum(bad);
      for (std::size_t k = 0; k < 4; ++k) bad[AreaFormat::kChecksumOffset + k] = static_cast<char>(sum >> 8 * k);
      if (const auto library = Parse(bad)) {
        for (std::uint32_t top = 0; top < 256; ++top) CodeOf(*library, CIpAddress::FromIpv4(top << 24));
      }
    }
  }
}

TEST(AreaLibrary, HoldsHalfAMillionRanges) {
  constexpr std::uint32_t kRanges = 500'000;
  constexpr std::uint32_t kStep = 8000;
  CAreaBuilder builder(true);
  const auto code = [](std::uint32_t i) { return "C" + std::to_string(i * 7 % 250); };
  const auto ip = [](std::uint32_t number) { return CIpAddress::FromIpv4(number); };
  for (std::uint32_t i = 0; i < kRanges; ++i) {
    ASSERT_EQ(builder.Add({ip(i * kStep), ip(i * kStep + kStep / 2 - 1)}, code(i), "n"), CAreaBuilder::AddResult::kOk);
  }
  const auto library = Parse(builder.Build().content);
  ASSERT_TRUE(library);
  EXPECT_EQ(library->AreaCount(), 250U);
  EXPECT_LT(library->MemoryBytes(), 7U << 20);
  for (std::uint32_t i = 0; i < kRanges; i += 97) {
    EXPECT_EQ(CodeOf(*library, ip(i * kStep)), code(i));
    EXPECT_EQ(CodeOf(*library, ip(i * kStep + kStep / 2 - 1)), code(i));
    EXPECT_EQ(CodeOf(*library, ip(i * kStep + kStep / 2)), "-");
  }
}

TEST(AreaCsv, ReadsThePublicShapesAndNamesBadLines) {
  CAreaBuilder ipv4(true);
  CAreaBuilder ipv6(false);
  CReport report("list");
  ReadAreaCsv(
      "\xEF\xBB\xBFstart,end,code\r\n"
      "1.0.0.0,1.0.0.255,AU\r\n"
      "16777472,16777727,\"CN\",\"China, \"\"mainland\"\"\"\n"
      "# a comment\n\n"
      "2.0.0.0/8,FR,France\n"
      "2001:db8::/32,ZZ\n"
      "2001:db9::,2001:db9::ffff,YY\n"
      "3.0.0.0,3.0.0.255,-\n"
      "4.0.0.0,3.0.0.0,XX\n"
      "4.0.0.0,2001::,XX\n"
      "text\n"
      "5.0.0.0/33,XX\n",
      &ipv4, &ipv6, &report);
  const std::string errors = report.Text();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 4) << errors;
  EXPECT_EQ(report.ExitCode(), kExitError);
  const auto v4 = Parse(ipv4.Build().content);
  const auto v6 = Parse(ipv6.Build().content, false);
  ASSERT_TRUE(v4 && v6);
  const auto ip = [](const char* text) { return CIpAddress::Parse(text).value(); };
  EXPECT_EQ(CodeOf(*v4, ip("1.0.0.9")), "AU");
  EXPECT_EQ(v4->Find(ip("1.0.1.9"))->name, "China, \"mainland\"");
  EXPECT_EQ(CodeOf(*v4, ip("2.255.255.255")), "FR");
  EXPECT_EQ(CodeOf(*v4, ip("3.0.0.1")), "-");
  EXPECT_EQ(CodeOf(*v6, ip("2001:db8::1")), "ZZ");
  EXPECT_EQ(CodeOf(*v6, ip("2001:db9::ff")), "YY");
  EXPECT_EQ(CodeOf(*v6, ip("2001:db9::1:0")), "-");
}

TEST(AreaNames, CompareWithoutCaseCodesNamesAndTheFirstPartOfACode) {
  const CAreaNames names("cn| United States |DE-BY|\xD6\xD0\xB9\xFA");  // the last one in GBK
  const auto contains = [&names](std::string_view code, std::string_view name) {
    return names.Contains(Area{code, name, code, name});
  };
  EXPECT_TRUE(contains("cn", ""));
  EXPECT_TRUE(contains("cn-bj", "beijing"));
  EXPECT_TRUE(contains("us", "united states"));
  EXPECT_TRUE(contains("x", "\xE4\xB8\xAD\xE5\x9B\xBD"));
  EXPECT_TRUE(contains("de-by", ""));
  EXPECT_FALSE(contains("de", ""));
  EXPECT_FALSE(contains("c", "united"));
  EXPECT_FALSE(CAreaNames("").Contains(Area{}));
}

}  // namespace
}  // namespace qiv

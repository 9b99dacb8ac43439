#include "common/ip_address.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "common/text.h"

namespace qiv {
namespace {

/// "in=out" each, divided by blanks.
std::vector<std::pair<std::string_view, std::string_view>> Cases(std::string_view text) {
  std::vector<std::pair<std::string_view, std::string_view>> cases;
  for (const std::string_view one : Split(text, ' ')) {
    cases.emplace_back(one.substr(0, one.find('=')), one.substr(one.find('=') + 1));
  }
  return cases;
}

TEST(IpAddress, AcceptedAndWrittenCanonically) {
  for (const auto& [text, canonical] :
       Cases("0.0.0.0=0.0.0.0 127.0.0.1=127.0.0.1 255.255.255.255=255.255.255.255 ::=:: ::1=::1 [::1]=::1 1::=1:: "
             "0:0:0:0:0:0:0:0=:: fe80::1%eth0=fe80::1 [fe80::1%25eth0]=fe80::1 2001:DB8::A=2001:db8::a "
             "1:2:3:4:5:6:7::=1:2:3:4:5:6:7:0 ::2:3:4:5:6:7:8=0:2:3:4:5:6:7:8 "
             "2001:0db8:0000:0000:0001:0000:0000:0001=2001:db8::1:0:0:1 "  // the first of two equal runs
             "2001:db8:0:1:1:1:1:1=2001:db8:0:1:1:1:1:1 "                  // one zero group is not shortened
             "1:0:0:2:0:0:0:3=1:0:0:2::3 "                                 // the longer run
             "::ffff:1.2.3.4=1.2.3.4 ::FFFF:102:304=1.2.3.4 0:0:0:0:0:ffff:1.2.3.4=1.2.3.4 "  // mapped is IPv4
             "[::ffff:1.2.3.4]=1.2.3.4 64:ff9b::192.0.2.33=64:ff9b::c000:221 "
             "1:2:3:4:5:6:1.2.3.4=1:2:3:4:5:6:102:304 ::ffff:0:1.2.3.4=::ffff:0:102:304 "
             "::1.2.3.4=::102:304")) {  // compatible is not
    const auto address = CIpAddress::Parse(text);
    ASSERT_TRUE(address) << text;
    EXPECT_EQ(address->Text(), canonical) << text;
    EXPECT_EQ(address->IsIpv4(), canonical.find(':') == std::string::npos) << text;
    EXPECT_EQ(CIpAddress::Parse(address->Text()), address) << text;
    EXPECT_EQ(CIpAddress::FromIpv6(address->Bytes()), *address) << text;
  }
}

TEST(IpAddress, Refused) {
  // One between each two bars.
  const std::string texts =
      "| |1.2.3|1.2.3.4.5|1.2.3.|.1.2.3|1..2.3|1.2.3.256|1.2.3.04|01.2.3.4|1.2.3.00|0x7f.0.0.1|2130706433|1.2.3.4 |"
      " 1.2.3.4|1.2.3.-4|1.2.3.4:80|1,2,3,4|1.2.3.4/8|1.2.3.99999999999|[1.2.3.4]|1.2.3.4%eth0|localhost|:|:::|1:|:1|"
      "::1:|1:2:3:4:5:6:7|1:2:3:4:5:6:7:8:9|1:2:3:4:5:6:7:8::|::1:2:3:4:5:6:7:8|1::2::3|12345::|::g|::1%|[::1|::1]|"
      "[]|[[::1]]|[::1]:80|::1.2.3|::1.2.3.4.5|::1.2.3.04|1.2.3.4::|::1.2.3.4:5|1:2:3:4:5:6:7:1.2.3.4|"
      "1:2:3:4:5:1.2.3.4|::-1|::1 |%eth0|::0x1|1:2:3:4:5:6:7:8%";
  for (const std::string_view text : Split(texts, '|')) EXPECT_FALSE(CIpAddress::Parse(text)) << "'" << text << "'";
  EXPECT_FALSE(CIpAddress::Parse(std::string("1.2.3.4\0", 8)));
  EXPECT_FALSE(CIpAddress::Parse("fe80::1%" + std::string(1000, 'x')));
}

TEST(IpAddress, OrderAndNeighbours) {
  const std::vector<std::string_view> ordered = Split(
      "0.0.0.0 0.0.0.1 9.255.255.255 10.0.0.0 255.255.255.255 :: ::1 ::fffe:ffff:ffff ::1:0:0:0 1:: "
      "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
      ' ');
  for (std::size_t i = 1; i < ordered.size(); ++i) {
    EXPECT_LT(*CIpAddress::Parse(ordered[i - 1]), *CIpAddress::Parse(ordered[i])) << ordered[i];
  }
  for (const auto& [address, after] :
       Cases("1.2.3.255=1.2.4.0 255.255.255.255=- ::ffff:ffff:ffff:ffff=0:0:0:1:: ::fffe:ffff:ffff=::1:0:0:0 "
             "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff=-")) {
    const auto next = CIpAddress::Parse(address)->Next();
    EXPECT_EQ(next ? next->Text() : "-", after) << address;
  }
  EXPECT_EQ(CIpAddress::FromIpv4(0x7F000001).Text(), "127.0.0.1");
  EXPECT_EQ(CIpAddress::Parse("1.2.3.4")->Ipv4(), 0x01020304U);
  EXPECT_EQ(CIpAddress::Parse("::1")->Ipv4(), 0U);
}

// "first-last", or "-" when it is no range.
std::string RangeText(std::string_view item) {
  const auto range = ParseIpRange(item);
  return range ? range->first.Text() + "-" + range->last.Text() : "-";
}

TEST(IpRange, Items) {
  for (const auto& [item, range] :
       Cases("1.2.3.4=1.2.3.4-1.2.3.4 1.2.3.4-1.2.3.9=1.2.3.4-1.2.3.9 1.2.3.4-::ffff:1.2.3.5=1.2.3.4-1.2.3.5 "
             "1.2.3.4-1.2.3.3=- 1.2.3.4-=- -1.2.3.4=- 1.2.3.4-5=- 1.2.3.4-::1=- =- "
             "10.1.2.3/8=10.0.0.0-10.255.255.255 10.1.2.3/32=10.1.2.3-10.1.2.3 10.1.2.3/31=10.1.2.2-10.1.2.3 "
             "1.2.3.4/0=0.0.0.0-255.255.255.255 1.2.3.4/33=- 1.2.3.4/08=- 1.2.3.4/=- 1.2.3.4/-1=- "
             "1.2.3.4/4294967304=- 1.2.3.4/255.0.0.0=- 2001::7/129=- ::ffff:10.1.2.3/8=- "
             "2001:db8::5/32=2001:db8::-2001:db8:ffff:ffff:ffff:ffff:ffff:ffff "
             "::/0=::-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff 2001::7/64=2001::-2001::ffff:ffff:ffff:ffff "
             "2001::7/65=2001::-2001::7fff:ffff:ffff:ffff 2001::7/128=2001::7-2001::7 "
             "::ffff:10.1.2.3/104=10.0.0.0-10.255.255.255 10.1.*=10.1.0.0-10.1.255.255 10.1.*.*=10.1.0.0-10.1.255.255 "
             "10.*=10.0.0.0-10.255.255.255 10.1.2.*=10.1.2.0-10.1.2.255 *=0.0.0.0-255.255.255.255 "
             "10.*.1=- 10.*.1.*=- 10.1*=- 10.1.2.3.*=- 256.*=- 2001:*=-")) {
    EXPECT_EQ(RangeText(item), range) << item;
  }
}

std::string AllRanges(const CIpRanges& set) {
  std::string text;
  for (const IpRange& range : set.Ranges()) {
    text += (text.empty() ? "" : " ") + range.first.Text();
    if (range.first != range.last) text += "-" + range.last.Text();
  }
  return text;
}

TEST(IpRanges, ListsAreSplitAndMerged) {
  const struct {
    const char* list;
    const char* ranges;
    const char* malformed;  // "offset:item" each
  } cases[] = {
      {"", "", ""},
      {"|1.1.1.1|", "1.1.1.1", ""},
      {"1.1.1.3,1.1.1.1;1.1.1.5 1.1.1.7\r\n1.1.1.9\t::1", "1.1.1.1 1.1.1.3 1.1.1.5 1.1.1.7 1.1.1.9 ::1", ""},
      {"1.1.1.2|1.1.1.1|1.1.1.3", "1.1.1.1-1.1.1.3", ""},                  // neighbours join
      {"1.1.1.0/24|1.1.1.7|1.1.1.200-1.1.2.3", "1.1.1.0-1.1.2.3", ""},     // overlaps join
      {"1.1.1.1-1.1.1.9|1.1.1.2-1.1.1.3|1.1.1.9", "1.1.1.1-1.1.1.9", ""},  // one within another
      {"255.255.255.255|255.255.255.254|0.0.0.0", "0.0.0.0 255.255.255.254-255.255.255.255", ""},
      {"::2|::1|::4", "::1-::2 ::4", ""},
      {"::/1|8000::/1", "::-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", ""},
      {"1.1.1.1 - 1.1.1.3|2.2.2.2- 2.2.2.3\n3.3.3.3 -3.3.3.4", "1.1.1.1-1.1.1.3 2.2.2.2-2.2.2.3 3.3.3.3-3.3.3.4", ""},
      {"1.1.1.1 bad,2.2.2.2/99 # 3.3.3.3\n4.4.4.4", "1.1.1.1 4.4.4.4", "8:bad 12:2.2.2.2/99"},
      {"1.1.1.1 - - 1.1.1.3", "", "0:1.1.1.1 - - 1.1.1.3"},
      {"1.1.1.1 -\n1.1.1.3", "1.1.1.3", "0:1.1.1.1 -"},
      {"-", "", "0:-"},
  };
  for (const auto& c : cases) {
    CIpRanges set;
    std::vector<CIpRanges::Malformed> malformed;
    const std::size_t failures = set.Add(c.list, &malformed);
    std::string text;
    for (const auto& m : malformed) text += (text.empty() ? "" : " ") + std::to_string(m.offset) + ":" + m.item;
    EXPECT_EQ(AllRanges(set), c.ranges) << c.list;
    EXPECT_EQ(text, c.malformed) << c.list;
    EXPECT_EQ(failures, malformed.size()) << c.list;
  }
}

TEST(IpRanges, FamiliesStayApart) {
  CIpRanges set;
  set.Add("::/0");
  EXPECT_TRUE(set.Contains(*CIpAddress::Parse("::1")));
  EXPECT_FALSE(set.Contains(*CIpAddress::Parse("1.2.3.4"))) << "an IPv6 range holds no IPv4 client";
  CIpRanges ipv4;
  ipv4.Add("*");
  EXPECT_TRUE(ipv4.Contains(*CIpAddress::Parse("::ffff:1.2.3.4")));
  EXPECT_FALSE(ipv4.Contains(*CIpAddress::Parse("::102:304")));
  EXPECT_FALSE(CIpRanges().Contains(CIpAddress()));
}

// Random ranges among few addresses, against asking each range by itself.
TEST(IpRanges, ContainsLikeEveryRangeByItself) {
  std::mt19937 random(7);
  const auto pick = [&](bool ipv4) {
    const auto base = static_cast<std::uint32_t>(random() % 3 == 0 ? 0xFFFFFFE0 : 0x0A0000F0);
    const auto number = base + static_cast<std::uint32_t>(random() % 32);
    if (ipv4) return CIpAddress::FromIpv4(number);
    std::array<std::uint8_t, 16> bytes{};
    if (random() % 2 == 0) bytes.fill(0xFF);
    bytes[8] = random() % 2 == 0 ? 0xFF : 0;
    for (std::size_t i = 0; i < 4; ++i) bytes[12 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    return CIpAddress::FromIpv6(bytes);
  };
  int inside = 0;
  int outside = 0;
  for (int round = 0; round < 300; ++round) {
    CIpRanges set;
    std::vector<IpRange> ranges;
    for (int i = 0; i < 8; ++i) {
      IpRange range{pick(i % 2 == 0), pick(i % 2 == 0)};
      if (range.last < range.first) std::swap(range.first, range.last);
      if (random() % 2 == 0) range.last = range.first;
      ranges.push_back(range);
    }
    if (round % 2 == 0) {
      set.Add(ranges);
    } else {
      std::string list;
      for (const IpRange& range : ranges) list += range.first.Text() + "-" + range.last.Text() + "|";
      ASSERT_EQ(set.Add(list), 0U) << list;
    }
    for (int i = 0; i < 100; ++i) {
      const CIpAddress address = pick(i % 2 == 0);
      const bool expected = std::any_of(ranges.begin(), ranges.end(), [&](const IpRange& range) {
        return range.first <= address && address <= range.last;
      });
      ASSERT_EQ(set.Contains(address), expected) << address.Text() << " in " << AllRanges(set);
      ++(expected ? inside : outside);
    }
  }
  EXPECT_GT(inside, 1000);
  EXPECT_GT(outside, 1000);
}

}  // namespace
}  // namespace qiv

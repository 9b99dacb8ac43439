// Runs page_cases.txt, and pages as long as limits are there for.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

#include "checks/webshell_finding.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

const CQivLibs& Libs() {
  static const CQivLibs libs;
  return libs;
}

std::string Finding(std::string_view page) {
  WebshellResult result;
  bool found = false;
  WithExactCopy(page, [&](std::string_view copy) { found = Libs().WebshellScan(copy, &result); });
  const WebshellWords words = WordsOf(result, Language::kEnglish);
  return found ? words.name + ": " + words.detail + (result.suspicious ? " (weak)" : "") : "none";
}

std::optional<std::string> Unescape(std::string_view line) {
  std::string text;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      text += line[i];
      continue;
    }
    const char kind = ++i < line.size() ? line[i] : '\0';
    constexpr std::string_view kKinds = "nrt\\";
    if (const std::size_t known = kKinds.find(kind); known != std::string_view::npos) {
      text += "\n\r\t\\"[known];
    } else if (const std::string hex(line.substr(i + 1, 2));
               kind == 'x' && hex.find_first_not_of("0123456789ABCDEF") == std::string::npos && hex.size() == 2) {
      text += static_cast<char>(std::stoi(hex, nullptr, 16));
      i += 2;
    } else {
      return std::nullopt;
    }
  }
  return text;
}

TEST(Pages, AreFoundForWhatTheyDo) {
  std::ifstream file(QIV_TEST_DATA "/webshell/page_cases.txt", std::ios::binary);
  std::size_t cases = 0;
  std::string line;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t tab = line.find('\t');
    ASSERT_NE(tab, std::string::npos) << line;
    const std::string expected = line.substr(0, tab);
    ASSERT_TRUE(expected == "none" || expected.find(": ") != std::string::npos) << line;
    const std::optional<std::string> page = Unescape(std::string_view(line).substr(tab + 1));
    ASSERT_TRUE(page && !page->empty()) << line;
    EXPECT_EQ(Finding(*page), expected) << line;
    ++cases;
  }
  EXPECT_GE(cases, 100U);
}

// `unit` with a name in it, each time another one.
std::string Padding(std::string_view unit, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    for (const char c : unit) c == '#' ? text += "n" + std::to_string(i) : text += c;
  }
  return text;
}

// Names, elements, functions and layers beyond what is held; one statement beyond one piece.
TEST(Pages, PaddingHidesNothing) {
  constexpr std::string_view kUnits[] = {"#=1\n",        "#=request(2)\n",      "function #(a,b)\nend function\n",
                                         "#(1)=\"a\"\n", "execute \"a # b\"\n", "session(\"#\")=1\n"};
  for (const std::string_view unit : kUnits) {
    const std::string padding = Padding(unit, 2000);
    EXPECT_EQ(Finding("<%" + padding + "x=request(1)\nexecute x%>"), "ASP backdoor: execute") << unit;
    EXPECT_EQ(Finding("<%x=request(1)\nexecute x\n" + padding + "%>"), "ASP backdoor: execute") << unit;
    EXPECT_EQ(Finding("<%x=request(1)\n" + padding + "execute x%>"), "ASP backdoor: execute") << unit;
  }
  const std::string sum = Padding("+#", 3000);
  EXPECT_EQ(Finding("<%if (1" + sum + ") then x=request(1)\nexecute x%>"), "ASP backdoor: execute");
  const std::string head = "<%@ Page Language=\"C#\"%><%";
  EXPECT_EQ(Finding(head + "if(1" + sum + ")x=Request[\"c\"];Process.Start(x);%>"), "ASPX variant backdoor: start");
  EXPECT_EQ(Finding(head + "f(1" + Padding(",#", 3000) + ",Process.Start(Request[\"c\"]));%>"),
            "ASPX variant backdoor: start");
}

TEST(Pages, TellWhatWasNotFollowed) {
  WebshellResult result;
  std::string text = "<%a=\"" + std::string(4000, 'x') + "\"\n" + Padding("b=b&a\n", 200);
  EXPECT_FALSE(Libs().WebshellScan(std::string_view(text + "%>"), &result));
  EXPECT_TRUE(result.partial);
  EXPECT_FALSE(Libs().WebshellScan(std::string_view("<%a=request(1):response.write a%>"), &result));
  EXPECT_FALSE(result.partial);
}

}  // namespace
}  // namespace qiv

// Runs page_cases.txt, and pages as long as limits are there for.
#include "tests/engines/webshell/script_cases.h"

namespace qiv {
namespace {

std::string Shown(const WebshellResult& result, const WebshellWords& words) {
  return words.name + ": " + words.detail + (result.suspicious ? " (weak)" : "");
}

TEST(Pages, AreFoundForWhatTheyDo) { EXPECT_GE(RunScriptCases(QIV_TEST_DATA "/webshell/page_cases.txt", Shown), 100); }

const CQivLibs& Libs() {
  static const CQivLibs libs;
  return libs;
}

std::string Finding(std::string_view page) {
  WebshellResult result;
  return Libs().WebshellScan(page, &result) ? Shown(result, WordsOf(result, Language::kEnglish)) : "none";
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
  EXPECT_FALSE(Libs().WebshellScan(std::string_view("<?php $a.=1" + std::string(60000, ';')), &result));
  EXPECT_TRUE(result.partial) << "more passes than its bytes earn";
}

}  // namespace
}  // namespace qiv

// What a browser would run of a value, and what it would not. Cases are lines of xss_cases.txt.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>
#include <string_view>

#include "common/char_set.h"
#include "engines/injection/xss_forms.h"
#include "tests/engines/injection/slow_detectors.h"

namespace qiv {
namespace {

constexpr std::array<std::string_view, 5> kNames = {"pass", "event", "tag", "url", "code"};  // in the order of XssType

InjectionLibrary Events() {
  return InjectionLibrary({}, {}, slow::OneWordRules({"onclick", "onerror", "onfocus", "onload"}));
}

int HexDigit(char c) { return c <= '9' ? c - '0' : c - 'a' + 10; }

std::string Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      plain += text[i];
      continue;
    }
    const char kind = text.at(++i);
    if (kind == 'x') {
      plain += static_cast<char>(HexDigit(text.at(i + 1)) * 16 + HexDigit(text.at(i + 2)));
      i += 2;
    } else {
      plain += kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
    }
  }
  return plain;
}

XssFinding Find(std::string_view text) {
  static const InjectionLibrary kLibrary = Events();
  const std::string lowered = CCharSet::LowerBytes(text);
  const XssFinding found = FindXssForm(lowered, kLibrary);
  EXPECT_LE(found.begin, found.end) << text;
  EXPECT_LE(found.end, text.size()) << text;
  return found;
}

TEST(XssForm, DecidesTheCases) {
  std::ifstream file(QIV_TEST_DATA "/injection/xss_cases.txt", std::ios::binary);
  ASSERT_TRUE(file.is_open());
  std::size_t cases = 0;
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    if (line.empty() || line.front() == '#') continue;
    const std::size_t tab = line.find('\t');
    ASSERT_NE(tab, std::string::npos) << number;
    const XssFinding found = Find(Unescape(std::string_view(line).substr(tab + 1)));
    EXPECT_EQ(kNames.at(static_cast<std::size_t>(found.type)), line.substr(0, tab))
        << "xss_cases.txt:" << number << ": " << line;
    ++cases;
  }
  EXPECT_GT(cases, 100U);
}

// Texts that would make a careless reader start again at every byte; they take seconds then.
TEST(XssForm, ReadsLongTextsOnce) {
  constexpr std::size_t kSize = 1 << 15;
  for (const std::string_view once :
       {"<a ",         "<a x=\"",  "'\"`",        "\\'",   "${",    "${class ", "${'", "/*'",  "<!--'", "'/*",
        "on=",         " on",      "&#x6a;",      "%27",   "\\x3c", "'-(",      "';{", "[`${", "= ",    "href=j\n",
        "<a href=j\n", "<a b='<'", "javascript:", "\x81'", "'+[",   "<a on",    "'a.", "\\u{"}) {
    std::string text;
    while (text.size() < kSize) text += once;
    EXPECT_EQ(Find(text).type, XssType::kNone) << once;
    Find("'-" + text);
    Find("'-f(" + text);
    Find("\"" + text + "</script");
    Find("javascript:" + text);
    Find("${" + text);
    Find("<a href='" + text);
  }
}

}  // namespace
}  // namespace qiv

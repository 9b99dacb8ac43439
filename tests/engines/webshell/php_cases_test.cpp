// Runs php_cases.txt. A line that is no case, and a file without cases, are failures.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "checks/webshell_finding.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

// "*COUNT{TEXT}" at the begin of `rest`: the text as often as that; bytes read, 0 when it is malformed.
std::size_t Repetition(std::string_view rest, std::string* script) {
  const std::size_t open = rest.find('{');
  const std::size_t close = rest.find('}', open == std::string_view::npos ? open : open + 2);
  if (close == std::string_view::npos) return 0;
  for (std::uint32_t count = DigitsToNumber(rest.substr(1, open - 1)); count > 0; --count)
    script->append(rest.substr(open + 1, close - open - 1));
  return close + 1;
}

std::optional<std::string> Unescape(std::string_view line) {
  std::string script;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      script += line[i];
      continue;
    }
    const std::string_view rest = line.substr(++i);
    const std::size_t plain = std::string_view("ntr\\").find(rest.empty() ? ' ' : rest[0]);
    if (plain != std::string_view::npos) {
      script += "\n\t\r\\"[plain];
    } else if (rest.starts_with("x") && DecodeHex(rest.substr(1, 2)).size() == 1) {
      script += DecodeHex(rest.substr(1, 2));
      i += 2;
    } else if (const std::size_t used = rest.starts_with("*") ? Repetition(rest, &script) : 0; used != 0) {
      i += used - 1;
    } else {
      return std::nullopt;
    }
  }
  return script;
}

TEST(PhpCases, AreReportedAsTheirLinesSay) {
  std::ifstream file(QIV_TEST_DATA "/webshell/php_cases.txt", std::ios::binary);
  const CQivLibs libs;
  int cases = 0;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with("#")) continue;
    const std::size_t tab = line.find('\t');
    const std::optional<std::string> script =
        Unescape(std::string_view(line).substr(std::min(tab, line.size() - 1) + 1));
    ASSERT_TRUE(tab != std::string::npos && script && !script->empty()) << "malformed line " << number;
    WithExactCopy(*script, [&](std::string_view text) {
      WebshellResult result;
      const bool found = libs.WebshellScan(text, &result);
      const WebshellWords words = WordsOf(result, Language::kEnglish);
      EXPECT_EQ(found ? words.category + "/" + words.name + "/" + words.detail : "none", line.substr(0, tab))
          << "line " << number << ": " << line.substr(tab + 1, 200);
    });
    ++cases;
  }
  ASSERT_GT(cases, 0);
}

TEST(PhpFunctions, EachRowIsFoundByItsName) {
  for (const PhpFunction& function : PhpFunctions()) {
    EXPECT_EQ(FindPhpFunction(function.name), &function) << function.name << " stands twice";
    EXPECT_EQ(CCharSet::LowerAscii(function.name), function.name);
    EXPECT_EQ(function.from < 0, function.to < 0) << function.name;
  }
  EXPECT_EQ(FindPhpFunction("eval "), nullptr);
}

}  // namespace
}  // namespace qiv

// Runs php_cases.txt.
#include "common/char_set.h"
#include "engines/webshell/php/builtins.h"
#include "tests/engines/webshell/script_cases.h"

namespace qiv {
namespace {

TEST(PhpCases, AreReportedAsTheirLinesSay) {
  EXPECT_GT(RunScriptCases(QIV_TEST_DATA "/webshell/php_cases.txt",
                           [](const WebshellResult&, const WebshellWords& words) {
                             return words.category + "/" + words.name + "/" + words.detail;
                           }),
            100);
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

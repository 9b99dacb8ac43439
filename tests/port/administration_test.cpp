#include "port/administration.h"

#include <gtest/gtest.h>

#include "port/module_path.h"
#include "port/process.h"

namespace qiv {
namespace {

TEST(Administration, VariablesComeBackWhole) {
  EXPECT_TRUE(SetEnvironmentText("QIV_TEST_变量", "值 %x% \"y\""));
  EXPECT_EQ(EnvironmentText("QIV_TEST_变量"), "值 %x% \"y\"");
  EXPECT_EQ(EnvironmentText("QIV_TEST_OTHER"), "");
}

TEST(Administration, TextsOfTheRegistryComeWhole) {
  const std::string key = "SOFTWARE\\QivTest";
  if (kPathSeparator == '/') {
    EXPECT_EQ(RegistryText(key, "Text"), "");
    return;
  }
  const std::string reg = EnvironmentText("SystemRoot") + "\\System32\\reg.exe";
  const std::string text = "%SystemDrive%\\程序 文件\\é.dll";
  const ProgramResult added =
      RunProgram(reg, {"add", "HKLM\\" + key, "/v", "Text", "/t", "REG_EXPAND_SZ", "/d", text, "/f"}, 60'000);
  ASSERT_TRUE(added.Succeeded()) << added.output;
  EXPECT_EQ(RegistryText(key, "Text"), text);
  EXPECT_EQ(RegistryText(key, "Other"), "");
  EXPECT_TRUE(RunProgram(reg, {"delete", "HKLM\\" + key, "/f"}, 60'000).Succeeded());
  EXPECT_EQ(RegistryText(key, "Text"), "");
}

}  // namespace
}  // namespace qiv

#include "port/module_path.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

const int inside = 0;

TEST(ModulePath, IsAbsoluteAndEndsWithTheSeparator) {
  const std::string directory = ModuleDirectory(&inside);
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(directory.back(), kPathSeparator);
  const std::filesystem::path path(std::u8string(directory.begin(), directory.end()));
  EXPECT_TRUE(path.is_absolute()) << directory;
  bool holds_this_program = false;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    holds_this_program = holds_this_program || entry.path().stem() == "port_test";
  }
  EXPECT_TRUE(holds_this_program) << directory;
}

TEST(ModulePath, DoesNotFollowTheCurrentDirectory) {
  const CTemporaryDirectory elsewhere;
  const std::string before = ModuleDirectory(&inside);
  const std::filesystem::path old = std::filesystem::current_path();
  std::filesystem::current_path(elsewhere.Root());
  const std::string after = ModuleDirectory(&inside);
  std::filesystem::current_path(old);
  EXPECT_EQ(after, before);
}

TEST(ModulePath, UnknownAddress) {
  int on_the_stack = 0;
  const std::string directory = ModuleDirectory(&on_the_stack);
  EXPECT_EQ(directory, std::string(".") + kPathSeparator);
}

}  // namespace
}  // namespace qiv

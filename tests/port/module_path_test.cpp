#include "port/module_path.h"

#include <gtest/gtest.h>

#include <filesystem>

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
  const int on_the_stack = 0;
  EXPECT_EQ(ModuleDirectory(&on_the_stack), std::string(".") + kPathSeparator);
}

}  // namespace
}  // namespace qiv

#include "checks/check_table.h"

#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

namespace qiv {
namespace {

TEST(CheckTable, HasEveryRowOnceUnderALogName) {
  std::set<std::string> names;
  std::set<const void*> functions;
  for (const CheckRow& row : CheckTable()) {
    EXPECT_TRUE(names.insert(row.name).second) << row.name << " twice";
    EXPECT_TRUE(functions.insert(reinterpret_cast<const void*>(row.run)).second) << row.name << " is listed already";
    for (const char c : std::string(row.name)) EXPECT_TRUE(std::islower(c) || std::isdigit(c) || c == '_') << row.name;
  }
  EXPECT_FALSE(names.empty());
}

TEST(CheckTable, IsGroupedByStage) {
  Stage last = Stage::kLists;
  for (const CheckRow& row : CheckTable()) {
    EXPECT_GE(row.stage, last) << row.name;
    last = row.stage;
  }
}

}  // namespace
}  // namespace qiv

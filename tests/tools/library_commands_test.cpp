// Runs "qivctl library": what goes into a stored library, what comes out of it, and what is refused.
#include <gtest/gtest.h>

#include <string>

#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tests/tools/run_qivctl.h"
#include "tools/files.h"

namespace qiv {
namespace {

TEST(QivctlLibrary, LibrariesGoThereAndBack) {
  const CTemporaryDirectory directory;
  const std::string plain = directory.Path("plain");
  MakeDirectories(plain);
  ReplaceFile(plain + "/sql_keys.txt", "1\t/%2A\t-\tcomment\t注释\n2\tand%20\tand\tcut\t切\n");
  ReplaceFile(plain + "/sql_rules.txt", "3\tselect\t-\tquery\t查询\n");
  for (const std::string user : {"", " --user"}) {
    const std::string stored = directory.Path("stored");
    const Outcome pack = Qivctl("library pack " + plain + " -o " + stored + user);
    ASSERT_EQ(pack.exit_code, 0) << pack.output;
    const std::string file = stored + (user.empty() ? "/_sql.db" : "/_sql_user.db");
    EXPECT_EQ(Qivctl("library unpack " + file + user).output,
              "# sql_rules\n3\tselect\t-\tquery\tquery\n"
              "# sql_keys\n1\t/%2A\t-\tcomment\tcomment\n2\tand%20\tand\tcut\tcut\n");
  }
  ReplaceFile(plain + "/sql_rules.txt", "3\tselect\n");
  const Outcome bad = Qivctl("library pack " + plain + " -o " + directory.Path("stored2"));
  EXPECT_EQ(bad.exit_code, 2);
  EXPECT_EQ(bad.output.find("qivctl: " + plain + "/sql_rules.txt:1: a rule has five fields"), 0U);
  EXPECT_FALSE(IsFile(directory.Path("stored2/_sql.db")));
  EXPECT_EQ(Qivctl("library unpack " + plain + "/sql_rules.txt").exit_code, 2);
  EXPECT_EQ(Qivctl("library pack " + directory.Path("stored") + " -o " + directory.Path("stored2")).exit_code, 2);
}

TEST(QivctlLibrary, TheWebshellLibraryGoesThereAndBack) {
  const CTemporaryDirectory directory;
  const std::string plain = directory.Path("plain");
  const std::string stored = directory.Path("stored");
  MakeDirectories(plain);
  ReplaceFile(plain + "/trojan_rules.txt", "# ours\r\nmyshell++<%--good\tasp\t4096\tMy shell\t我的木马\r\n\n");
  ReplaceFile(plain + "/trojan_free.txt", "our editor\n");
  EXPECT_EQ(Qivctl("library pack " + plain + " -o " + stored + " --language zh-CN").exit_code, 2) << "it has both";
  EXPECT_EQ(Qivctl("library pack " + plain + " -o " + stored + " --user").exit_code, 2) << "there is one";
  ASSERT_EQ(Qivctl("library pack " + plain + " -o " + stored).exit_code, 0);
  EXPECT_EQ(Qivctl("library unpack " + stored + "/_trojan.db").output,
            "# trojan_rules\nmyshell++<%--good\tasp\t4096\tMy shell\t我的木马\n# trojan_free\nour editor\n");
  for (const std::string bad : {"a\tphp\t0\tname", "++\tphp\t0\ta\tb", "a\tjsp\t0\ta\tb", "a\tphp\tx\ta\tb",
                                "a\tphp\t0\t\t", "a{*}b\tphp\t0\ta\tb"}) {
    ReplaceFile(plain + "/trojan_rules.txt", "\n" + bad);
    const Outcome pack = Qivctl("library pack " + plain + " -o " + directory.Path("stored2"));
    EXPECT_EQ(pack.exit_code, 2) << bad;
    EXPECT_EQ(pack.output.find("qivctl: " + plain + "/trojan_rules.txt:2: "), 0U) << pack.output;
  }
  EXPECT_FALSE(IsFile(directory.Path("stored2/_trojan.db")));
}

TEST(QivctlLibrary, TheLibraryOfAttacksGoesThereAndBack) {
  const CTemporaryDirectory directory;
  const std::string plain = directory.Path("plain");
  const std::string stored = directory.Path("stored");
  MakeDirectories(plain);
  const std::string lists = "tool\tcat id\n";
  const std::string rule = "7\tshell,values\t~c~(tool)~e\tCommand\t命令\tx;id%0A\tx;idea\n";
  ReplaceFile(plain + "/lists.txt", "# ours\r\n" + lists);
  ReplaceFile(plain + "/rce.txt", rule);
  ReplaceFile(plain + "/php.txt", "8\t-\t<?php\tCode\t代码\t<?php\t<?xml\n");
  ReplaceFile(plain + "/ordinary.txt", "a; idea\n");
  ASSERT_EQ(Qivctl("library pack " + plain + " -o " + stored + " --language zh-CN").exit_code, 0);
  EXPECT_EQ(Qivctl("library pack " + plain + " -o " + stored + " --user").exit_code, 2) << "there is one";
  EXPECT_EQ(Qivctl("library unpack " + stored + "/_badcode.db").output,
            "# lists\n" + lists + "# rce\n7\tshell,values\t~c~(tool)~e\t命令\t命令\tx;id%0A\tx;idea\n" +
                "# php\n8\t-\t<?php\t代码\t代码\t<?php\t<?xml\n");
  for (const std::string bad : {"9\t-\tab\tc\td\tab", "9\t-\tab\tc\td\t\tx", "9\there\tab\tc\td\tab\tx",
                                "9\t-\t~(none)\tc\td\tab\tx", "9\t-\ta.\tc\td\tab\tx", "9\t-\ta.\tc\td\ta.\txa.",
                                "7\t-\ta.\tc\td\ta.\tx", "9\t-\t; id\tc\td\t; id\tx", "9\t-\ta{*}\tc\td\ta.\tx"}) {
    ReplaceFile(plain + "/rce.txt", rule + bad);
    const Outcome pack = Qivctl("library pack " + plain + " -o " + directory.Path("stored2"));
    EXPECT_EQ(pack.exit_code, 2) << bad;
    EXPECT_EQ(pack.output.find("qivctl: " + plain + "/rce.txt:2: "), 0U) << bad << pack.output;
  }
  EXPECT_FALSE(IsFile(directory.Path("stored2/_badcode.db")));
  const std::string damaged =
      Qivctl("encrypt", "<badcode_lists></badcode_lists><badcode_rules>7{*}none{#}</badcode_rules>").output;
  EXPECT_EQ(Qivctl("library unpack -", damaged).output, "qivctl: -: 7: is no rule of a family\n");
}

}  // namespace
}  // namespace qiv

// Runs "qivctl library" and "qivctl rules": what goes into libraries, what comes out, what is refused, what is
// exchanged.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <tuple>

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

/// The files of an installation that rules are in, and what they hold.
std::map<std::string, std::string> FilesBelow(const std::string& directory) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (entry.is_regular_file())
      files[entry.path().lexically_relative(directory).string()] = Content(entry.path().string());
  }
  return files;
}

TEST(QivctlLibrary, RulesAreExchangedWholeOrNotAtAll) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  const std::string next = directory.Path("next");
  const std::string config = " --config " + module;
  ASSERT_EQ(Qivctl("init " + module).exit_code, 0);
  ReplaceFile(module + "/own/get.txt", "900001\tsite*word\t-\tours\tours\n");
  ReplaceFile(module + "/settings.json", "// ours\n" + Content(module + "/settings.json"));
  ASSERT_EQ(Qivctl("exempt add --rule 301001 --path /a" + config).exit_code, 0);
  ASSERT_EQ(Qivctl("rules update " + module + "/rules" + config).exit_code, 0) << "own words come into force";
  const std::map<std::string, std::string> before = FilesBelow(module);

  // One rule more, one changed, one gone.
  std::filesystem::copy(module + "/rules", next, std::filesystem::copy_options::recursive);
  ReplaceFile(next + "/VERSION", "qiv-standard 2099.1\n");
  std::string get = Content(next + "/keywords/get.txt");
  get.replace(get.find("101001\tunion all select"), 23, "101001\tunion all*select") += "999999\tbrand new\t-\tn\tn\n";
  ReplaceFile(next + "/keywords/get.txt", get);
  std::string lfi = Content(next + "/badcode/lfi.txt");
  lfi.erase(lfi.find("\n301001\t"), lfi.find('\n', lfi.find("\n301001\t") + 1) - lfi.find("\n301001\t"));
  ReplaceFile(next + "/badcode/lfi.txt", lfi);

  // What does not pass leaves everything as it was.
  for (const auto& [file, fault, said] :
       {std::tuple{"VERSION", "one\ntwo three", "VERSION:1: is no \"NAME VERSION\""},
        {"keywords/get.txt", "1\ta\n", "keywords/get.txt:1: a rule has five fields"},
        {"badcode/rce.txt", "1\tvalue\t(\ta\tb\tc\td\n", "badcode/rce.txt:1: "},
        {"library/sql_keys.txt", "x\n", "library/sql_keys.txt:1: a rule has five fields"}}) {
    const std::string good = Content(next + "/" + file);
    ReplaceFile(next + "/" + file, fault);
    const Outcome refused = Qivctl("rules update " + next + config);
    EXPECT_EQ(refused.exit_code, 2) << file;
    EXPECT_NE(refused.output.find(said), std::string::npos) << refused.output;
    EXPECT_EQ(FilesBelow(module), before) << file;
    ReplaceFile(next + "/" + file, good);
  }
  EXPECT_EQ(Qivctl("rules update " + module + "/settings.json" + config).exit_code, 2) << "no archive";
  EXPECT_EQ(Qivctl("rules update --show " + next + config).exit_code, 0);
  EXPECT_EQ(FilesBelow(module), before);

  const Outcome updated = Qivctl("rules update " + next + config);
  EXPECT_EQ(updated.exit_code, 0);
  for (const char* const line : {"qiv-standard 2026.11.1 -> qiv-standard 2099.1\n",
                                 "keywords/get.txt          1 added (999999); 1 changed (101001)\n",
                                 "badcode/lfi.txt           1 removed (301001)\n", "exempted rule 301001 is gone"}) {
    EXPECT_NE(updated.output.find(line), std::string::npos) << line << updated.output;
  }
  const std::map<std::string, std::string> after = FilesBelow(module);
  for (const char* const own : {"settings.json", "own/get.txt", "config/_exempt.db"})
    EXPECT_EQ(after.at(own), before.at(own));
  EXPECT_EQ(after.at("rules/keywords/get.txt"), get);
  EXPECT_EQ(after.at("rules.old/keywords/get.txt"), before.at("rules/keywords/get.txt"));
  const std::string unpacked = Qivctl("unpack " + module + "/config/_config.db").output;
  EXPECT_NE(unpacked.find("brand new"), std::string::npos);
  EXPECT_NE(unpacked.find("site*word"), std::string::npos);
  EXPECT_EQ(Qivctl("rules show" + config).output.substr(0, 31), "in force   qiv-standard 2099.1\n");

  EXPECT_EQ(Qivctl("rules undo" + config).exit_code, 0);
  const std::map<std::string, std::string> undone = FilesBelow(module);
  for (const auto& [file, text] : before) EXPECT_EQ(undone.at(file), text) << file;

  // An edit in rules/ is told before it goes.
  ReplaceFile(module + "/rules/pages/block.en-US.html", "<html>");
  EXPECT_NE(Qivctl("rules show" + config).output.find("edited     rules/pages/block.en-US.html\n"), std::string::npos);
  EXPECT_NE(Qivctl("rules update " + next + config).output.find("block.en-US.html: note: was edited here"),
            std::string::npos);
}

}  // namespace
}  // namespace qiv

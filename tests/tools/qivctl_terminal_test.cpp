// Runs the built qivctl: its status, colours, completion in shells and manual pages.
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "common/json.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tests/tools/run_qivctl.h"

namespace qiv {
namespace {

TEST(Qivctl, StatusTellsWhatProtectsAndWhatDoesNot) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  const std::string config = module + "/config/";
  ASSERT_EQ(Qivctl("init " + module).exit_code, 0);
  const auto expect = [&](int exit_code, std::initializer_list<const char*> parts) {
    const Outcome run = Qivctl("status " + module);
    EXPECT_EQ(run.exit_code, exit_code) << run.output;
    for (const char* const part : parts)
      EXPECT_NE(run.output.find(part), std::string::npos) << part << "\n" << run.output;
  };
  const auto pack = [&](const std::string& from, const std::string& to) {
    std::string settings = Content(module + "/settings.json");
    settings.replace(settings.find(from), from.size(), to);
    ReplaceFile(module + "/changed.json", settings);
    ASSERT_EQ(Qivctl("pack " + module + "/changed.json -o " + config + "_config.db").exit_code, 0);
  };
  expect(0, {"Protection is on\n", "  on       lists,", "_sql.db      in force", "\n  act\n",
             "takes lines: not there yet"});

  const std::string rules = Content(config + "_sql.db");
  ReplaceFile(config + "_sql.db", "no rules");
  ReplaceFile(module + "/debug/_log.log",
              R"({"time":"T1","kind":"protection","state":"on","file":"","reason":"first","version":"9.8.7"})"
              "\n"
              R"({"time":"T2","kind":"load","state":"fault","file":"_sql.db","reason":"bad","detail":"\u001b[1m"})"
              "\n"
              R"({"time":"T3","kind":"output","state":"fault","file":"_out.log","reason":"stuck"})"
              "\n");
  expect(1, {"_sql.db      refused", "; module at T2: bad ( [1m)", "no rules for injection",
             "_out.log: stuck, since T3", "module 9.8.7", "protection on since T1: first", "takes lines, last one"});
  ReplaceFile(config + "_sql.db", rules);
  ReplaceFile(module + "/debug/_log.log",
              R"({"time":"2999-01-01T00:00:00.000Z","kind":"protection","state":"off","file":"","reason":"no rights"})"
              "\n");
  expect(1, {"Protection is on",
             "the module says otherwise since 2999-01-01T00:00:00.000Z: protection is off: no rights"});
  RemoveFile(module + "/debug/_log.log");
  expect(0, {});

  pack("website_body", "website_log_only:badcode,website_body");
  expect(0, {"Protection is on", "  log only badcode\n"});
  pack("website_body", "website_log_only,website_body");
  expect(1, {"Protection is log only: website_log_only is on"});
  pack("website_on_servers\": \"1", "website_on_servers\": \"0");
  expect(1, {"Protection is off: ", "_config.db   refused", "locks keep nobody out", "_sql.db      not read"});
  const std::unique_ptr<IJsonValue> json = ParseJson(Qivctl("status --json " + module).output);
  ASSERT_NE(json, nullptr);
  EXPECT_EQ(json->AsObject()->GetText("protection"), "off");
  EXPECT_EQ(json->AsObject()->GetText("in_order"), "false");
  const std::pair<std::string, const char*> none[] = {{directory.Path("none"), "does not exist"},
                                                      {module + "/settings.json", "is no folder"},
                                                      {directory.Path(""), "holds no config"}};
  for (const auto& [folder, reason] : none) {
    const Outcome run = Qivctl("status " + folder);
    EXPECT_EQ(run.exit_code, 2);
    EXPECT_EQ(run.output.find("qivctl: " + folder + ": "), 0U) << run.output;
    EXPECT_NE(run.output.find(reason), std::string::npos) << run.output;
  }
}

TEST(Qivctl, ColoursOnlyWhereTheyAreWanted) {
  const CTemporaryDirectory directory;
  ReplaceFile(directory.Path("s.json"), "{\"websit_base\":{}}");
  ReplaceFile(directory.Path("w.php"), "<?php eval($_POST['x']); ?>");
  for (const std::string& command : {"lint " + directory.Path("s.json"), "scan " + directory.Path("w.php")}) {
    const Outcome plain = Qivctl(command);
    EXPECT_EQ(plain.output.find('\x1b'), std::string::npos) << plain.output;
    EXPECT_EQ(Qivctl(command + " --color auto").output.find('\x1b'), std::string::npos);
    EXPECT_NE(Shell("NO_COLOR=1 " + std::string(QIVCTL) + " " + command + " --color always").output.find("\x1b[1;3"),
              std::string::npos);
  }
}

TEST(Qivctl, ShellsCompleteItsCommandsOptionsAndValues) {
  const CTemporaryDirectory directory;
  ReplaceFile(directory.Path("with blank.json"), "");
  MakeDirectory(directory.Path("within"));
  ReplaceFile(directory.Path("try"),
              "source ./script; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _qivctl\n"
              "printf '%s|' \"${COMPREPLY[@]}\"; complete -p qivctl >/dev/null\n");
  const std::string cd = "cd " + directory.Path("") + " && ";
  ASSERT_EQ(Shell(cd + QIVCTL + " completions bash > script").output, "");
  const std::pair<const char*, const char*> cases[] = {
      {"qivctl li", "lint|library|lists|"},
      {"qivctl library ''", "pack|unpack|"},
      {"qivctl library pack --l", "--language|"},
      {"qivctl init --language ''", "en-US|zh-CN|"},
      {"qivctl init --language = z", "zh-CN|"},
      {"qivctl exempt --config library ''", "add|list|remove|"},  // a value that is named like a command
      {"qivctl exempt --config = x add --r", "--rule|--remark|"},
      {"qivctl lint with\\ ", "with blank.json|"},
      {"qivctl check --config with", "within|"},
      {"qivctl deny --for ''", "|"},
  };
  for (const auto& [words, expected] : cases) {
    EXPECT_EQ(Shell(cd + "bash try " + words).output, expected) << words;
  }
  for (const std::string shell : {"zsh", "powershell"}) {
    const std::string script = Qivctl("completions " + shell).output;
    for (const char* const word :
         {"unpack", "--no-suspicious", "'qivctl init --profile'", "words default strict off"}) {
      EXPECT_NE(script.find(word), std::string::npos) << shell << ": " << word;
    }
    if (shell == "zsh" && Shell("command -v zsh").exit_code == 0) {
      EXPECT_EQ(Shell("zsh -n", script).output, "");
    }
  }
}

TEST(Qivctl, ManPagesTellOfEveryCommand) {
  const CTemporaryDirectory directory;
  const std::string folder = directory.Path("man1");
  ASSERT_EQ(Qivctl("man " + folder).output, "");
  EXPECT_EQ(Qivctl("man").output, Content(folder + "/qivctl.1"));
  const std::string page = Content(folder + "/qivctl-library-pack.1");
  for (const char* const part :
       {"\n.SH NAME\nqivctl\\-library\\-pack \\- ", "\n.SH SYNOPSIS\n", "\\fB\\-\\-language\\fR",
        "One of \\fBen\\-US\\fR, \\fBzh\\-CN\\fR.", "\n.SH EXIT STATUS\n"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part << page;
  }
  // Whatever the program's help lists has a page, and every page is sound.
  const std::string listed =
      Shell(std::string(QIVCTL) + " --help | sed '1,/^Subcommands:/d' | sed -n 's/^  \\([a-z]\\+\\).*/\\1/p'").output;
  EXPECT_NE(listed.find("library\n"), std::string::npos) << listed;
  EXPECT_EQ(Shell("while read -r name; do test -s " + folder + "/qivctl-$name.1 || echo no $name; done", listed).output,
            "");
  if (Shell("command -v groff").exit_code != 0) GTEST_SKIP() << "no groff: the pages are not formatted";
  EXPECT_EQ(Shell("groff -ww -man -Tutf8 -z " + folder + "/*.1").output, "");
}

}  // namespace
}  // namespace qiv

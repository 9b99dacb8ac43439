// Runs the built qivctl: what it prints, what it writes, how it exits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "config/config_parser.h"
#include "config/exchange_files.h"
#include "engines/injection/injection_library.h"
#include "port/clock.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tests/tools/run_qivctl.h"
#include "tools/files.h"
#include "tools/library_files.h"
#include "tools/utf8_text.h"
#include "tools/webshell_files.h"

namespace qiv {
namespace {

TEST(Qivctl, EnciphersLines) {
  const std::string text = "one\nexactly16bytes!!\n\n你好 and seventeen\n";
  const Outcome encrypted = Qivctl("encrypt", text);
  EXPECT_EQ(encrypted.exit_code, 0);
  EXPECT_EQ(encrypted.output.find('\n'), 32U);
  EXPECT_EQ(Qivctl("decrypt", encrypted.output).output, text);
  EXPECT_EQ(Qivctl("encrypt", "one\r\n").output, Qivctl("encrypt", "one").output);
  EXPECT_EQ(Qivctl("encrypt", "").output, "");
  const Outcome bad = Qivctl("decrypt", "\nxyz\n");
  EXPECT_EQ(bad.exit_code, 2);
  EXPECT_NE(bad.output.find("qivctl: standard input:2: the line is not hexadecimal\n"), std::string::npos);
}

TEST(Qivctl, ExitCodesSayWhatHappened) {
  const CTemporaryDirectory directory;
  const std::string good = directory.Path("good.json");
  const std::string doubtful = directory.Path("doubtful.json");
  const std::string broken = directory.Path("broken.json");
  ReplaceFile(good, "{\"website_on_servers\":\"1\",\"website_base\":{\"hide\":1}}");
  ReplaceFile(doubtful, "{\"website_on_servers\":\"1\",\n\"website_base\":{\"hyde\":1}}");
  ReplaceFile(broken, "{\n\"website_base\":\n}");
  const std::string out = " -o " + directory.Path("out.db");
  EXPECT_EQ(Qivctl("lint " + good).exit_code, 0);
  const Outcome lint = Qivctl("lint " + doubtful);
  EXPECT_EQ(lint.exit_code, 1);
  EXPECT_EQ(lint.output, "qivctl: " + doubtful + ":2: unknown key \"hyde\" in website_base (did you mean \"hide\"?)\n");
  EXPECT_EQ(Qivctl("lint " + broken).exit_code, 2);
  EXPECT_EQ(Qivctl("pack " + broken + out).exit_code, 2);
  EXPECT_FALSE(IsFile(directory.Path("out.db"))) << "nothing is written after an error";
  EXPECT_EQ(Qivctl("pack " + good + out).exit_code, 0);
  EXPECT_EQ(Qivctl("pack " + directory.Path("none.json") + out).exit_code, 2);
  EXPECT_EQ(Qivctl("pack " + good + " -o " + directory.Path("no/such/folder.db")).exit_code, 2);
  EXPECT_EQ(Qivctl("unpack " + good).exit_code, 2);
  EXPECT_EQ(Qivctl("unpack " + directory.Path("out.db")).exit_code, 0);
  EXPECT_EQ(Qivctl("").exit_code, 2);
  const std::pair<std::string, std::string> unknown[] = {
      {"no-such-command", "unknown command \"no-such-command\"; \"qivctl --help\" says"},
      {"scna x", "unknown command \"scna\" (did you mean \"scan\"?); \"qivctl --help\" says"},
      {"library pakc x", "unknown command \"pakc\" (did you mean \"pack\"?); \"qivctl library --help\" says"},
      {"scan --jsn x", "unknown option \"--jsn\" (did you mean \"--json\"?); \"qivctl scan --help\" says"},
      {"scan --job=3 x", "unknown option \"--job\" (did you mean \"--jobs\"?)"},
      {"unpack a b", "unknown argument \"b\""},
  };
  for (const auto& [arguments, message] : unknown) {
    const Outcome run = Qivctl(arguments);
    EXPECT_EQ(run.exit_code, 2) << arguments;
    EXPECT_EQ(run.output.find("qivctl: command line: " + message), 0U) << run.output;
  }
  EXPECT_EQ(Qivctl("--version").output, "qivctl 1.0.0\n");
  EXPECT_EQ(Qivctl("init " + directory.Path("m") + " --language fr").exit_code, 2);
  EXPECT_EQ(Qivctl("init " + directory.Path("m") + " --rules " + directory.Path("")).exit_code, 2);
  EXPECT_EQ(Qivctl("--help").exit_code, 0);
}

TEST(Qivctl, InitMakesAnInstallationThatLoads) {
  for (const std::string profile : {"default", "strict", "off"}) {
    const CTemporaryDirectory directory;
    const std::string module = directory.Path("new/module");
    const std::string command = "init " + module + " --language zh-CN --profile " + profile;
    const Outcome run = Qivctl(command);
    ASSERT_EQ(run.exit_code, 0) << run.output;
    EXPECT_EQ(run.output, "");

    WebsiteConfig config;
    const ConfigStatus status = LoadConfigFile(module + "/config/_config.db", &config);
    if (profile == "off") {
      EXPECT_TRUE(status == ConfigStatus::kNotOnServers || status == ConfigStatus::kLoaded);
    } else {
      ASSERT_EQ(status, ConfigStatus::kLoaded);
      EXPECT_EQ(config.language, Language::kChinese);
      EXPECT_TRUE(config.page.complete_page);
      EXPECT_NE(config.page.content.find("<html lang=\"zh-CN\">"), std::string::npos);
      EXPECT_NE(config.page.content.find("{{event_id}}"), std::string::npos);
      EXPECT_FALSE(config.get_rules.Empty());
      EXPECT_FALSE(config.post_rules.Empty());
      EXPECT_FALSE(config.header_rules.Empty());
    }
    const std::vector<LibraryList> lists = UnpackLibrary(DecipheredLibrary(Content(module + "/config/_sql.db")), false);
    ASSERT_EQ(lists.size(), 3U);
    for (const LibraryList& list : lists) EXPECT_FALSE(list.rules.empty()) << list.name;
    EXPECT_EQ(UnpackWebshellFiles(DecipheredLibrary(Content(module + "/config/_trojan.db"))).size(), 2U);
    EXPECT_NE(FileModificationTime(module + "/debug"), 0U);
    EXPECT_EQ(Qivctl("lint " + module + "/settings.json").exit_code, 0);
    // The settings beside the module are the source of what it reads.
    EXPECT_EQ(Qivctl("pack " + module + "/settings.json -o " + directory.Path("again.db")).exit_code, 0);
    EXPECT_EQ(Content(directory.Path("again.db")), Content(module + "/config/_config.db"));

    ReplaceFile(module + "/settings.json", "mine");
    EXPECT_EQ(Qivctl(command).exit_code, 2);
    EXPECT_EQ(Content(module + "/settings.json"), "mine");
    EXPECT_EQ(Qivctl(command + " --force").exit_code, 0);
    EXPECT_NE(Content(module + "/settings.json"), "mine");
  }
}

TEST(Qivctl, ShowsTheEventThatAVisitorQuotes) {
  const CTemporaryDirectory directory;
  MakeDirectories(directory.Path("config"));
  MakeDirectories(directory.Path("debug"));
  const auto line = [](const std::string& id, const std::string& reason) {
    return R"({"event_id":")" + id + R"(","client":"1.2.3.4","status":403,"rule":"","reason":")" + reason + "\"}\n";
  };
  const std::string log = directory.Path("debug/_log.log");
  const std::string id = "00000000000000a";
  ReplaceFile(log, line(id + "1", "new") + line(id + "2", "\\u001b[2J\\u009b\\n\xE4\xB8\xAD"));
  ReplaceFile(log + ".4", std::string(5 << 20, ' ') + "\n" + line(id + "3", "old") + line(id + "4", "last"));
  const std::string config = " --config " + directory.Path("config");
  EXPECT_EQ(Qivctl("event " + id + "1" + config).output,
            "event_id    " + id + "1\nclient      1.2.3.4\nstatus      403\nreason      new\n");
  EXPECT_NE(Qivctl("event " + id + "2" + config).output.find("reason       [2J   \xE4\xB8\xAD\n"), std::string::npos);
  EXPECT_EQ(Qivctl("event --json 00000000000000A3" + config).output, line(id + "3", "old"));
  EXPECT_EQ(Qivctl("event '" + id + "4 '" + config).exit_code, 0);
  EXPECT_EQ(Qivctl("event " + id + "5" + config).exit_code, 1);
  EXPECT_EQ(Qivctl("event '\",'" + config).exit_code, 2);
  EXPECT_EQ(Qivctl("event " + id + "1 --config " + directory.Path("debug")).exit_code, 2);
}

// What is proposed for an event can be run as it stands, and is then listed and taken back.
TEST(Qivctl, ExemptsWhatAnEventFound) {
  const CTemporaryDirectory directory;
  ASSERT_TRUE(MakeDirectories(directory.Path("config")) && MakeDirectories(directory.Path("debug")));
  const std::string config = " --config " + directory.Path("");
  ReplaceFile(directory.Path("debug/_log.log"),
              "{\"event_id\":\"b1\",\"check\":\"injection\",\"rule\":\"k'1\",\"url\":\"/a%20b.asp?q=1\","
              "\"detail\":\"SQL(Detail:q=union select)\"}\n");
  const std::string proposal = Qivctl("exempt --from-event b1" + config).output;
  const std::size_t begin = std::min(proposal.find("exempt add"), proposal.size());
  EXPECT_EQ(Qivctl(proposal.substr(begin, proposal.find('\n', begin) - begin)).output, "") << proposal;
  const std::string listed = Qivctl("exempt list" + config).output;
  EXPECT_TRUE(listed.starts_with("1. rule k'1 on /a b.asp in parameter q, 2")) << listed;
  EXPECT_EQ(Qivctl("exempt add --rule r --path a.asp" + config).exit_code, 2);
  EXPECT_EQ(Qivctl("exempt remove 1" + config).exit_code, 0);
  EXPECT_EQ(Qivctl("exempt list" + config).output, "nothing is exempt\n");
}

TEST(Qivctl, ChecksRequestsAndWritesNothing) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  ASSERT_EQ(Qivctl("init " + module + " --rules " + QIV_SOURCE_ROOT "/rules").exit_code, 0);
  const std::string check = "check --config " + module + " ";
  const std::string attack = directory.Path("attack.http");
  ReplaceFile(attack, "GET /?id=1+union+select+1,2+from+\x1B[2Jusers HTTP/1.1\nHost: h\n\n");
  const std::string form = directory.Path("form.http");
  ReplaceFile(form,
              "POST / HTTP/1.1\r\nHost: h\r\nContent-Type: text/plain\r\nContent-Length: 4\r\n\r\na=b\n and more");

  const Outcome both = Qivctl(check + form + " -", "GET /?id=1+union+select+1,2+from+users HTTP/1.1\nHost: h\n\n");
  EXPECT_EQ(both.exit_code, 1);
  // Each check in order, and what it looked at.
  for (const std::string& piece :
       {form + ": pass\n  checks:\n    lists             pass        client 203.0.113.7; ",
        std::string("\n    overflow          pass        URL /; headers 12 bytes; body 4 bytes\n"
                    "    url               pass        forwarded no; URL /\n    spider            off\n"),
        std::string("\n-: blocked (403)\n  check:  injection\n  item:   SQL Injection"),
        std::string("\n    injection         blocked     path /; query 32 bytes; headers 1 bytes; body 0 bytes\n"),
        std::string("\n    directory_listing off\n    badcode_output    not asked\n    webshell_output   not asked\n"
                    "    words_output      off\n    script_insertion  off\n")}) {
    EXPECT_NE(both.output.find(piece), std::string::npos) << piece << both.output;
  }
  const Outcome json = Qivctl(check + "--json " + form);
  EXPECT_EQ(json.exit_code, 0);
  EXPECT_NE(json.output.find("\"decision\":\"pass\""), std::string::npos) << json.output;
  EXPECT_NE(json.output.find(R"({"check":"upload","verdict":"pass","looked_at":{"body":"4 bytes"}})"),
            std::string::npos)
      << json.output;
  EXPECT_EQ(Qivctl(check + attack).output, attack + ": refused (400): Invalid URL.\n");
  EXPECT_EQ(Qivctl(check + "- --client 10.0.0", "GET / HTTP/1.1\n\n").exit_code, 2);
  EXPECT_EQ(Qivctl(check + directory.Path("none.http")).exit_code, 2);

  // Framed: a request may hold line feeds and NULs, one that is refused is answered like any other.
  const auto frame = [](const std::string& request) {
    return "%% " + std::to_string(request.size()) + "\n" + request + "\n";
  };
  const std::string stream = frame("GET /?id=1+union+select+1,2+from+users HTTP/1.1\nHost: h\n\n") +
                             frame(std::string("POST / HTTP/1.1\nHost: h\nContent-Type: text/plain\n"
                                               "Content-Length: 3\n\n%\n\0",
                                               71)) +
                             frame("GET / HTTP/9\n\n");
  const std::string batch = check.substr(0, check.size() - 1) + " --batch";
  const Outcome lines = Qivctl(batch, stream);
  EXPECT_EQ(lines.exit_code, 1);
  EXPECT_TRUE(lines.output.starts_with("blocked\t403\tinjection\tSQL Injection Protection(GET)\tDeny SQL"))
      << lines.output;
  EXPECT_NE(lines.output.find("\npass\t0\t\t\t\t\nrefused\t400\t\t\t"), std::string::npos) << lines.output;
  const std::pair<const char*, const char*> bad_frames[] = {
      {"%% 4\nGET", "request 1 ends before the length that it states"},
      {"%% 99999999999\n", "request 1 is larger than 101 MiB"},
      {"GET / HTTP/1.1\n\n", "request 1 does not begin with a line \"%% BYTES\""},
      {"%% -1\n", "request 1 does not begin"},
  };
  for (const auto& [input, message] : bad_frames) {
    const Outcome refused = Qivctl(batch, input);
    EXPECT_EQ(refused.exit_code, 2) << input;
    EXPECT_NE(refused.output.find(message), std::string::npos) << refused.output;
  }
  EXPECT_FALSE(IsFile(module + "/debug/_log.log"));
  EXPECT_FALSE(IsFile(module + "/config/_out.log"));

  ReplaceFile(module + "/config/_config.db", "no configuration");
  EXPECT_EQ(Qivctl(check + form).exit_code, 2);
  EXPECT_EQ(Qivctl("check --config " + directory.Path("none") + " " + form).exit_code, 2);
}

TEST(Qivctl, ScansFilesAndFolders) {
  const CTemporaryDirectory directory;
  const std::string tree = directory.Path("tree");
  MakeDirectories(tree + "/sub");
  ReplaceFile(tree + "/ok.php", "<?php echo 1;");
  const Outcome clean = Qivctl("scan " + tree);
  EXPECT_EQ(clean.exit_code, 0) << clean.output;
  EXPECT_NE(clean.output.find("1 files, 0 MiB in "), std::string::npos);

  ReplaceFile(tree + "/sub/caf\xE9.php", "<?php eval($_POST[1]); // \xC4\xE3");
  ReplaceFile(tree + "/sub/up.php", "<?php move_uploaded_file($_FILES['f']['tmp_name'], $_FILES['f']['name']);");
  // None of these may hold up the scan or send it round in circles.
  ASSERT_EQ(std::system(("cd " + tree + " && ln -s .. sub/loop && ln -s nowhere dangling && mkfifo fifo").c_str()), 0);
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(tree);
  for (int depth = 0; depth < 30; ++depth) {  // together longer than a path may be
    std::filesystem::create_directory(std::string(200, '0'));
    std::filesystem::current_path(std::string(200, '0'));
  }
  std::filesystem::current_path(before);
  const std::string in_sub = tree + "/sub/caf\\xE9.php: Backdoor";
  for (const std::string follow : {"", " --follow"}) {
    const Outcome found = Qivctl("scan --jobs 3 " + tree + follow);
    EXPECT_EQ(found.exit_code, 1);
    EXPECT_NE(found.output.find("WEBSHELL    " + in_sub), std::string::npos) << found.output;
    EXPECT_NE(found.output.find("suspicious  " + tree + "/sub/up.php: "), std::string::npos) << found.output;
    EXPECT_NE(found.output.find("the folder cannot be read"), std::string::npos) << "too long a path";
    EXPECT_EQ(found.output.find("links not followed") == std::string::npos, !follow.empty()) << found.output;
  }
  const Outcome left_out = Qivctl("scan --no-suspicious --exclude '0*' --exclude '*.php' " + tree);
  EXPECT_EQ(left_out.exit_code, 0) << left_out.output;
  EXPECT_EQ(Qivctl("scan /proc/self/mem").output.find("qivctl: /proc/self/mem: cannot be read\n"), 0U);
  EXPECT_EQ(Qivctl("scan " + tree + "/ok.php " + tree + "/none").exit_code, 2);
  EXPECT_EQ(Qivctl("scan").exit_code, 2);

  const Outcome json = Qivctl("scan --json --exclude '0*' --language zh-CN " + tree);
  const std::vector<std::string_view> lines = SplitUtf8(json.output, "\n");
  ASSERT_EQ(lines.size(), 4U) << json.output;
  const std::unique_ptr<IJsonValue> finding = ParseJson(lines[lines[0].find("caf") == lines[0].npos ? 1 : 0]);
  ASSERT_TRUE(finding) << json.output;
  EXPECT_EQ(finding->AsObject()->GetText("path"), tree + "/sub/caf\\xE9.php");
  EXPECT_EQ(finding->AsObject()->GetText("finding"), "后门");
  EXPECT_EQ(finding->AsObject()->GetText("suspicious"), "false");
  EXPECT_NE(lines[2].find("\"findings\":1,\"suspicious\":1,\"errors\":0"), std::string_view::npos) << lines[2];
}

TEST(Qivctl, ScansWithAnInstallationsOwnRules) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  ASSERT_EQ(Qivctl("init " + module + " --language zh-CN --rules " QIV_SOURCE_ROOT "/rules").exit_code, 0);
  const std::string page = directory.Path("page.html");
  ReplaceFile(page, "<p>own evil sign</p>");
  const std::string scan = "scan --config " + module + " " + page;
  EXPECT_EQ(Qivctl(scan).exit_code, 0);
  const std::string library = module + "/config/_trojan.db";
  const std::string text = "<trojan_rules>own evil sign{*}0{*}Mine{#}</trojan_rules>";
  ReplaceFile(library, Qivctl("encrypt", text).output);
  EXPECT_EQ(Qivctl(scan).output.find("WEBSHELL    " + page + ": Mine (ownevilsign)\n"), 0U);
  ReplaceFile(library, "no library");
  EXPECT_EQ(Qivctl(scan).exit_code, 2);
  EXPECT_EQ(Qivctl("scan --config " + directory.Path("none") + " " + page).exit_code, 2);
}

TEST(Qivctl, AScanCanBeInterrupted) {
  const CTemporaryDirectory directory;
  std::string code = "<?php ";
  while (code.size() < (1U << 17)) code += "$a" + std::to_string(code.size() % 97) + " = $b['c'] . strrev('x');\n";
  for (int i = 0; i < 100; ++i) ReplaceFile(directory.Path(std::to_string(i) + ".php"), code);
  ReplaceFile(directory.Path("000.php"), "<?php eval($_POST[1]);");
  // Once the first result is there, the scan runs.
  const std::string out = directory.Path("out");
  const Outcome stopped =
      Shell(QIVCTL " scan --jobs 1 --exclude out " + directory.Root().string() + " >" + out +
            " & pid=$!; while kill -0 $pid && [ ! -s " + out +
            " ]; do sleep 0.02; done; kill -INT $pid; wait $pid; code=$?; cat " + out + "; (exit $code)");
  EXPECT_EQ(stopped.exit_code, 130) << stopped.output;
  EXPECT_EQ(stopped.output.find("WEBSHELL    "), 0U) << stopped.output;
  EXPECT_NE(stopped.output.find("Stopped. "), std::string::npos) << stopped.output;
}

TEST(Files, FindTheModuleDirectory) {
  const CTemporaryDirectory directory;
  MakeDirectories(directory.Path("module/config"));
  const std::string module = directory.Path("module") + "/";
  for (const char* const name : {"module", "module/", "module/config", "module/config/"}) {
    EXPECT_EQ(ResolveModuleDirectory(directory.Path(name)), module) << name;
  }
  EXPECT_EQ(ResolveModuleDirectory(directory.Path("other")), "");
  EXPECT_EQ(ResolveModuleDirectory(directory.Path("other/config")), "");
}

TEST(Qivctl, ListsClientsAndSaysWhetherThatKeepsThemOut) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  ASSERT_EQ(Qivctl("init " + module).exit_code, 0);
  const std::string config = " --config " + module;
  struct Case {
    const char* command;
    int exit_code;
    const char* said;
  };
  const auto run = [&](const Case& c) {
    const Outcome outcome = Qivctl(c.command + config);
    EXPECT_EQ(outcome.exit_code, c.exit_code) << c.command << "\n" << outcome.output;
    EXPECT_NE(outcome.output.find(c.said), std::string::npos) << c.command << "\n" << outcome.output;
  };
  const Case cases[] = {
      {"lists", 0, "no client is on a list\n"},
      {"deny 192.0.2.7 --for 1h30m", 0, "denylist 192.0.2.7 until "},
      {"deny 2001:db8::7 --for 5", 0, "denylist 2001:db8::/64 until "},
      {"lists", 0, "denylist 2001:db8::/64 "},
      {"auth 192.0.2.7 --for 2d", 0, "authlist 192.0.2.7 until "},
      {"deny 192.0.2.7 --for 90s", 1, "192.0.2.7 is on the authlist, which goes before"},
      {"forgive 192.0.2.7", 0, "192.0.2.7 taken off: denylist 192.0.2.7, authlist 192.0.2.7\n"},
      {"forgive 192.0.2.7", 1, "192.0.2.7 was on no list\n"},
      {"forgive 2001:db8::ffff:1", 0, "taken off: denylist 2001:db8::/64\n"},
      {"deny 2001:db8:1::/64", 0, "denylist 2001:db8:1::/64 until "},
      {"forgive 2001:db8:1::/64", 0, "taken off: denylist 2001:db8:1::/64\n"},
      {"deny 192.0.2.0/24", 2, "is a range; deny takes single addresses. For ranges write \"deny_ips\""},
      {"auth 192.0.2.1-192.0.2.9", 2, "\"allow_ips\""},
      {"deny nobody", 2, "is no IP address"},
      {"deny 192.0.2.7 --for 30m1h", 2, "is no period"},
      {"deny 192.0.2.7 --for 1h1h", 2, "is no period"},
      {"deny 192.0.2.7 --for 1h30", 2, "is no period"},
      {"deny 192.0.2.7 --for 0", 2, "is no period"},
      {"deny 192.0.2.7 --for 9999999999d", 2, "is no period"},
      {"lists", 0, "no client is on a list\n"},
  };
  for (const Case& c : cases) run(c);
  run({"deny 192.0.2.7 --for 1h30m", 0, ""});
  const std::unique_ptr<IJsonValue> lists = ParseJson(Qivctl("lists --json" + config).output);
  ASSERT_TRUE(lists != nullptr && lists->AsArray() != nullptr && lists->AsArray()->Items().size() == 1);
  const JsonObject* const entry = lists->AsArray()->Items()[0]->AsObject();
  EXPECT_EQ(*entry->Find("end")->AsNumber()->ToInt64() - *entry->Find("start")->AsNumber()->ToInt64(), 5400);

  // What was not written is not said to be done.
  const Outcome full = Shell("trap '' XFSZ; ulimit -f 0; " + std::string(QIVCTL) + " deny 192.0.2.8" + config);
  EXPECT_EQ(full.exit_code, 2);
  EXPECT_EQ(full.output, "qivctl: " + module + "/config/_in.db: cannot be written: File too large\n");

  const std::string settings = Content(module + "/settings.json");
  for (const auto& [on, off] : {std::pair{"\"e404\": \"1\"", "\"e404\": \"0\""},
                                {"\"sys_is_qiv\": \"1\"", "\"sys_is_qiv\": \"0\""},
                                {"\"website_on_servers\": \"1\"", "\"website_on_servers\": \"0\""}}) {
    std::string changed = settings;
    ASSERT_NE(changed.find(on), std::string::npos) << on;
    ReplaceFile(module + "/settings.json", changed.replace(changed.find(on), std::string_view(on).size(), off));
    Qivctl("pack " + module + "/settings.json -o " + module + "/config/_config.db");
    run({"deny 192.0.2.7", 1, "locks keep nobody out"});
    run({"lists", 0, "locks keep nobody out"});
  }
}

TEST(Qivctl, ShowsNoControlCharactersOfClients) {
  const CTemporaryDirectory directory;
  MakeDirectory(directory.Path("config"));
  const std::string config = " --config " + directory.Path("");
  CExchangeFiles files("", directory.Path("config/_out.log"));
  const std::string evil =
      "\xE4\xB8\xAD\xC2\x9B"
      "2J";
  ASSERT_TRUE(files.WriteLock(ClientList::kDeny, CIpAddress::FromIpv4(7), UnixSeconds(), UnixSeconds() + 600, {evil}));
  ASSERT_TRUE(files.WriteMessage({"192.0.2.7", "a", "b", evil, evil}));
  for (const char* command : {"log", "service --once", "lists"}) {
    const std::string output = Qivctl(command + config).output;
    EXPECT_NE(output.find("\xE4\xB8\xAD  2J"), std::string::npos) << command << output;
    EXPECT_EQ(output.find("\xC2\x9B"), std::string::npos) << command;
  }
  for (const char* command : {"log --json", "lists --json"}) {
    EXPECT_NE(Qivctl(command + config).output.find("\xE4\xB8\xAD\\u009b2J"), std::string::npos) << command;
  }
}

TEST(Qivctl, AFullDiskAtTheOutputIsAnError) {
  const CTemporaryDirectory directory;
  const std::string module = directory.Path("m");
  ASSERT_EQ(Qivctl("init " + module).exit_code, 0);
  ASSERT_TRUE(CExchangeFiles("", module + "/config/_out.log").WriteMessage({"a", "b", "c", "d", "e"}));
  for (const std::string command :
       {"service --once --config @", "log --config @", "log --follow --config @", "lists --config @", "--help",
        "encrypt <@/settings.json", "unpack @/config/_config.db", "scan @/settings.json"}) {
    const Outcome outcome = Shell(QIVCTL " " + ReplaceAll(command, "@", module) + " >/dev/full");
    EXPECT_EQ(outcome.exit_code, 2) << command << outcome.output;
    EXPECT_NE(outcome.output.find("standard output: cannot be written: No space left"), std::string::npos) << command;
  }
}

}  // namespace
}  // namespace qiv

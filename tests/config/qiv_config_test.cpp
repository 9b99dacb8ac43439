#include "config/qiv_config.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "port/file.h"
#include "port/module_path.h"
#include "tests/common/state_news.h"
#include "tests/config/config_text.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

std::atomic<std::int64_t> test_now{1000};
std::int64_t TestClock() { return test_now; }

std::string Numbered(int number, bool libraries = false) {
  const std::string text = std::to_string(number);
  return FileText((libraries ? "<sys_is_qiv>1</sys_is_qiv>" : "") +
                  SettingsText("<website_attack>{\"cc_lock_freq\":" + text + ",\"cc_allow_urls\":\"/" + text +
                               "\"}</website_attack>"));
}

class QivConfig : public testing::Test {
 protected:
  QivConfig() { MakeDirectory(directory_.Path("config")); }

  std::string File(const std::string& name) const { return directory_.Path("config") + kPathSeparator + name; }

  void Write(const std::string& text) { Write("_config.db", text); }
  void Write(const std::string& name, const std::string& text) {
    ASSERT_TRUE(ReplaceFile(File(name), text));
    // Each write is later than the one before; in whole seconds, which every system's run-time library can set.
    SetTime(name, start_ + std::chrono::seconds(++writes_));
  }
  void SetTime(const std::string& name, std::filesystem::file_time_type time) {
    std::filesystem::last_write_time(std::filesystem::u8path(File(name)), time);
  }
  std::filesystem::file_time_type Time(const std::string& name) const {
    return std::filesystem::last_write_time(std::filesystem::u8path(File(name)));
  }

  /// A tick that is due.
  void Tick() {
    test_now += 2;
    config_.RefreshTick();
  }
  int Number() const { return config_.Current()->attack.cc_lock_freq; }

  /// What the state recorder wrote since the last call, without the reasons.
  std::vector<std::string> News() {
    std::vector<std::string> news = news_.Take();
    for (std::string& line : news)
      line.erase(line.find('|', line.find('|', line.find('|', line.find('|') + 1) + 1) + 1));
    return news;
  }
  using Lines = std::vector<std::string>;

  CTemporaryDirectory directory_;
  CStateNews news_;
  CStateRecorder states_{news_.Log()};
  const std::filesystem::file_time_type start_ = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  int writes_ = 0;
  CQivConfig config_{
      directory_.Path("") + (directory_.Path("").ends_with(kPathSeparator) ? "" : std::string(1, kPathSeparator)),
      &TestClock, &states_};
};

TEST_F(QivConfig, StartsSwitchedOffWithDefaultsAndLoads) {
  Tick();
  Tick();
  EXPECT_FALSE(config_.IsConfigValid());
  EXPECT_FALSE(config_.IsIpv6Protected());
  EXPECT_FALSE(config_.IsLibraryEnabled());
  EXPECT_EQ(config_.Current()->sys_temp_time, 720U);
  EXPECT_TRUE(config_.Library()->Rules().empty());
  Write(FileText("<sys_is_qiv>1</sys_is_qiv><enable_ipv6prot>1</enable_ipv6prot>" + SettingsText("")));
  Tick();
  EXPECT_TRUE(config_.IsConfigValid());
  EXPECT_TRUE(config_.IsIpv6Protected());
  EXPECT_TRUE(config_.IsLibraryEnabled());
  EXPECT_EQ(config_.Current()->base.hide, 1);
}

TEST_F(QivConfig, AClockThatWasWrongOrSetBackDoesNotStopTheTick) {
  constexpr std::int64_t kYear = 365 * 86'400;
  int number = 0;
  for (const std::int64_t step : {std::int64_t{-3'600}, kYear, -kYear, std::int64_t{-2}, std::int64_t{2}}) {
    Write(Numbered(++number));
    test_now += step;
    config_.RefreshTick();
    EXPECT_EQ(Number(), number) << step;
    Write(Numbered(++number));
    test_now += step < 0 ? -1 : 1;  // threads may read the clock in another order than they get here
    config_.RefreshTick();
    EXPECT_EQ(Number(), number - 1) << step;
    Tick();
    Tick();
  }
}

TEST_F(QivConfig, WhatAConfigurationIsRefusedForIsReportedOnce) {
  Tick();
  Tick();
  EXPECT_EQ(News(), (Lines{"load|fault|_config.db|", "protection|off||"})) << "no file";
  Write("abc");
  Tick();
  Tick();
  EXPECT_EQ(News(), Lines{"load|fault|_config.db|"}) << "another reason; protection is off as before";
  Write(Numbered(1));
  Tick();
  EXPECT_EQ(News(), (Lines{"load|ok|_config.db|", "protection|on||"}));
  Write(Numbered(2));
  Tick();
  EXPECT_EQ(News(), Lines());
  std::filesystem::remove(std::filesystem::u8path(File("_config.db")));
  Tick();
  Tick();
  EXPECT_EQ(news_.Take(),
            (Lines{"load|fault|_config.db||The file is missing|", "protection|off|||Requests pass unchecked|"}));
  EXPECT_FALSE(config_.IsConfigValid());
  EXPECT_EQ(Number(), 2) << "the last good record stays";
  Write(Numbered(3));
  Tick();
  EXPECT_TRUE(config_.IsConfigValid());
}

TEST_F(QivConfig, ADamagedSectionNamesWhatIsOff) {
  const std::string attack = "<website_attack>{\"cc_lock_freq\":7}</website_attack>";
  const std::string sql = "<website_sql>{\"get\":1,\"allow_urls\":\"/a|\xC3\xA4|/b\"}</website_sql>";
  Write(FileText("<sys_is_qiv>1</sys_is_qiv>" + SettingsText(attack + sql)));
  Tick();
  EXPECT_EQ(News(), (Lines{"protection|on||", "items|fault|_config.db|website_sql.allow_urls"}));
  EXPECT_EQ(config_.Current()->sql.allow_urls, "/a|/b");
  // One wrong digit in each block of the section, one at a time. Some stand in a value, where they only change that.
  const std::string good = FileText("<sys_is_qiv>1</sys_is_qiv>" + SettingsText(attack + sql));
  const std::size_t begin = good.find("<qivips_websiteconfigpart>") + 26;
  const std::size_t part = SettingsText(attack).size() + std::string("<sys_is_qiv>1</sys_is_qiv>").size();
  int damaged = 0;
  for (std::size_t block = part / 16 + 1; block <= (part + sql.size()) / 16; ++block) {
    std::string text = good;
    char& digit = text[begin + 32 * block];
    digit = digit == '0' ? '1' : '0';
    Write(text);
    Tick();
    ASSERT_TRUE(config_.IsConfigValid());
    ASSERT_EQ(Number(), 7) << "the other sections apply";
    if (!states_.IsFault(StateKind::kSection, "_config.db", "website_sql")) continue;
    ++damaged;
    EXPECT_EQ(config_.Current()->sql.get, 0);
  }
  EXPECT_GE(damaged, 3);
  news_.Take();
  Write(FileText(SettingsText(attack + "<website_sql>{\"get\":1</website_sql>")));
  Tick();
  Write(FileText(SettingsText(attack)));
  Tick();
  for (const std::string& line : news_.Take()) {
    EXPECT_TRUE(line.find("SQL injection and XSS") != line.npos || line.find("In order") != line.npos) << line;
  }
  EXPECT_FALSE(states_.IsFault(StateKind::kSection, "_config.db", "website_sql"));
  EXPECT_FALSE(states_.IsFault(StateKind::kItems, "_config.db", "website_sql.allow_urls"));
}

TEST_F(QivConfig, ARefusedFileSwitchesOffUntilTheNextGoodOne) {
  const std::string refused[] = {
      "", "ab", "abc", std::string("junk"), FileText("junk"), FileText(SettingsText("", "{}")),
  };
  int number = 1;
  for (const std::string& bad : refused) {
    Write(Numbered(++number));
    Tick();
    ASSERT_TRUE(config_.IsConfigValid());
    const std::shared_ptr<const WebsiteConfig> before = config_.Current();
    Write(bad);
    Tick();
    EXPECT_FALSE(config_.IsConfigValid()) << bad;
    EXPECT_EQ(config_.Current(), before) << bad;
    // The refused file's time was stored: the same time with a good file is no news.
    const auto time = Time("_config.db");
    Write(Numbered(++number));
    SetTime("_config.db", time);
    Tick();
    EXPECT_FALSE(config_.IsConfigValid()) << bad;
  }
  Write(Numbered(100));
  Tick();
  EXPECT_TRUE(config_.IsConfigValid());
  EXPECT_EQ(Number(), 100);
}

TEST_F(QivConfig, RefusesMoreThanHundredMebibytes) {
  Write(Numbered(1));
  for (const auto& [size, status] :
       {std::pair{kConfigMaxBytes, ConfigStatus::kNoSettingsPart}, {kConfigMaxBytes + 1, ConfigStatus::kTooLong}}) {
    std::filesystem::resize_file(std::filesystem::u8path(File("_config.db")), 0);
    std::filesystem::resize_file(std::filesystem::u8path(File("_config.db")), size);
    SetTime("_config.db", start_ + std::chrono::seconds(++writes_));
    Tick();
    EXPECT_EQ(config_.LastStatus(), status);
    EXPECT_FALSE(config_.IsConfigValid());
  }
}

TEST_F(QivConfig, TouchingReloadsOnce) {
  Write(Numbered(1));
  Tick();
  const std::shared_ptr<const WebsiteConfig> first = config_.Current();
  Tick();
  EXPECT_EQ(config_.Current(), first);
  SetTime("_config.db", Time("_config.db") + std::chrono::seconds(1));
  Tick();
  const std::shared_ptr<const WebsiteConfig> second = config_.Current();
  EXPECT_NE(second, first);
  Tick();
  EXPECT_EQ(config_.Current(), second);
}

TEST_F(QivConfig, SeesChangesWithinOneSecond) {
  for (int number = 1; number <= 5; ++number) {
    const std::uint64_t before = FileModificationTime(File("_config.db"));
    do {  // until the file system's clock has moved on, a few milliseconds
      ASSERT_TRUE(ReplaceFile(File("_config.db"), Numbered(number)));
    } while (FileModificationTime(File("_config.db")) == before);
    Tick();
    EXPECT_EQ(Number(), number);
  }
}

TEST_F(QivConfig, ASlowReaderKeepsItsRecord) {
  Write(Numbered(1));
  Tick();
  std::shared_ptr<const WebsiteConfig> held = config_.Current();
  const std::weak_ptr<const WebsiteConfig> watched = held;
  for (int number = 2; number <= 5; ++number) {
    Write(Numbered(number));
    Tick();
    ASSERT_EQ(Number(), number);
    ASSERT_EQ(held->attack.cc_lock_freq, 1);
    ASSERT_EQ(held->attack.cc_allow_urls, "/1");
  }
  held.reset();
  EXPECT_TRUE(watched.expired());  // nothing but its readers kept it
}

std::string LibraryText(const std::string& word) {
  return encrypt_text("", "<sql_rules>" + word + "{*}*{*}{*}1{#}</sql_rules>");
}

TEST_F(QivConfig, LibrariesFollowTheFlag) {
  Write("_sql.db", LibraryText("one"));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("one"), -1) << "no configuration yet";
  Write(Numbered(1, false));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("one"), 0) << "a configuration finds its library";
  Write("_sql.db", LibraryText("two"));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("two"), -1) << "not watched while the flag is off";
  Write(Numbered(2, true));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("two"), 0);
  Write("_sql_user.db", LibraryText("mine%61"));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("minea"), 1) << "user-defined rules follow the built-in ones";
  News();
  for (const std::string& refused : {std::string("not a library"), LibraryText("x").substr(0, 64), std::string()}) {
    Write("_sql.db", refused);
    Tick();
    EXPECT_EQ(config_.Library()->FindRule("two"), 0) << "the last good library stays";
    EXPECT_EQ(config_.Library()->FindRule("minea"), 1);
  }
  EXPECT_EQ(News(), Lines{"load|fault|_sql.db|"});
  std::filesystem::remove(std::filesystem::u8path(File("_sql.db")));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("two"), -1) << "a removed library leaves force";
  EXPECT_EQ(config_.Library()->FindRule("minea"), 0);
  EXPECT_EQ(News(), Lines{"load|fault|_sql.db|"}) << "another reason";
  Write("_sql.db", LibraryText("three{*}*{*}{*}1{#}\xC3\xA4"));
  Tick();
  EXPECT_EQ(config_.Library()->FindRule("three"), 0);
  EXPECT_EQ(config_.Library()->Rules().size(), 2U) << "a rule whose words have no GBK form is left out";
  EXPECT_EQ(News(), (Lines{"items|fault|_sql.db|", "load|ok|_sql.db|"}));
  const std::shared_ptr<const InjectionLibrary> same = config_.Library();
  Tick();
  EXPECT_EQ(config_.Library(), same);
}

std::string Finding(const std::shared_ptr<const CQivLibs>& library, std::string_view text) {
  WebshellResult result;
  if (!library->WebshellScan(text, &result)) return result.known_good ? "known good" : "";
  return result.finding                     ? std::string(Message(Language::kEnglish, *result.finding))
         : result.rule_name.english.empty() ? "unnamed"
                                            : result.rule_name.english;
}

std::string WebshellLibraryText(const std::string& word) {
  return encrypt_text("", "<trojan_rules>" + word + "{*}0{*}named " + word + "{*}0{*}0{*}4{*}0{#}</trojan_rules>" +
                              "<trojan_free>good" + word + "{#}</trojan_free>");
}

std::string SiteText(const std::string& other) {
  return FileText("<sys_is_qiv>1</sys_is_qiv>" + other + SettingsText(""));
}

TEST_F(QivConfig, TheWebshellLibraryFollowsFileAndSite) {
  constexpr std::string_view kShell = "<?php eval($_POST[1]);";
  Write("_trojan.db", WebshellLibraryText("one"));
  Tick();
  EXPECT_EQ(config_.Webshells(), nullptr) << "no configuration yet";
  Write(Numbered(1, false));
  Tick();
  const std::shared_ptr<const CQivLibs> first = config_.Webshells();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Finding(first, "a one"), "named one");
  EXPECT_EQ(Finding(first, "a goodone"), "known good");
  EXPECT_EQ(Finding(first, kShell), "Backdoor") << "the built-in detectors stay";
  Write("_trojan.db", WebshellLibraryText("two"));
  Tick();
  EXPECT_EQ(config_.Webshells(), first) << "not watched while the flag is off";
  Write(SiteText(""));
  Tick();
  EXPECT_EQ(Finding(config_.Webshells(), "two"), "named two");
  EXPECT_EQ(Finding(config_.Webshells(), "one"), "");
  EXPECT_EQ(Finding(first, "one"), "named one") << "a reader keeps what it took";

  const std::shared_ptr<const CQivLibs> good = config_.Webshells();
  const std::string whole = "<trojan_rules>two{*}0{*}x{#}</trojan_rules>";
  const std::string broken[] = {"",
                                "junk",
                                encrypt_text("", "no list"),
                                encrypt_text("", whole.substr(0, 30)),
                                encrypt_text("other key of 16", whole),
                                std::string(3, '\0')};
  for (const std::string& text : broken) {
    Write("_trojan.db", text);
    Tick();
    EXPECT_EQ(config_.Webshells(), good) << text;
  }
  // A new configuration builds on the last good file, not on the broken one.
  Write(
      SiteText("<language>zh-CN</language><website_other><trojan_usertrojan>mine{#}</trojan_usertrojan>"
               "<trojan_freecode>ours{#}</trojan_freecode></website_other>"));
  Tick();
  EXPECT_EQ(Finding(config_.Webshells(), "two"), "named two");
  EXPECT_EQ(Finding(config_.Webshells(), "mine"), "unnamed");
  EXPECT_EQ(Finding(config_.Webshells(), "ours mine"), "known good");
  const std::shared_ptr<const CQivLibs> same = config_.Webshells();
  SetTime("_config.db", Time("_config.db") + std::chrono::seconds(1));
  Tick();
  EXPECT_EQ(config_.Webshells(), same) << "nothing it is made of changed";

  std::filesystem::remove(std::filesystem::u8path(File("_trojan.db")));
  Tick();
  EXPECT_EQ(Finding(config_.Webshells(), "two"), "");
  EXPECT_EQ(Finding(config_.Webshells(), "mine"), "unnamed");

  Write("_trojan.db", "x");
  std::filesystem::resize_file(std::filesystem::u8path(File("_trojan.db")), CWebshellLibrary::kFileMaxBytes + 1);
  Tick();
  EXPECT_EQ(Finding(config_.Webshells(), "mine"), "unnamed");
}

TEST_F(QivConfig, TheRulesForAttacksFollowTheirFile) {
  const auto rules = [](const std::string& pattern, const std::string& more = "") {
    return encrypt_text("", "<badcode_lists></badcode_lists><badcode_rules>1{*}rce{*}-{*}" + pattern +
                                "{*}r{*}h{*}m{#}" + more + "</badcode_rules>");
  };
  const auto pattern = [this] {
    return config_.AttackRules()->attacks.Rules().empty() ? "" : config_.AttackRules()->attacks.Rules()[0].pattern;
  };
  Write(FileText(SettingsText("", "{\"badcode\":1}")));
  Tick();
  EXPECT_TRUE(states_.IsFault(StateKind::kProtection, "_badcode.db")) << "switched on, and nothing is looked for";
  Write(FileText(SettingsText("", "{\"badcode\":0,\"badcode_webout\":1}")));
  Tick();
  EXPECT_FALSE(states_.IsFault(StateKind::kProtection, "_badcode.db")) << "off, answers with it";
  Write(FileText(SettingsText("", "{\"badcode\":1,\"badcode_webout\":1}")));
  Write("_badcode.db", rules("a.b"));
  Tick();
  EXPECT_TRUE(states_.IsFault(StateKind::kProtection, "_badcode.db")) << "nothing is looked for in answers";
  Write(SiteText(""));
  Tick();
  EXPECT_EQ(pattern(), "a.b");
  EXPECT_FALSE(states_.IsFault(StateKind::kProtection, "_badcode.db"));
  Write("_badcode.db", rules("a.c", "ä{*}rce{*}-{*}b.c{*}r{*}h{*}m{#}2{*}rce{*}-{*}ä.c{*}r{*}h{*}m{#}"));
  Tick();
  EXPECT_EQ(pattern(), "a.c");
  EXPECT_EQ(config_.AttackRules()->attacks.Rules().size(), 1U);
  EXPECT_TRUE(states_.IsFault(StateKind::kItems, "_badcode.db")) << "GBK has no such letter";
  Write("_badcode.db", rules("a.b"));
  Tick();
  for (const std::string& bad : {rules("~x"), rules("中.b"), rules("ab~[中]"), std::string("no library"),
                                 encrypt_text("", "<badcode_rules></badcode_rules>")}) {
    news_.Take();
    Write("_badcode.db", bad);
    Tick();
    EXPECT_EQ(pattern(), "a.b") << bad;
    EXPECT_EQ(news_.Take().size(), 1U) << "one event";
    Write("_badcode.db", rules("a.b"));
    Tick();
  }
  std::filesystem::remove(std::filesystem::u8path(File("_badcode.db")));
  Tick();
  EXPECT_EQ(pattern(), "");
}

class CCountingClient : public ITickClient {
 public:
  bool OnServiceTick(std::int64_t now) override {
    times.push_back(now);
    return reloads;
  }
  void OnReloaded(std::int64_t) override { ++forgotten; }

  std::vector<std::int64_t> times;
  bool reloads = false;
  int forgotten = 0;
};

TEST_F(QivConfig, TickClientsRideAlong) {
  CCountingClient client;
  config_.SetTickClient(&client);
  Tick();
  EXPECT_EQ(client.forgotten, 0);
  Write(Numbered(1, false));
  Tick();
  EXPECT_EQ(client.forgotten, 1);
  EXPECT_TRUE(client.times.empty()) << "the flag is off";
  Write(Numbered(2, true));
  Tick();
  EXPECT_EQ(client.times, std::vector<std::int64_t>{test_now});
  EXPECT_EQ(client.forgotten, 2);
  Tick();
  EXPECT_EQ(client.times.size(), 2U);
  EXPECT_EQ(client.forgotten, 2) << "nothing was reloaded";
  client.reloads = true;
  Tick();
  EXPECT_EQ(client.forgotten, 3);
  client.reloads = false;
  Write("junk");
  Tick();
  EXPECT_EQ(client.forgotten, 3) << "a refused file changes nothing";
}

TEST_F(QivConfig, SixteenReadersWhileReloading) {
  constexpr int kReloads = 60;
  Write("_trojan.db", WebshellLibraryText("word"));
  Write(Numbered(1));
  Tick();
  std::atomic<bool> done{false};
  std::atomic<int> faults{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 16; ++i) {
    readers.emplace_back([this, &done, &faults] {
      while (!done) {
        config_.RefreshTick();
        const std::shared_ptr<const WebsiteConfig> config = config_.Current();
        if (config->attack.cc_allow_urls != "/" + std::to_string(config->attack.cc_lock_freq)) ++faults;
        if (!config_.IsConfigValid()) ++faults;
        if (!config_.Library()->Keys().empty()) ++faults;
        if (Finding(config_.Webshells(), "word").empty()) ++faults;
        std::this_thread::yield();
      }
    });
  }
  for (int number = 2; number <= kReloads; ++number) {
    if (number % 4 == 0) Write("_trojan.db", WebshellLibraryText("word"));
    Write(Numbered(number, number % 2 == 0));
    test_now += 2;
    while (Number() != number) {  // any of the threads may make the tick
      config_.RefreshTick();
      test_now += 1;
    }
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(faults, 0);
}

}  // namespace
}  // namespace qiv

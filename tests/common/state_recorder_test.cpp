#include "common/state_recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/common/state_news.h"

namespace qiv {
namespace {

std::int64_t test_now_us = 0;
std::int64_t TestClock() { return test_now_us; }

class StateRecorder : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;
  Lines News() { return news_.Take(); }

  CStateNews news_;
  CStateRecorder states_{news_.Log(), &TestClock};
};

TEST_F(StateRecorder, OnlyChangesAreWritten) {
  states_.Fine(StateKind::kLoad, "a.db");
  EXPECT_EQ(News(), Lines());
  for (int i = 0; i < 3; ++i) states_.Fault(StateKind::kLoad, "a.db", MessageId::kStateMissing);
  EXPECT_EQ(News(), Lines{"load|fault|a.db||The file is missing|"});
  EXPECT_TRUE(states_.IsFault(StateKind::kLoad, "a.db"));
  EXPECT_FALSE(states_.IsFault(StateKind::kLoad, "b.db"));
  states_.SetLanguage(Language::kChinese);
  states_.Fault(StateKind::kLoad, "a.db", {"", MessageId::kStateTooShort, ""});
  states_.Fault(StateKind::kLoad, "a.db", {"", MessageId::kStateTooShort, "2"});
  EXPECT_EQ(News(), (Lines{"load|fault|a.db||文件过短|", "load|fault|a.db||文件过短|2"}));
  for (int i = 0; i < 2; ++i) states_.Fine(StateKind::kLoad, "a.db");
  EXPECT_EQ(News(), Lines{"load|ok|a.db||已恢复正常|"});
}

TEST_F(StateRecorder, ProtectionIsOffUntilItIsReportedOn) {
  states_.Fault(StateKind::kProtection, "", MessageId::kStateUnprotected);
  for (int i = 0; i < 2; ++i) states_.Fine(StateKind::kProtection, "");
  EXPECT_EQ(News(), (Lines{"protection|off|||Requests pass unchecked|", "protection|on|||Requests are checked|"}));
  states_.Fault(StateKind::kProtection, "", MessageId::kStateUnprotected);
  EXPECT_EQ(News(), Lines{"protection|off|||Requests pass unchecked|"});
}

std::string told_system;
void TellSystem(SystemEvent event, const std::string& particulars) noexcept {
  told_system += std::to_string(static_cast<int>(event)) + " " + particulars + "\n";
}

TEST_F(StateRecorder, AdministratorsHearOfWhatTurnsProtectionOff) {
  told_system.clear();
  states_.SetSystemLog(&TellSystem);
  states_.Fine(StateKind::kProtection, "");
  for (int i = 0; i < 2; ++i) states_.Fault(StateKind::kLoad, "_sql.db", {"", MessageId::kStateTooShort, "\xD6\xD0"});
  states_.Fault(StateKind::kSection, "_config.db", {"x", MessageId::kStateTooShort, ""});
  states_.Fault(StateKind::kProtection, "", MessageId::kStateUnprotected);
  states_.Fine(StateKind::kLoad, "_sql.db");
  states_.Happened(StateKind::kBody, MessageId::kStateBodyTooLarge, "");
  EXPECT_EQ(told_system,
            "3 Requests are checked\n5 _sql.db: The file is too short (中)\n4 Requests pass unchecked\n"
            "6 _sql.db: In order again\n");
}

TEST_F(StateRecorder, AFileReportsAllItsSectionsAtOnce) {
  const std::vector<StateFault> two = {{"x", MessageId::kStateNotOurs, ""}, {"y", MessageId::kStateNotOurs, ""}};
  const std::vector<StateFault> other = {{"y", MessageId::kStateNotOurs, ""}, {"z", MessageId::kStateTooShort, ""}};
  states_.Fault(StateKind::kSection, "before", {"x", MessageId::kStateTooShort, ""});
  states_.Fault(StateKind::kSection, "g", {"x", MessageId::kStateTooShort, ""});
  states_.Replace(StateKind::kSection, "f", two);
  News();
  states_.Replace(StateKind::kSection, "f", other);
  EXPECT_EQ(News(), (Lines{"section|ok|f|x|In order again|", "section|fault|f|z|The file is too short|"}));
  states_.Replace(StateKind::kSection, "f", {});
  EXPECT_EQ(News(), (Lines{"section|ok|f|y|In order again|", "section|ok|f|z|In order again|"}));
  EXPECT_TRUE(states_.IsFault(StateKind::kSection, "g", "x"));
}

TEST_F(StateRecorder, WhatHappensOftenIsWrittenOnceAMinute) {
  test_now_us = 5;
  for (int i = 0; i < 4; ++i) states_.Happened(StateKind::kBody, MessageId::kStateBodyTooLarge, "/a");
  states_.Happened(StateKind::kBody, MessageId::kStateBodyNoMemory, "/b");
  EXPECT_EQ(News().size(), 2U) << "one of each reason";
  test_now_us += CStateRecorder::kEventPause - 1;
  states_.Happened(StateKind::kBody, MessageId::kStateBodyTooLarge, "/c");
  EXPECT_EQ(News().size(), 0U);
  test_now_us += 1;
  states_.Happened(StateKind::kBody, MessageId::kStateBodyTooLarge, "/d");
  EXPECT_EQ(News(), Lines{"body|fault|||A body was not examined: it is too large|(+4) /d"});
}

TEST_F(StateRecorder, ThreadsReportAChangeOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < 200; ++n) states_.Fault(StateKind::kOutput, "_out.log", MessageId::kStateOutputFull);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(News().size(), 1U);
}

}  // namespace
}  // namespace qiv

#include "checks/flood_check.h"

#include <string>
#include <string_view>

#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

class FloodCheckTest : public CCheckFixture {
 protected:
  FloodCheckTest() {
    AttackSettings& attack = site_->attack;
    attack.cc_lock_freq = attack.e404_lock_freq = 2;
    attack.cc_lock_freq_sec = attack.e404_lock_freq_sec = 60;
    attack.cc_lock_time = attack.e404_lock_time = 3600;
    attack.cc_verify_type = kVerifyClick;
    facts_.method = "GET";
    facts_.raw_url = "/a.asp";
  }

  CheckResult Ask(void (*check)(const RequestFacts&, const CheckContext&, CheckResult&), bool log_only = false) {
    CheckContext context = Context();
    context.log_only = log_only;
    CheckResult result;
    check(facts_, context, result);
    return result;
  }
  /// What became of requests, a digit each: the status.
  std::string Statuses(int count, bool log_only = false) {
    std::string text;
    for (; count > 0; --count) text += std::to_string(Ask(FloodCheck, log_only).status);
    return text;
  }
};

TEST_F(FloodCheckTest, WhatOnlyLogsHoldsNobody) {
  EXPECT_EQ(Statuses(5, true), "00222");
  fixture_now += 60;
  EXPECT_EQ(Statuses(4, true), "0022");
  EXPECT_EQ(statistics_, (std::vector<std::string>(2, "cc 192.0.2.7 -"))) << "one a period";
  fixture_now += 60;
  EXPECT_EQ(Statuses(4), "0022");
  fixture_now += 60;
  EXPECT_EQ(Statuses(1), "2") << "held";

  statistics_.clear();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Ask(NotFoundCheck, true).status, i == 2 ? kBlocked : kUndecided);
  fixture_now += 60;
  const std::size_t lines = OutLines().size();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Ask(NotFoundCheck).status, kUndecided);
  EXPECT_EQ(statistics_, (std::vector<std::string>(2, "e404 192.0.2.7 -")));
  EXPECT_EQ(partial_, std::vector<std::string>{"not_found"}) << "the one that counts";
  EXPECT_EQ(OutLines().size(), lines + 1);
}

TEST_F(FloodCheckTest, AnAnswerForgivesOnce) {
  EXPECT_EQ(Statuses(2), "00");
  const std::string page = Ask(FloodCheck).request.prepared_page;
  const std::string_view field = "name=\"qivcctag\" value=\"";
  const std::size_t token = page.find(field) + field.size();
  const std::string answer =
      "/a.asp?qivcctag=" + page.substr(token, page.find('"', token) - token) + "&qivto=/a.asp%3Fx";
  fixture_now += 2;
  facts_.raw_url = answer;
  const CheckResult passed = Ask(FloodCheck);
  EXPECT_EQ(passed.request.answer.location, "/a.asp?x");
  EXPECT_NE(passed.request.answer.cookie, "");
  facts_.raw_url = "/a.asp";
  EXPECT_EQ(Statuses(3), "002");
  facts_.raw_url = answer;
  EXPECT_EQ(Ask(FloodCheck).request.answer.location, "/a.asp?x") << "who sends a form twice is sent on twice";
  facts_.raw_url = "/a.asp";
  EXPECT_EQ(Statuses(1), "2");
  facts_.cookie = passed.request.answer.cookie;
  EXPECT_EQ(Statuses(9), "000000000");
}

}  // namespace
}  // namespace qiv

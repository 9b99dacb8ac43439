#include "checks/smart_blocking.h"

#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

using Lines = std::vector<std::string>;

class SmartBlocking : public CCheckFixture {
 protected:
  void Configure(Language language, int freq, int seconds) {
    site_->language = language;
    site_->response.lock = true;
    site_->response.lock_freq = freq;
    site_->response.lock_freq_sec = seconds;
    site_->response.lock_time = 600;
    UseSite();
  }
  CheckResult Plain() const {
    CheckResult result;
    result.status = kBlocked;
    result.plain_block = 1;
    result.category = "Category";
    result.item = "Item";
    result.reason = "Reason";
    return result;
  }
  void Block(CheckResult result) {
    SmartBlockingCheck(facts_, Context(), result);
    EXPECT_EQ(result.plain_block, 0);
    EXPECT_EQ(result.status, kBlocked);
  }
};

TEST_F(SmartBlocking, LocksOnTheLastOfThreeBlocksInOnePeriod) {
  Configure(Language::kEnglish, 3, 60);
  fixture_now = 1'000'019;  // the last second of a period
  Block(Plain());
  Block(Plain());
  fixture_now = 1'000'020;
  Block(Plain());
  Block(Plain());
  EXPECT_EQ(OutLines(), Lines());
  SetClient("2001:db8::7");
  Block(Plain());  // another client
  SetClient("192.0.2.7");
  CheckResult detailed = Plain();
  detailed.detail = "Detail";
  Block(detailed);
  const std::string text = "60Attacks exceed in seconds3times, trigger cloud blocking rule";
  const std::string first = "denylist|add|IIS|192.0.2.7|1000020|1000620|" + text + "(Detail)|Smart Blocking|Attack";
  EXPECT_EQ(OutLines(), Lines({first}));

  // Counting starts again from 1.
  Block(Plain());
  Block(Plain());
  EXPECT_EQ(OutLines(), Lines({first}));
  Block(Plain());
  EXPECT_EQ(OutLines(),
            Lines({first, "denylist|add|IIS|192.0.2.7|1000020|1000620|" + text + "(Reason)|Smart Blocking|Attack"}));
}

TEST_F(SmartBlocking, SpeaksChinese) {
  Configure(Language::kChinese, 2, 60);
  SetClient("2001:db8::7");
  CheckResult result = Plain();
  result.reason = CCharSet::Utf8ToLocal("原因");
  Block(result);
  Block(result);
  EXPECT_EQ(OutLines(), Lines({"denylist|add|IIS|2001:db8::7|1000000|1000600|"
                               "60秒内攻击超过2次，触发智能拦截规则（原因）|智能拦截|攻击防护"}));
}

TEST_F(SmartBlocking, CountsOnlyWhatItShould) {
  struct Case {
    const char* what;
    void (*change)(WebsiteConfig&, CheckResult&);
    int plain_after;
  };
  const Case cases[] = {
      {"switched off", [](WebsiteConfig& site, CheckResult&) { site.response.lock = false; }, 1},
      {"no link", [](WebsiteConfig& site, CheckResult&) { site.library_enabled = false; }, 1},
      {"not to be counted", [](WebsiteConfig&, CheckResult& result) { result.no_count = 1; }, 1},
      {"not a plain block", [](WebsiteConfig&, CheckResult& result) { result.plain_block = 0; }, 0},
  };
  for (const Case& c : cases) {
    *site_ = WebsiteConfig();
    site_->library_enabled = true;
    Configure(Language::kEnglish, 2, 60);
    for (int i = 0; i < 5; ++i) {
      CheckResult result = Plain();
      c.change(*site_, result);
      SmartBlockingCheck(facts_, Context(), result);
      EXPECT_EQ(result.plain_block, c.plain_after) << c.what;
    }
    EXPECT_EQ(OutLines(), Lines()) << c.what;
  }
}

TEST_F(SmartBlocking, ASmartBlockLocksAtOnce) {
  struct Case {
    const char* title;
    const char* reason;
    int lock_time;
    const char* line;
    std::uint32_t temp_time = 720;
  };
  // Also while `lock` is off. Without a lock time the lock lasts sys_temp_time minutes, of which 0 makes no lock.
  const Case cases[] = {
      {"Title", "Reason", 600, "denylist|add|IIS|192.0.2.7|1000000|1000600|Strict(Reason)|Item|Title"},
      {"", "", 600, "denylist|add|IIS|192.0.2.7|1000000|1000600|Strict|Item|Category"},
      {"", "", 1, "denylist|add|IIS|192.0.2.7|1000000|1000001|Strict|Item|Category"},
      {"", "Reason", 0, "denylist|add|IIS|192.0.2.7|1000000|1043200|Strict(Reason)|Item|Category"},
      {"", "", 0, "denylist|add|IIS|192.0.2.7|1000000|1000060|Strict|Item|Category", 1},
      {"", "", 0, "denylist|add|IIS|192.0.2.7|1000000|1043200|Strict|Item|Category", 0},
  };
  for (const Case& c : cases) {
    RemoveFile(out_log_);
    site_->response.lock_time = c.lock_time;
    site_->sys_temp_time = c.temp_time;
    UseSite();
    CheckResult result = Plain();
    result.smart_block = 1;
    result.smart_block_text = "Strict";
    result.smart_block_title = c.title;
    result.reason = c.reason;
    SmartBlockingCheck(facts_, Context(), result);
    EXPECT_EQ(OutLines(), Lines({c.line}));
    EXPECT_EQ(result.smart_block, 0);
    EXPECT_EQ(result.plain_block, 1);  // not counted besides
  }

  RemoveFile(out_log_);
  site_->library_enabled = false;
  CheckResult result = Plain();
  result.smart_block = 1;
  SmartBlockingCheck(facts_, Context(), result);
  EXPECT_EQ(OutLines(), Lines());
  EXPECT_EQ(result.smart_block, 1);
}

}  // namespace
}  // namespace qiv

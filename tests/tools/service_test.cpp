#include "tools/exchange_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "common/aes.h"
#include "config/exchange_files.h"
#include "port/clock.h"
#include "port/module_path.h"
#include "tests/port/child_processes.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

CIpAddress Ip(const std::string& text) { return CIpAddress::Parse(text).value(); }

struct Killed {};

class Service : public testing::Test {
 protected:
  Service() { MakeDirectory(File("")); }

  /// A service that is killed after `changes` more changes on disk; never for 0.
  std::unique_ptr<CExchangeService> Start(int changes = 0) {
    ServiceOptions options;
    options.module_directory = directory_;
    options.rotate_bytes = rotate_bytes_;
    options.kept_files = 2;
    options.grace_seconds = 0;
    options.list_max_bytes = list_max_bytes_;
    options.print = [this](const std::string& line) { printed_ += line + "\n"; };
    if (changes != 0) {
      options.after_change = [left = changes]() mutable {
        if (--left == 0) throw Killed();
      };
    }
    auto service = std::make_unique<CExchangeService>(options);
    std::string error;
    EXPECT_TRUE(service->Start(&error)) << error;
    return service;
  }
  void Drain(CExchangeService* service) {
    while (service->Step(now_)) {
    }
  }
  std::string File(const std::string& name) const { return directory_ + "config" + kPathSeparator + name; }
  bool Denies(const std::string& ip) {
    module_.ReadLists(read_at_ += 2);
    return module_.IsListed(ClientList::kDeny, Ip(ip), now_);
  }

  CTemporaryDirectory temporary_;
  const std::string directory_ = temporary_.Path("");
  std::uint64_t rotate_bytes_ = 3000;
  std::uint64_t list_max_bytes_ = CExchangeFiles::kInMaxBytes;
  std::string printed_;
  std::int64_t now_ = 10'000;
  std::int64_t read_at_ = 1;
  CExchangeFiles module_{File("_in.db"), File("_out.log")};
};

/// Ends the service after each change on disk in turn, wherever that is, and goes on with a new one.
TEST_F(Service, KilledAnywhereItLosesAndRepeatsNothing) {
  std::uint64_t written = 0;
  std::uint64_t locks = 0;
  for (int kill_after = 1; kill_after < 40; ++kill_after) {
    try {
      const auto service = Start(kill_after);
      for (int step = 0; step < 4; ++step) {
        for (int i = 0; i < 7; ++i) {
          module_.CountStatistics({"invade", std::to_string(written++), "-"});
          module_.Flush();
        }
        module_.WriteLock(ClientList::kDeny, CIpAddress::FromIpv4(static_cast<std::uint32_t>(++locks)), now_, 90'000,
                          {"reason"});
        ++written;
        Drain(service.get());
        now_ += 20;
      }
    } catch (const Killed&) {
    }
  }
  const auto service = Start();
  Drain(service.get());
  EXPECT_EQ(service->Totals().lines, written);
  EXPECT_EQ(service->Totals().locks, locks);
  EXPECT_EQ(service->Totals().malformed, 0U);
  EXPECT_EQ(service->Totals().statistics.at("invade"), written - locks);
  for (std::uint32_t client = 1; client <= locks; ++client) {
    EXPECT_TRUE(Denies(CIpAddress::FromIpv4(client).Text()));
  }
}

TEST_F(Service, LeavesAFileForThoseWhoMayNotCreateOne) {
  rotate_bytes_ = 1;
  module_.CountStatistics({"invade", "1", "-"});
  module_.Flush();
  const auto rights = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
  std::filesystem::permissions(File("_out.log"), rights);
  Drain(Start().get());
  EXPECT_GT(OutFiles(directory_).size(), 1U) << "the file was not moved away";
  ASSERT_EQ(FileSize(File("_out.log")), 0U);
  EXPECT_EQ(std::filesystem::status(File("_out.log")).permissions(),
            std::filesystem::status(OutFiles(directory_)[0]).permissions());
}

TEST_F(Service, WhoWasForgivenDoesNotComeBackAfterAKill) {
  for (int kill_after = 1; kill_after < 6; ++kill_after) {
    module_.WriteLock(ClientList::kDeny, Ip("192.0.2.7"), now_, 90'000, {"reason"});
    try {
      const auto service = Start(kill_after);
      Drain(service.get());
    } catch (const Killed&) {
    }
    {
      // What the service had begun is finished first.
      const auto service = Start();
      Drain(service.get());
      CListStore store(directory_);
      const auto lock = store.Lock();
      ASSERT_TRUE(lock && store.Load());
      EXPECT_TRUE(store.Remove(ClientList::kDeny, Ip("192.0.2.7"))) << kill_after;
      ASSERT_TRUE(store.Save());
    }
    const auto service = Start();
    Drain(service.get());
    EXPECT_FALSE(Denies("192.0.2.7"));
  }
}

TEST_F(Service, KeepsTheListsCurrent) {
  const auto service = Start();
  module_.WriteLock(ClientList::kDeny, Ip("192.0.2.7"), now_, now_ + 600, {"reason", "item", "category"});
  module_.WriteLock(ClientList::kDeny, Ip("2001:db8::7"), now_, now_ + 600, {"x"});
  module_.WriteLock(ClientList::kDeny, Ip("2001:db8::8"), now_, now_ + 60, {"a shorter one of the same network"});
  module_.WriteLock(ClientList::kCcCheck, Ip("192.0.2.8"), now_, now_ + 600, {"x"});
  module_.WriteLock(ClientList::kCcCheck, Ip("192.0.2.9"), now_, now_ + 600, {"x"});
  module_.WriteLock(ClientList::kCcCheck, Ip("192.0.2.9"), now_, 0, {"passed"});
  Drain(service.get());
  EXPECT_TRUE(Denies("192.0.2.7"));
  EXPECT_EQ(module_.Find(ClientList::kDeny, Ip("192.0.2.7"), now_)->detail, "reason");
  EXPECT_EQ(module_.Find(ClientList::kDeny, Ip("2001:db8::7"), now_)->end, now_ + 600);
  EXPECT_TRUE(module_.IsListed(ClientList::kCcCheck, Ip("192.0.2.8"), now_));
  EXPECT_FALSE(module_.IsListed(ClientList::kCcCheck, Ip("192.0.2.9"), now_));
  CListStore store(directory_);
  ASSERT_TRUE(store.Load());
  EXPECT_EQ(store.Entries().front().details, "reason\titem\tcategory");
  EXPECT_EQ(store.Size(), 3U);

  now_ += 600;
  Drain(service.get());
  EXPECT_EQ(FileSize(File("_in.db")), 0U);
  EXPECT_FALSE(Denies("192.0.2.7"));
}

TEST_F(Service, FullListsKeepWhatEndsLast) {
  rotate_bytes_ = 64U << 20;
  list_max_bytes_ = 64U << 10;
  const auto service = Start();
  constexpr std::uint32_t kLocks = 500;
  const auto address = [](std::uint32_t i) { return CIpAddress::FromIpv4(i * 7919 % 65536).Text(); };
  for (std::uint32_t i = 1; i <= kLocks; ++i) {
    module_.WriteLock(ClientList::kDeny, Ip(address(i)), now_, now_ + 1000 + i,
                      {std::string(900, 'r'), "item", "class"});
  }
  Drain(service.get());
  EXPECT_LE(FileSize(File("_in.db")).value(), list_max_bytes_);
  EXPECT_GT(FileSize(File("_in.db")).value(), list_max_bytes_ / 4 * 3);
  CListStore store(directory_, list_max_bytes_);
  ASSERT_TRUE(store.Load());
  const std::size_t kept = store.Size();
  ASSERT_LT(kept, kLocks);
  for (std::uint32_t i = 1; i <= kLocks; ++i) EXPECT_EQ(Denies(address(i)), i > kLocks - kept) << i;
  const std::string details = store.Entries().front().details;
  EXPECT_LE(details.size(), CListStore::kDetailsMaxBytes);
  EXPECT_TRUE(details.starts_with("rrr") && details.ends_with("r\titem\tclass")) << details;
  EXPECT_NE(printed_.find("the lists are full: "), std::string::npos);
  const std::string log = Content(directory_ + "debug" + kPathSeparator + "_log.log");
  EXPECT_NE(log.find("The lists are full"), std::string::npos) << log;

  // A file that another program made too long is cut back.
  CListStore smaller(directory_, list_max_bytes_ / 2);
  const auto lock = smaller.Lock();
  ASSERT_TRUE(lock && smaller.Load() && smaller.Save());
  EXPECT_LE(FileSize(File("_in.db")).value(), list_max_bytes_ / 2);
  EXPECT_TRUE(smaller.Holds(ClientList::kDeny, Ip(address(kLocks))));
}

TEST_F(Service, LocksOfAClockThatRanAheadLastAsLongAsTheyWereTo) {
  const auto service = Start();
  module_.WriteLock(ClientList::kDeny, Ip("192.0.2.7"), now_ + 1'000'000, now_ + 1'000'600, {"x"});
  Drain(service.get());
  now_ += CExchangeService::kExpireInterval;
  Drain(service.get());
  EXPECT_TRUE(Denies("192.0.2.7"));
  now_ += 600;
  Drain(service.get());
  EXPECT_FALSE(Denies("192.0.2.7"));
}

TEST_F(Service, TakesWholeLinesOnlyAndCountsTheMalformedOnes) {
  const auto service = Start();
  const std::string line = EncipherLine("tongji\tinvade\t-\t1.2.3.4\t-\t12\t-\t-");
  ASSERT_TRUE(AppendToFile(File("_out.log"), line + line.substr(0, 40)));
  Drain(service.get());
  EXPECT_EQ(service->Totals().lines, 1U);
  ASSERT_TRUE(AppendToFile(File("_out.log"), line.substr(40) + "no line of ours\n\n" +
                                                 EncipherLine("denylist\tadd\tIIS\tnobody\t1\t2\tx") +
                                                 EncipherLine("check\tinjection\t1.2.3.4\tblock\t0\t3\tR\t-") +
                                                 EncipherLine("msg\ta\tb\tc\t-\t-\td\te")));
  Drain(service.get());
  const ServiceTotals& totals = service->Totals();
  EXPECT_EQ(totals.lines, 6U);
  EXPECT_EQ(totals.malformed, 2U);
  EXPECT_EQ(totals.messages, 1U);
  EXPECT_EQ(totals.statistics.at("invade"), 24U);
  EXPECT_EQ(totals.blocks.at("injection"), 3U);

  // Somebody else took the file away.
  ASSERT_TRUE(RemoveFile(File("_out.log")));
  ASSERT_TRUE(AppendToFile(File("_out.log"), line));
  Drain(service.get());
  EXPECT_EQ(totals.lines, 7U);

  // Only one at a time, and not with a journal that tells nothing.
  ServiceOptions options;
  options.module_directory = directory_;
  std::string error;
  EXPECT_FALSE(CExchangeService(options).Start(&error));
}

TEST_F(Service, RefusesADamagedJournal) {
  ASSERT_TRUE(AppendToFile(File("_service.json"), "{\"version\":1"));
  ServiceOptions options;
  options.module_directory = directory_;
  std::string error;
  EXPECT_FALSE(CExchangeService(options).Start(&error));
  EXPECT_NE(error.find("_service.json"), std::string::npos);
}

/// Four processes write together while the service consumes, moves files away and is restarted all the time.
TEST_F(Service, FourProcessesLoseNoLine) {
  if (RunsUnderWine()) GTEST_SKIP() << "wine appends in two steps";
  constexpr int kProcesses = 4;
  constexpr int kLines = 25'000;
  if (const auto child = ChildNumber()) {
    CExchangeFiles files("", ChildArgument());
    for (int i = 0; i < kLines; ++i) {
      const std::string number = std::to_string(i);
      const bool written =
          i % 100 == 0 ? files.WriteLock(ClientList::kDeny,
                                         CIpAddress::FromIpv4(static_cast<std::uint32_t>(*child * kLines + i)), 1000,
                                         2'000'000'000, {"process " + std::to_string(*child)})
                       : files.WriteMessage({std::to_string(*child), number, std::string(i % 300, 'x'), "", ""});
      ASSERT_TRUE(written);
    }
    return;
  }
  rotate_bytes_ = 2U << 20;
  std::atomic<bool> done{false};
  ServiceTotals totals;
  std::thread service_thread([&] {
    for (bool last = false; !last;) {
      last = done;
      ServiceOptions options;
      options.module_directory = directory_;
      options.rotate_bytes = rotate_bytes_;
      CExchangeService service(options);
      std::string error;
      EXPECT_TRUE(service.Start(&error)) << error;
      for (int step = 0; step < 5; ++step) service.Step(now_);
      if (last) Drain(&service);
      totals = service.Totals();
    }
  });
  EXPECT_TRUE(RunChildren(kProcesses, File("_out.log")));
  done = true;
  service_thread.join();
  EXPECT_EQ(totals.lines, static_cast<std::uint64_t>(kProcesses) * kLines);
  EXPECT_EQ(totals.malformed, 0U);
  EXPECT_EQ(totals.locks, static_cast<std::uint64_t>(kProcesses) * kLines / 100);
  EXPECT_EQ(totals.messages, totals.lines - totals.locks);
  CListStore store(directory_);
  ASSERT_TRUE(store.Load());
  EXPECT_EQ(store.Size(), totals.locks);
  EXPECT_GT(OutFiles(directory_).size(), 1U) << "the file was never moved away";
}

}  // namespace
}  // namespace qiv

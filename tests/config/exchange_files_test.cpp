#include "config/exchange_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "common/aes.h"
#include "port/file.h"
#include "tests/common/state_news.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

using Lines = std::vector<std::string>;

CIpAddress Ip(const std::string& text) { return CIpAddress::Parse(text).value(); }

class ExchangeFiles : public testing::Test {
 protected:
  /// Writes _in.db; each content has a later modification time than the one before, whatever the resolution.
  void WriteIn(const std::string& content) {
    ASSERT_TRUE(ReplaceFile(in_file_, content));
    std::filesystem::last_write_time(std::filesystem::path(std::u8string(in_file_.begin(), in_file_.end())),
                                     start_ + std::chrono::seconds(++writes_));
  }
  static std::string Enciphered(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) text += EncipherLine(line);
    return text;
  }
  /// A read that is due.
  bool Read() { return files_.ReadLists(now_ += 2); }
  std::size_t Denied() const { return files_.deny_table().Get()->Size(); }
  bool IsDenied(const std::string& ip) const { return files_.IsListed(ClientList::kDeny, Ip(ip), now_); }

  /// The plain lines of _out.log; every one in the file must decipher to exactly one line.
  Lines OutLines() const {
    const std::string text = Content(out_log_);
    Lines lines;
    std::string_view left = text;
    while (!left.empty()) {
      const std::string_view piece = TakeLine(&left);
      EXPECT_EQ(piece.size() % 32, 0U);
      lines.push_back(decrypt_text("", piece));
      EXPECT_EQ(lines.back().find('\n'), std::string::npos);
    }
    return lines;
  }

  CTemporaryDirectory directory_;
  const std::string in_file_ = directory_.Path("_in.db");
  const std::string out_log_ = directory_.Path("_out.log");
  const std::filesystem::file_time_type start_ = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  int writes_ = 0;
  std::int64_t now_ = 5000;
  CExchangeFiles files_{in_file_, out_log_};
};

TEST_F(ExchangeFiles, TakesTheGoodLinesWhateverStandsBetweenThem) {
  const Lines bad = {
      "",
      "denylist",
      "denylist\tadd\tIIS\t9.0.0.1\t1000\t9000",     // six fields
      "denylist\tdel\tIIS\t9.0.0.2\t1000\t9000\tx",  // only "add" adds
      "Denylist\tadd\tIIS\t9.0.0.3\t1000\t9000\tx",  // unknown lists
      "\tadd\tIIS\t9.0.0.3\t1000\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.256\t1000\t9000\tx",  // no addresses
      "denylist\tadd\tIIS\t\t1000\t9000\tx",
      "denylist\tadd\tIIS\t9::g\t1000\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.4\t0\t9000\tx",  // times
      "denylist\tadd\tIIS\t9.0.0.5\t1000\t0\tx",
      "denylist\tadd\tIIS\t9.0.0.6\t9000\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.7\t9001\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.8\tsoon\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.9\t1000\t9000later\tx",
      "denylist\tadd\tIIS\t9.0.0.10\t-1\t9000\tx",
      "denylist\tadd\tIIS\t9.0.0.11\t1000\t99999999999999999999\tx",
      "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t",
  };
  const Lines good = {
      "denylist\tadd\tIIS\t1.0.0.1\t1000\t9000\tfirst reason",
      "denylist\tadd\tother\t1.0.0.2\t1000\t999999999999\t",
      "denylist\tadd\tIIS\t2001:db8::1\t1000\t9000\tsix\tmore\tfields\tand\tmore",
      "denylist\tadd\tIIS\t::ffff:1.0.0.3\t1000\t9000\tmapped",
      "authlist\tadd\tIIS\t1.0.0.4\t1000\t9000\tpassed",
      "cccheck\tadd\tIIS\t1.0.0.5\t1000\t9000\t",
  };
  std::string text;
  for (std::size_t i = 0; i < bad.size(); ++i) {
    text += EncipherLine(bad[i]) + EncipherLine(good[i % good.size()]);
  }
  std::string odd = EncipherLine("denylist\tadd\tIIS\t9.0.0.20\t1000\t9000\tcut short by a digit");
  odd.erase(odd.size() - 3, 1);
  text += odd + encrypt_text("another key", "denylist\tadd\tIIS\t9.0.0.21\t1000\t9000\tx") + "\n" +
          "denylist\tadd\tIIS\t9.0.0.22\t1000\t9000\tnot enciphered at all, which must not count\n\r\n" +
          std::string(1000, 'G') + "\n" + std::string(1000, '\0');
  WriteIn(text);
  ASSERT_TRUE(Read());

  // The line with a digit missing loses its last block, not its fields.
  EXPECT_EQ(Denied(), 5U);
  for (const char* ip : {"1.0.0.1", "1.0.0.2", "2001:db8::1", "1.0.0.3", "9.0.0.20"}) EXPECT_TRUE(IsDenied(ip)) << ip;
  EXPECT_EQ(files_.auth_table().Get()->Size(), 1U);
  EXPECT_TRUE(files_.IsListed(ClientList::kAuth, Ip("1.0.0.4"), now_));
  EXPECT_EQ(files_.cc_check_table().Get()->Size(), 1U);
  EXPECT_TRUE(files_.IsListed(ClientList::kCcCheck, Ip("1.0.0.5"), now_));
  EXPECT_EQ(files_.Find(ClientList::kDeny, Ip("1.0.0.1"), now_)->detail, "first reason");
  EXPECT_EQ(files_.Find(ClientList::kDeny, Ip("2001:db8::1"), now_)->detail, "six");
  EXPECT_EQ(files_.Find(ClientList::kDeny, Ip("1.0.0.2"), now_)->detail, "");
}

TEST_F(ExchangeFiles, AnIpv6ClientIsDeniedWithItsNeighbours) {
  WriteIn(Enciphered(
      {"denylist\tadd\tIIS\t2001:db8:0:1::7\t1000\t9000\ta", "denylist\tadd\tIIS\t2001:db8:0:2::\t1000\t9000\tb",
       "denylist\tadd\tIIS\t::ffff:1.2.3.4\t1000\t9000\tc", "authlist\tadd\tIIS\t2001:db8:0:1::7\t1000\t9000\td"}));
  ASSERT_TRUE(Read());
  for (const char* ip : {"2001:db8:0:1::7", "2001:db8:0:1:ffff::", "2001:db8:0:2::1", "1.2.3.4"}) {
    EXPECT_TRUE(IsDenied(ip)) << ip;
  }
  for (const char* ip : {"2001:db8::7", "2001:db8:0:3::", "1.2.3.5"}) EXPECT_FALSE(IsDenied(ip)) << ip;
  EXPECT_TRUE(files_.IsListed(ClientList::kAuth, Ip("2001:db8:0:1::7"), now_));
  EXPECT_FALSE(files_.IsListed(ClientList::kAuth, Ip("2001:db8:0:1::8"), now_));
}

/// Enough clients from `first` on for a file that is not read at once.
std::string LongList(std::uint32_t first) {
  std::string text;
  for (std::uint32_t i = 0; text.size() < CExchangeFiles::kSliceBytes * 3 / 2; ++i) {
    text += EncipherLine("denylist\tadd\tIIS\t" + CIpAddress::FromIpv4(first + i).Text() + "\t1000\t9000\ta");
  }
  return text;
}

TEST_F(ExchangeFiles, ALongListComesIntoForceWhenItIsWhole) {
  constexpr std::uint32_t kOld = 0x01000000;
  constexpr std::uint32_t kNew = 0x02000000;
  const auto denied = [&](std::uint32_t ip) {
    return files_.IsListed(ClientList::kDeny, CIpAddress::FromIpv4(ip), now_);
  };
  const std::string old_list = LongList(kOld);
  const std::string new_list = LongList(kNew);
  WriteIn(old_list);
  ASSERT_TRUE(Read()) << "at the start it is read whole";
  const std::size_t clients = Denied();
  WriteIn(new_list);
  EXPECT_FALSE(files_.LookAtLists(now_ += 2));
  int slices = 1;
  for (; !files_.ContinueReading(now_); ++slices) {
    ASSERT_LT(slices, 20);
    EXPECT_EQ(Denied(), clients);
    EXPECT_TRUE(denied(kOld) && !denied(kNew));
    // Written anew meanwhile: what was begun is finished first.
    if (slices == 2) WriteIn(old_list);
    EXPECT_FALSE(files_.LookAtLists(now_ += 2));
  }
  EXPECT_GT(slices, 2);
  EXPECT_TRUE(denied(kNew) && !denied(kOld));
  EXPECT_EQ(Denied(), clients) << "a line on the edge of a slice is lost";
  EXPECT_FALSE(files_.ContinueReading(now_)) << "not begun yet";
  EXPECT_FALSE(files_.LookAtLists(now_ += 2));
  while (!files_.ContinueReading(now_)) {
  }
  EXPECT_TRUE(denied(kOld) && !denied(kNew));

  // An emptied list is taken at once, and what was being read never comes back.
  WriteIn(new_list);
  EXPECT_FALSE(files_.LookAtLists(now_ += 2));
  EXPECT_FALSE(files_.ContinueReading(now_));
  WriteIn("123456789");
  EXPECT_TRUE(files_.LookAtLists(now_ += 2));
  EXPECT_EQ(Denied(), 0U);
  EXPECT_FALSE(files_.ContinueReading(now_));
  EXPECT_EQ(Denied(), 0U);
}

TEST_F(ExchangeFiles, ReadsOnePieceAndOnePieceALineAlike) {
  const Lines lines = {"denylist\tadd\tIIS\t1.0.0.1\t1000\t9000\ta", "authlist\tadd\tIIS\t1.0.0.2\t1000\t9000\tb"};
  const std::string one_line = Enciphered({lines[1]});
  const std::string shapes[] = {
      Enciphered(lines),
      encrypt_text("", lines[0] + "\n" + lines[1]),
      encrypt_text("", lines[0] + "\r\n" + lines[1] + "\r\n") + "\r\n",
      encrypt_text("", lines[0]) + "\r\n" + one_line.substr(0, one_line.size() - 1),
  };
  for (const std::string& shape : shapes) {
    WriteIn("");
    ASSERT_TRUE(Read());
    ASSERT_EQ(Denied(), 0U);
    WriteIn(shape);
    ASSERT_TRUE(Read());
    EXPECT_TRUE(IsDenied("1.0.0.1"));
    EXPECT_EQ(files_.Find(ClientList::kAuth, Ip("1.0.0.2"), now_)->detail, "b");
  }
}

TEST_F(ExchangeFiles, LooksOnceASecondAndReadsWhatChanged) {
  const std::string one = Enciphered({"denylist\tadd\tIIS\t1.0.0.1\t1000\t9000\ta"});
  EXPECT_FALSE(files_.ReadLists(5000));  // there is no file
  WriteIn(one);
  EXPECT_FALSE(files_.ReadLists(5000));
  EXPECT_TRUE(files_.ReadLists(5001));
  EXPECT_FALSE(files_.ReadLists(5003));  // unchanged
  WriteIn(one + one);
  EXPECT_FALSE(files_.ReadLists(5003));
  EXPECT_TRUE(files_.ReadLists(4000));  // the clock was set back
  EXPECT_EQ(Denied(), 1U);

  // An entry counts while its end is in the future.
  EXPECT_TRUE(files_.IsListed(ClientList::kDeny, Ip("1.0.0.1"), 8999));
  EXPECT_FALSE(files_.IsListed(ClientList::kDeny, Ip("1.0.0.1"), 9000));
  EXPECT_FALSE(files_.Find(ClientList::kDeny, Ip("1.0.0.1"), 9000));

  // No client stays denied by stale data.
  now_ = 6000;
  WriteIn("123456789");
  EXPECT_TRUE(Read());
  EXPECT_EQ(Denied(), 0U);
  WriteIn(one);
  EXPECT_TRUE(Read());
  EXPECT_EQ(Denied(), 1U);
  ASSERT_TRUE(RemoveFile(in_file_));
  EXPECT_TRUE(Read());
  EXPECT_EQ(Denied(), 0U);
}

TEST_F(ExchangeFiles, SurvivesJunkOfFiftyMegabytes) {
  constexpr std::size_t kSize = 50U << 20;
  const std::string good = Enciphered({"denylist\tadd\tIIS\t1.0.0.1\t1000\t9000\ta"});
  std::mt19937 random(1);
  std::string bytes(kSize, '\0');
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    const std::uint32_t four = random();
    for (std::size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<char>(four >> 8 * k);
  }
  const std::string junk[] = {std::string(kSize, 'A') + "\n", std::string(kSize, '\n'), bytes + "\n"};
  for (const std::string& text : junk) {
    WriteIn(text + good);
    ASSERT_TRUE(Read());
    EXPECT_EQ(Denied(), 1U);
    EXPECT_TRUE(IsDenied("1.0.0.1"));
  }
}

TEST_F(ExchangeFiles, TablesAgreeWithAMap) {
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    CClientTable::CBuilder builder;
    std::map<CIpAddress, std::pair<std::int64_t, std::string>> model;
    const auto any = [&random](std::uint32_t below) { return random() % below; };
    const auto address = [&] {
      std::array<std::uint8_t, 16> bytes{};
      bytes[any(16)] = static_cast<std::uint8_t>(any(4));
      return any(2) == 0 ? CIpAddress::FromIpv4(any(40) << 28 | any(3)) : CIpAddress::FromIpv6(bytes);
    };
    for (std::uint32_t i = any(200); i > 0; --i) {
      const CIpAddress client = address();
      const std::int64_t end = 1 + i * 7 % 200;  // all different
      const std::string detail(any(3) * any(300), 'd');
      builder.Add(client, end, detail);
      auto& entry = model[client];
      if (end > entry.first) entry = {end, detail};
    }
    const auto table = builder.Build();
    ASSERT_EQ(table->Size(), model.size());
    for (const auto& [client, entry] : model) {
      const auto found = table->Find(client);
      ASSERT_TRUE(found);
      EXPECT_EQ(found->end, entry.first);
      EXPECT_EQ(found->detail, entry.second);
    }
    for (int i = 0; i < 100; ++i) {
      const CIpAddress client = address();
      EXPECT_EQ(table->Find(client).has_value(), model.contains(client)) << client.Text();
    }
  }
}

TEST_F(ExchangeFiles, WritesTheLinesOfEachKind) {
  EXPECT_TRUE(files_.WriteLock(ClientList::kDeny, Ip("1.2.3.4"), 5000, 5600, {"reason", "item", "category"}));
  EXPECT_TRUE(files_.WriteLock(ClientList::kAuth, Ip("2001:DB8::1"), 5000, 5600, {}));
  EXPECT_TRUE(files_.WriteLock(ClientList::kCcCheck, Ip("1.2.3.4"), 5000, 5600, {"over"}));
  EXPECT_TRUE(files_.WriteLock(ClientList::kCcCheck, Ip("1.2.3.4"), 5000, 0, {"passed"}));
  EXPECT_TRUE(files_.WriteMessage({"a", "b", "", "d", "e"}));
  EXPECT_EQ(OutLines(),
            Lines({"denylist\tadd\tIIS\t1.2.3.4\t5000\t5600\treason\titem\tcategory",
                   "authlist\tadd\tIIS\t2001:db8::1\t5000\t5600\t-", "cccheck\tadd\tIIS\t1.2.3.4\t5000\t5600\tover",
                   "cccheck\tdel\tIIS\t1.2.3.4\t5000\t0\tpassed", "msg\ta\tb\t-\t-\t-\td\te"}));
}

TEST_F(ExchangeFiles, TextOfAnAttackerStaysInItsField) {
  const std::string evil =
      "x\tdel\nauthlist\tadd\tIIS\t6.6.6.6\t1\t9\tforged\r" + std::string(1, '\0') + "\x7F" + std::string(5000, '\xC4');
  ASSERT_TRUE(files_.WriteLock(ClientList::kDeny, Ip("1.2.3.4"), 5000, 5600, {evil, "item"}));
  ASSERT_TRUE(files_.WriteMessage({evil, evil, evil, evil, evil}));
  ASSERT_TRUE(files_.CountCheck({evil, evil, evil, evil}));
  ASSERT_TRUE(files_.CountStatistics({"invade", evil, evil}));
  files_.Flush();
  const Lines lines = OutLines();
  ASSERT_EQ(lines.size(), 4U);
  const LineFields lock = SplitFields(lines[0]);
  EXPECT_EQ(lock.count, 8U);
  EXPECT_EQ(lock.field[6].substr(0, 16), "x del authlist a");
  EXPECT_LE(lock.field[6].size(), kFieldMaxBytes);
  EXPECT_EQ(lock.field[7], "item");
  for (const std::string& line : lines) EXPECT_EQ(SplitFields(line).count, 8U);
}

TEST_F(ExchangeFiles, CountsEqualLinesUntilTheFlush) {
  files_.FlushIfDue(1000);  // nothing queued; the next is due at 1060
  for (int i = 0; i < 12; ++i) files_.CountStatistics({"invade", "1.2.3.4", "-"});
  files_.CountStatistics({"invade", "1.2.3.5", "-"});
  for (int i = 0; i < 2; ++i) files_.CountCheck({"injection", "1.2.3.4", "block", "R1"});
  files_.FlushIfDue(1059);
  EXPECT_EQ(OutLines(), Lines());
  files_.FlushIfDue(1060);
  const Lines first = {"check\tinjection\t1.2.3.4\tblock\t0\t2\tR1\t-", "tongji\tinvade\t-\t1.2.3.4\t-\t12\t-\t-",
                       "tongji\tinvade\t-\t1.2.3.5\t-\t1\t-\t-"};
  EXPECT_EQ(OutLines(), first);
  files_.CountStatistics({"invade", "1.2.3.4", "-"});
  files_.FlushIfDue(1119);
  EXPECT_EQ(OutLines(), first);
  files_.FlushIfDue(500);  // the clock was set back
  ASSERT_EQ(OutLines().size(), 4U);
  EXPECT_EQ(OutLines()[3], "tongji\tinvade\t-\t1.2.3.4\t-\t1\t-\t-");
}

TEST_F(ExchangeFiles, AFullQueueLosesNothing) {
  constexpr int kMore = 5;
  const int total = static_cast<int>(CLineQueue::kMaxLines) + kMore;
  for (int i = 0; i < total; ++i) files_.CountStatistics({"invade", std::to_string(i), "-"});
  EXPECT_EQ(OutLines().size(), static_cast<std::size_t>(kMore));
  files_.CountStatistics({"invade", "0", "-"});  // known lines still only count
  EXPECT_EQ(OutLines().size(), static_cast<std::size_t>(kMore));
  files_.Flush();
  const Lines lines = OutLines();
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(total));
  EXPECT_EQ(lines[kMore], "tongji\tinvade\t-\t0\t-\t2\t-\t-");
  files_.Flush();
  EXPECT_EQ(OutLines().size(), static_cast<std::size_t>(total));
}

TEST_F(ExchangeFiles, TellsOnceOfFilesThatFail) {
  CStateNews news;
  CStateRecorder states(news.Log());
  const std::string folder = directory_.Path("later");
  CExchangeFiles files(in_file_, folder + "/_out.log", &states);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(files.WriteMessage({"a", "b", "c", "d", "e"}));
  EXPECT_TRUE(states.IsFault(StateKind::kOutput, "_out.log"));
  ASSERT_TRUE(MakeDirectory(folder));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(files.WriteMessage({"a", "b", "c", "d", "e"}));
  EXPECT_FALSE(states.IsFault(StateKind::kOutput, "_out.log"));
  const Lines lines = news.Take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_TRUE(lines[0].starts_with("output|fault|_out.log|") && lines[1].starts_with("output|ok|"));
  EXPECT_TRUE(lines[2].ends_with("|3")) << lines[2] << ": the number of lines lost";

  // Full: what is there already counts.
  std::filesystem::resize_file(folder + "/_out.log", CExchangeFiles::kOutMaxBytes);
  EXPECT_FALSE(CExchangeFiles("", folder + "/_out.log", &states).WriteMessage({"a", "b", "c", "d", "e"}));
  EXPECT_TRUE(states.IsFault(StateKind::kOutput, "_out.log"));

  WriteIn("");
  std::filesystem::resize_file(in_file_, CExchangeFiles::kInMaxBytes + 1);
  EXPECT_TRUE(files.ReadLists(now_ += 2));
  EXPECT_TRUE(states.IsFault(StateKind::kLoad, "_in.db"));
  WriteIn("");
  EXPECT_TRUE(files.ReadLists(now_ += 2));
  EXPECT_FALSE(states.IsFault(StateKind::kLoad, "_in.db"));
}

TEST_F(ExchangeFiles, ReadersSeeWholeTablesDuringRebuilds) {
  // Every content lists both clients, which a long one holds far apart, or neither.
  const std::string first = Enciphered({"denylist\tadd\tIIS\t1.0.0.1\t1000\t9000\ta"});
  const std::string last = Enciphered({"denylist\tadd\tIIS\t2001:db8::1\t1000\t9000\tb"});
  const std::string long_list = LongList(0x02000000);
  const std::string contents[] = {first + last, "", first + long_list + last, long_list, ""};
  std::atomic<bool> stop{false};
  std::atomic<std::int64_t> now{now_};
  std::atomic<int> torn{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        const auto table = files_.deny_table().Get();
        if (table->Find(Ip("1.0.0.1")).has_value() != table->Find(Ip("2001:db8::")).has_value()) ++torn;
        files_.CountStatistics({"invade", "1.2.3.4", "-"});
        files_.LookAtLists(now);
        files_.ContinueReading(now);
      }
    });
  }
  for (int round = 0; round < 60; ++round) {
    WriteIn(contents[round % 5]);
    now += 2;
    std::this_thread::sleep_for(std::chrono::milliseconds(round % 7));
    files_.Flush();
  }
  // One that no content before it has: those may still come into force.
  WriteIn(first + long_list + last + Enciphered({"denylist\tadd\tIIS\t1.0.0.9\t1000\t9000\tc"}));
  while (!IsDenied("1.0.0.9")) {
    now += 2;
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
  EXPECT_TRUE(IsDenied("1.0.0.1") && IsDenied("2001:db8::1"));
}

}  // namespace
}  // namespace qiv

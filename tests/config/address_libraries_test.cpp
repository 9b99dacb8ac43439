#include "config/address_libraries.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "common/aes.h"
#include "port/file.h"
#include "tests/common/state_news.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

/// An area library of one range.
std::string AreaFile(bool ipv4) {
  const auto number = [](std::uint32_t value, std::size_t bytes) {
    std::string text;
    for (; bytes-- != 0; value >>= 8) text += static_cast<char>(value & 0xFF);
    return text;
  };
  std::string file(AreaFormat::kMagic);
  file += number(AreaFormat::kVersion, 4) + number(ipv4 ? 4 : 6, 4) + number(1, 4) + number(1, 4) + number(2, 4);
  file += number(0, 4) + number(0, 4) + number(2, 2) + number(0, 2) + "CN";  // checksum; the area and its code
  file += ipv4 ? number(0x0A000000, 4) : "\x20" + std::string(15, '\x01');
  file += number(1, 2);
  return file.replace(AreaFormat::kChecksumOffset, 4, number(AreaFormat::Checksum(file), 4));
}

class AddressLibraries : public testing::Test {
 protected:
  std::filesystem::path Path(const std::string& name) const { return std::filesystem::u8path(directory_.Path(name)); }
  void Write(const std::string& name, const std::string& text) {
    ASSERT_TRUE(ReplaceFile(directory_.Path(name), text));
    // Each write is later than the one before.
    std::filesystem::last_write_time(Path(name), start_ + std::chrono::seconds(++writes_));
  }
  using Lines = std::vector<std::string>;
  /// "state file" of what was reported since the last call.
  Lines News() {
    Lines news = news_.Take();
    for (std::string& line : news) {
      const std::size_t state = line.find('|') + 1;
      line = line.substr(state, line.find("||") - state);
    }
    return news;
  }

  CTemporaryDirectory directory_;
  CStateNews news_;
  CStateRecorder states_{news_.Log()};
  CAddressLibraries libraries_{
      {directory_.Path("iplib.db"), directory_.Path("iplibv6.db"), directory_.Path("_badip.db")}, &states_};
  const std::filesystem::file_time_type start_ = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  int writes_ = 0;
};

TEST_F(AddressLibraries, ComeGoAndAreTriedAgain) {
  const CIpAddress client = *CIpAddress::Parse("10.0.0.9");
  const auto look = [&] {
    const bool reloaded = libraries_.ReloadChanged();
    return std::pair(reloaded, libraries_.BadIps()->Contains(client));
  };
  using Found = std::pair<bool, bool>;  // reloaded, known as bad
  EXPECT_EQ(look(), Found(false, false));
  Write("_badip.db", encrypt_text("", "10.0.0.0/8"));
  EXPECT_EQ(look(), Found(true, true));
  EXPECT_EQ(look(), Found(false, true));
  EXPECT_EQ(News(), Lines());
  Write("_badip.db", "0123456789ABCDEF0123456789ABCDEF");
  EXPECT_EQ(look(), Found(false, true)) << "refused: the last good one stays";
  EXPECT_EQ(News(), Lines{"fault|_badip.db"});
  std::filesystem::remove(Path("_badip.db"));
  EXPECT_EQ(look(), Found(true, false)) << "removed: it leaves force";
  News();

  // What is there and cannot be opened, here because it is a folder, is tried again until it can.
  std::filesystem::create_directory(Path("_badip.db"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(look(), Found(false, false));
  EXPECT_EQ(News(), Lines{"fault|_badip.db"});
  const auto folder_time = std::filesystem::last_write_time(Path("_badip.db"));
  std::filesystem::remove(Path("_badip.db"));
  Write("_badip.db", encrypt_text("", "10.0.0.0/8"));
  std::filesystem::last_write_time(Path("_badip.db"),
                                   folder_time);  // so that only the failure tells that it was not read
  EXPECT_EQ(look(), Found(true, true));
  EXPECT_EQ(News(), Lines{"ok|_badip.db"});

  for (const bool ipv4 : {true, false}) {
    const std::string name = ipv4 ? "iplib.db" : "iplibv6.db";
    Write(name, AreaFile(ipv4));
    EXPECT_TRUE(libraries_.ReloadChanged()) << name;
    Write(name, AreaFile(!ipv4));
    EXPECT_FALSE(libraries_.ReloadChanged()) << name;
    EXPECT_EQ(libraries_.Areas(ipv4)->StartCount(), 1U) << "the other family's file is refused";
    EXPECT_EQ(News(), Lines{"fault|" + name});
    std::filesystem::remove(Path(name));
    EXPECT_TRUE(libraries_.ReloadChanged());
    EXPECT_EQ(libraries_.Areas(ipv4)->StartCount(), 0U) << "removed: it leaves force";
    News();
  }
}

}  // namespace
}  // namespace qiv

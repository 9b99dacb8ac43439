#include "port/file.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include "tests/port/child_processes.h"
#include "tests/port/temporary_directory.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#endif

namespace qiv {
namespace {

constexpr std::uint64_t kNoLimit = 1U << 30;

TEST(File, ReadsWithinItsLimit) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("f");
  std::string data;
  for (int i = 0; i < 10'000; ++i) data.push_back(static_cast<char>(i * 7));  // every byte, also 0, CR, LF and 0x1A
  ASSERT_TRUE(ReplaceFile(path, data));
  std::string content = "left over";
  EXPECT_EQ(ReadWholeFile(path, data.size() - 1, &content), ReadFileResult::kTooLarge);
  EXPECT_EQ(content, "");
  EXPECT_EQ(ReadWholeFile(path, data.size(), &content), ReadFileResult::kOk);
  EXPECT_EQ(content, data);
  EXPECT_EQ(FileSize(path), data.size());
  ASSERT_TRUE(ReplaceFile(path, ""));
  EXPECT_EQ(ReadWholeFile(path, 0, &content), ReadFileResult::kOk);
  EXPECT_EQ(content, "");
}

TEST(File, ReadsAPart) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("f");
  const std::string data = std::string("a\r\n\x1A", 4) + std::string(5000, '\0') + "end";
  ASSERT_TRUE(ReplaceFile(path, data));
  std::string content;
  for (const std::size_t offset : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, data.size() - 3, data.size()}) {
    for (const std::size_t limit : {std::size_t{0}, std::size_t{3}, std::size_t{4096}, data.size()}) {
      EXPECT_EQ(ReadFilePart(path, offset, limit, &content), ReadFileResult::kOk);
      EXPECT_EQ(content, data.substr(offset, limit)) << offset << " " << limit;
    }
  }
  EXPECT_EQ(ReadFilePart(path, data.size() + 1, 10, &content), ReadFileResult::kOk);
  EXPECT_EQ(content, "");
  content = "left over";
  EXPECT_EQ(ReadFilePart(directory.Path("missing"), 0, 10, &content), ReadFileResult::kUnreadable);
  EXPECT_EQ(content, "");
}

TEST(File, WhatIsNoFile) {
  const CTemporaryDirectory directory;
  ASSERT_TRUE(MakeDirectory(directory.Path("d")));
  std::vector<std::string> paths = {directory.Path("missing"), directory.Path("d"), directory.Path("missing/f"), ""};
#ifndef _WIN32
  paths.push_back(directory.Path("pipe"));  // opening it must not wait for the other end
  ASSERT_EQ(::mkfifo(paths.back().c_str(), 0600), 0);
#endif
  for (const std::string& path : paths) {
    std::string content = "left over";
    EXPECT_EQ(ReadWholeFile(path, kNoLimit, &content), ReadFileResult::kUnreadable) << path;
    EXPECT_EQ(content, "") << path;
    EXPECT_EQ(FileSize(path), std::nullopt) << path;
    EXPECT_FALSE(AppendToFile(path == directory.Path("missing") ? directory.Path("d") : path, "x")) << path;
  }
  EXPECT_EQ(FileModificationTime(directory.Path("missing")), 0U);
  EXPECT_FALSE(ReplaceFile(directory.Path("missing/f"), "x"));
  EXPECT_FALSE(RenameFile(directory.Path("missing"), directory.Path("new")));
  EXPECT_FALSE(RemoveFile(directory.Path("missing")));
}

TEST(File, ReaderSeesTheOldContentOrTheNew) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("f");
  const std::string contents[] = {std::string(100'000, 'a'), std::string(50'000, 'b')};
  ASSERT_TRUE(ReplaceFile(path, contents[0]));
  std::thread writer([&] {
    for (int i = 1; i <= 30; ++i) EXPECT_TRUE(ReplaceFile(path, contents[i % 2]));
  });
  for (int i = 0; i < 200; ++i) {
    std::string content;
    // A reader may be refused for the moment of the exchange, but never sees a part.
    std::this_thread::sleep_for(std::chrono::microseconds(500));
    if (ReadWholeFile(path, kNoLimit, &content) != ReadFileResult::kOk) continue;
    EXPECT_TRUE(content == contents[0] || content == contents[1]) << content.size();
  }
  writer.join();
  const auto entries = std::filesystem::directory_iterator(directory.Root());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "a temporary file was left behind";
}

TEST(File, AppendsOfSeveralProcessesStayWhole) {
  if (RunsUnderWine()) GTEST_SKIP() << "wine appends in two steps";
  constexpr int kProcesses = 4;
  constexpr int kLines = 300;
  const auto line = [](int process, int number) {
    const std::size_t length = static_cast<std::size_t>(number * 37 % 5000);
    return std::to_string(process) + " " + std::to_string(number) + " " +
           std::string(length, static_cast<char>('a' + process)) + "\n";
  };
  if (const auto child = ChildNumber()) {
    for (int i = 0; i < kLines; ++i) ASSERT_TRUE(AppendLine(ChildArgument(), line(*child, i)));
    return;
  }
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("f");
  ASSERT_TRUE(RunChildren(kProcesses, path));
  // Whole lines, each once, and each process's in its order.
  std::map<int, int> next;
  const std::string content = Content(path);
  for (std::size_t pos = 0; pos < content.size();) {
    const std::size_t end = content.find('\n', pos);
    ASSERT_NE(end, content.npos);
    const int process = content[pos] - '0';
    ASSERT_EQ(content.substr(pos, end + 1 - pos), line(process, next[process]));
    ++next[process];
    pos = end + 1;
  }
  for (int process = 0; process < kProcesses; ++process) EXPECT_EQ(next[process], kLines);
}

TEST(File, ALineAfterATornOneBeginsAnew) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("f");
  EXPECT_TRUE(AppendLine(path, "one\n"));
  ASSERT_TRUE(AppendToFile(path, "tor"));
  EXPECT_TRUE(AppendLine(path, "two\n"));
  EXPECT_TRUE(AppendLine(path, "three\n"));
  EXPECT_EQ(Content(path), "one\ntor\ntwo\nthree\n");
  ASSERT_TRUE(MakeDirectory(directory.Path("d")));
  EXPECT_FALSE(AppendLine(directory.Path("d"), "x\n"));
#ifndef _WIN32
  // As on a full disk, only a part of a line fits.
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit full{*FileSize(path) + 3, limit.rlim_max};
  ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  const bool written = AppendLine(path, "four\n") || AppendLine(path, "five\n");
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(written);
  EXPECT_TRUE(AppendLine(path, "six\n"));
  EXPECT_EQ(Content(path), "one\ntor\ntwo\nthree\nfou\nsix\n");
#endif
}

#ifndef _WIN32
TEST(File, NewFilesAreNotForEveryone) {
  const CTemporaryDirectory directory;
  const auto mode = [&](const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  };
  const std::string appended = directory.Path("a");
  const std::string replaced = directory.Path("b");
  const mode_t mask = ::umask(022);
  ASSERT_TRUE(AppendLine(appended, "x\n") && ReplaceFile(replaced, "x") && CFileLock(directory.Path("c")).Held());
  ::umask(mask);
  for (const char* name : {"a", "b", "c"}) EXPECT_EQ(mode(directory.Path(name)), 0640U) << name;
  // What the administrator gave it stays, also where he is somebody else than the server.
  const bool is_root = ::geteuid() == 0;
  ASSERT_EQ(::chmod(replaced.c_str(), 0664), 0);
  ASSERT_TRUE(!is_root || ::chown(replaced.c_str(), 1234, 1235) == 0);
  ASSERT_TRUE(ReplaceFile(replaced, "y"));
  EXPECT_EQ(mode(replaced), 0664U);
  if (!is_root) return;
  struct stat info;
  ASSERT_EQ(::chown(directory.Root().c_str(), 1234, 1236), 0);
  ASSERT_TRUE(ReplaceFile(directory.Path("new"), "y"));
  for (const auto& [name, group] : {std::pair<const char*, gid_t>{"b", 1235}, {"new", 1236}}) {
    ASSERT_EQ(::stat(directory.Path(name).c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 1234U) << name;
    EXPECT_EQ(info.st_gid, group) << name;
  }
}
#endif

TEST(File, NamesOutsideAsciiAndLongOnes) {
  const CTemporaryDirectory directory;
  std::string path = directory.Path("配置 ü");
  for (int depth = 0; depth < 3; ++depth) {
    ASSERT_TRUE(MakeDirectory(path));
    EXPECT_TRUE(MakeDirectory(path)) << "it is there already";
    path += "/" + std::string(100, static_cast<char>('a' + depth));
  }
  ASSERT_TRUE(AppendToFile(path, "x"));
  EXPECT_FALSE(MakeDirectory(path)) << "a file of that name";
  EXPECT_TRUE(ReplaceFile(path, "yz"));
  EXPECT_EQ(Content(path), "yz");
  EXPECT_NE(FileModificationTime(path), 0U);
  ASSERT_TRUE(AppendToFile(path + "2", "one"));
  EXPECT_TRUE(RenameFile(path + "2", path));
  EXPECT_EQ(Content(path), "one");
  EXPECT_TRUE(RemoveFile(path));
  EXPECT_TRUE(AppendToFile(path, "three")) << "the name is free at once";
}

TEST(FileLock, OneHolderAtATimeAndFreeWhenItsProcessEnds) {
  if (ChildNumber()) {
    const std::string argument = ChildArgument();  // "+" or "-", whether it must be free, and the path
    static const CFileLock* never_freed = new CFileLock(argument.substr(1));
    ASSERT_EQ(never_freed->Held(), argument[0] == '+');
    return;
  }
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("lock");
  {
    const CFileLock first(path);
    EXPECT_TRUE(first.Held());
    const CFileLock second(path);
    EXPECT_FALSE(second.Held());
    EXPECT_TRUE(RunChildren(1, "-" + path)) << "another process got it too";
  }
  EXPECT_TRUE(RunChildren(1, "+" + path));
  EXPECT_TRUE(CFileLock(path).Held());
  EXPECT_FALSE(CFileLock(directory.Path("missing/lock")).Held());
}

}  // namespace
}  // namespace qiv

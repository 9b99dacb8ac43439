// The parts of `scan`: walking, judging, threads, what is shown. The program itself: qivctl_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "checks/webshell_finding.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tools/file_scan.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/scan_progress.h"

namespace qiv {
namespace {

using std::string_literals::operator""s;

const std::string kShell = "<?php eval($_POST[1]);";

void Put(const CTemporaryDirectory& directory, const std::string& name, const std::string& content) {
  const std::string path = directory.Path(name);
  ASSERT_TRUE(MakeDirectories(path.substr(0, path.find_last_of("/\\"))));
  ASSERT_TRUE(ReplaceFile(path, content));
}

std::vector<std::string> Walked(const std::vector<std::string>& paths, const TreeWalkOptions& options) {
  std::vector<std::string> found;
  CTreeWalk walk(paths, options);
  for (CTreeWalk::Step step; walk.Next(&step);) found.push_back(step.error.empty() ? step.path : "error");
  return found;
}

TEST(TreeWalk, GoesInTheOrderOfPaths) {
  const CTemporaryDirectory directory;
  const std::string root = directory.Path("t");
  std::vector<std::string> files;
  for (const std::string name :
       {"a.php", "a/z.php", "a-b/c.php", "a0", "B/b/b/b", "B/b.c", "B/b/b.c", "z", "\xE4\xBD\xA0/x"}) {
    Put(directory, "t/" + name, "");
    files.push_back(root + "/" + name);
  }
  MakeDirectories(root + "/empty/empty");
  std::sort(files.begin(), files.end());
  EXPECT_EQ(Walked({root}, {}), files);
  EXPECT_EQ(Walked({root + "/z", directory.Path("none"), root + "/a"}, {}),
            (std::vector<std::string>{root + "/z", "error", root + "/a/z.php"}));
  const TreeWalkOptions options{false, {"B", "*.php", root + "/\xE4*"}};
  EXPECT_EQ(Walked({root}, options), (std::vector<std::string>{root + "/a0", root + "/z"}));
}

TEST(TreeWalk, TakesTreesThatChangeAndDeepOnes) {
  const CTemporaryDirectory directory;
  Put(directory, "t/a/1", "");
  Put(directory, "t/b/2", "");
  CTreeWalk walk({directory.Path("t")}, {});
  CTreeWalk::Step step;
  ASSERT_TRUE(walk.Next(&step));
  std::filesystem::remove_all(directory.Root() / "t" / "b");
  EXPECT_FALSE(walk.Next(&step)) << step.path << step.error;

  std::string deep = "deep";  // longer than the plain path limit of Windows
  for (int i = 0; i < 60; ++i) deep += "/folder";
  Put(directory, deep + "/x", kShell);
  const std::vector<std::string> found = Walked({directory.Path("deep")}, {});
  ASSERT_EQ(found.size(), 1U);
  std::string content;
  EXPECT_EQ(ReadWholeFile(found[0], 100, &content), ReadFileResult::kOk);
}

TEST(TreeWalk, MatchesGlobs) {
  for (const auto& [glob, text] : {std::pair{"*.jpg", "a.b.jpg"}, {"*", ""}, {"a?c*", "abc"}, {"**a*b", "xaxbxb"}}) {
    EXPECT_TRUE(MatchesGlob(glob, text)) << glob;
  }
  for (const auto& [glob, text] :
       {std::pair{"*.jpg", "a.jpgx"}, {"?", ""}, {"a", "ab"}, {"", "a"}, {"*a*b*c", "abab"}}) {
    EXPECT_FALSE(MatchesGlob(glob, text)) << glob;
  }
}

std::string Judged(const CFileJudge& judge, const std::string& path) {
  std::counting_semaphore<> cores(1);
  const FileVerdict verdict = judge.Judge(path, &cores, false);
  if (!verdict.error.empty()) return verdict.error;
  if (!verdict.found) return verdict.judged ? "judged" : "";
  return (verdict.finding.suspicious ? "weak " : "") + WordsOf(verdict.finding, Language::kEnglish).name +
         (verdict.code_alone ? " in its code" : "");
}

TEST(FileJudge, LooksAtContentAndName) {
  const CTemporaryDirectory directory;
  const CFileJudge judge("<trojan_rules>my evil word{*}0{*}Mine{#}</trojan_rules>", "", "");
  const std::string binary = "\x89PNG\r\n\x1A\n\0\x01<%\x02 <?\x03 <?xpacket begin='' id='x'?>\xFF"s;
  const std::string padding(3 << 20, '\n');
  struct Case {
    std::string name;
    std::string content;
    std::string expected;
  };
  const Case cases[] = {
      {"shell.php", kShell, "Backdoor"},
      {"photo.jpg", binary, ""},
      {"polyglot.jpg", binary + kShell, "Backdoor"},
      {"asp.gif", binary + "<%eval request(\"x\")%>" + binary, "ASP backdoor"},
      {"wide.txt", "\xFF\xFE<\0%\0e\0v\0a\0l\0 \0r\0e\0q\0u\0e\0s\0t\0(\0\"\0x\0\"\0)\0%\0>\0"s, "ASP backdoor"},
      {"plain.php", "no code", "judged"},
      {"empty.php", "", "judged"},
      {"words.php", "hackerdz", "Known backdoor"},
      {"words.txt", "hackerdz", ""},
      {"mine.txt", "My  EVIL word", "Mine"},
      {"example.md", "Write `<? $x ?>` and `system(\"$cmd\")`.", "judged"},
      {"padded.php", padding + kShell, "Backdoor in its code"},
      {"commented.php", "<?php /*" + padding + "*/ eval($_POST[1]);", "Backdoor in its code"},
      {"padded.asp", "<% " + padding + "eval request(\"x\")%>", "ASP backdoor in its code"},
      {"padded.png", binary + padding + kShell, "Backdoor in its code"},
      {"large.txt", padding, ""},
  };
  for (const Case& c : cases) {
    Put(directory, c.name, c.content);
    EXPECT_EQ(Judged(judge, directory.Path(c.name)), c.expected) << c.name;
  }
  EXPECT_EQ(Judged(judge, directory.Path("vanished.php")), "");
  Put(directory, "shown.php", "<html>\n" + kShell);
  std::counting_semaphore<> cores(1);
  const FileVerdict shown = judge.Judge(directory.Path("shown.php"), &cores, false);
  EXPECT_EQ(std::to_string(shown.line) + ": " + shown.excerpt, "2: eval($_POST[1])");
}

TEST(FileScan, TellsEachResultOnce) {
  const CTemporaryDirectory directory;
  std::vector<std::string> expected;
  for (int i = 0; i < 120; ++i) {
    const std::string name = std::to_string(i * 7919 % 1000) + (i % 3 == 0 ? "/x.php" : ".php");
    Put(directory, "t/" + name, kShell + std::string(static_cast<std::size_t>(i % 5) * 10000, ' '));
    expected.push_back(directory.Path("t") + "/" + name);
  }
  std::sort(expected.begin(), expected.end());
  const std::string missing = directory.Path("none");
  expected.push_back(missing);
  std::sort(expected.begin(), expected.end());
  const CFileJudge judge("", "", "");
  for (const unsigned jobs : {1U, 8U}) {
    std::vector<std::string> told;
    CFileScan scan(judge, jobs);
    const FileScanTotals totals = scan.Run(
        {directory.Path("t"), missing}, {}, [&](const FileScanResult& result) { told.push_back(result.path); },
        [](const FileScanTotals&) { return true; });
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told, expected) << jobs;
    EXPECT_EQ(totals.done, 121U);
    EXPECT_EQ(totals.findings, 120U);
    EXPECT_EQ(totals.errors, 1U);
    EXPECT_TRUE(totals.all_met);
    EXPECT_FALSE(totals.stopped);
  }
}

std::string CodeThatTakesTime() {
  std::string code = "<?php ";
  while (code.size() < (1U << 17)) code += "$a" + std::to_string(code.size() % 97) + " = $b['c'] . strrev('x');\n";
  return code;
}

TEST(FileScan, LetsNoFileHoldBackOthers) {
  const CTemporaryDirectory directory;
  Put(directory, "t/1.php", CodeThatTakesTime() + "eval($_POST[1]);");
  Put(directory, "t/2.php", kShell);
  Put(directory, "t/3.php", "<?php ");  // and holes of several terabytes around code
  {
    std::fstream file(directory.Root() / "t" / "3.php", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::streamoff{1} << 42).write(" eval($_POST[1]);", 17);
  }
  std::error_code error;
  std::filesystem::resize_file(directory.Root() / "t" / "3.php", std::uintmax_t{15} << 40, error);
  // Not every file system tells where files have holes.
  const bool is_sparse = !error && NextData(directory.Path("t/3.php"), 0).end < 1U << 20;
  if (!is_sparse) std::filesystem::remove(directory.Root() / "t" / "3.php");
  const std::size_t files = is_sparse ? 3 : 2;
  const CFileJudge judge("", "", "");
  CFileScan scan(judge, 2);
  std::vector<std::string> told;
  const FileScanTotals totals = scan.Run(
      {directory.Path("t")}, {}, [&](const FileScanResult& result) { told.push_back(result.path); },
      [](const FileScanTotals&) { return true; });
  EXPECT_EQ(told.size(), files);
  EXPECT_EQ(totals.findings, files);
  EXPECT_LT(totals.bytes, 1U << 20);
  EXPECT_EQ(told.back(), directory.Path("t/1.php"));
}

TEST(FileScan, StopsSoon) {
  const CTemporaryDirectory directory;
  const std::string code = CodeThatTakesTime();
  for (int i = 0; i < 40; ++i) Put(directory, "t/" + std::to_string(i) + ".php", code);
  const CFileJudge judge("", "", "");
  CFileScan scan(judge, 1);
  const FileScanTotals totals = scan.Run(
      {directory.Path("t")}, {}, [](const FileScanResult&) {}, [](const FileScanTotals&) { return false; });
  EXPECT_TRUE(totals.stopped);
  EXPECT_LT(totals.done, 40U);
}

TEST(ScanTexts, ShowNothingThatATerminalObeys) {
  EXPECT_EQ(PrintablePath("/a b\\c/\xE4\xBD\xA0.php"), "/a b\\c/\xE4\xBD\xA0.php");
  EXPECT_EQ(PrintablePath("caf\xE9\\\n.php"), "caf\\xE9\\x5C\\x0A.php");
  EXPECT_EQ(PrintablePath("\xC2\x9B[2J"), "\\xC2\\x9B[2J");
  EXPECT_EQ(Printable("\x1B[2J\xC4\xE3"), " [2J\xE4\xBD\xA0");
  EXPECT_EQ(Grouped(999) + " " + Grouped(1234567), "999 1,234,567");
  EXPECT_EQ(Duration(0.34) + ", " + Duration(59.4) + ", " + Duration(185) + ", " + Duration(3723),
            "0.3 s, 59 s, 3:05, 1:02:03");
  FileScanTotals totals;
  totals.met = 2000;
  totals.done = 500;
  totals.bytes = 40'000'000;
  EXPECT_EQ(ProgressLine(totals, 2, 200), "500/2,000+ files  250 files/s  20 MB/s");
  totals.all_met = true;
  totals.findings = 3;
  EXPECT_EQ(ProgressLine(totals, 2, 200),
            "[######..................] 25 %  500/2,000 files  250 files/s  20 MB/s  6.0 s left  3 found");
  EXPECT_EQ(ProgressLine(totals, 2, 10), "[######...");
}

}  // namespace
}  // namespace qiv

// A page is weighed by the words it shows, in five groups; a word counts once, and of a group only so many count. The
// panels of hosting companies and database tools show the system, files and commands too, so that without a name or a
// word of attack nothing is decided.
//
// Words were chosen from pages of known panels (docs/webshell-detection.md says how that is measured).
#include "engines/webshell/webshell_output.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/multi_pattern.h"

namespace qiv {
namespace {

enum Group : std::uint8_t { kName, kAttack, kSystem, kFiles, kCommand, kForm, kHandle, kGroups };

struct Weight {
  int each;
  int most;  // words that count
};
// Of the group. Forms, and what they take, make a page a tool and not an article about tools; they weigh nothing.
constexpr Weight kWeights[kGroups] = {{3, 1}, {2, 3}, {1, 3}, {1, 3}, {1, 2}, {0, 0}, {0, 0}};
constexpr int kEnough = 8;
constexpr int kFewestGroups = 3;

struct Word {
  std::string_view text;  // lower case; Chinese in UTF-8 and held against pages in either encoding
  Group group;
};

constexpr Word kWords[] = {
    {"c99shell", kName},
    {"c99madshell", kName},
    {"r57shell", kName},
    {"filesman", kName},
    {"b374k", kName},
    {"phpspy", kName},
    {"aspxspy", kName},
    {"aspspy", kName},
    {"indoxploit", kName},
    {"web shell", kName},
    {"webshell", kName},
    {"web-shell", kName},
    {"php shell", kName},
    {"phpshell", kName},
    {"php-shell", kName},
    {"asp shell", kName},
    {"aspx shell", kName},
    {"mini shell", kName},
    {"minishell", kName},
    {"private shell", kName},
    {"priv8", kName},
    {"shell by", kName},
    {"hacked by", kName},
    {"safe0ver", kName},
    {"alfa shell", kName},
    {"cybershell", kName},
    {"locus7s", kName},
    {"wso 2.", kName},
    {"wso 4.", kName},
    {"wso shell", kName},
    {"uploader by", kName},
    {"backdoor", kName},
    {"木马", kName},
    {"大马", kName},

    {"back connect", kAttack},
    {"back-connect", kAttack},
    {"backconnect", kAttack},
    {"bind port", kAttack},
    {"bindport", kAttack},
    {"bind shell", kAttack},
    {"reverse shell", kAttack},
    {"self remove", kAttack},
    {"self-remove", kAttack},
    {"selfremove", kAttack},
    {"suicide", kAttack},
    {"kill me", kAttack},
    {"kill shell", kAttack},
    {"deface", kAttack},
    {"symlink", kAttack},
    {"cpanel", kAttack},
    {"brute force", kAttack},
    {"bruteforce", kAttack},
    {"zone-h", kAttack},
    {"exploit", kAttack},
    {"bypass", kAttack},
    {"/etc/passwd", kAttack},
    {"/etc/shadow", kAttack},
    {"cmd.exe", kAttack},
    {"wscript.shell", kAttack},
    {"/bin/sh", kAttack},
    {"/bin/bash", kAttack},
    {"net user", kAttack},
    {"serv-u", kAttack},
    {"port scan", kAttack},
    {"portscan", kAttack},
    {"hacker", kAttack},
    {"hacking", kAttack},
    {"提权", kAttack},
    {"挂马", kAttack},
    {"反弹", kAttack},

    {"uname", kSystem},
    {"safe mode", kSystem},
    {"safe_mode", kSystem},
    {"safemode", kSystem},
    {"disable functions", kSystem},
    {"disable_functions", kSystem},
    {"disabled functions", kSystem},
    {"disabled php functions", kSystem},
    {"open_basedir", kSystem},
    {"server ip", kSystem},
    {"your ip", kSystem},
    {"client ip", kSystem},
    {"free space", kSystem},
    {"kernel", kSystem},
    {"uid=", kSystem},
    {"uid:", kSystem},
    {"software :", kSystem},
    {"software:", kSystem},
    {"server software", kSystem},
    {"hdd", kSystem},
    {"operating system", kSystem},
    {"php version", kSystem},
    {"phpversion", kSystem},
    {"phpinfo", kSystem},
    {"磁盘", kSystem},
    {"系统信息", kSystem},
    {"服务器", kSystem},

    {"chmod", kFiles},
    {"drwx", kFiles},
    {"-rw-r", kFiles},
    {"rename", kFiles},
    {"permission", kFiles},
    {"perms", kFiles},
    {"make dir", kFiles},
    {"makedir", kFiles},
    {"mkdir", kFiles},
    {"new dir", kFiles},
    {"new file", kFiles},
    {"newfile", kFiles},
    {"make file", kFiles},
    {"create file", kFiles},
    {"create dir", kFiles},
    {"current dir", kFiles},
    {"change dir", kFiles},
    {"read file", kFiles},
    {"edit file", kFiles},
    {"upload file", kFiles},
    {"file upload", kFiles},
    {"writable", kFiles},
    {"writeable", kFiles},
    {"owner/group", kFiles},
    {"文件", kFiles},
    {"目录", kFiles},

    {"name=\"cmd\"", kCommand},
    {"name='cmd'", kCommand},
    {"name=cmd", kCommand},
    {"name=\"command\"", kCommand},
    {"name=\"exec", kCommand},
    {"execute command", kCommand},
    {"command execute", kCommand},
    {"exec command", kCommand},
    {"run command", kCommand},
    {"shell command", kCommand},
    {"command:", kCommand},
    {"cmd:", kCommand},
    {"eval code", kCommand},
    {"php code", kCommand},
    {"php-code", kCommand},
    {"php eval", kCommand},
    {"eval php", kCommand},
    {"execute sql", kCommand},
    {"sql query", kCommand},
    {"命令", kCommand},
    {"执行", kCommand},

    {"<form", kForm},

    {"type=\"file\"", kHandle},
    {"type='file'", kHandle},
    {"type=file", kHandle},
    {"name=\"cmd\"", kHandle},
    {"name='cmd'", kHandle},
    {"name=cmd", kHandle},
    {"name=\"command\"", kHandle},
    {"name=\"exec", kHandle},
    {"name=\"dir\"", kHandle},
    {"name='dir'", kHandle},
    {"name=dir", kHandle},
    {"name=\"path\"", kHandle},
    {"name=\"act\"", kHandle},
    {"name='act'", kHandle},
    {"name=act", kHandle},
    {"name=\"cwd", kHandle},
    {"name=\"pwd\"", kHandle},
    {"name=\"code\"", kHandle},
    {"name=\"a\"", kHandle},
    {"name=a ", kHandle},
    {"name=c ", kHandle},
    {"?act=", kHandle},
    {"?dir=", kHandle},
    {"?path=", kHandle},
    {"&path=", kHandle},
    {"&dir=", kHandle},
    {"?d=", kHandle},
    {"?cmd", kHandle},
    {"?action=cmd", kHandle},
    {"drwx", kHandle},
    {"-rw-r", kHandle},
};

// The words as patterns: Chinese ones twice, in UTF-8 and in GBK.
struct Patterns {
  Patterns() {
    std::vector<std::string> texts;
    for (std::uint32_t word = 0; word < std::size(kWords); ++word) {
      const std::string text(kWords[word].text);
      texts.push_back(text);
      word_of.push_back(word);
      if (CCharSet::IsAscii(text)) continue;
      texts.push_back(CCharSet::Utf8ToLocal(text));
      word_of.push_back(word);
    }
    search = CMultiPattern(texts);
  }
  CMultiPattern search;
  std::vector<std::uint32_t> word_of;
};

const Patterns& SharedPatterns() {
  static const Patterns patterns;
  return patterns;
}

bool IsShown(Group group) { return group == kName || group == kAttack; }

}  // namespace

bool IsWebshellOutput(std::string_view text, WebshellResult* result) {
  const Patterns& patterns = SharedPatterns();
  const std::string lower = CCharSet::LowerBytes(text.substr(0, kOutputBytes));
  std::array<bool, std::size(kWords)> seen{};
  TextPlace first;  // of the words that are shown
  patterns.search.Find(lower, [&](std::uint32_t pattern, std::size_t begin) {
    const std::uint32_t word = patterns.word_of[pattern];
    seen[word] = true;
    if (first.length == 0 && IsShown(kWords[word].group)) first = {begin, patterns.search.PatternLength(pattern)};
    return true;
  });

  std::array<int, kGroups> counts{};
  std::string shown;
  for (std::size_t word = 0; word < std::size(kWords); ++word) {
    if (!seen[word]) continue;
    const Group group = kWords[word].group;
    ++counts[group];
    if (!IsShown(group)) continue;
    if (!shown.empty()) shown += ", ";
    shown += CCharSet::Utf8ToLocal(kWords[word].text);
  }
  int score = 0;
  int groups = 0;
  for (std::size_t group = 0; group < kGroups; ++group) {
    score += kWeights[group].each * std::min(counts[group], kWeights[group].most);
    groups += kWeights[group].each > 0 && counts[group] > 0 ? 1 : 0;
  }
  const bool attacks = counts[kName] + counts[kAttack] > 0;
  if (!attacks || counts[kForm] == 0 || counts[kHandle] == 0 || groups < kFewestGroups || score < kEnough) return false;
  *result = {};
  result->finding = MessageId::kWebshellPage;
  result->detail = shown;
  result->place = first;
  return true;
}

}  // namespace qiv

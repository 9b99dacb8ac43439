#include "checks/url_shape.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/hex.h"
#include "checks/upload_name.h"
#include "common/char_set.h"
#include "common/ip_address.h"
#include "common/text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr int kMostDecodings = 4;
constexpr std::size_t kShownName = 64;

template <std::size_t Size>
bool Holds(const std::string_view (&list)[Size], std::string_view word) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

// Folders that hold what is never published: version control, settings of tools, and what ASP.NET keeps from visitors.
constexpr std::string_view kHiddenFolders[] = {".aws",
                                               ".bzr",
                                               ".docker",
                                               ".git",
                                               ".hg",
                                               ".idea",
                                               ".ssh",
                                               ".svn",
                                               ".vscode",
                                               "_darcs",
                                               "app_code",
                                               "app_browsers",
                                               "app_data",
                                               "app_globalresources",
                                               "app_localresources",
                                               "app_webreferences"};
// Files that hold settings, keys or what an administrator typed.
constexpr std::string_view kHiddenFiles[] = {".bash_history",
                                             ".ds_store",
                                             ".env",
                                             ".git-credentials",
                                             ".gitconfig",
                                             ".htaccess",
                                             ".htgroup",
                                             ".htpasswd",
                                             ".mysql_history",
                                             ".npmrc",
                                             ".user.ini",
                                             "access.log",
                                             "applicationhost.config",
                                             "appsettings.json",
                                             "connectionstrings.config",
                                             "debug.log",
                                             "error.log",
                                             "error_log",
                                             "errors.log",
                                             "global.asax",
                                             "id_dsa",
                                             "id_ecdsa",
                                             "id_ed25519",
                                             "id_rsa",
                                             "install.log",
                                             "laravel.log",
                                             "machine.config",
                                             "npm-debug.log",
                                             "packages.config",
                                             "php_error.log",
                                             "php_errors.log",
                                             "web.config",
                                             "wp-config.bak",
                                             "wp-config.old",
                                             "wp-config.txt",
                                             "yarn-error.log"};
// Data bases, dumps and what editors leave behind, whatever the name in front.
constexpr std::string_view kHiddenExtensions[] = {"accdb", "bak", "ldb", "mdb",    "mdf",     "ldf", "pfx",
                                                  "sql",   "swo", "swp", "sqlite", "sqlite3", "db3"};
// Endings behind the name of a script or a settings file that make a server hand out its source.
constexpr std::string_view kCopyEndings[] = {".1",    ".2",    ".back", ".backup", ".bak", ".bk",   ".copy", ".dist",
                                             ".gz",   ".inc_", ".log",  ".new",    ".old", ".orig", ".org",  ".rar",
                                             ".save", ".sav",  ".sql",  ".swp",    ".swo", ".tar",  ".temp", ".tmp",
                                             ".zip",  "_",     "_bak",  "_old",    "~"};
// In "bin" folders only these are the application's own.
constexpr std::string_view kBinaryExtensions[] = {"compiled", "config", "dll", "exe", "pdb", "refresh"};
// Engines that take a folder "x.asp" for the script, and what follows ";" for nothing.
constexpr std::string_view kClassicScripts[] = {"asa", "asp", "cdx", "cer"};
// Those that read ";jsessionid=..." themselves.
constexpr std::string_view kJavaScripts[] = {"action", "do", "faces", "jhtml", "jsf", "jsp", "jspx", "seam"};
// What a server sends as it is; a script engine that is asked for "x.jpg/y.php" may run it.
constexpr std::string_view kStaticFiles[] = {"avi", "bmp",  "css", "doc", "docx", "flv",  "gif", "gz",   "ico",
                                             "jpe", "jpeg", "jpg", "js",  "mp3",  "mp4",  "pdf", "png",  "rar",
                                             "svg", "swf",  "tar", "txt", "webp", "woff", "xls", "xlsx", "zip"};
constexpr std::string_view kDevices[] = {"aux", "clock$", "con", "conin$", "conout$", "nul", "prn"};

struct Form {
  std::string_view bytes;  // UTF-8
  char ascii;
};
// Characters that some conversion to a narrow character set takes for the ASCII ones.
constexpr Form kLookalikes[] = {
    {"\xE2\x81\x84", '/'}, {"\xE2\x88\x95", '/'}, {"\xE2\x88\x96", '\\'}, {"\xE2\x80\xA4", '.'}, {"\xEF\xB9\x92", '.'}};
constexpr char32_t kFullWidth = 0xFEE0;  // what a full-width form lies above its ASCII character

/// One decoding. A "%uXXXX" beyond ASCII becomes UTF-8.
std::string DecodedOnce(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (const int byte = EscapedByte(text, i); byte >= 0) {
      decoded += static_cast<char>(byte);
      i += 3;
      continue;
    }
    const bool wide = text[i] == '%' && i + 1 < text.size() && LowerByte(text[i + 1]) == 'u';
    if (const int code = wide ? HexNumber(text, i + 2, 4) : -1; code >= 0) {
      AppendUtf8(static_cast<char32_t>(code), &decoded);
      i += 6;
      continue;
    }
    decoded += text[i++];
  }
  return decoded;
}

/// What an over-long form at `at` stands for, and its length; -1 when there is none.
int OverlongAt(std::string_view text, std::size_t at, std::size_t* length) {
  const auto byte = [&](std::size_t n) { return at + n < text.size() ? static_cast<unsigned char>(text[at + n]) : 0U; };
  const auto is_tail = [&](std::size_t n) { return (byte(n) & 0xC0) == 0x80; };
  if ((byte(0) & 0xFE) == 0xC0 && is_tail(1)) {
    *length = 2;
    return static_cast<int>((byte(0) & 1) << 6 | (byte(1) & 0x3F));
  }
  // Up to the six bytes that the first definition of UTF-8 knew.
  constexpr unsigned kLeads[] = {0xE0, 0xF0, 0xF8, 0xFC};
  const auto* const lead = std::find(std::begin(kLeads), std::end(kLeads), byte(0));
  if (lead == std::end(kLeads)) return -1;
  *length = static_cast<std::size_t>(lead - std::begin(kLeads)) + 3;
  for (std::size_t i = 1; i + 2 < *length; ++i) {
    if (byte(i) != 0x80) return -1;
  }
  if ((byte(*length - 2) & 0xFE) == 0x80 && is_tail(*length - 1)) {
    return static_cast<int>((byte(*length - 2) & 1) << 6 | (byte(*length - 1) & 0x3F));
  }
  return -1;
}

/// With over-long and look-alike characters as the ASCII ones that a lenient reader makes of them.
std::string Folded(std::string_view text, bool* overlong) {
  std::string folded;
  folded.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    std::size_t length = 0;
    if (const int ascii = OverlongAt(text, i, &length); ascii >= 0) {
      *overlong = true;
      folded += static_cast<char>(ascii);
      i += length;
      continue;
    }
    const auto* const form = std::find_if(std::begin(kLookalikes), std::end(kLookalikes), [&](const Form& f) {
      return text[i] == f.bytes[0] && text.substr(i).starts_with(f.bytes);
    });
    if (form != std::end(kLookalikes)) {
      folded += form->ascii;
      i += form->bytes.size();
      continue;
    }
    // U+FF01 to U+FF5E.
    const auto byte = [&](std::size_t n) { return static_cast<unsigned char>(text[i + n]); };
    if (byte(0) == 0xEF && text.size() - i >= 3 && (byte(1) == 0xBC || byte(1) == 0xBD)) {
      const char32_t code = 0xF000U | (byte(1) & 0x3FU) << 6 | (byte(2) & 0x3FU);
      if (code >= 0xFF01 && code <= 0xFF5E) {
        folded += static_cast<char>(code - kFullWidth);
        i += 3;
        continue;
      }
    }
    folded += text[i++];
  }
  return folded;
}

std::vector<std::string_view> NamesOf(std::string_view path) {
  std::vector<std::string_view> names;
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= path.size(); ++i) {
    if (i < path.size() && path[i] != '/' && path[i] != '\\') continue;
    if (i > begin) names.push_back(path.substr(begin, i - begin));
    begin = i + 1;
  }
  return names;
}

std::string_view ExtensionOf(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : name.substr(dot + 1);
}

std::string_view WithoutTrailing(std::string_view name) { return name.substr(0, name.find_last_not_of(". ") + 1); }

/// ".." as a lenient reader takes it: "..;x", ".. ", or three dots and more.
bool IsUp(std::string_view name) {
  name = name.substr(0, name.find(';'));
  if (!name.starts_with("..")) return false;
  return name.find_first_not_of(". ") == kNone;
}

bool IsDevice(std::string_view name) {
  std::string_view stem = name.substr(0, name.find('.'));
  stem = stem.substr(0, stem.find_last_not_of(' ') + 1);
  if (Holds(kDevices, stem)) return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '1' && stem[3] <= '9';
}

bool IsSettings(std::string_view extension) { return extension == "config" || extension == "inc"; }

/// "x.php.bak", "web.config.old", ".x.php.swp", "#x.php#".
bool IsCopyOfScript(std::string_view name) {
  if (name.size() > 2 && name.front() == '#' && name.back() == '#') {
    return IsScriptExtension(ExtensionOf(name.substr(0, name.size() - 1)));
  }
  return std::any_of(std::begin(kCopyEndings), std::end(kCopyEndings), [name](std::string_view ending) {
    if (!name.ends_with(ending)) return false;
    const std::string_view extension = ExtensionOf(name.substr(0, name.size() - ending.size()));
    return IsScriptExtension(extension) || IsSettings(extension);
  });
}

/// "web.config.bak", "web.config_", "web.config-2020", but not "web.configuration".
bool IsCopyOf(std::string_view name, std::string_view file) {
  return name.size() > file.size() && name.starts_with(file) && !IsLetter(name[file.size()]);
}

bool IsHiddenFile(std::string_view name) {
  name = WithoutTrailing(name.substr(0, name.find("::")));
  if (Holds(kHiddenFiles, name) || name.starts_with(".env.") || IsCopyOf(name, "web.config")) return true;
  if (name.starts_with("appsettings.") && name.ends_with(".json")) return true;
  if (name.ends_with(".sql.gz") || name.ends_with(".sql.zip") || name.ends_with(".sql.bz2")) return true;
  return Holds(kHiddenExtensions, ExtensionOf(name)) || IsCopyOfScript(name);
}

/// One form of a path: as sent, or after a decoding.
class CForm {
 public:
  CForm(std::string_view path, const UrlSwitches& switches)
      : switches_(switches), lower_(CCharSet::LowerBytes(path)), names_(NamesOf(lower_)) {}

  /// Without those that are empty, in lower case.
  const std::vector<std::string_view>& Names() const { return names_; }

  UrlJudgement Judge() const {
    for (std::size_t i = 0; i < names_.size(); ++i) {
      const UrlFault fault = FaultOf(i);
      if (fault != UrlFault::kNone) return {fault, std::string(names_[i].substr(0, kShownName))};
    }
    return {};
  }

 private:
  UrlFault FaultOf(std::size_t index) const {
    const std::string_view name = names_[index];
    if (switches_.script_parsing && IsParsingTrick(index)) return UrlFault::kScriptParsing;
    if (switches_.bad_names) {
      if (IsHidden(index)) return UrlFault::kSensitiveFile;
      if (IsBadName(name)) return UrlFault::kBadName;
    }
    return switches_.short_names && IsShortName(name) ? UrlFault::kShortName : UrlFault::kNone;
  }

  bool IsParsingTrick(std::size_t index) const {
    const std::string_view name = names_[index];
    const bool last = index + 1 == names_.size();
    if (const std::size_t semicolon = name.find(';'); semicolon != kNone) {
      const std::string_view extension = ExtensionOf(WithoutTrailing(name.substr(0, semicolon)));
      const std::string_view rest = name.substr(semicolon + 1);
      if (Holds(kClassicScripts, extension) && !rest.empty()) return true;
      return IsScriptExtension(extension) && !Holds(kJavaScripts, extension) && rest.find('.') != kNone;
    }
    const std::string_view extension = ExtensionOf(name);
    if (last) return false;
    const std::string_view asked = ExtensionOf(names_.back());
    if (Holds(kClassicScripts, extension)) return Holds(kStaticFiles, asked);
    return Holds(kStaticFiles, extension) && index + 2 == names_.size() && IsScriptExtension(asked);
  }

  static bool IsShortName(std::string_view name) {
    const std::size_t tilde = name.find('~');
    if (tilde == kNone || tilde + 1 >= name.size()) return false;
    if (!IsDigit(name[tilde + 1])) return false;
    if (name.find('*') != kNone || name.find('?') != kNone) return true;
    const std::size_t dot = std::min(name.find('.', tilde), name.size());
    constexpr std::size_t kStem = 8;
    constexpr std::size_t kExtension = 4;  // with its dot
    const std::string_view number = name.substr(tilde + 1, dot - tilde - 1);
    return tilde > 0 && dot <= kStem && name.size() - dot <= kExtension &&
           name.find('.') == (dot < name.size() ? dot : kNone) && std::all_of(number.begin(), number.end(), IsDigit);
  }

  static bool IsBadName(std::string_view name) {
    if (IsDevice(name) || name.find(":$") != kNone) return true;
    const std::size_t colon = name.find(':');
    if (colon == 1 && name.size() == 2 && IsLetter(name[0])) return true;
    if (colon != kNone && IsScriptExtension(ExtensionOf(name.substr(0, colon)))) return true;
    const std::string_view stored = WithoutTrailing(name);
    return stored.size() < name.size() && IsScriptExtension(ExtensionOf(stored));
  }

  bool IsHidden(std::size_t index) const {
    const std::string_view name = names_[index];
    if (Holds(kHiddenFolders, WithoutTrailing(name))) return true;
    if (name == "cvs" && index + 1 < names_.size() && (names_[index + 1] == "entries" || names_[index + 1] == "root")) {
      return true;
    }
    if (index + 1 < names_.size()) return false;
    const bool in_bin = index > 0 && names_[index - 1] == "bin";
    return (in_bin && Holds(kBinaryExtensions, ExtensionOf(name))) || IsHiddenFile(name);
  }

  const UrlSwitches& switches_;
  const std::string lower_;
  const std::vector<std::string_view> names_;
};

/// Counts "..", and whether it leads above the root.
struct Climb {
  std::size_t ups = 0;
  bool above = false;
};
Climb ClimbOf(const std::vector<std::string_view>& names) {
  Climb climb;
  std::size_t depth = 0;
  for (const std::string_view name : names) {
    if (IsUp(name)) {
      ++climb.ups;
      climb.above = climb.above || depth == 0;
      depth -= depth > 0 ? 1 : 0;
    } else if (name != ".") {
      ++depth;
    }
  }
  return climb;
}

/// "/a/../b" is what it says; a ".." that only a decoding, a backslash or a lenient reader brings about is not.
std::size_t PlainUps(std::string_view path) {
  std::size_t ups = 0;
  for (const std::string_view name : Split(path, "/")) ups += name == ".." ? 1 : 0;
  return ups;
}

std::string ShownUp(const std::vector<std::string_view>& names) {
  const auto up = std::find_if(names.begin(), names.end(), IsUp);
  return up == names.end() ? std::string() : std::string(up->substr(0, kShownName));
}

bool HoldsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

/// Whether every byte above ASCII belongs to a character of two bytes.
bool IsWholeGbk(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = CCharSet::CharacterLength(text, i);
    if (length == 1 && !CCharSet::IsAscii(text.substr(i, 1))) return false;
    i += length;
  }
  return true;
}

bool IsForwardedItem(std::string_view item) {
  item = Trim(item);
  item = TrimBytes(item, "\"");
  if (item.empty() || EqualNoCase(item, "unknown") || CIpAddress::Parse(item)) return true;
  if (item.front() == '_')
    return std::all_of(item.begin(), item.end(), [](char c) { return IsWordByte(c) || c == '.' || c == '-'; });
  const std::size_t colon = item.rfind(':');
  if (colon == kNone || colon + 1 == item.size() || item.size() - colon > 6) return false;
  const std::string_view port = item.substr(colon + 1);
  return std::all_of(port.begin(), port.end(), IsDigit) && CIpAddress::Parse(item.substr(0, colon)).has_value();
}

}  // namespace

UrlJudgement JudgeUrlPath(std::string_view path, const UrlSwitches& switches) {
  std::string text(path);
  for (int decodings = 0; decodings <= kMostDecodings; ++decodings) {
    if (decodings > 0) {
      if (text.find('%') == std::string::npos) break;
      std::string next = DecodedOnce(text);
      if (next == text) break;
      text = std::move(next);
    }
    if (HoldsControl(text)) return {UrlFault::kControlByte, {}};
    const CForm form(text, switches);
    const bool ascii = CCharSet::IsAscii(text);
    bool overlong = false;
    const std::string folded = ascii ? std::string() : Folded(text, &overlong);
    const std::vector<std::string_view> names = ascii ? form.Names() : NamesOf(folded);
    const Climb climb = ClimbOf(names);
    if (climb.above || (climb.ups > 0 && climb.ups > PlainUps(path))) return {UrlFault::kTraversal, ShownUp(names)};
    // The same bytes may be two Chinese characters; only a text that is none at all is at fault by itself.
    if (overlong && (HoldsControl(folded) || !IsWholeGbk(text))) return {UrlFault::kOverlong, {}};
    UrlJudgement judgement = form.Judge();
    if (judgement.fault != UrlFault::kNone) return judgement;
  }
  return {};
}

bool IsForwardedList(std::string_view text) {
  for (const std::string_view item : Split(text, ",")) {
    if (!IsForwardedItem(item)) return false;
  }
  return true;
}

}  // namespace qiv

#include "checks/upload_name.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

constexpr std::string_view kScripts[] = {
    "asa",     "asax", "ascx", "ashx",  "asmx",  "asp",    "aspq",     "aspx",   "axd",    "cdx",  "cer",
    "cfc",     "cfm",  "cfml", "cgi",   "cshtm", "cshtml", "htaccess", "htr",    "ida",    "idc",  "idq",
    "jsp",     "jspa", "jspf", "jspx",  "jsw",   "jsv",    "jhtml",    "master", "pgif",   "phar", "php",
    "php2",    "php3", "php4", "php5",  "php6",  "php7",   "php8",     "phps",   "pht",    "phtm", "phtml",
    "printer", "rem",  "shtm", "shtml", "soap",  "stm",    "svc",      "vbhtm",  "vbhtml", "xamlx"};
// Those of them that stand inside the names of ordinary files: certificates, languages, words.
constexpr std::string_view kOrdinaryInside[] = {"asa", "axd",    "cdx",     "cer", "cgi",  "htaccess", "ida",
                                                "idc", "master", "printer", "rem", "soap", "stm"};
// What is not handed to a script engine by any server, behind whatever other extension.
constexpr std::string_view kInertLast[] = {"7z",   "bak",   "bz2", "csv", "diff", "doc", "docx", "gz",  "log", "md",
                                           "orig", "patch", "pdf", "rar", "sig",  "tar", "tgz",  "txt", "xz",  "zip"};
constexpr std::string_view kExecutables[] = {
    "apk",  "appx",   "bash", "bat", "chm", "cmd", "cpl", "csh", "deb", "dll", "dmg", "drv", "dylib", "efi", "elf",
    "exe",  "gadget", "hta",  "jar", "jse", "ksh", "lnk", "msc", "msi", "msp", "mst", "ocx", "pif",   "ps1", "psd1",
    "psm1", "reg",    "rpm",  "scf", "scr", "sh",  "so",  "sys", "vbe", "vbs", "ws",  "wsc", "wsf",   "wsh", "xll"};
constexpr std::string_view kImages[] = {"apng",  "avif", "bmp", "cur", "dib",  "gif", "heic", "heif",
                                        "ico",   "jfif", "jp2", "jpe", "jpeg", "jpg", "jxl",  "pjp",
                                        "pjpeg", "png",  "svg", "tif", "tiff", "webp"};
constexpr std::string_view kDevices[] = {"aux", "clock$", "con", "conin$", "conout$", "nul", "prn"};

template <std::size_t Size>
bool Holds(const std::string_view (&list)[Size], std::string_view word) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

struct Fold {
  std::string_view from;  // UTF-8
  std::string_view to;
};
// What Windows takes for ASCII, and what it does not show or store.
constexpr Fold kFolds[] = {
    {"\xC2\xAD", ""},     {"\xC4\xB0", "i"},     {"\xC4\xB1", "i"},     {"\xC5\xBF", "s"},    {"\xE2\x80\x8B", ""},
    {"\xE2\x80\x8C", ""}, {"\xE2\x80\x8D", ""},  {"\xE2\x80\x8E", ""},  {"\xE2\x80\x8F", ""}, {"\xE2\x80\xA4", "."},
    {"\xE2\x80\xAA", ""}, {"\xE2\x80\xAB", ""},  {"\xE2\x80\xAC", ""},  {"\xE2\x80\xAD", ""}, {"\xE2\x80\xAE", ""},
    {"\xE2\x81\xA0", ""}, {"\xE2\x84\xAA", "k"}, {"\xEF\xB9\x92", "."}, {"\xEF\xBB\xBF", ""},
};

// Full-width forms: U+FF01 to U+FF5E in UTF-8, A3A1 to A3FE in GBK.
std::string Folded(std::string_view text) {
  if (CCharSet::IsAscii(text)) return std::string(text);
  std::string folded;
  const bool utf8 = CCharSet::IsValidUtf8(text);
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = [&](std::size_t n) { return static_cast<unsigned char>(text[i + n]); };
    if (utf8 && text.compare(i, 1, "\xEF") == 0 && (byte(1) == 0xBC || byte(1) == 0xBD)) {
      const int offset = (byte(1) - 0xBC) * 64 + byte(2) - 0x81;  // from U+FF01
      if (offset >= 0 && offset < 94) {
        folded += static_cast<char>('!' + offset);
        i += 3;
        continue;
      }
    }
    if (utf8) {
      const auto* const fold = std::find_if(std::begin(kFolds), std::end(kFolds),
                                            [&](const Fold& f) { return text.substr(i).starts_with(f.from); });
      if (fold != std::end(kFolds)) {
        folded += fold->to;
        i += fold->from.size();
        continue;
      }
    } else if (byte(0) == 0xA3 && i + 1 < text.size() && byte(1) >= 0xA1 && byte(1) <= 0xFE) {
      folded += static_cast<char>(byte(1) - 0x80);
      i += 2;
      continue;
    }
    folded += text[i++];
  }
  return folded;
}

// "utf-8''x.jpg" is x.jpg.
std::string_view WithoutCharset(std::string_view raw) {
  const std::size_t first = raw.find('\'');
  const std::size_t second = first == kNone ? kNone : raw.find('\'', first + 1);
  if (second == kNone || first > 20) return raw;
  const std::string_view charset = raw.substr(0, first);
  const bool plain = std::all_of(charset.begin(), charset.end(), [](char c) { return IsWordByte(c) || c == '-'; });
  return plain ? raw.substr(second + 1) : raw;
}

bool IsDevice(std::string_view stem) {
  stem = stem.substr(0, stem.find_last_not_of(' ') + 1);
  if (Holds(kDevices, stem)) return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '1' && stem[3] <= '9';
}

bool HoldsDotDot(std::string_view path) {
  for (std::size_t at = path.find(".."); at != kNone; at = path.find("..", at + 1)) {
    const bool begins = at == 0 || path[at - 1] == '/' || path[at - 1] == '\\';
    const bool ends = at + 2 < path.size() && (path[at + 2] == '/' || path[at + 2] == '\\');
    if (begins && ends) return true;
  }
  return false;
}

// Windows stores no trailing dots and blanks.
std::string_view WithoutTrailing(std::string_view name) { return name.substr(0, name.find_last_not_of(". \t") + 1); }

// "ph>" and "<<" find a file that is there; behind "php" some conversions drop a byte that is half a character.
bool IsDisguisedExtension(std::string_view extension) {
  if (extension.find_first_of("<>*?|") != kNone) return true;
  const auto* const end = std::find_if(extension.begin(), extension.end(), [](char c) {
    return !CCharSet::IsAscii({&c, 1});
  });
  return end != extension.end() &&
         IsScriptExtension(extension.substr(0, static_cast<std::size_t>(end - extension.begin())));
}

std::string_view LastExtension(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : Trim(name.substr(dot + 1));
}

// A script's extension that is not the end of the name. `whole`: with directories.
NameFault InnerFault(std::string_view whole, std::size_t extension_at, std::string_view last) {
  constexpr std::string_view kEnds(".;:/\\\0", 6);
  NameFault fault = NameFault::kNone;
  for (std::size_t dot = whole.find('.'); dot != kNone; dot = whole.find('.', dot + 1)) {
    if (dot + 1 == extension_at) continue;
    const std::size_t end = std::min(whole.find_first_of(kEnds, dot + 1), whole.size());
    const std::string_view word = Trim(whole.substr(dot + 1, end - dot - 1));
    if (!IsScriptExtension(word)) continue;
    if (end < whole.size() && whole[end] != '.') return NameFault::kDisguised;
    if (!Holds(kOrdinaryInside, word) && !Holds(kInertLast, last)) fault = NameFault::kDoubleExtension;
  }
  return fault;
}

}  // namespace

bool IsScriptExtension(std::string_view extension) { return Holds(kScripts, extension); }
bool IsExecutableExtension(std::string_view extension) { return Holds(kExecutables, extension); }
bool IsImageExtension(std::string_view extension) { return Holds(kImages, extension); }

bool IsAdmittedExtension(std::string_view extension, std::string_view types) {
  if (extension.empty()) return true;
  bool any = false;
  bool admitted = false;
  while (!types.empty()) {
    const std::size_t comma = std::min(types.find(','), types.size());
    const std::string_view item = types.substr(0, comma);
    types.remove_prefix(std::min(comma + 1, types.size()));
    if (item.empty()) continue;
    if (item.front() == '!') {
      if (item.substr(1) == extension) return false;
      continue;
    }
    any = true;
    admitted = admitted || item == "*" || item == extension;
  }
  return admitted || !any;
}

UploadName ReadUploadName(std::string_view raw) {
  UploadName name;
  if (raw.size() > kLongestUploadName) {
    name.fault = NameFault::kTooLong;
    raw = raw.substr(0, kLongestUploadName);
  }
  std::string whole = Folded(PercentDecode(WithoutCharset(raw)));
  // Windows takes '"' for a dot where it searches a file.
  std::transform(whole.begin(), whole.end(), whole.begin(), [](char c) {
    return c == '"' ? '.' : IsLetter(c) ? static_cast<char>(c | 0x20) : c;
  });

  // Extensions are ASCII, and none of "./:" is a trail byte. A backslash may be one: then the base is cut short, which
  // leaves its end as it is.
  const std::size_t slash = whole.find_last_of("/\\");
  name.base = slash == kNone ? whole : whole.substr(slash + 1);
  std::string_view stem = WithoutTrailing(name.base);
  const std::string_view file = WithoutTrailing(stem.substr(0, stem.find(':')));  // behind it: a stream of the file
  if (IsScriptExtension(LastExtension(file))) stem = file;
  const bool trailing = stem.size() != name.base.size();
  name.extension = LastExtension(stem);
  const std::size_t dot = stem.rfind('.');
  const std::size_t extension_at = dot == kNone ? kNone : whole.size() - name.base.size() + dot + 1;

  if (name.fault != NameFault::kNone) return name;
  if (HoldsDotDot(whole)) {
    name.fault = NameFault::kTraversal;
  } else if ((trailing && IsScriptExtension(name.extension)) || name.base.find(":$") != kNone ||
             IsDisguisedExtension(name.extension)) {
    name.fault = NameFault::kDisguised;
  } else if (name.fault = InnerFault(whole, extension_at, name.extension); name.fault != NameFault::kNone) {
    return name;
  } else if (std::any_of(whole.begin(), whole.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; })) {
    name.fault = NameFault::kControlByte;
  } else if (IsDevice(stem.substr(0, stem.find('.')))) {
    name.fault = NameFault::kDevice;
  }
  return name;
}

}  // namespace qiv

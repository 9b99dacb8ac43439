#include "checks/file_content.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::uint32_t Byte(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}
std::uint32_t Big16(std::string_view text, std::size_t at) { return Byte(text, at) << 8 | Byte(text, at + 1); }
std::uint32_t Big32(std::string_view text, std::size_t at) { return Big16(text, at) << 16 | Big16(text, at + 2); }
std::uint32_t Little16(std::string_view text, std::size_t at) { return Byte(text, at) | Byte(text, at + 1) << 8; }
std::uint32_t Little32(std::string_view text, std::size_t at) {
  return Little16(text, at) | Little16(text, at + 2) << 16;
}

bool Stands(std::string_view text, std::size_t at, std::string_view what) {
  return at <= text.size() && text.substr(at).starts_with(what);
}

// Segments up to the first frame header. A file holds some ten of them; metadata of cameras comes in up to some
// hundred.
bool IsJpeg(std::string_view text) {
  constexpr int kMostSegments = 4096;
  std::size_t at = 2;
  for (int segment = 0; segment < kMostSegments && at + 4 <= text.size(); ++segment) {
    if (Byte(text, at) != 0xFF) return false;
    const std::uint32_t marker = Byte(text, at + 1);
    if (marker == 0xFF) {  // a fill byte
      ++at;
      continue;
    }
    if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC) return true;
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {  // without a length
      at += 2;
      continue;
    }
    const std::uint32_t length = Big16(text, at + 2);
    if (marker < 0xC0 || marker == 0xD9 || length < 2) return false;
    at += 2 + length;
  }
  return false;
}

bool IsPng(std::string_view text) {
  return Stands(text, 12, "IHDR") && Big32(text, 8) == 13 && Big32(text, 16) != 0 && Big32(text, 20) != 0;
}

bool IsGif(std::string_view text) {
  if (text.size() < 14 || Little16(text, 6) == 0 || Little16(text, 8) == 0) return false;
  const std::uint32_t flags = Byte(text, 10);
  const std::size_t table = (flags & 0x80) != 0 ? std::size_t{3} << ((flags & 7) + 1) : 0;
  const std::uint32_t block = Byte(text, 13 + table);
  return block == 0x21 || block == 0x2C;
}

bool IsBitmap(std::string_view text) {
  const std::uint32_t header = Little32(text, 14);
  return text.size() >= 26 && (header == 12 || (header >= 40 && header <= 124)) && Little32(text, 10) >= 26;
}

bool IsIcon(std::string_view text) {
  return text.size() >= 22 && Little16(text, 4) != 0 && Little16(text, 4) < 1024 && Byte(text, 9) == 0 &&
         Little32(text, 18) >= 22 && Little32(text, 18) < text.size();
}

bool IsWebp(std::string_view text) { return Stands(text, 8, "WEBPVP8"); }

bool IsTiff(std::string_view text) { return text.size() >= 16; }

bool IsFileTypeBox(std::string_view text) {
  constexpr std::string_view kBrands[] = {"avif", "avis", "heic", "heix", "heim", "heis",
                                          "hevc", "hevx", "mif1", "msf1", "jp2 ", "jxl "};
  return Stands(text, 4, "ftyp") && std::any_of(std::begin(kBrands), std::end(kBrands),
                                                [&](std::string_view brand) { return Stands(text, 8, brand); });
}

bool IsSvg(std::string_view text) {
  constexpr std::size_t kProlog = 16 * 1024;  // comments and a document type stand before the element
  return FindNoCase(text.substr(0, kProlog), "<svg") != kNone;
}

bool Always(std::string_view) { return true; }

struct Magic {
  std::size_t at;
  std::string_view bytes;
  bool (*structure)(std::string_view content);
};
constexpr Magic kMagics[] = {
    {0, "\xFF\xD8\xFF", IsJpeg},
    {0, "\x89PNG\r\n\x1A\n", IsPng},
    {0, "GIF87a", IsGif},
    {0, "GIF89a", IsGif},
    {0, "BM", IsBitmap},
    {0, "RIFF", IsWebp},
    {0, std::string_view("\0\0\1\0", 4), IsIcon},
    {0, std::string_view("\0\0\2\0", 4), IsIcon},
    {0, std::string_view("II*\0", 4), IsTiff},
    {0, std::string_view("MM\0*", 4), IsTiff},
    {4, "ftyp", IsFileTypeBox},
    {0, std::string_view("\0\0\0\x0CjP  \r\n\x87\n", 12), Always},
    {0, std::string_view("\0\0\0\x0CJXL \r\n\x87\n", 12), Always},
    {0, "\xFF\x0A", Always},
};

const Magic* FindMagic(std::string_view content) {
  const auto* const found = std::find_if(std::begin(kMagics), std::end(kMagics),
                                         [&](const Magic& magic) { return Stands(content, magic.at, magic.bytes); });
  return found == std::end(kMagics) ? nullptr : found;
}

constexpr bool IsText(char c) { return (c >= ' ' && c <= '~') || c == '\t' || c == '\r' || c == '\n'; }

// How many bytes of plain text make a mark script text. Of random bytes 98 of 256 are text: behind one of the 320 marks
// that 10 MiB of them hold, a run of 20 comes by chance in one of 600,000 such files; a closing mark behind 5, or a
// word of the trade in a shorter run, more seldom than one in 20,000.
constexpr std::size_t kScriptRun = 20;
constexpr std::size_t kClosedRun = 5;
constexpr std::size_t kWordRun = 6;
constexpr std::size_t kWordsWithin = 64;  // bytes behind the mark in which such a word is looked for

constexpr std::string_view kWords[] = {"eval",     "exec",    "request", "assert",   "system",
                                       "passthru", "include", "require", "response", "server.",
                                       "$_get",    "$_post",  "$_req",   "$_cook",   "$_serv"};

// What stands behind "<?" or "<%"; `mark` and ">" close it.
bool IsScriptBody(std::string_view body, char mark) {
  std::size_t run = 0;
  while (run < body.size() && run < kScriptRun && IsText(body[run])) {
    if (body[run] == mark && Byte(body, run + 1) == '>') return run >= kClosedRun;
    ++run;
  }
  if (run >= kScriptRun) return true;
  if (run < kWordRun) return false;
  if (run == body.size()) return true;  // text to the end of the file
  const std::string_view front = body.substr(0, kWordsWithin);
  return std::any_of(std::begin(kWords), std::end(kWords), [&](std::string_view word) {
    const std::size_t at = FindNoCase(front, word);
    return at != kNone && at < run;
  });
}

bool IsPhp(std::string_view behind) {
  if (BeginsNoCase(behind, "php"))
    return behind.size() == 3 || IsSpace(behind[3]) || IsScriptBody(behind.substr(3), '?');
  for (const std::string_view markup : {"xml", "xpacket", "adobe-", "mso-", "aid ", "import"}) {
    if (BeginsNoCase(behind, markup)) return false;
  }
  return IsScriptBody(behind, '?');
}

// "<script ...>" that runs on the server.
bool IsServerTag(std::string_view behind) {
  constexpr std::size_t kLongestTag = 512;
  if (!BeginsNoCase(behind, "script")) return false;
  const std::string_view tag = behind.substr(0, std::min(behind.find('>'), kLongestTag));
  if (FindNoCase(tag, "runat") != kNone) return true;
  const std::size_t language = FindNoCase(tag, "language");
  return language != kNone && FindNoCase(tag, "php", language) != kNone;
}

bool IsServerInclude(std::string_view behind) {
  return BeginsNoCase(behind, "!--#exec") && behind.size() > 8 && IsSpace(behind[8]);
}

}  // namespace

bool BeginsLikeImage(std::string_view content) {
  const Magic* const magic = FindMagic(content);
  // Two bytes are too little to go by.
  return magic != nullptr && (magic->bytes.size() > 2 || magic->structure(content));
}

bool IsImage(std::string_view content) {
  const Magic* const magic = FindMagic(content);
  return magic != nullptr ? magic->structure(content) : IsSvg(content);
}

bool IsExecutable(std::string_view content) {
  constexpr std::size_t kSmallestProgram = 64;
  if (content.starts_with("MZ") && content.size() >= kSmallestProgram) {
    const std::size_t header = Little32(content, 0x3C);
    return Stands(content, header, std::string_view("PE\0\0", 4)) || Stands(content, header, "NE") ||
           Stands(content, header, "LE");
  }
  if (content.starts_with("#!")) {
    const std::string_view line = Trim(content.substr(2, content.substr(2, 256).find('\n')));
    return line.starts_with('/');
  }
  constexpr std::string_view kMagic[] = {
      "\x7F"
      "ELF",
      "\xFE\xED\xFA\xCE",
      "\xFE\xED\xFA\xCF",
      "\xCE\xFA\xED\xFE",
      "\xCF\xFA\xED\xFE",
      "\xCA\xFE\xBA\xBE",
      std::string_view("L\0\0\0\1\x14\2\0", 8)};
  return content.size() >= 16 && std::any_of(std::begin(kMagic), std::end(kMagic),
                                             [&](std::string_view magic) { return content.starts_with(magic); });
}

std::size_t FindScript(std::string_view content, std::size_t from) {
  for (std::size_t at = content.find('<', from); at != kNone; at = content.find('<', at + 1)) {
    const std::string_view behind = content.substr(std::min(at + 2, content.size()));
    switch (Byte(content, at + 1)) {
      case '?':
        if (IsPhp(behind)) return at;
        break;
      case '%':
        if (IsScriptBody(behind, '%')) return at;
        break;
      case 's':
      case 'S':
        if (IsServerTag(content.substr(at + 1))) return at;
        break;
      case '!':
        if (IsServerInclude(content.substr(at + 1))) return at;
        break;
      default:
        break;
    }
  }
  return kNone;
}

bool SwitchesOnScripts(std::string_view base, std::string_view content) {
  constexpr std::size_t kLongestConfig = 256 * 1024;
  content = content.substr(0, kLongestConfig);
  const auto holds = [&](std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return FindNoCase(content, word) != kNone; });
  };
  if (base.ends_with(".htaccess")) {
    return holds({"addhandler", "sethandler", "addtype", "forcetype", "php_value", "php_admin", "php_flag", "execcgi",
                  "action "});
  }
  if (base.ends_with(".user.ini") || base == "php.ini") {
    return holds({"auto_prepend_file", "auto_append_file", "extension", "allow_url_include", "disable_functions"});
  }
  if (base.ends_with(".config")) {
    return holds({"<handlers", "<httphandlers", "<buildproviders", "<httpmodules", "<modules", "<%", "requestfiltering",
                  "scriptprocessor"});
  }
  return false;
}

}  // namespace qiv

#include "checks/file_content.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>

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
// telling word in a shorter run, more seldom than one in 20,000.
constexpr std::size_t kScriptRun = 20;
constexpr std::size_t kClosedRun = 5;
constexpr std::size_t kWordRun = 6;
constexpr std::size_t kLongestWord = 8;  // of kWords

constexpr std::string_view kWords[] = {"eval",     "exec",    "request", "assert",   "system",
                                       "passthru", "include", "require", "response", "server.",
                                       "$_get",    "$_post",  "$_req",   "$_cook",   "$_serv"};

// Searches for one word from growing positions: each byte is passed once. From a smaller one, a short way.
class CAhead {
 public:
  CAhead(std::string_view text, std::string_view lower) : text_(text), lower_(lower) {}
  std::size_t Find(std::size_t from) {
    constexpr std::size_t kShortWay = 1024;
    if (from < from_) return FindNoCase(text_.substr(0, from + kShortWay), lower_, from);
    if (!searched_ || (at_ != kNone && at_ < from)) at_ = FindNoCase(text_, lower_, from);
    from_ = from;
    searched_ = true;
    return at_;
  }

 private:
  std::string_view text_;
  std::string_view lower_;
  std::size_t from_ = 0;
  std::size_t at_ = 0;
  bool searched_ = false;
};

// Comments in front of a script, which may hold any bytes: where it goes on. `at`: behind "<?" or "<%". Who writes more
// than kMostComments means them to hide it: they count as script.
constexpr int kMostComments = 8;

std::size_t SkipComments(std::string_view text, std::size_t at, CAhead* comment_end, CAhead* line_end) {
  for (int comment = 0;; ++comment) {
    std::size_t begin = std::min(text.find_first_not_of("=@ \t\r\n", at), text.size());
    const bool block = text.compare(begin, 2, "/*") == 0;
    const bool line =
        text.compare(begin, 2, "//") == 0 || text.compare(begin, 1, "#") == 0 || text.compare(begin, 1, "'") == 0;
    if (!block && !line) return at;
    if (comment == kMostComments) return kNone;
    begin = block ? comment_end->Find(begin + 2) : line_end->Find(begin);
    if (begin == kNone) return text.size();
    at = begin + (block ? 2 : 1);
  }
}

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
  const std::string_view front = body.substr(0, run + kLongestWord);
  return std::any_of(std::begin(kWords), std::end(kWords), [&](std::string_view word) {
    const std::size_t at = FindNoCase(front, word);
    return at != kNone && at < run;
  });
}

// "<?xml version=", "<?xml-stylesheet type=", "<?xml:namespace prefix =": two words and "=" are no PHP.
bool IsMarkup(std::string_view behind) {
  constexpr std::string_view kMarkup[] = {"xml:namespace", "xml", "xpacket", "adobe-", "mso-", "aid", "import"};
  const auto* const markup = std::find_if(std::begin(kMarkup), std::end(kMarkup),
                                          [&](std::string_view name) { return BeginsNoCase(behind, name); });
  if (markup == std::end(kMarkup)) return false;
  std::size_t at = markup->size();
  const auto skip_word = [&] {
    const std::size_t begin = at;
    while (at < behind.size() && (IsWordByte(behind[at]) || behind[at] == '-')) ++at;
    return at != begin;
  };
  const auto skip_blanks = [&] {
    const std::size_t begin = at;
    while (at < behind.size() && IsSpace(behind[at])) ++at;
    return at != begin;
  };
  skip_word();
  if (!skip_blanks() || !skip_word()) return false;
  skip_blanks();
  return at < behind.size() && behind[at] == '=';
}

// "<script language=php>"; `behind`: what follows "<script".
bool IsPhpTag(std::string_view behind) {
  for (const std::string_view word : {"language", "=", "php"}) {
    behind.remove_prefix(std::min(behind.find_first_not_of(" \t\r\n\"'"), behind.size()));
    if (!BeginsNoCase(behind, word)) return false;
    behind.remove_prefix(word.size());
  }
  return true;
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
  // By chance the marks occur in binary files alone.
  const bool text = content.find('\0') == kNone;
  CAhead comment_end(content, "*/");
  CAhead line_end(content, "\n");
  CAhead runat(content, "runat");
  const auto is_script = [&](std::size_t at, char mark) {
    if (text) return at < content.size();
    const std::size_t body = SkipComments(content, at, &comment_end, &line_end);
    return body == kNone || IsScriptBody(content.substr(body), mark);
  };
  for (std::size_t at = content.find('<', from); at != kNone; at = content.find('<', at + 1)) {
    const std::string_view behind = content.substr(std::min(at + 2, content.size()));
    switch (Byte(content, at + 1)) {
      case '?':
        if (BeginsNoCase(behind, "php")) {
          if (behind.size() == 3 || IsSpace(behind[3]) || is_script(at + 5, '?')) return at;
        } else if (!IsMarkup(behind) && is_script(at + 2, '?')) {
          return at;
        }
        break;
      case '%':
        if (is_script(at + 2, '%')) return at;
        break;
      case 's':
      case 'S':  // an attribute's text may hold ">": where the tag ends is not looked at
        if (BeginsNoCase(behind, "cript") && (IsPhpTag(behind.substr(5)) || runat.Find(at) != kNone)) return at;
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
  constexpr std::size_t kLongestConfig = 512 * 1024;
  content = content.substr(0, kLongestConfig);
  std::string narrow;
  if (content.find('\0') != kNone) {  // UTF-16
    narrow = content;
    narrow.erase(std::remove(narrow.begin(), narrow.end(), '\0'), narrow.end());
    content = narrow;
  }
  base = base.substr(0, base.find_last_not_of(". \t") + 1);  // as Windows stores it
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

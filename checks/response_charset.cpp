#include "checks/response_charset.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "checks/body_charset.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kHead = 1024;  // where browsers look for a page's charset

template <std::size_t N>
bool BeginsWithOne(std::string_view name, const std::string_view (&known)[N]) {
  return std::any_of(std::begin(known), std::end(known), [name](std::string_view k) { return BeginsNoCase(name, k); });
}

/// "charset=NAME", without what is around the name; empty: none.
std::string_view CharsetIn(std::string_view text) {
  const std::string_view named = NamedCharset(text);
  const std::size_t equals = named.find('=');
  if (equals == named.npos) return {};
  const std::string_view name = TrimBytes(named.substr(equals + 1), " \t\"'");
  return name.substr(0, name.find_first_of("\"' />;"));
}

}  // namespace

ResponseEncodings EncodingsOf(const ResponseText& response) {
  constexpr std::string_view kUtf8[] = {"utf-8", "utf8"};
  constexpr std::string_view kLocal[] = {"gb", "x-gbk", "cp936", "windows-936", "hz-gb"};
  constexpr std::string_view kNoAscii[] = {"utf-7", "utf-32", "big5",     "x-x-big5",    "shift",
                                           "sjis",  "x-sjis", "ms_kanji", "windows-31j", "iso-2022",
                                           "johab", "ibm",    "cp037",    "ebcdic"};
  const std::string_view text = response.text;
  if (text.starts_with("\xEF\xBB\xBF")) return {{TextEncoding::kUtf8}};
  if (text.starts_with("\xFF\xFE")) return {{TextEncoding::kWideLittle}};
  if (text.starts_with("\xFE\xFF")) return {{TextEncoding::kWideBig}};
  std::string_view name = CharsetIn(response.type);
  if (name.empty() && response.page) name = CharsetIn(text.substr(0, kHead));
  if (BeginsWithOne(name, kUtf8)) return {{TextEncoding::kUtf8}};
  if (BeginsWithOne(name, kLocal)) return {{TextEncoding::kLocal}};
  if (BeginsNoCase(name, "utf-16be")) return {{TextEncoding::kWideBig}};
  if (BeginsNoCase(name, "utf-16")) return {{TextEncoding::kWideLittle}};
  if (BeginsWithOne(name, kNoAscii)) return {};
  if (!name.empty()) return {{TextEncoding::kUtf8}, true};
  const EncodingGuess guess = GuessEncoding(text);
  ResponseEncodings found;
  if (guess.utf8) found.encodings.push_back(TextEncoding::kUtf8);
  if (guess.local) found.encodings.push_back(TextEncoding::kLocal);
  return found;
}

}  // namespace qiv

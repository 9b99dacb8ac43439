#include "common/charset_label.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "common/text.h"

namespace qiv {
namespace {

struct Label {
  std::string_view begins;
  CharsetKind kind;
};

// The first that fits: a longer name stands before what it begins with.
constexpr Label kLabels[] = {
    {"unicode-1-1-utf-7", CharsetKind::kUnreadable},
    {"unicode-1-1-utf-8", CharsetKind::kUtf8},
    {"utf-8", CharsetKind::kUtf8},
    {"utf8", CharsetKind::kUtf8},
    {"gb", CharsetKind::kLocal},
    {"euc-cn", CharsetKind::kLocal},
    {"csgb", CharsetKind::kLocal},
    {"x-gbk", CharsetKind::kLocal},
    {"cp936", CharsetKind::kLocal},
    {"ms936", CharsetKind::kLocal},
    {"windows-936", CharsetKind::kLocal},
    {"chinese", CharsetKind::kLocal},
    {"iso-ir-58", CharsetKind::kLocal},
    {"utf-16be", CharsetKind::kWideBig},
    {"utf16be", CharsetKind::kWideBig},
    {"unicodefffe", CharsetKind::kWideBig},
    {"utf-16", CharsetKind::kWideLittle},
    {"utf16", CharsetKind::kWideLittle},
    {"unicode", CharsetKind::kWideLittle},
    {"csunicode11utf7", CharsetKind::kUnreadable},
    {"csunicode", CharsetKind::kWideLittle},
    {"ucs-2", CharsetKind::kWideLittle},
    {"iso-10646-ucs-2", CharsetKind::kWideLittle},
    {"utf-32", CharsetKind::kWide},
    {"utf32", CharsetKind::kWide},
    {"ucs-4", CharsetKind::kWide},
    {"iso-10646-ucs", CharsetKind::kWide},
    {"utf-7", CharsetKind::kUnreadable},
    {"utf7", CharsetKind::kUnreadable},
    {"x-unicode-2", CharsetKind::kUnreadable},
    {"ibm", CharsetKind::kUnreadable},
    {"csibm", CharsetKind::kUnreadable},
    {"x-ibm", CharsetKind::kUnreadable},
    {"ebcdic", CharsetKind::kUnreadable},
    {"x-ebcd", CharsetKind::kUnreadable},
    {"cp037", CharsetKind::kUnreadable},
    {"cp1140", CharsetKind::kUnreadable},
    {"cp1047", CharsetKind::kUnreadable},
    {"cp500", CharsetKind::kUnreadable},
    {"cp875", CharsetKind::kUnreadable},
    {"cp1026", CharsetKind::kUnreadable},
    {"big5", CharsetKind::kDoubleByte},
    {"cn-big5", CharsetKind::kDoubleByte},
    {"csbig5", CharsetKind::kDoubleByte},
    {"x-x-big5", CharsetKind::kDoubleByte},
    {"windows-950", CharsetKind::kDoubleByte},
    {"cp950", CharsetKind::kDoubleByte},
    {"shift", CharsetKind::kDoubleByte},
    {"sjis", CharsetKind::kDoubleByte},
    {"x-sjis", CharsetKind::kDoubleByte},
    {"csshiftjis", CharsetKind::kDoubleByte},
    {"ms_kanji", CharsetKind::kDoubleByte},
    {"ms932", CharsetKind::kDoubleByte},
    {"cp932", CharsetKind::kDoubleByte},
    {"windows-31j", CharsetKind::kDoubleByte},
    {"iso-2022", CharsetKind::kUnreadable},
    {"csiso2022", CharsetKind::kUnreadable},
    {"hz-gb", CharsetKind::kUnreadable},
    {"euc-kr", CharsetKind::kDoubleByte},
    {"cseuckr", CharsetKind::kDoubleByte},
    {"ks_c_5601", CharsetKind::kDoubleByte},
    {"ksc", CharsetKind::kDoubleByte},
    {"csksc", CharsetKind::kDoubleByte},
    {"korean", CharsetKind::kDoubleByte},
    {"iso-ir-149", CharsetKind::kDoubleByte},
    {"windows-949", CharsetKind::kDoubleByte},
    {"cp949", CharsetKind::kDoubleByte},
    {"ms949", CharsetKind::kDoubleByte},
    {"johab", CharsetKind::kDoubleByte},
    {"iso-8859", CharsetKind::kSingle},
    {"iso8859", CharsetKind::kSingle},
    {"iso_8859", CharsetKind::kSingle},
    {"latin", CharsetKind::kSingle},
    {"us-ascii", CharsetKind::kSingle},
    {"ascii", CharsetKind::kSingle},
    {"ansi", CharsetKind::kSingle},
    {"windows-125", CharsetKind::kSingle},
    {"windows-874", CharsetKind::kSingle},
    {"cp125", CharsetKind::kSingle},
    {"x-cp125", CharsetKind::kSingle},
    {"koi8", CharsetKind::kSingle},
    {"mac", CharsetKind::kSingle},
    {"x-mac", CharsetKind::kSingle},
    {"tis-620", CharsetKind::kSingle},
    {"euc-jp", CharsetKind::kSingle},
    {"x-euc", CharsetKind::kSingle},
    {"euc-tw", CharsetKind::kSingle},
};

constexpr std::size_t kNowhere = std::string_view::npos;

/// The value behind a key that ends at `at`, without quotes; nothing when no "=" follows.
std::optional<std::string_view> ValueBehind(std::string_view attributes, std::size_t at) {
  constexpr std::string_view kBlanks = " \t\r\n";
  at = attributes.find_first_not_of(kBlanks, at);
  if (at == kNowhere || attributes[at] != '=') return std::nullopt;
  at = std::min(attributes.find_first_not_of(" \t\r\n\"'", at + 1), attributes.size());
  const std::string_view rest = attributes.substr(at);
  return rest.substr(0, rest.find_first_of("\"'; \t\r\n/>"));
}

}  // namespace

CharsetKind KindOfCharset(std::string_view name) {
  if (name.empty()) return CharsetKind::kNone;
  const auto* const label = std::find_if(std::begin(kLabels), std::end(kLabels),
                                         [name](const Label& l) { return BeginsNoCase(name, l.begins); });
  return label == std::end(kLabels) ? CharsetKind::kUnknown : label->kind;
}

std::string_view CharsetName(std::string_view attributes, std::string_view key) {
  for (std::size_t at = FindNoCase(attributes, key); at != kNowhere;
       at = FindNoCase(attributes, key, at + key.size())) {
    if (at != 0 && !IsSpace(attributes[at - 1]) && std::string_view(";,\"'/").find(attributes[at - 1]) == kNowhere)
      continue;  // the end of another name
    if (const auto name = ValueBehind(attributes, at + key.size())) return *name;
  }
  return {};
}

std::string_view FindCharset(std::string_view attributes, bool (*wanted)(CharsetKind)) {
  constexpr std::string_view kKey = "charset";
  for (std::size_t at = FindNoCase(attributes, kKey); at != kNowhere;
       at = FindNoCase(attributes, kKey, at + kKey.size())) {
    const auto name = ValueBehind(attributes, at + kKey.size());
    if (name && wanted(KindOfCharset(*name))) return *name;
  }
  return {};
}

}  // namespace qiv

#include "config/sensitive_words.h"

#include <algorithm>
#include <map>
#include <utility>

#include "base/ascii.h"
#include "base/hex.h"
#include "common/char_set.h"
#include "config/value_lists.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr TextEncoding kEncodings[] = {TextEncoding::kLocal, TextEncoding::kUtf8, TextEncoding::kWideLittle,
                                       TextEncoding::kWideBig};

constexpr std::size_t IndexOf(TextEncoding encoding) { return static_cast<std::size_t>(encoding); }
constexpr bool IsWide(TextEncoding encoding) { return encoding >= TextEncoding::kWideLittle; }

std::string PercentEncode(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (IsWordByte(c) || c == '-' || c == '.' || c == '*') {
      encoded += c;
    } else {
      AppendEscapedByte(c, &encoded);
    }
  }
  return encoded;
}

std::string JsonEncode(std::string_view utf8) {
  std::string encoded;
  for (const char16_t unit : Utf8ToUtf16(utf8)) {
    if (unit >= 0x20 && unit < 0x7F) {
      if (unit == u'"' || unit == u'\\') encoded += '\\';
      encoded += static_cast<char>(unit);
    } else {
      encoded += "\\u";
      AppendHexByte(static_cast<char>(unit >> 8U), &encoded);
      AppendHexByte(static_cast<char>(unit & 0xFFU), &encoded);
    }
  }
  return encoded;
}

std::string XmlEncode(std::string_view utf8) {
  std::string encoded;
  for (std::size_t at = 0; at < utf8.size();) {
    char32_t code = 0;
    const std::size_t length = DecodeUtf8(utf8, at, &code);
    if (length > 1) {
      AppendAll(&encoded, {"&#", std::to_string(static_cast<std::uint32_t>(code)), ";"});
    } else {
      encoded += HtmlEscape(utf8.substr(at, 1));
    }
    at += std::max<std::size_t>(length, 1);
  }
  return encoded;
}

}  // namespace

CReplacement::CReplacement(std::string_view utf8)
    : plain_{CCharSet::Utf8ToLocal(utf8), std::string(utf8)},
      percent_{PercentEncode(plain_[0]), PercentEncode(plain_[1])},
      json_(JsonEncode(utf8)),
      xml_(XmlEncode(utf8)),
      fits_cookie_(std::none_of(utf8.begin(), utf8.end(), [](char c) {
        return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == ';' || c == ',' || c == '"';
      })) {}

CSensitiveWords::CSensitiveWords(std::string_view block, std::string_view replace, std::string_view record) {
  std::map<std::string, unsigned> uses;
  for (const auto& [list, use] :
       {std::pair(block, kWordBlock), std::pair(replace, kWordReplace), std::pair(record, kWordRecord)}) {
    for (const std::string& item : BarItems(list)) {
      const std::string word = CCharSet::LowerAscii(Trim(item));
      if (!word.empty()) uses[word] |= use;
    }
  }
  for (const auto& [listed, of] : uses) {
    const std::string utf8 = CCharSet::LocalToUtf8(listed);
    Word word{{}, listed, of};
    for (const TextEncoding encoding : kEncodings) word.forms[IndexOf(encoding)] = EncodeText(utf8, encoding);
    uses_ |= of;
    words_.push_back(std::move(word));
  }
  for (const TextEncoding encoding : kEncodings) {
    std::vector<std::string> forms;
    // A trail byte may look like a letter: letters are found in either case, and what is found is looked at.
    for (const Word& word : words_) {
      const std::string& form = word.forms[IndexOf(encoding)];
      forms.push_back(CCharSet::LowerBytes(form));
    }
    patterns_[IndexOf(encoding)] = CMultiPattern(forms);
    patterns_[IndexOf(encoding)].FoldCase();
  }
}

/// Whether the bytes are the word and not such as differ in a trail byte that looks like a letter.
bool CSensitiveWords::Stands(std::string_view text, std::size_t start, std::uint32_t word,
                             TextEncoding encoding) const {
  const std::string& form = words_[word].forms[IndexOf(encoding)];
  const std::string_view found = text.substr(start, form.size());
  if (encoding == TextEncoding::kUtf8) return true;
  const std::size_t high = encoding == TextEncoding::kWideBig ? 0 : 1;
  for (std::size_t at = 0, length = 0; at < form.size(); at += length) {
    length = IsWide(encoding) ? 2 : CCharSet::CharacterLength(form, at);
    const bool exact = IsWide(encoding) ? form[at + high] != '\0' : length == 2;
    if (exact && found.compare(at, length, form, at, length) != 0) return false;
  }
  return true;
}

bool CSensitiveWords::Find(std::string_view text, TextEncoding encoding, unsigned uses,
                           const std::function<bool(const WordHit&)>& visit) const {
  if ((uses & uses_) == 0) return true;
  std::size_t whole = 0;  // a character begins there
  bool all = true;
  patterns_[IndexOf(encoding)].FindByStart(text, [&](std::size_t start, const std::uint32_t* found, std::size_t count) {
    if (IsWide(encoding) && start % 2 != 0) return true;
    if (encoding == TextEncoding::kLocal) {
      while (whole < start) whole += CCharSet::CharacterLength(text, whole);
      if (whole != start) return true;
    }
    while (all && count-- > 0) {
      const Word& word = words_[found[count]];
      if ((word.uses & uses) == 0 || !Stands(text, start, found[count], encoding)) continue;
      all = visit({word.listed, word.uses & uses, {start, word.forms[IndexOf(encoding)].size()}});
    }
    return all;
  });
  return all;
}

}  // namespace qiv

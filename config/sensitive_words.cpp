#include "config/sensitive_words.h"

#include <algorithm>
#include <map>
#include <utility>

#include "common/char_set.h"
#include "config/value_lists.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr TextEncoding kEncodings[] = {TextEncoding::kLocal, TextEncoding::kUtf8, TextEncoding::kWideLittle,
                                       TextEncoding::kWideBig};

constexpr std::size_t IndexOf(TextEncoding encoding) { return static_cast<std::size_t>(encoding); }
constexpr bool IsWide(TextEncoding encoding) { return encoding >= TextEncoding::kWideLittle; }
constexpr bool IsHigh(char c) { return static_cast<unsigned char>(c) >= 0x80; }

}  // namespace

EncodingGuess GuessEncoding(std::string_view text) {
  // A stray byte makes no UTF-8 page a GBK page.
  constexpr std::size_t kMuch = 8;
  std::size_t in_sequences = 0;  // of three bytes and more: those of two are common in GBK too
  std::size_t stray = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (!IsHigh(text[at])) {
      ++at;
      continue;
    }
    char32_t code = 0;
    const std::size_t length = DecodeUtf8(text, at, &code);
    if (length > 2) in_sequences += length;
    if (length == 0) ++stray;
    at += std::max<std::size_t>(length, 1);
  }
  const bool any_high = in_sequences + stray != 0 || !CCharSet::IsAscii(text);
  return {true, any_high && (in_sequences == 0 || stray * kMuch > in_sequences)};
}

std::string EncodeText(std::string_view utf8, TextEncoding encoding) {
  if (encoding == TextEncoding::kUtf8) return std::string(utf8);
  if (encoding == TextEncoding::kLocal) return CCharSet::Utf8ToLocal(utf8);
  std::string bytes;
  for (const char16_t unit : Utf8ToUtf16(utf8)) {
    const char halves[] = {static_cast<char>(unit & 0xFFU), static_cast<char>(unit >> 8U)};
    const bool little = encoding == TextEncoding::kWideLittle;
    bytes += halves[little ? 0 : 1];
    bytes += halves[little ? 1 : 0];
  }
  return bytes;
}

std::string PreparedWords::Replacement(TextEncoding encoding) const {
  return encoding == TextEncoding::kLocal ? new_word : EncodeText(new_word_utf8, encoding);
}

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
    any_letters_ = any_letters_ || std::any_of(utf8.begin(), utf8.end(), IsLetter);
    uses_ |= of;
    words_.push_back(std::move(word));
  }
  for (const TextEncoding encoding : kEncodings) {
    std::vector<std::string> forms;
    // A trail byte may look like a letter: what is searched is lowered byte by byte, and what is found is looked at.
    for (const Word& word : words_) {
      const std::string& form = word.forms[IndexOf(encoding)];
      forms.push_back(any_letters_ ? CCharSet::LowerBytes(form) : form);
    }
    patterns_[IndexOf(encoding)] = CMultiPattern(forms);
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
  std::string lowered;
  if (any_letters_) lowered = CCharSet::LowerBytes(text);
  std::size_t whole = 0;  // a character begins there
  bool all = true;
  patterns_[IndexOf(encoding)].FindByStart(
      any_letters_ ? std::string_view(lowered) : text,
      [&](std::size_t start, const std::uint32_t* found, std::size_t count) {
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

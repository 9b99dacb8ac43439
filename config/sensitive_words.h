// Sensitive words: what a site blocks, replaces and records, in one automaton for each encoding.
//
// A word is found wherever it stands, also within a longer one, whatever the case of its ASCII letters, and only as
// whole characters: not across two double-byte characters of GBK, nor across two units of UTF-16. Immutable after
// construction; thread safe.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "common/multi_pattern.h"
#include "common/text.h"
#include "config/url_exemptions.h"

namespace qiv {

enum WordUse : std::uint8_t { kWordBlock = 1, kWordReplace = 2, kWordRecord = 4 };

enum class TextEncoding : std::uint8_t { kLocal, kUtf8, kWideLittle, kWideBig };

/// The encodings that a text may be in which names none: UTF-8, or GBK, or both when it can be read as either. Linear.
struct EncodingGuess {
  bool utf8 = false;
  bool local = false;
};
EncodingGuess GuessEncoding(std::string_view text);

struct WordHit {
  std::string_view word;  ///< as listed, GBK
  unsigned uses = 0;      ///< WordUse bits, of those asked for
  TextPlace place;
};

class CSensitiveWords {
 public:
  CSensitiveWords() = default;
  /// Lists in GBK, items separated by "|".
  CSensitiveWords(std::string_view block, std::string_view replace, std::string_view record);

  /// The uses that any word has.
  unsigned Uses() const { return uses_; }

  /// Calls visit(hit) for each occurrence of a word with one of `uses`, in order of start, the longest first at a
  /// start, until it returns false; whether none did. One pass over the text.
  bool Find(std::string_view text, TextEncoding encoding, unsigned uses,
            const std::function<bool(const WordHit&)>& visit) const;

 private:
  bool Stands(std::string_view text, std::size_t start, std::uint32_t word, TextEncoding encoding) const;

  struct Word {
    std::array<std::string, 4> forms;  // by encoding, ASCII letters in lower case
    std::string listed;
    unsigned uses = 0;
  };
  std::vector<Word> words_;
  std::array<CMultiPattern, 4> patterns_;
  unsigned uses_ = 0;
  bool any_letters_ = false;
};

/// What a load prepares of the keys about sensitive words.
struct PreparedWords {
  CSensitiveWords words;
  CUrlExemptions block_white_urls;
  CUrlExemptions replace_white_urls;
  std::string new_word;       ///< GBK; what has no such form is "?"
  std::string new_word_utf8;  ///< the same in UTF-8

  /// What takes the place of a word in a text of that encoding.
  std::string Replacement(TextEncoding encoding) const;
};

/// A text of UTF-8 in that encoding.
std::string EncodeText(std::string_view utf8, TextEncoding encoding);

}  // namespace qiv

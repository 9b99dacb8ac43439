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
#include "common/text_encoding.h"
#include "config/url_exemptions.h"

namespace qiv {

enum WordUse : std::uint8_t { kWordBlock = 1, kWordReplace = 2, kWordRecord = 4 };

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
};

/// What takes the place of a word, as the places of a request and a response hold it. Escapes of JSON and references of
/// XML stand for the same in every encoding; a form's do not, they stand for bytes.
class CReplacement {
 public:
  CReplacement() : CReplacement(std::string_view()) {}
  explicit CReplacement(std::string_view utf8);

  const std::string& Utf8() const { return plain_[1]; }
  /// `encoding`: kLocal or kUtf8. What has no form in GBK is "?".
  const std::string& Plain(TextEncoding encoding) const { return plain_[IndexOf(encoding)]; }
  const std::string& Percent(TextEncoding encoding) const { return percent_[IndexOf(encoding)]; }
  const std::string& Json() const { return json_; }  ///< of a string's inside; ASCII
  const std::string& Xml() const { return xml_; }    ///< of a text or an attribute; ASCII
  /// Whether it may stand in a cookie as it is.
  bool FitsCookie() const { return fits_cookie_; }

 private:
  static std::size_t IndexOf(TextEncoding encoding) { return encoding == TextEncoding::kLocal ? 0 : 1; }

  std::array<std::string, 2> plain_;
  std::array<std::string, 2> percent_;
  std::string json_;
  std::string xml_;
  bool fits_cookie_ = true;
};

/// What a load prepares of the keys about sensitive words.
struct PreparedWords {
  CSensitiveWords words;
  CUrlExemptions block_white_urls;
  CUrlExemptions replace_white_urls;
  CReplacement new_word;
};

}  // namespace qiv

// What is shown of a text that was judged: the text as the client sent it, without its secrets.
//
// Detectors judge texts that were decoded and lower-cased; an operator has to read what was sent, a name in Chinese as
// that name, a path with its capitals. So on a hit the text is decoded once more, keeping its letters, which gives a
// text of the same length: places that an engine found in the one are places in the other. Values of parameters and
// headers that hold secrets (common/secrets.h) are then overwritten, by the structure of what was sent, so that no "&"
// or quote in a password ends it early, and no piece cut out of its middle shows it.
#pragma once

#include <string>
#include <string_view>

#include "checks/request_facts.h"
#include "common/text.h"

namespace qiv {

class CShownText {
 public:
  /// Of facts.query, facts.body, and of a header's value. What cannot be decoded to the same text (because a test made
  /// the facts by hand, say) is shown as it was judged; and nothing at all when memory is short: the block matters
  /// more.
  static CShownText Query(const RequestFacts& facts) noexcept;
  static CShownText Body(const RequestFacts& facts) noexcept;
  static CShownText Header(const HeaderEntry& header) noexcept;
  /// Of one value: "name=value" as it was judged, the name `name_length` bytes long.
  static CShownText Value(std::string_view text, std::size_t name_length) noexcept;
  /// Of a text that is judged as it is shown.
  static CShownText Plain(std::string_view judged) noexcept;

  /// What stands at the place, in the local code page, "***" for secrets.
  std::string At(TextPlace place) const;
  /// MatchExcerpt around the place, likewise.
  std::string ExcerptAt(TextPlace place) const;
  /// The text, as long as the judged one, with kSecretByte in place of secrets.
  std::string_view View() const { return text_; }

 private:
  std::string text_;
  bool is_utf8_ = false;  ///< perhaps: header values were not converted before they were judged
};

/// A URL as it is shown and logged: as sent, with "***" for secrets in its query.
std::string ShownUrl(const RequestFacts& facts);
/// The full URL (facts.full_url) likewise.
std::string ShownFullUrl(const RequestFacts& facts);

}  // namespace qiv

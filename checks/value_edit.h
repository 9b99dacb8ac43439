// Replaces words in the texts of a request where they stand: in the bytes that were sent, whatever they are encoded in.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "checks/request_values.h"
#include "common/text.h"
#include "common/text_encoding.h"
#include "config/sensitive_words.h"

namespace qiv {

/// A text written anew with some of its pieces replaced. The text must outlive the object.
class CTextWriter {
 public:
  /// `most`: the bytes that the new text may have, at least those of `text`. A piece whose replacement would lead
  /// beyond them is left out.
  CTextWriter(std::string_view text, std::size_t most) : text_(text), most_(most) {}

  /// Pieces come in order; one that lies over an earlier one stays as it is.
  void Replace(const TextPlace& piece, std::string_view with);
  bool HasChanged() const { return kept_until_ != 0; }
  bool HasLeftOut() const { return left_out_; }
  /// The new text, which is the writer's no longer.
  std::string Take();
  /// The offset of a view of the text.
  std::size_t OffsetOf(std::string_view view) const { return static_cast<std::size_t>(view.data() - text_.data()); }

 private:
  const std::string_view text_;
  const std::size_t most_;
  std::string written_;
  std::size_t kept_until_ = 0;
  bool left_out_ = false;
};

/// A value as an application reads it, and where each byte of that was sent: decoded as its place demands, a query's
/// twice if need be, and with character references resolved, which browsers send for characters that a page's charset
/// does not hold. One object reads many values.
class CValueReading {
 public:
  /// `characters`: what escaped characters become, GBK or UTF-8. The text is valid until the next one and as long as
  /// `value.raw`.
  std::string_view Read(const RequestValue& value, TextEncoding characters);
  /// The bytes of value.raw that the place of the text was read from; whole escapes. Places come in order and apart.
  TextPlace Sent(const TextPlace& place);

 private:
  // One decoding, and a position that goes on through it with the places that are asked for.
  class CStep {
   public:
    void Begin(RequestValue::Encoding encoding, std::string_view text, TextEncoding characters);
    std::string_view Decoded();
    /// Of the byte at `at` of what was decoded.
    TextPlace SentOf(std::size_t at);

   private:
    void GoOn();

    RequestValue::Encoding encoding_ = RequestValue::kPlain;
    TextEncoding characters_ = TextEncoding::kUtf8;
    std::string_view text_;
    std::string decoded_;
    std::string escape_;       // room
    std::size_t sent_ = 0;     // where bytes begin that stand for themselves
    std::size_t read_ = 0;     // and where they are in what was decoded
    std::size_t plain_ = 0;    // so many
    std::size_t escaped_ = 0;  // bytes of the escape behind them
    std::size_t made_ = 0;     // and of what it stands for
  };
  static constexpr std::size_t kMostSteps = 3;

  std::array<CStep, kMostSteps> steps_;
  std::size_t step_count_ = 0;
};

/// What takes the place of a word in the value, as it is written there. `charset` is that of the place.
std::string_view ReplacementIn(const RequestValue& value, const CReplacement& replacement, TextEncoding charset);

/// Tells where a text holds what only looks like text: keys, tokens, states of pages.
class CBase64Runs {
 public:
  explicit CBase64Runs(std::string_view text) : text_(text) {}
  /// Whether the place lies in an unbroken run of base64 of 32 bytes and more that has capitals, small letters and
  /// digits. Places come in order. Linear for all of them together.
  bool Hold(const TextPlace& place);

 private:
  const std::string_view text_;
  std::size_t end_ = 0;  // of what was looked at last
  bool is_run_ = false;
};

}  // namespace qiv

// Divides a PHP file into tokens.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class PhpTokenKind : std::uint8_t {
  kOperator,  ///< code: its bytes, packed by PhpOperator
  kVariable,  ///< text: the name without "$"
  kName,      ///< identifier, keyword or number
  kString,    ///< constant string; text: between the quotes
  kTemplate,  ///< string with variables in it; text: between the quotes
  kCommand,   ///< what stands between backticks
  kMarkup,    ///< what stands outside PHP; ends a statement
};

/// Up to three bytes of an operator as one number.
constexpr std::uint32_t PhpOperator(std::string_view bytes) {
  std::uint32_t code = 0;
  for (const char c : bytes) code = code << 8 | static_cast<unsigned char>(c);
  return code;
}

struct PhpToken {
  static constexpr std::size_t kLongestSource = (1U << 24) - 1;  ///< bytes; what stands behind them has no tokens

  std::uint32_t begin;
  std::uint32_t size : 24;
  PhpTokenKind kind : 8;
  /// Of operators their bytes, of strings the quote ('<' for a here document); of variables and names their PhpName,
  /// once somebody asked for it.
  std::uint32_t code;

  std::uint32_t End() const { return begin + size; }
  std::string_view Text(std::string_view source) const { return source.substr(begin, size); }
  bool Is(std::string_view op) const { return code == PhpOperator(op) && kind == PhpTokenKind::kOperator; }
};

/// Reads the tokens of a source without comments and blanks, at most one for each byte. What is never closed ends with
/// the text; anything goes. Linear.
class CPhpLexer {
 public:
  /// `in_code`: the text begins inside PHP (the argument of an "eval"), else at its first "<?" or
  /// "<script language=php>". `source` is read as long as the object is used.
  CPhpLexer(std::string_view source, bool in_code)
      : source_(source.substr(0, PhpToken::kLongestSource)), in_code_(in_code) {}

  /// The next token; false at the end.
  bool Next(PhpToken* token);

 private:
  void Add(PhpTokenKind kind, std::size_t begin, std::size_t end, std::uint32_t code = 0);
  void Markup();
  void Code();
  void Close();
  void LineComment();
  void Name();
  void Quoted(char quote);
  void HereDocument();
  void Operator();
  bool AtClosingTag() const;
  std::size_t NameEnd(std::size_t at) const;
  std::string_view Rest() const { return source_.substr(at_); }
  char Ahead(std::size_t count) const { return at_ + count < source_.size() ? source_[at_ + count] : '\0'; }

  std::string_view source_;
  std::size_t at_ = 0;
  bool in_code_;
  bool last_line_ = false;  // no line ends behind here
  bool script_ = false;     // inside "<script language=php>"
  PhpToken* token_ = nullptr;
  bool made_ = false;
};

/// A walk over the tokens that sees one before and a few ahead; holds no others.
class CPhpTokens {
 public:
  static constexpr std::size_t kMostAhead = 3;

  CPhpTokens(std::string_view source, bool in_code) : lexer_(source, in_code) {}

  /// To the next token (at first, to the first); false at the end.
  bool Advance() {
    if (read_ != 0 || at_ != 0) ++at_;
    Fill(0);
    return at_ < read_;
  }
  PhpToken& At() { return Slot(at_); }
  /// Null at the first.
  const PhpToken* Before() const { return at_ > 0 ? &window_[(at_ - 1) % kWindow] : nullptr; }
  /// The token `count` (at most kMostAhead) behind this one, or null.
  PhpToken* Ahead(std::size_t count) {
    Fill(count);
    return at_ + count < read_ ? &Slot(at_ + count) : nullptr;
  }
  PhpToken* Next() { return Ahead(1); }
  bool NextIs(std::string_view op, std::size_t ahead = 1) {
    const PhpToken* const token = Ahead(ahead);
    return token != nullptr && token->Is(op);
  }
  bool BeforeIs(std::string_view op) const { return Before() != nullptr && Before()->Is(op); }
  /// Until one of the operators comes next; false at the end.
  bool SkipTo(std::string_view a, std::string_view b) {
    while (Next() != nullptr && !NextIs(a) && !NextIs(b)) Advance();
    return Next() != nullptr;
  }

 private:
  static constexpr std::size_t kWindow = 8;
  PhpToken& Slot(std::size_t number) { return window_[number % kWindow]; }
  void Fill(std::size_t count) {
    while (read_ <= at_ + count && lexer_.Next(&window_[read_ % kWindow])) ++read_;
  }

  CPhpLexer lexer_;
  std::array<PhpToken, kWindow> window_{};
  std::size_t at_ = 0;
  std::size_t read_ = 0;
};

/// The text that a string token stands for: escapes of single and double quotes replaced. `escapes` is set when letters
/// were written as hexadecimal or octal escapes.
std::string PhpUnquote(std::string_view inner, char quote, bool* escapes);

}  // namespace qiv

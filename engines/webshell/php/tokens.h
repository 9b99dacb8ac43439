// Divides a PHP file into tokens.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

/// Twelve bytes: a text of nothing but brackets has one for each byte.
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

/// The tokens of `source` without comments and blanks; at most one for each byte. `in_code`: the text begins inside PHP
/// (the argument of an "eval"), else at its first "<?" or "<script language=php>". Anything goes: what is never closed
/// ends with the text. Linear.
std::vector<PhpToken> PhpTokens(std::string_view source, bool in_code);

/// The text that a string token stands for: escapes of single and double quotes replaced. `escapes` is set when letters
/// were written as hexadecimal or octal escapes.
std::string PhpUnquote(std::string_view inner, char quote, bool* escapes);

}  // namespace qiv

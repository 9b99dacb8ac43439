// Reads text as JavaScript, as far as it takes to tell a script from prose. One pass; no tree, no recursion.
//
// Operands and operators must alternate as the language wants it; brackets need not match, since the page around the
// text may have opened some. What the text does is told from calls (also of templates) and assignments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qiv {

enum class ScriptStart : std::uint8_t {
  kBehindString,  ///< behind a string literal
  kHole,          ///< behind the "${" of a template
  kWhole,         ///< at the beginning of a text that may be a script as a whole
  kStatement,     ///< at the beginning of a script that ends with the text
};

/// Reads one text, lower-case, kept by reference, from one place on.
class CScriptReader {
 public:
  /// `quote` ends the page's string; NUL when there is none.
  CScriptReader(std::string_view text, std::size_t pos, char quote);

  /// Whether the text goes on as script, does something, and ends where the page's script can go on.
  bool Runs(ScriptStart start);
  /// Where reading stopped.
  std::size_t Position() const { return pos_; }
  /// Whether what was read last is an operand.
  bool IsBehindOperand() const { return !operand_; }

 private:
  enum class Previous : std::uint8_t { kLiteral, kName, kClose, kBlock, kKeyword, kOpen, kOperator, kSemicolon };
  enum class Gap : std::uint8_t { kText, kEnd, kComment };

  Gap SkipGap();
  Gap EndInComment();
  bool ReadOperand();
  bool ReadOperator();
  bool ReadSign(char c);
  bool ReadDot();
  bool ReadWordOperand();
  bool ReadNumber();
  bool ReadString(char quote);
  bool ReadRegex();
  bool Open(bool keyword);
  bool Close();
  bool Call();
  bool IsBlankPlus();
  bool Expect(Previous previous, bool operand);
  bool EndsSomewhere() const;
  std::string_view Word();
  char At(std::size_t pos) const { return pos < text_.size() ? text_[pos] : '\0'; }

  std::string_view text_;
  const std::size_t begin_;
  std::size_t pos_;
  const char quote_;
  bool blank_is_plus_ = false;
  bool one_line_ = false;  // the first operator was such a blank: what has lines then is no such value
  ScriptStart start_ = ScriptStart::kStatement;
  bool operand_ = false;  // whether an operand comes next
  bool does_something_ = false;
  bool assignable_ = false;  // a "=" behind the last name would set something
  bool known_call_ = false;  // it calls what scripts of attackers call
  bool complete_ = false;
  bool newline_ = false;          // in the last gap
  bool one_blank_ = false;        // the last gap is one blank
  bool class_ahead_ = false;      // a name and "{" may follow one another
  bool keyword_bracket_ = false;  // the next "(" is that of "if" and the like
  std::string_view word_;         // the last name
  Previous previous_ = Previous::kLiteral;
  std::uint64_t keyword_brackets_ = 0;  // which of the innermost 64 open ones are
  std::size_t depth_ = 0;
};

}  // namespace qiv

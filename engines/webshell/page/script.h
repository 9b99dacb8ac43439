// Server code of ASP and ASPX pages: cutting it out of the page, and its statements as tokens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "engines/webshell/page/names.h"

namespace qiv {

inline bool Holds(std::string_view text, std::string_view what) { return text.find(what) != std::string_view::npos; }

enum class PageKind : std::uint8_t { kAsp, kAspx };

enum class ScriptSyntax : std::uint8_t {
  kBasic,   ///< VBScript, VB.NET: a statement ends with its line or ":"
  kBraces,  ///< JScript, C#: a statement ends with ";", "{" or "}"
};

struct PageCode {
  std::string basic;
  std::string braces;
  std::string attributes;  ///< of the directives "<%@ ... %>", blanks and quotes left out, one after the other
};

/// The server code of a lower-cased page: what stands between "<%" and "%>", in script elements with "runat", and
/// behind the directive of a handler or web service, by the language that the page, the element or, without either,
/// the look of the code says. An object element with "runat" becomes the statement that creates it. A page without any
/// marker is taken as code whole. Linear.
PageCode ServerCode(std::string_view page);

/// A piece of a page's code.
struct PageCodePlace {
  ScriptSyntax syntax = ScriptSyntax::kBasic;  ///< in which of its texts
  TextPlace place;
  bool inner = false;  ///< it evaluates the text that is meant
};
/// Where it stands in the page, without the blanks around it; without length: nowhere. Cuts the page once more.
TextPlace PlaceInPage(std::string_view page, const PageCodePlace& place);

struct Token {
  enum Kind : std::uint8_t { kName, kString, kNumber, kMark };
  Kind kind = kMark;
  char mark = '\0';       ///< of kMark: the byte; 'e' "==", 'n' "!=" and "<>", 'l' "<=", 'g' ">=", 'a' "+=", 'f' "=>"
  std::string_view text;  ///< of the others; strings without quotes, escapes resolved
};

/// Splits lower-cased code into the tokens of its statements. Comments are left out, joined lines closed up. Views are
/// of the code and of `names`; of strings, until the next call.
class CStatements {
 public:
  static constexpr std::size_t kMostTokens =
      2048;  ///< longer statements come in pieces, so that none takes much memory

  CStatements(std::string_view code, ScriptSyntax syntax, CPageNames* names)
      : code_(code), basic_(syntax == ScriptSyntax::kBasic), names_(names) {}

  /// The next statement, possibly without tokens, or the next piece of one; false at the end. `*closed_by` is the byte
  /// that ended it; NUL: it goes on.
  bool Next(std::vector<Token>* tokens, char* closed_by);
  /// Bytes that were read.
  std::size_t At() const { return at_; }

 private:
  void Piece(char c, std::vector<Token>* tokens);
  char LastMark(const std::vector<Token>& tokens) const;
  void Word(std::vector<Token>* tokens);
  void String(std::vector<Token>* tokens, bool verbatim);
  std::size_t Escape(std::size_t at, std::string* text) const;
  void Number(std::vector<Token>* tokens);
  bool Regex(const std::vector<Token>& tokens);
  bool Comment();
  void Mark(std::vector<Token>* tokens);
  bool At(std::size_t at, char c) const { return at < code_.size() && code_[at] == c; }

  std::string_view code_;
  bool basic_;
  std::size_t at_ = 0;
  std::size_t lists_ = 0;  // of values in braces, open
  bool goes_on_ = false;   // the last piece did not end its statement
  Token last_;             // of the piece before
  CPageNames* names_;
  std::list<std::string> strings_;
};

}  // namespace qiv

// Where server code may stand in the content of a file: for looking through whole sites, most of whose files hold none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace qiv {

enum class ScriptLanguage : std::uint8_t { kNone, kPhp, kAsp, kAspx };

/// What a file's name tells a server to run it as: by its last ending, or else by one before it ("a.php.jpg",
/// "a.asp;.jpg"). `name` is without its folder.
ScriptLanguage ScriptLanguageOfName(std::string_view name);

/// Whether server code may begin somewhere in `text`: at "<?", "<%" or a script element with "runat" or "php", in
/// single bytes or in UTF-16 with its byte order mark. (UTF-7 needs no form of its own: a page says that it is UTF-7
/// inside "<%@".) Marks that begin none do not count: "<?xml", "<?xpacket", and marks followed by control bytes, as
/// pictures hold them by chance. Linear, some GB a second.
bool HoldsServerCode(std::string_view text);

/// How a server may read a file.
enum class CodeFamily : std::uint8_t {
  kPhp,       ///< "<?php", "<?="
  kPhpShort,  ///< with short tags: "<?" too; nothing comes of a file without such a tag
  kAsp,       ///< "<%", script elements with "runat"
};

/// Puts together the server code of one family that a file holds, for files that are too long to be judged whole, so
/// that no padding hides it, and for files that are no scripts by name, whose other text says nothing. The text around
/// code is left out, of PHP also comments and what is beyond kLongestLiteral bytes of a literal; blanks are closed up.
/// The code goes to on_part in texts that the detectors take, marks included, divided behind a statement. Takes some 2
/// MiB and the longest piece.
class CServerCode {
 public:
  /// Longer literals are packed code, which the detectors tell by its beginning.
  static constexpr std::size_t kLongestLiteral = 64 * 1024;

  using OnPart = std::function<bool(std::string_view part)>;  ///< false: no more is wanted

  /// `every_mark`, as befits a file named as a script: whatever stands behind a mark counts. Else a block with a
  /// control byte outside literals and comments does not, nor "<%" without a "%>": compilers refuse both, and random
  /// bytes hold nothing else.
  CServerCode(CodeFamily family, bool every_mark, OnPart on_part);

  /// The next bytes of the file. False when on_part wanted no more.
  bool Add(std::string_view piece);
  /// Behind the last piece.
  bool End();

 private:
  enum class State : std::uint8_t { kMarkup, kCode, kString, kLineComment, kBlockComment, kHeredoc };

  void Run(bool last);
  void Markup(bool last);
  void Code();
  void PhpCode(char c);
  void Literal();
  void Heredoc();
  void SkipComment();
  bool IsRefused(char c);
  bool OpenHeredoc();
  void Put(char c);
  void PutBlank(char c);
  void PutLiteral(char c);
  void Close();
  void Emit(std::size_t size);
  std::string_view Rest() const { return std::string_view(text_).substr(at_); }

  const CodeFamily family_;
  const bool is_php_;
  const bool every_mark_;
  OnPart on_part_;
  bool wanted_ = true;
  std::string text_;    // what has been added and not yet been looked at
  std::size_t at_ = 0;  // in text_
  State state_ = State::kMarkup;
  bool saw_short_ = false;         // a short tag has occurred
  bool anything_ = false;          // ASP: what stands here, up to the line's end, may be a literal or a comment
  bool in_element_ = false;        // the code ends with its script element
  char quote_ = 0;                 // of the literal
  bool line_start_ = false;        // of a heredoc: only blanks since the line's begin
  std::string label_;              // of a heredoc
  std::size_t literal_ = 0;        // bytes of the literal so far
  std::string part_;               // code not yet given away
  std::size_t open_block_ = 0;     // in part_, begin of the block at hand
  std::size_t statement_end_ = 0;  // in part_, the last one
};

/// The server code of a text that is no script by name, of every family in turn, while on_part wants more: in packed
/// bytes marks, calls and variables stand by chance.
void ForEachServerCode(std::string_view text, const CServerCode::OnPart& on_part);

}  // namespace qiv

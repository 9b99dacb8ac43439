// The walk over a PHP file's tokens: statements, brackets, declarations, names and strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engines/webshell/php/expressions.h"
#include "engines/webshell/php/parts.h"
#include "engines/webshell/php/strings.h"
#include "engines/webshell/php/tokens.h"

namespace qiv {

class CPhpWalk : CWithPhpParts {
 public:
  /// `in_code`: the source begins inside PHP.
  CPhpWalk(std::string_view source, bool in_code, const PhpParts& parts);

  /// Begins at the first token again.
  void Restart();
  /// To the next token; false at the end. `*end`: the byte behind it.
  bool Advance(std::size_t* end);
  /// Works through the token at hand.
  void Token();
  /// Behind the last token.
  void End() { EndStatement(); }

 private:
  // What the next block or name will be.
  struct Pending {
    PhpScope scope = kPhpFileScope;  // of the function whose block comes next
    bool is_class = false;
    bool is_new = false;
  };
  // Of a function: the names of its parameters, and of the variables that it uses.
  struct Signature {
    std::vector<PhpName> parameters;
    std::vector<bool> by_reference;  // in step with parameters
    std::vector<PhpName> used;
  };

  void OnOperator(const PhpToken& token);
  void OnName(PhpToken& token);
  bool OnKeyword(PhpWord word);
  bool OnStructure(PhpWord word);
  bool OnClass();
  void OnVariable(PhpToken& token);
  void OnString(const PhpToken& token);
  void OnNumber(std::string_view text);
  void OnMember();
  void OnQuestion();
  void OnColon();
  void OnStep(std::uint32_t code);
  void OnDollar(std::uint32_t code);

  void OpenBracket(char bracket);
  void OpenParen();
  void OpenCall();
  void CloseBracket(char bracket);
  void OpenBlock();
  void CloseBlock();
  void CloseVariable();
  bool IsIndexBrace() const;
  PhpFrame* PushFrame(PhpFrameKind kind) { return stacks_.PushFrame(kind, scopes_.Current()); }

  void BeginStatement();
  void EndStatement();
  Signature ReadSignature(const PhpUserFunction& function);
  void Declare(bool is_closure);
  void DeclareArrow();
  void BindParameters(const PhpUserFunction& function);

  std::string_view source_;
  bool in_code_;
  CPhpTokens tokens_;
  CPhpStrings strings_;
  CPhpExpressions expressions_;
  Pending pending_;
  std::size_t stray_braces_ = 0;  // "({": no PHP, but files that lost their quotes hold it
};

}  // namespace qiv

// The walk over a page's code: its statements.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "engines/webshell/page/expressions.h"
#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/functions.h"
#include "engines/webshell/page/layers.h"
#include "engines/webshell/page/names.h"
#include "engines/webshell/page/scopes.h"
#include "engines/webshell/page/script.h"

namespace qiv {

class CPageWalk {
 public:
  CPageWalk(CPageNames* names, CPageScopes* scopes, CPageFunctions* functions, CPageExpressions* expressions,
            CPageFindings* findings)
      : names_(*names), scopes_(*scopes), functions_(*functions), expressions_(*expressions), findings_(*findings) {}

  /// Works through a part; the number of tokens.
  std::size_t Run(CPageLayers::Part part);

 private:
  // Places of tokens that are none.
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  static constexpr std::size_t kRefused = static_cast<std::size_t>(-2);

  void Statement(char closed_by);
  void BasicStatement();
  void BracesStatement();
  void Continue();
  bool Declares(char closed_by);
  std::size_t DeclaredByWord() const;
  std::size_t DeclaredByBraces() const;
  bool DeclaresProperty();
  void Declare(std::size_t name);
  void ClearLocals(std::size_t begin);
  void Segment(std::size_t begin, std::size_t end, bool condition);
  void LastSegment(std::size_t begin, bool condition);
  void BeginSegment(bool condition);
  void Steps(std::size_t begin, std::size_t end);
  void EndSegment();

  CPageNames& names_;
  CPageScopes& scopes_;
  CPageFunctions& functions_;
  CPageExpressions& expressions_;
  CPageFindings& findings_;
  bool basic_ = true;
  std::vector<Token> tokens_;
  bool continues_ = false;         // the statement at hand is longer than its piece
  bool open_ = false;              // and so is its last segment
  bool stepped_ = false;           // the open segment holds something
  std::size_t head_brackets_ = 0;  // of "if (...": open at the end of the piece
  bool starts_program_ = false;    // the statement names the start of a program
};

}  // namespace qiv

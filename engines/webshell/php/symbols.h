// What the names of a PHP file are: keywords, superglobals, functions of PHP's own or of the file, variables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/flow/stack.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/names.h"
#include "engines/webshell/php/operand.h"
#include "engines/webshell/php/tokens.h"
#include "engines/webshell/php/value.h"

namespace qiv {

/// Keywords, those together that are treated alike.
enum class PhpWord : std::uint8_t {
  kNone,
  kInclude,
  kEcho,
  kStatement,  // if, while ...
  kReturn,
  kElse,
  kBlock,  // do, try ...
  kNew,
  kClone,
  kList,
  kLogic,  // and, or, xor
  kInstanceof,
  kAs,
  kFunction,
  kArrowFunction,
  kClass,
  kModifier,
  kGlobal,
  kNamespace,
  kConst,
  kBoolean,
  kNull,
};

/// What a name is in general: looked up once for each different name.
struct PhpNameFacts {
  bool known = false;
  PhpWord word = PhpWord::kNone;
  std::uint8_t superglobal = 0;  ///< SuperglobalNumber
  std::uint16_t function = 0;    ///< of PHP's own functions, its row + 1
  std::uint32_t user = 0;        ///< function of the file of that name, its number + 1
  PhpVariableKey global = 0;     ///< variable of that name outside functions
  PhpVariableKey constant = 0;   ///< constant of that name
};

/// Of one walk over one source, which it views.
class CPhpSymbols {
 public:
  CPhpSymbols(std::string_view source, CFlowBudget* budget) : source_(source), budget_(*budget), names_(budget) {}

  /// The name of a token; looked up once.
  PhpName NameOf(PhpToken& token);
  /// The name that a text is used as; none when it is long and the budget does not allow to read it.
  PhpName NameOf(std::string_view text);
  /// The name of a piece of the source.
  PhpName NameInSource(std::string_view piece) { return names_.Of(piece, true); }
  /// The name of one of a few texts, whatever the budget.
  PhpName NameAnyway(std::string_view text) { return names_.OfAnyway(text); }
  /// The name of an array's element; none when it is not known.
  PhpName IndexOf(const PhpValue& value);
  /// The same letters in lower case.
  PhpName LowerOf(PhpName name);
  /// Empty for numbers.
  std::string_view Text(PhpName name) const { return names_.Text(name); }

  PhpNameFacts& FactsOf(PhpName name);
  /// The function of PHP's own of that lower-case name, or null.
  const PhpFunction* OwnFunction(PhpName name) {
    const std::uint16_t row = FactsOf(name).function;
    return row != 0 ? &PhpFunctions()[row - 1U] : nullptr;
  }

  /// Whether there were more names than there is room for: one that cannot be told from others may be any.
  bool Overflowed() const { return overflowed_; }

 private:
  PhpName NameWithoutRoom(std::string_view text);

  std::string_view source_;
  CFlowBudget& budget_;
  CPhpNames names_;
  CFlowStack<PhpNameFacts, 32> facts_;  // per name
  bool overflowed_ = false;
};

}  // namespace qiv

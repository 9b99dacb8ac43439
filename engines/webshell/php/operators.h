// What PHP's operators make of values that are known in part.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/value.h"

namespace qiv {

inline constexpr std::size_t kPhpElementWork = 64;     ///< what it costs to copy an element, in bytes of text
inline constexpr std::size_t kPhpMostElements = 4096;  ///< of an array that is followed

/// Whether the operator of that code (PhpOperator) assigns.
bool IsPhpAssignment(std::uint32_t code);

/// The precedence of a binary operator that does not assign; -1: none of them.
int PhpBinaryPrecedence(std::uint32_t code);

/// Makes values; each is paid for from the budget. Where that does not allow it, a value has no content, but its taint.
class CPhpOperators {
 public:
  explicit CPhpOperators(CFlowBudget* budget) : budget_(*budget) {}

  /// A text that was put together.
  PhpValue Made(std::string text, std::uint32_t origin = 0, HidingWay way = HidingWay::kNone);
  /// A left side that nobody else holds is added to in place, so that a long chain costs what it holds.
  PhpValue Concatenate(PhpValue left, const PhpValue& right);
  /// "^", "|", "&" and "~" (of `left` twice).
  PhpValue Bitwise(std::uint32_t code, const PhpValue& left, const PhpValue& right);
  PhpValue Binary(std::uint32_t code, PhpValue left, const PhpValue& right);
  /// "$x++", "$x--": letters are counted too, which some files spell names with.
  PhpValue Stepped(std::uint32_t code, const PhpValue& old);
  /// What "foreach" gives of a list: the origins of all elements and the text of the first.
  PhpValue Each(const PhpValue& list);

  /// Whether a value's text holds another; no, when it is longer than the budget allows to read.
  bool Holds(const PhpValue& value, std::string_view text);
  /// Whether two texts are known to be the same.
  bool SameText(const PhpValue& a, const PhpValue& b);

  CPhpShare<PhpArray> NewArray(const PhpArray* copied = nullptr);
  /// Counts what the array holds now; false: there is no room to hold it.
  bool Account(PhpArray* array);

 private:
  CFlowBudget& budget_;
};

}  // namespace qiv

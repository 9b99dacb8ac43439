#include "engines/webshell/php/functions.h"

#include <algorithm>

namespace qiv {

CPhpFunctions::CPhpFunctions(CFlowBudget* budget, CPhpSymbols* symbols, CPhpOperators* operators)
    : budget_(*budget), symbols_(*symbols), operators_(*operators) {
  constexpr std::array<std::string_view, 4> kMagic = {"__invoke", "__get", "__call", "__construct"};
  for (std::size_t i = 0; i < kMagic.size(); ++i) magic_names_[i] = symbols_.NameAnyway(kMagic[i]);
}

std::uint32_t CPhpFunctions::Begin() {
  const std::uint32_t number = next_;
  if (number == functions_.size()) {
    if (number != 0 && !budget_.TakeFromPlenty(sizeof(PhpUserFunction) + 64)) return number - 1;
    functions_.Push();
  }
  if (next_ + 1 < kMostFunctions) ++next_;
  return number;
}

PhpUserFunction* CPhpFunctions::Find(PhpName lower_name) {
  const std::uint32_t number = lower_name != kNoName ? symbols_.FactsOf(lower_name).user : 0;
  return number != 0 ? &functions_[number - 1] : nullptr;
}

bool CPhpFunctions::HasRoomForParameter(const PhpUserFunction& function, std::size_t count) {
  constexpr std::size_t kRoom = sizeof(PhpValue) + sizeof(PhpName) + 4;
  return count < kMostParameters && (count < function.values.size() || budget_.Take(kRoom));
}

PhpValue CPhpFunctions::Bind(PhpUserFunction& function, std::span<const PhpValue> arguments) {
  PhpValue result = function.returns;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i < function.values.size()) {
      PhpValue& parameter = function.values[i];
      PhpValue value = arguments[i];
      value.origin &= ~static_cast<std::uint32_t>(kNeverAssigned | kDerived);
      if (!parameter.HasText() && parameter.origin == 0 && !parameter.is_number && !parameter.array) {
        parameter = value;
      } else {
        if (!value.HasText() || !operators_.SameText(value, parameter)) parameter = parameter.Taint();
        parameter.Join(value);
      }
    }
  }
  // What its code does with the arguments is known from the last pass; arguments that it returns came through there.
  return result;
}

void CPhpFunctions::BindAll(PhpUserFunction& function, const PhpValue& given) {
  constexpr std::size_t kFew = 4;  // parameters that callbacks have
  const std::size_t count = std::max<std::size_t>(function.values.size(), 1);
  if (count > kFew && !budget_.Spend(count * kPhpElementWork)) return;
  const std::vector<PhpValue> values(count, given);
  Bind(function, values);
}

void CPhpFunctions::Return(PhpUserFunction& function, const PhpValue& value) {
  const std::uint32_t origin = function.returns.origin;
  if (!function.has_return) {
    function.returns = value;
  } else if (!value.HasText() || !operators_.SameText(value, function.returns)) {
    function.returns = function.returns.Taint();
    function.returns.Join(value);
  }
  function.returns.origin |= origin;
  function.has_return = true;
}

}  // namespace qiv

// The functions of a PHP file: which there are, what their parameters are bound to, what they return.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "engines/webshell/flow/stack.h"
#include "engines/webshell/php/operators.h"
#include "engines/webshell/php/symbols.h"

namespace qiv {

struct PhpUserFunction {
  PhpName name = kNoName;
  std::vector<PhpName> parameters;
  std::vector<bool> by_reference;  ///< in step with parameters
  std::vector<PhpValue> values;    ///< of the parameters, from all calls
  PhpValue returns;
  bool has_return = false;
};

/// Methods that PHP calls by itself.
enum class PhpMagic : std::uint8_t { kInvoke, kGet, kCallAny, kConstruct };

class CPhpFunctions {
 public:
  static constexpr std::size_t kMostParameters = 64;  ///< of a function; more are not bound

  CPhpFunctions(CFlowBudget* budget, CPhpSymbols* symbols, CPhpOperators* operators);

  /// Before each pass.
  void Restart() { next_ = 0; }
  /// The number of the function that begins here; those that find no room count as one with the last.
  std::uint32_t Begin();
  /// By its number.
  PhpUserFunction& At(std::uint32_t number) { return functions_[number]; }
  std::size_t Count() const { return functions_.size(); }

  /// By its lower-case name, or null.
  PhpUserFunction* Find(PhpName lower_name);
  PhpUserFunction* FindMagic(PhpMagic method) { return Find(magic_names_[static_cast<std::size_t>(method)]); }

  /// Whether a function may have one more than `count` parameters; pays for it.
  bool HasRoomForParameter(const PhpUserFunction& function, std::size_t count);
  /// Binds the parameters to the arguments of a call; what the function returns, as far as it is known by now.
  PhpValue Bind(PhpUserFunction& function, std::span<const PhpValue> arguments);
  /// Every parameter is given the value.
  void BindAll(PhpUserFunction& function, const PhpValue& given);
  /// A return statement of the function.
  void Return(PhpUserFunction& function, const PhpValue& value);

 private:
  static constexpr std::size_t kMostFunctions = 1 << 16;  // the functions behind them count as one

  CFlowBudget& budget_;
  CPhpSymbols& symbols_;
  CPhpOperators& operators_;
  CFlowStack<PhpUserFunction, 8> functions_;
  std::uint32_t next_ = 0;
  std::array<PhpName, 4> magic_names_{};  // PhpMagic
};

}  // namespace qiv

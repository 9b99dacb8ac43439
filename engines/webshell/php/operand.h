// What waits on the stacks of the walk over a PHP file: operands, operations, open brackets.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engines/webshell/php/names.h"
#include "engines/webshell/php/tokens.h"
#include "engines/webshell/php/value.h"

namespace qiv {

/// A variable's number, from 1 on; 0: none.
using PhpVariableKey = std::uint32_t;

/// A value, and where it stands.
struct PhpOperand {
  PhpValue value;
  PhpVariableKey key = 0;   ///< the variable it names
  PhpName index = kNoName;  ///< of an element: its key, if known
  PhpName name = kNoName;   ///< of a bare name or member, lower-case
  bool indexed = false;     ///< an element of that variable
  bool is_name = false;     ///< a bare name
  bool is_member = false;
  bool request_named = false;                         ///< a variable whose name the request chose
  std::unique_ptr<std::vector<PhpVariableKey>> list;  ///< variables of a list(...) that is assigned to

  /// Lets go of what others may share or wait for.
  void Release() {
    if (value.text) value.text = {};
    if (value.array) value.array = {};
    if (list) list.reset();
  }
  /// As new.
  void Clear() {
    Release();
    value.origin = 0;
    value.number = 0;
    value.function = 0;
    value.way = HidingWay::kNone;
    key = 0;
    index = name = kNoName;
    value.is_number = indexed = is_name = is_member = request_named = false;
  }
};

/// An operator, or a word that acts like one.
struct PhpOperation {
  std::uint32_t code = 0;  ///< PhpOperator
  std::int16_t precedence = 0;
  bool unary = false;
};

/// Precedences; those of the binary operators lie between kCoalesce and kUnary.
struct PhpPrecedence {
  static constexpr int kLowest = 0;      ///< everything
  static constexpr int kPrefixWord = 1;  ///< echo, return, include ...
  static constexpr int kAssignment = 2;
  static constexpr int kTernary = 3;
  static constexpr int kCoalesce = 4;
  static constexpr int kUnary = 16;
};

/// Codes of operations that are words.
struct PhpWordCode {
  static constexpr std::uint32_t kArrow = PhpOperator("fn");
  static constexpr std::uint32_t kInclude = PhpOperator("inc");
  static constexpr std::uint32_t kReturn = PhpOperator("ret");
  static constexpr std::uint32_t kEcho = PhpOperator("ech");
  static constexpr std::uint32_t kNumberCast = PhpOperator("int");
  static constexpr std::uint32_t kPlainCast = PhpOperator("str");
};

enum class PhpFrameKind : std::uint8_t { kBlock, kParen, kCall, kIndex, kArray, kVariable };

/// An open bracket.
struct PhpFrame {
  PhpFrameKind kind = PhpFrameKind::kBlock;
  bool named : 1 = false;      ///< callee_name is the function
  bool is_member : 1 = false;  ///< callee_name is a method
  bool is_new : 1 = false;
  bool statement : 1 = false;  ///< "if (...)" and the like
  bool is_class : 1 = false;
  bool in_foreach : 1 = false;
  bool has_key : 1 = false;
  bool has_callee : 1 = false;  ///< what is called or looked into stands below its operands
  std::uint32_t begin = 0;      ///< of kCall: the byte of the source where the call begins
  std::uint32_t values = 0;
  std::uint32_t operations = 0;
  std::uint32_t arguments = 0;  ///< of kCall and kArray: where its arguments begin
  std::uint32_t block = 0;      ///< the innermost block: this frame or one around it
  std::uint32_t scope = 0;      ///< to go back to
  PhpName callee_name = kNoName;
  PhpName array_key = kNoName;
  PhpValue* element = nullptr;  ///< what "foreach" gives its variables, or "=>" an element; null: nothing, or no room
};

/// What is known of an argument beside its value.
struct PhpArgumentFacts {
  PhpVariableKey key = 0;  ///< the variable that stands in it
  PhpName name = kNoName;  ///< "name => value"
};

}  // namespace qiv

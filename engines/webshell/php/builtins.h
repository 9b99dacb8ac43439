// What PHP's own functions do to a value that is known, and what kind of functions they are.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engines/webshell/php/value.h"

namespace qiv {

enum class PhpFunctionKind : std::uint8_t {
  kUnknown,
  kCode,       ///< runs its first argument as code
  kCommand,    ///< runs its first argument as a command
  kCallback,   ///< calls one of its arguments
  kPattern,    ///< a regular expression that may run its replacement
  kMakeCode,   ///< create_function
  kWrite,      ///< file_put_contents, fwrite
  kOpen,       ///< fopen
  kMove,       ///< copies or moves an uploaded file
  kRead,       ///< the content of a file or address
  kSource,     ///< the request's text
  kExtract,    ///< makes variables of an array's elements
  kPass,       ///< gives back (a part of) what it is given
  kDecode,     ///< the same, decoded
  kVariables,  ///< func_get_args and the like
  kRemove,     ///< removes a file or folder
  kMail,       ///< mail
  kOther,      ///< walked as functions that are not in the table; the row says what else is to be known of it
};

/// What PHP's manual says of a function, as far as it matters.
struct PhpFunction {
  enum Flag : std::uint8_t {
    kDangerous = 1,  ///< running it from a hidden name tells the file apart: it runs code, decodes, writes
    kTool = 2,       ///< works on files, folders, hosts or databases
    kMeasure = 4,    ///< gives a number or a digest of what it is given
    kPlain = 8,      ///< leaves a plain text plain: its result hides nothing that was not hidden before
  };
  std::string_view name;
  PhpFunctionKind kind;
  std::int8_t callback = 0;  ///< of kCallback: which argument, from 0; negative: from the last
  std::uint8_t flags = 0;
  HidingWay way = HidingWay::kOther;  ///< in which it hides a text it makes
  std::int8_t from = -1;              ///< the argument that becomes (a part of) what argument `to` gives back; -1: none
  std::int8_t to = -1;

  bool Is(Flag flag) const { return (flags & flag) != 0; }
};

/// All rows of the table.
std::span<const PhpFunction> PhpFunctions();

/// The function of that lower-case name, or null.
const PhpFunction* FindPhpFunction(std::string_view name);

/// Whether the function of that lower-case name has the flag.
bool IsPhpFunction(std::string_view name, PhpFunction::Flag flag);

/// Whether a text begins with the address of another host.
bool IsRemoteAddress(std::string_view text);

/// A function that makes the request run when it is given as a callback.
bool IsPhpRunner(std::string_view lower_name);

/// What the function gives for arguments whose texts are known; a value without text when it cannot be told.
/// What it makes is paid for from the budget as it is made, and not made beyond it.
PhpValue EvaluatePhpFunction(std::string_view lower_name, std::span<const PhpValue> arguments, CFlowBudget* budget);

/// The text that an argument stands for ("Array" for an array, digits for a number), if it is known.
bool PhpTextOf(const PhpValue& value, std::string* text);

}  // namespace qiv

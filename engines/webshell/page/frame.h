// What is open while an expression of a page is worked through: brackets, calls, what is assigned to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engines/webshell/page/value.h"

namespace qiv {

inline constexpr std::size_t kManyArguments = 10;  ///< character codes one after the other

/// What an operand is so far.
enum class PageOperand : std::uint8_t { kNone, kWord, kValue };

/// An open bracket, a call without brackets, or the statement itself.
struct PageFrame {
  bool call = false;
  bool without_brackets = false;
  bool member = false;  ///< the callee stands behind a "."
  bool compares = false;
  bool has_value = false;
  bool behind_dot = false;
  bool word_member = false;
  bool made = false;       ///< the call stands behind "new"
  bool word_made = false;  ///< the word does
  char mark = ' ';
  PageOperand state = PageOperand::kNone;
  std::string_view callee;
  std::string_view word;
  std::string_view element;  ///< the list that `current` was picked out of
  std::string_view each;     ///< the variable that walks over what follows "in"
  PageValue receiver;        ///< of the callee
  PageValue word_receiver;
  PageValue current;
  PageValue value;
  std::vector<PageValue> arguments;  ///< of very many the last one stands for the rest
  std::size_t known_arguments = 0;
  std::size_t argument_count = 0;

  /// As new; keeps memory.
  void Clear() {
    call = without_brackets = member = compares = has_value = behind_dot = word_member = made = word_made = false;
    mark = ' ';
    state = PageOperand::kNone;
    callee = word = element = each = {};
    for (PageValue* const part : {&receiver, &word_receiver, &current, &value}) part->Clear();
    arguments.clear();
    known_arguments = argument_count = 0;
  }
};

/// What a statement assigns to.
struct PageTarget {
  std::string_view name;
  bool member = false;
  bool appends = false;
  std::string_view receiver;
  PageObject object = PageObject::kNone;
  std::string_view element = {};  ///< the list it is an element of, where it has no name of its own
};

}  // namespace qiv

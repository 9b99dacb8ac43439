// The variables of a page. Of those that went it stays known what they were marked with, all together: a name that is
// not held may be any of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engines/webshell/page/held_names.h"
#include "engines/webshell/page/value.h"

namespace qiv {

/// Names are views that must outlive the object.
class CPageScopes {
 public:
  /// `room`: bytes of memory.
  explicit CPageScopes(std::size_t room) : variables_(room) {}

  /// Null for none. Until the next call that stores; the text must not be made longer through it.
  PageValue* Find(std::string_view name);
  void Store(std::string_view name, PageValue value);

  /// The marks of all variables that went; `lost` is whether anything went.
  std::uint32_t Forgotten() const { return forgotten_; }
  bool Lost() const { return variables_.Lost(); }

 private:
  CHeldNames<PageValue> variables_;
  std::uint32_t forgotten_ = 0;
};

}  // namespace qiv

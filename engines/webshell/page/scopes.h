// The variables of a page.
//
// What is held is bounded by the room that the code's length earns; ordinary pages use a tenth of it. Beyond it the
// oldest go, so that names in front of a few lines cannot take the place of theirs. Of variables that went it stays
// known what they were marked with, all together: a name that is not held may be any of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engines/webshell/page/value.h"

namespace qiv {

/// First in, first out; takes no memory while it is empty.
class CNameQueue {
 public:
  std::size_t Size() const { return names_.size() - begin_; }
  void Push(std::string_view name) { names_.push_back(name); }
  std::string_view Pop() {
    const std::string_view name = names_[begin_++];
    if (begin_ * 2 > names_.size()) {
      names_.erase(names_.begin(), names_.begin() + static_cast<std::ptrdiff_t>(begin_));
      begin_ = 0;
    }
    return name;
  }

 private:
  std::vector<std::string_view> names_;
  std::size_t begin_ = 0;  // those in front are gone
};

/// Names are views that must outlive the object.
class CPageScopes {
 public:
  /// `room`: bytes of memory.
  explicit CPageScopes(std::size_t room) : room_(room) {}

  /// Null for none. Until the next call that stores; the text must not be made longer through it.
  PageValue* Find(std::string_view name);
  void Store(std::string_view name, PageValue value);

  /// The marks of all variables that went; `lost` is whether anything went.
  std::uint32_t Forgotten() const { return forgotten_; }
  bool Lost() const { return lost_; }

 private:
  struct Variable {
    PageValue value;
    std::size_t held = 0;
  };
  void MakeRoom(std::string_view name);

  std::size_t room_;
  std::unordered_map<std::string_view, Variable> variables_;
  CNameQueue order_;  // oldest first
  std::uint32_t forgotten_ = 0;
  bool lost_ = false;
};

}  // namespace qiv

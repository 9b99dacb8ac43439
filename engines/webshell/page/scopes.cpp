#include "engines/webshell/page/scopes.h"

#include <algorithm>
#include <string>
#include <utility>

namespace qiv {
namespace {

// Of a node, its place in the table and in the order.
constexpr std::size_t kVariableBytes = 144;

std::size_t HeldBy(const PageValue& value) {
  static const std::size_t kInside = std::string().capacity();
  return kVariableBytes + (value.text.capacity() > kInside ? value.text.capacity() : 0);
}

}  // namespace

PageValue* CPageScopes::Find(std::string_view name) {
  const auto found = variables_.find(name);
  return found == variables_.end() ? nullptr : &found->second.value;
}

void CPageScopes::Store(std::string_view name, PageValue value) {
  const auto [found, is_new] = variables_.try_emplace(name);
  Variable& variable = found->second;
  room_ += variable.held;
  variable.held = 0;
  variable.value = std::move(value);
  if (is_new) order_.Push(name);
  if (HeldBy(variable.value) > room_) MakeRoom(name);
  if (HeldBy(variable.value) > room_) {  // longer than all room
    variable.value.known = false;
    std::string().swap(variable.value.text);
    lost_ = true;
  }
  variable.held = std::min(HeldBy(variable.value), room_);
  room_ -= variable.held;
}

// Until the variable of that name fits.
void CPageScopes::MakeRoom(std::string_view name) {
  const std::size_t wanted = HeldBy(variables_.find(name)->second.value);
  for (std::size_t left = order_.Size(); left > 0 && wanted > room_; --left) {
    const std::string_view oldest = order_.Pop();
    if (oldest == name) {
      order_.Push(oldest);
      continue;
    }
    const auto found = variables_.find(oldest);
    forgotten_ |= found->second.value.marks;
    room_ += found->second.held;
    variables_.erase(found);
    lost_ = true;
  }
}

}  // namespace qiv

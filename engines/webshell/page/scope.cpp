#include "engines/webshell/page/scope.h"

#include <algorithm>
#include <string>
#include <utility>

namespace qiv {
namespace {

// Of a node, its place in the table and in the order.
constexpr std::size_t kVariableBytes = 144;
constexpr std::size_t kFunctionBytes = 144;

std::size_t HeldBy(const PageValue& value) {
  static const std::size_t kInside = std::string().capacity();
  return kVariableBytes + (value.text.capacity() > kInside ? value.text.capacity() : 0);
}

std::size_t HeldBy(const PageFunction& function) {
  return kFunctionBytes + function.parameters.capacity() * sizeof(std::string_view) +
         function.marks.capacity() * sizeof(std::uint32_t);
}

}  // namespace

PageValue* CPageScope::Find(std::string_view name) {
  const auto found = variables_.find(name);
  return found == variables_.end() ? nullptr : &found->second.value;
}

void CPageScope::Store(std::string_view name, PageValue value) {
  const auto [found, is_new] = variables_.try_emplace(name);
  Variable& variable = found->second;
  variable_room_ += variable.held;
  variable.held = 0;
  variable.value = std::move(value);
  if (is_new) order_.Push(name);
  if (HeldBy(variable.value) > variable_room_) MakeRoom(name);
  if (HeldBy(variable.value) > variable_room_) {  // longer than all room
    variable.value.known = false;
    std::string().swap(variable.value.text);
    lost_ = true;
  }
  variable.held = std::min(HeldBy(variable.value), variable_room_);
  variable_room_ -= variable.held;
}

// Until the variable of that name fits.
void CPageScope::MakeRoom(std::string_view name) {
  const std::size_t wanted = HeldBy(variables_.find(name)->second.value);
  for (std::size_t left = order_.Size(); left > 0 && wanted > variable_room_; --left) {
    const std::string_view oldest = order_.Pop();
    if (oldest == name) {
      order_.Push(oldest);
      continue;
    }
    const auto found = variables_.find(oldest);
    forgotten_ |= found->second.value.marks;
    variable_room_ += found->second.held;
    variables_.erase(found);
    lost_ = true;
  }
}

PageFunction* CPageScope::FindFunction(std::string_view name) {
  const auto found = functions_.find(name);
  return found == functions_.end() ? nullptr : &found->second;
}

std::string_view CPageScope::FunctionName(std::string_view name) const {
  const auto found = functions_.find(name);
  return found == functions_.end() ? std::string_view() : found->first;
}

PageFunction& CPageScope::Declare(std::string_view name, std::vector<std::string_view> parameters) {
  const auto [found, is_new] = functions_.try_emplace(name);
  PageFunction& function = found->second;
  if (is_new) {
    function_order_.Push(name);
  } else {
    function_room_ += HeldBy(function);
  }
  function.parameters = std::move(parameters);
  if (function.marks.size() < function.parameters.size()) function.marks.resize(function.parameters.size());
  const std::size_t wanted = HeldBy(function);
  for (std::size_t left = function_order_.Size(); left > 1 && wanted > function_room_; --left) {
    const std::string_view oldest = function_order_.Pop();
    if (oldest == name) {
      function_order_.Push(oldest);
      continue;
    }
    const auto gone = functions_.find(oldest);
    function_room_ += HeldBy(gone->second);
    functions_.erase(gone);
    lost_ = true;
  }
  function_room_ -= std::min(wanted, function_room_);
  return function;
}

}  // namespace qiv

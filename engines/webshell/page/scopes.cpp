#include "engines/webshell/page/scopes.h"

#include <string>
#include <utility>

namespace qiv {
namespace {

std::size_t HeldBy(const PageValue& value) {
  static const std::size_t kInside = std::string().capacity();
  return CHeldNames<PageValue>::kEntryBytes + (value.text.capacity() > kInside ? value.text.capacity() : 0);
}

}  // namespace

PageValue* CPageScopes::Find(std::string_view name) {
  CHeldNames<PageValue>::Entry* const entry = variables_.Find(name);
  return entry == nullptr ? nullptr : &entry->thing;
}

void CPageScopes::Store(std::string_view name, PageValue value) {
  CHeldNames<PageValue>::Entry& variable = variables_.Put(name);
  variable.thing = std::move(value);
  const auto forget = [this](const PageValue& gone) { forgotten_ |= gone.marks; };
  if (!variables_.MakeRoom(name, HeldBy(variable.thing), forget)) {  // longer than all room
    variable.thing.known = false;
    std::string().swap(variable.thing.text);
    variables_.SetLost();
  }
  variables_.Hold(&variable, HeldBy(variable.thing));
}

}  // namespace qiv

#include "engines/webshell/php/scopes.h"

#include <algorithm>
#include <string>
#include <utility>

#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/sources.h"

namespace qiv {
namespace {

constexpr std::size_t kVariablePlace = 24;  // bytes, in a table that doubles at three quarters full

// Whether two values are seen to be the same. Not so of long texts and of arrays, which are not worth a look.
bool IsSame(const PhpValue& a, const PhpValue& b) {
  constexpr std::size_t kShort = 64;
  return a.origin == b.origin && a.number == b.number && a.function == b.function && a.way == b.way &&
         a.is_number == b.is_number && !a.array && !b.array && a.HasText() == b.HasText() &&
         a.Text().size() <= kShort && a.Text() == b.Text();
}

}  // namespace

void CPhpScopes::Restart(int pass) {
  pass_ = pass;
  changed_ = false;
  scope_ = kPhpFileScope;
  conditional_ = false;
}

// The place of a new variable; 0: there is no room for it.
PhpVariableKey CPhpScopes::AddVariable(std::uint32_t scope, PhpName name, std::size_t room) {
  const bool super = scope == kPhpSuperScope;  // they are few
  if (super) budget_.Hold(room);
  if (!super && !budget_.TakeFromPlenty(room)) {
    TaintAll();  // what is not followed may hold anything
    return 0;
  }
  PhpVariable& added = variables_.Push();
  added.scope = scope;
  added.name = name;
  return static_cast<PhpVariableKey>(variables_.size());
}

PhpVariableKey CPhpScopes::KeyIn(std::uint32_t scope, PhpName name) {
  if (name == kNoName) return 0;
  if ((scope == kPhpFileScope || scope == kPhpConstScope) && (name & kNumberName) == 0) {
    PhpNameFacts& facts = symbols_.FactsOf(name);
    PhpVariableKey& key = scope == kPhpFileScope ? facts.global : facts.constant;
    if (key == 0) key = AddVariable(scope, name, sizeof(PhpVariable));
    return key;
  }
  return table_.FindOrAdd(
      MixHash((std::uint64_t{scope} << 32 | name) ^ HashSeed()),
      [&](PhpVariableKey key) { return variables_[key - 1].name == name && variables_[key - 1].scope == scope; },
      [&] { return AddVariable(scope, name, sizeof(PhpVariable) + kVariablePlace); });
}

PhpVariableKey CPhpScopes::KeyOf(PhpName name) {
  if (symbols_.FactsOf(name).superglobal != 0) return KeyIn(kPhpSuperScope, name);
  const PhpVariableKey key = KeyIn(scope_, name);
  return scope_ != 0 && key != 0 && variables_[key - 1].is_global ? KeyIn(0, name) : key;
}

PhpValue CPhpScopes::Load(PhpVariableKey key) {
  PhpValue value;
  if (key == 0) {
    if (AllTainted()) value.origin |= kRequestOrigin;
    return value;
  }
  const PhpVariable& variable = variables_[key - 1];
  value = variable.value;
  if (variable.scope == kPhpSuperScope) {
    value.origin |= SuperglobalOrigin(symbols_.FactsOf(variable.name).superglobal);
  } else if (!variable.assigned) {
    if (members_tainted_ && variable.scope == kPhpMemberScope) value.origin |= kFromRequest;
    if (AllTainted() && variable.scope != kPhpMemberScope) value.origin |= kRequestOrigin;
    if (pass_ > 0 && variable.scope == 0) value.origin |= kNeverAssigned;
  }
  return value;
}

PhpOperand CPhpScopes::Lookup(PhpName name) {
  PhpOperand operand;
  operand.key = KeyOf(name);
  operand.value = Load(operand.key);
  return operand;
}

PhpValue CPhpScopes::Constant(PhpName name, std::string_view otherwise) {
  const PhpVariableKey key = symbols_.FactsOf(name).constant;
  return key != 0 && variables_[key - 1].assigned ? variables_[key - 1].value : PhpValue::OfLasting(otherwise);
}

void CPhpScopes::Store(PhpVariableKey key, const PhpValue& value, bool join) {
  if (key == 0) return;
  PhpVariable& variable = variables_[key - 1];
  const auto depth = static_cast<std::uint32_t>(stacks_.Depth());
  PhpValue stored = value;
  stored.origin &= ~static_cast<std::uint32_t>(kNeverAssigned);
  if (variable.scope == kPhpMemberScope) stored.origin &= ~static_cast<std::uint32_t>(kDerived);
  if (variable.assigned && (join || conditional_ || depth > variable.depth || variable.scope == kPhpMemberScope)) {
    const std::uint32_t keep = variable.value.origin;
    if (!stored.HasText() && !stored.array && !stored.is_number && !join) {
      stored.text = variable.value.text;
      stored.array = variable.value.array;
    }
    stored.origin |= keep;
    if (stored.function == 0) stored.function = variable.value.function;
  } else {
    changed_ = changed_ || variable.depth != depth;
    variable.depth = depth;
  }
  changed_ = changed_ || !variable.assigned || !IsSame(variable.value, stored);
  variable.value = std::move(stored);
  variable.assigned = true;
}

void CPhpScopes::StoreElement(const PhpOperand& target, const PhpValue& value) {
  if (target.key == 0) return;
  changed_ = true;
  PhpVariable& variable = variables_[target.key - 1];
  PhpValue& whole = variable.value;
  variable.assigned = true;
  whole.origin |=
      value.origin & ~static_cast<std::uint32_t>(kWholeRequest | kComputed | kArrayLiteral | kNeverAssigned);
  if (value.Has(kWholeRequest) && value.Has(kFromRequest)) whole.origin |= kWholeRequest;
  const bool known_index = target.index != kNoName;
  if (whole.HasText() && known_index && value.HasText() && value.Text().size() == 1) {
    const bool is_number = (target.index & kNumberName) != 0;
    const std::size_t at = is_number ? target.index & ~kNumberName : 0;
    if (at < kPhpMostElements && at < whole.Text().size() && budget_.Spend(whole.Text().size())) {
      std::string text(whole.Text());
      text[at] = value.Text()[0];
      whole = operators_.Made(std::move(text), whole.origin | kComputed, HidingWay::kCharacters);
    }
    return;
  }
  whole.text = {};
  if (!whole.array) whole.array = operators_.NewArray();
  PhpValue* element = nullptr;
  if (!whole.array.IsOnly()) {
    if (!budget_.HasRoom(PhpArray::RoomFor(whole.array->size())) ||
        !budget_.Spend((whole.array->size() + 1) * kPhpElementWork))
      return;
    whole.array = operators_.NewArray(&*whole.array);
  }
  PhpArray& array = *whole.array;
  // A list is short where it hides something; looking through it keeps the order.
  if (known_index && budget_.Spend(array.size() / 2)) element = const_cast<PhpValue*>(array.Find(target.index));
  if (element != nullptr) {
    array.Set(element, value);
  } else if (array.size() < kPhpMostElements &&
             (array.size() < array.elements.capacity() || budget_.HasRoom(PhpArray::RoomFor(2 * array.size() + 1)))) {
    array.Add(known_index ? target.index : NameOfNumber(array.size()), value);
  }
  if (!operators_.Account(&array)) whole.array = {};
}

void CPhpScopes::Assign(std::uint32_t code, PhpOperand& target, PhpValue value) {
  if (target.request_named && code == PhpOperator("=")) TaintAll();
  if (target.list) {
    for (std::size_t i = 0; i < target.list->size(); ++i) {
      const bool known = value.array && i < value.array->size();
      Store((*target.list)[i], known ? (*value.array)[i].second : value.Taint(), false);
    }
    return;
  }
  if (target.key == 0) return;
  const PhpVariable& assigned = variables_[target.key - 1];
  if (assigned.scope == kPhpSuperScope && symbols_.Text(assigned.name) == "GLOBALS" && !target.indexed && value.array &&
      budget_.Spend(value.array->size() * kPhpElementWork)) {
    for (const auto& [name, element] : *value.array) Store(KeyIn(0, name), element, false);
    return;
  }
  if (code != PhpOperator("=")) {
    PhpValue old = std::move(target.value);
    // The variable lets go of its text, which then can be added to in place.
    if (!target.indexed) variables_[target.key - 1].value.text = {};
    changed_ = true;
    if (code == PhpOperator("?\?=")) {
      value.Join(old);
    } else {
      value = operators_.Binary(code >> 8, std::move(old), value);
    }
  }
  if (!target.indexed) return Store(target.key, value, false);
  if (code == PhpOperator(".=") && target.index == kNoName) value.text = {};
  StoreElement(target, value);
}

PhpOperand CPhpScopes::Element(const PhpOperand& base, const PhpValue* index) {
  PhpOperand operand;
  operand.key = base.indexed ? 0 : base.key;
  operand.indexed = true;
  operand.index = index != nullptr ? symbols_.IndexOf(*index) : kNoName;
  const bool is_super = operand.key != 0 && variables_[operand.key - 1].scope == kPhpSuperScope;
  const std::string_view super = is_super ? symbols_.Text(variables_[operand.key - 1].name) : std::string_view();
  if (super == "GLOBALS") {
    if (operand.index == kNoName) return operand;
    operand.key = KeyIn(symbols_.FactsOf(operand.index).superglobal != 0 ? kPhpSuperScope : 0, operand.index);
    operand.value = Load(operand.key);
    if (index->Has(kComputed) && operand.value.Has(kWholeRequest)) {
      operand.value.origin |= kComputed;
      operand.value.way = index->way;
    }
    operand.indexed = false;
    return operand;
  }
  if (base.value.Has(kServerList)) {
    operand.value.origin = operand.index != kNoName ? ServerOrigin(symbols_.Text(operand.index)) : kServerList;
    if ((operand.index & kNumberName) != 0) operand.value.origin = kFromRequest;
    return operand;
  }
  operand.value = base.value.Taint();
  operand.value.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kComputed);
  if (base.value.Has(kFromUpload)) {
    const std::string_view part = symbols_.Text(operand.index);
    if (part == "tmp_name") operand.value.origin |= kTempUpload;
    if (part == "name" || part == "type") operand.value.origin |= kFromRequest;
  }
  if (super == "_SESSION") operand.value.origin |= kNeverAssigned;
  if (operand.index == kNoName) {
    if (base.value.array && base.value.array->size() != 0) operand.value = operators_.Each(base.value);
    return operand;
  }
  if (base.value.array && budget_.Spend(base.value.array->size() / 2)) {
    if (const PhpValue* const element = base.value.array->Find(operand.index)) {
      operand.value = *element;
      if (is_super)
        operand.value.origin |= SuperglobalOrigin(symbols_.FactsOf(variables_[operand.key - 1].name).superglobal);
    }
  } else if (base.value.HasText() && index->is_number) {
    const auto size = static_cast<std::int64_t>(base.value.Text().size());
    const std::int64_t at = index->number < 0 ? size + index->number : index->number;
    if (at >= 0 && at < size) {
      operand.value = PhpValue::OfByte(base.value.Text()[static_cast<std::size_t>(at)], base.value.origin | kComputed,
                                       HidingWay::kCharacters);
    }
  }
  return operand;
}

void CPhpScopes::MakeGlobal(PhpName name) {
  const PhpVariableKey key = KeyOf(name);
  if (key == 0) return;
  changed_ = changed_ || !variables_[key - 1].is_global;
  variables_[key - 1].is_global = true;
}

void CPhpScopes::TaintMembers() {
  changed_ = true;
  if (!budget_.Spend(variables_.size())) return;
  for (std::size_t i = 0; i < variables_.size(); ++i) {
    PhpVariable& variable = variables_[i];
    if (variable.scope == kPhpMemberScope && variable.assigned) variable.value.origin |= kFromRequest;
  }
}

}  // namespace qiv

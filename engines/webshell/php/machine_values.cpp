// Variables and operators of the walk over a PHP file.
#include <algorithm>
#include <array>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {
namespace {

struct Superglobal {
  std::string_view name;
  std::uint32_t origin;
};

constexpr std::uint32_t kRequest = kFromRequest | kWholeRequest;
constexpr Superglobal kSuperglobals[] = {
    {"_GET", kRequest},
    {"_POST", kRequest},
    {"_COOKIE", kRequest},
    {"_REQUEST", kRequest},
    {"HTTP_GET_VARS", kRequest},
    {"HTTP_POST_VARS", kRequest},
    {"HTTP_COOKIE_VARS", kRequest},
    {"HTTP_RAW_POST_DATA", kRequest},
    {"_FILES", kFromUpload},
    {"HTTP_POST_FILES", kFromUpload},
    {"_SERVER", kServerList},
    {"HTTP_SERVER_VARS", kServerList},
    {"_ENV", 0},
    {"GLOBALS", 0},
    {"_SESSION", 0},
};

// The elements of $_SERVER that the client writes.
bool IsClientHeader(std::string_view key) {
  return (key.starts_with("HTTP_") && key != "HTTP_HOST" && key != "HTTP_HTTPS") || key == "QUERY_STRING" ||
         key == "PATH_INFO" || key == "ORIG_PATH_INFO" || key == "PHP_AUTH_USER" || key == "PHP_AUTH_PW";
}

// What an element of $_SERVER tells.
std::uint32_t ServerOrigin(std::string_view key) {
  if (IsClientHeader(key)) return kRequest;
  if (key == "SCRIPT_FILENAME" || key == "PATH_TRANSLATED" || key == "PHP_SELF" || key == "SCRIPT_NAME") {
    return kOwnFile | kHostFacts;
  }
  if (key == "DOCUMENT_ROOT" || key == "SERVER_ADDR" || key == "SERVER_NAME" || key == "REQUEST_URI" ||
      key == "HTTP_HOST") {
    return kHostFacts;
  }
  return !key.empty() && IsDigit(key[0]) ? std::uint32_t{kFromRequest} : 0;
}

}  // namespace

std::uint8_t SuperglobalNumber(std::string_view name) {
  const auto found = std::find_if(std::begin(kSuperglobals), std::end(kSuperglobals),
                                  [name](const Superglobal& global) { return global.name == name; });
  return found == std::end(kSuperglobals) ? 0 : static_cast<std::uint8_t>(found - std::begin(kSuperglobals) + 1);
}

// A text that was put together; a value without it when there is no room to hold it.
PhpValue CPhpMachine::Made(std::string text, std::uint32_t origin, HidingWay way) {
  PhpValue value = PhpValue::OfText(std::move(text), origin, way);
  value.text.Hold(&budget_);
  if (budget_.IsOverdrawn()) value.text = {};
  return value;
}

// Whether a value's text holds another; no, when it is longer than the budget allows to read.
bool CPhpMachine::Holds(const PhpValue& value, std::string_view text) {
  constexpr std::size_t kShort = 256;  // bytes that are read whatever the budget
  return (value.Text().size() <= kShort || Spend(value.Text().size() / 4)) &&
         value.Text().find(text) != std::string_view::npos;
}

// Whether two texts are known to be the same.
bool CPhpMachine::SameText(const PhpValue& a, const PhpValue& b) {
  const std::string_view x = a.Text();
  const std::string_view y = b.Text();
  constexpr std::size_t kShort = 64;  // bytes that are read whatever the budget
  return x.size() == y.size() && (x.data() == y.data() || ((x.size() <= kShort || Spend(x.size())) && x == y));
}

CPhpShare<PhpArray> CPhpMachine::NewArray(const PhpArray* copied) {
  CPhpShare<PhpArray> array(new PhpArray);
  if (copied != nullptr) {
    array->elements = copied->elements;
    array->depth = copied->depth;
  }
  return array;
}

// Counts what the array holds now; false: there is no room to hold it.
bool CPhpMachine::Account(PhpArray* array) {
  array->Hold(&budget_);
  return !budget_.IsOverdrawn();
}

// The place of a new variable; 0: there is no room for it.
CPhpMachine::VariableKey CPhpMachine::AddVariable(std::uint32_t scope, PhpName name, std::size_t room) {
  const bool super = scope == kSuperScope;  // they are few
  if (super) budget_.Hold(room);
  if (!super && !budget_.TakeFromPlenty(room)) {
    request_variables_ = true;  // what is not followed may hold anything
    return 0;
  }
  Variable& added = variables_.Push();
  added.scope = scope;
  added.name = name;
  return static_cast<VariableKey>(variables_.size());
}

CPhpMachine::VariableKey CPhpMachine::KeyIn(std::uint32_t scope, PhpName name) {
  if (name == kNoName) return 0;
  if ((scope == 0 || scope == kConstScope) && (name & kNumberName) == 0) {
    NameFacts& facts = FactsOf(name);
    VariableKey& key = scope == 0 ? facts.global : facts.constant;
    if (key == 0) key = AddVariable(scope, name, sizeof(Variable));
    return key;
  }
  return variable_table_.FindOrAdd(
      MixHash((std::uint64_t{scope} << 32 | name) ^ HashSeed()),
      [&](VariableKey key) { return variables_[key - 1].name == name && variables_[key - 1].scope == scope; },
      [&] { return AddVariable(scope, name, sizeof(Variable) + kVariablePlace); });
}

CPhpMachine::VariableKey CPhpMachine::KeyOf(PhpName name) {
  if (FactsOf(name).superglobal != 0) return KeyIn(kSuperScope, name);
  const VariableKey key = KeyIn(scope_, name);
  return scope_ != 0 && key != 0 && variables_[key - 1].is_global ? KeyIn(0, name) : key;
}

PhpValue CPhpMachine::Load(VariableKey key) {
  PhpValue value;
  if (key == 0) {
    if (request_variables_) value.origin |= kRequest;
    return value;
  }
  const Variable& variable = variables_[key - 1];
  value = variable.value;
  if (variable.scope == kSuperScope) {
    value.origin |= kSuperglobals[FactsOf(variable.name).superglobal - 1].origin;
  } else if (!variable.assigned) {
    if (unserialized_ && variable.scope == kMemberScope) value.origin |= kFromRequest;
    if (request_variables_ && variable.scope != kMemberScope) value.origin |= kRequest;
    if (pass_ > 0 && variable.scope == 0) value.origin |= kNeverAssigned;
  }
  return value;
}

CPhpMachine::Operand CPhpMachine::Lookup(PhpName name) {
  Operand operand;
  operand.key = KeyOf(name);
  operand.value = Load(operand.key);
  return operand;
}

// A value stored on a deeper level than the last one, or in a branch, adds to it: either may hold.
void CPhpMachine::Store(VariableKey key, const PhpValue& value, bool join) {
  if (key == 0) return;
  Variable& variable = variables_[key - 1];
  const auto depth = static_cast<std::uint32_t>(frames_.size());
  PhpValue stored = value;
  stored.origin &= ~static_cast<std::uint32_t>(kNeverAssigned);
  if (variable.scope == kMemberScope) stored.origin &= ~static_cast<std::uint32_t>(kDerived);
  if (variable.assigned && (join || weak_ || depth > variable.depth || variable.scope == kMemberScope)) {
    const std::uint32_t keep = variable.value.origin;
    if (!stored.HasText() && !stored.array && !stored.is_number && !join) {
      stored.text = variable.value.text;
      stored.array = variable.value.array;
    }
    stored.origin |= keep;
    if (stored.function == 0) stored.function = variable.value.function;
  } else {
    variable.depth = depth;
  }
  variable.value = std::move(stored);
  variable.assigned = true;
}

void CPhpMachine::StoreElement(const Operand& target, const PhpValue& value) {
  if (target.key == 0) return;
  Variable& variable = variables_[target.key - 1];
  PhpValue& whole = variable.value;
  variable.assigned = true;
  whole.origin |=
      value.origin & ~static_cast<std::uint32_t>(kWholeRequest | kComputed | kArrayLiteral | kNeverAssigned);
  if (value.Has(kWholeRequest) && value.Has(kFromRequest)) whole.origin |= kWholeRequest;
  const bool known_index = target.index != kNoName;
  if (whole.HasText() && known_index && value.HasText() && value.Text().size() == 1) {
    const bool is_number = (target.index & kNumberName) != 0;
    const std::size_t at = is_number ? target.index & ~kNumberName : 0;
    if (at < kMostElements && at < whole.Text().size() && Spend(whole.Text().size())) {
      std::string text(whole.Text());
      text[at] = value.Text()[0];
      whole = Made(std::move(text), whole.origin | kComputed, HidingWay::kCharacters);
    }
    return;
  }
  whole.text = {};
  if (!whole.array) whole.array = NewArray();
  PhpValue* element = nullptr;
  if (!whole.array.IsOnly()) {
    if (!budget_.HasRoom(PhpArray::RoomFor(whole.array->size())) || !Spend((whole.array->size() + 1) * kElementWork))
      return;
    whole.array = NewArray(&*whole.array);
  }
  PhpArray& array = *whole.array;
  // A list is short where it hides something; looking through it keeps the order.
  if (known_index && Spend(array.size() / 2)) element = const_cast<PhpValue*>(array.Find(target.index));
  if (element != nullptr) {
    array.Set(element, value);
  } else if (array.size() < kMostElements &&
             (array.size() < array.elements.capacity() || budget_.HasRoom(PhpArray::RoomFor(2 * array.size() + 1)))) {
    array.Add(known_index ? target.index : NameOfNumber(array.size()), value);
  }
  if (!Account(&array)) whole.array = {};
}

void CPhpMachine::Assign(std::uint32_t code, Operand& target, PhpValue value) {
  if (target.request_named && code == PhpOperator("=")) request_variables_ = true;
  if (target.list) {
    for (std::size_t i = 0; i < target.list->size(); ++i) {
      const bool known = value.array && i < value.array->size();
      Store((*target.list)[i], known ? (*value.array)[i].second : value.Taint(), false);
    }
    return;
  }
  if (target.key == 0) return;
  const Variable& assigned = variables_[target.key - 1];
  if (assigned.scope == kSuperScope && names_.Text(assigned.name) == "GLOBALS" && !target.indexed && value.array &&
      Spend(value.array->size() * kElementWork)) {
    for (const auto& [name, element] : *value.array) Store(KeyIn(0, name), element, false);
    return;
  }
  if (code != PhpOperator("=")) {
    PhpValue old = std::move(target.value);
    // The variable lets go of its text, which then can be added to in place.
    if (!target.indexed) variables_[target.key - 1].value.text = {};
    if (code == PhpOperator("?\?=")) {
      value.Join(old);
    } else {
      value = Binary(code >> 8, std::move(old), value);
    }
  }
  if (!target.indexed) return Store(target.key, value, false);
  if (code == PhpOperator(".=") && target.index == kNoName) value.text = {};
  StoreElement(target, value);
}

// "$x++" counts letters too, which some files spell names with.
void CPhpMachine::Increment(std::uint32_t code, bool prefix) {
  if (prefix) {
    if (!Next() || Next()->kind != PhpTokenKind::kVariable) return PushPending(code, kUnary, true);
    tokens_.Advance();
    OnVariable(tokens_.At());
  }
  if (values_.size() <= frames_.back().values) return;
  Operand& operand = values_.back();
  const PhpValue old = operand.value;
  PhpValue value = old.Taint();
  const int step = code == PhpOperator("++") ? 1 : -1;
  if (old.is_number) {
    value = PhpValue::OfNumber(old.number + step);
  } else if (old.HasText() && old.Text().size() == 1 && IsLetter(old.Text()[0]) && step == 1) {
    const char c = old.Text()[0];
    value = Made(c == 'z'   ? "aa"
                 : c == 'Z' ? "AA"
                            : std::string(1, static_cast<char>(c + 1)),
                 old.origin | kComputed, HidingWay::kCharacters);
  } else if (!old.HasText() && !old.array && old.origin == 0) {
    value = PhpValue::OfNumber(step);
  }
  Assign(PhpOperator("="), operand, value);
  operand.value = prefix ? value : old;
  operand_next_ = false;
}

// A left side that nobody else holds is added to in place, so that a long chain costs what it holds.
PhpValue CPhpMachine::Concatenate(PhpValue left, const PhpValue& right) {
  PhpValue result = left.Taint();
  result.Join(right);
  result.origin &= ~static_cast<std::uint32_t>(kWholeRequest | kArrayLiteral | kClosure | kOwnFile | kRemotePath);
  const bool left_empty = left.HasText() && left.Text().empty();
  const bool remote = left.Has(kRemotePath) || IsRemoteAddress(left.Text());
  if (remote || (left_empty && right.Has(kRemotePath))) result.origin |= kRemotePath;
  if (left.Has(kWholeRequest) || (left_empty && right.Has(kWholeRequest))) result.origin |= kWholeRequest;
  std::string a;
  std::string b;
  const bool in_place = left.HasText() && left.text.IsOnly();
  if ((!left.HasText() && !left.is_number && !left.array) || !Spend(right.Text().size() + 1) ||
      (!right.HasText() && !PhpTextOf(right, &b)) ||
      (!in_place && (!Spend(left.Text().size()) || !PhpTextOf(left, &a)))) {
    return result;
  }
  const std::string_view more = right.HasText() ? right.Text() : b;
  const bool joined = !more.empty() && !(in_place ? left.Text() : std::string_view(a)).empty();
  if (joined) {
    result.origin |= kComputed;
    if (result.way == HidingWay::kNone) result.way = HidingWay::kConcatenation;
  }
  if (!budget_.HasRoom(CPhpText::RoomFor(2 * (left.Text().size() + a.size() + more.size())))) return result;
  if (in_place) {
    result.text = std::move(left.text);
    result.text.Append(more);
  } else {
    result.text = CPhpText(std::move(a.append(more)));
  }
  result.text.Hold(&budget_);
  return result;
}

PhpValue CPhpMachine::Bitwise(std::uint32_t code, const PhpValue& left, const PhpValue& right) {
  if (left.is_number && right.is_number) {
    switch (code) {
      case PhpOperator("^"):
        return PhpValue::OfNumber(left.number ^ right.number);
      case PhpOperator("|"):
        return PhpValue::OfNumber(left.number | right.number);
      case PhpOperator("&"):
        return PhpValue::OfNumber(left.number & right.number);
      default:
        return PhpValue::OfNumber(~left.number);
    }
  }
  PhpValue result = left.Taint();
  result.Join(right);
  result.origin |= kComputed | kDecoded;
  if (result.way == HidingWay::kNone) result.way = HidingWay::kCharacters;
  const std::size_t size = code == PhpOperator("|") ? std::max(left.Text().size(), right.Text().size())
                                                    : std::min(left.Text().size(), right.Text().size());
  if (left.is_number || right.is_number || !(left.HasText() || left.array) || !(right.HasText() || right.array) ||
      !budget_.HasRoom(CPhpText::RoomFor(size)) || !Spend(left.Text().size() + right.Text().size())) {
    return result;
  }
  constexpr std::string_view kArray = "Array";
  std::string_view longer = left.HasText() ? left.Text() : kArray;
  std::string_view shorter = right.HasText() ? right.Text() : kArray;
  if (longer.size() < shorter.size()) std::swap(longer, shorter);
  std::string made(code == PhpOperator("|") ? longer : longer.substr(0, shorter.size()));
  const auto combine = [&](auto&& operation) {
    std::transform(shorter.begin(), shorter.end(), made.begin(), made.begin(),
                   [&](char x, char y) { return static_cast<char>(operation(x, y)); });
  };
  switch (code) {
    case PhpOperator("^"):
      combine([](char x, char y) { return x ^ y; });
      break;
    case PhpOperator("|"):
      combine([](char x, char y) { return x | y; });
      break;
    case PhpOperator("&"):
      combine([](char x, char y) { return x & y; });
      break;
    default:
      combine([](char x, char) { return ~x; });
  }
  if (made.size() == 1) return PhpValue::OfByte(made[0], result.origin, result.way);
  result.text = CPhpText(std::move(made));
  result.text.Hold(&budget_);
  return result;
}

PhpValue CPhpMachine::Binary(std::uint32_t code, PhpValue left, const PhpValue& right) {
  switch (code) {
    case PhpOperator("."):
      return Concatenate(std::move(left), right);
    case PhpOperator("^"):
    case PhpOperator("|"):
    case PhpOperator("&"):
      return Bitwise(code, left, right);
    case PhpOperator("?\?"): {
      PhpValue result = left.HasText() || left.array || left.function != 0 ? left : right;
      const PhpValue& other = left.HasText() || left.array || left.function != 0 ? right : left;
      result.Join(other);
      return result;
    }
    default:
      break;
  }
  if (!left.is_number || !right.is_number) {
    PhpValue result;  // characters of the request that are being decoded
    if (code == PhpOperator("+") || code == PhpOperator("-") || code == PhpOperator("*") || code == PhpOperator("%")) {
      if (left.Has(kDecoded)) result.Join(left.Taint());
      if (right.Has(kDecoded)) result.Join(right.Taint());
      result.origin &= kFromRequest | kDecoded;
    }
    return result;
  }
  constexpr std::int64_t kMost = std::int64_t{1} << 30;
  const std::int64_t a = std::clamp(left.number, -kMost, kMost);
  const std::int64_t b = std::clamp(right.number, -kMost, kMost);
  switch (code) {
    case PhpOperator("+"):
      return PhpValue::OfNumber(a + b);
    case PhpOperator("-"):
      return PhpValue::OfNumber(a - b);
    case PhpOperator("*"):
      return PhpValue::OfNumber(a * b);
    case PhpOperator("/"):
      return b != 0 ? PhpValue::OfNumber(a / b) : PhpValue();
    case PhpOperator("%"):
      return b != 0 ? PhpValue::OfNumber(a % b) : PhpValue();
    default:
      return {};
  }
}

// The name of an element; none when it is not known.
PhpName CPhpMachine::IndexOf(const PhpValue& value) {
  constexpr std::int64_t kMostNumber = 1000000000;  // fits the number of a name
  if (value.is_number && value.number >= 0 && value.number < kMostNumber) {
    return NameOfNumber(static_cast<std::size_t>(value.number));
  }
  if (!value.is_number && value.HasText()) return NameOf(value.Text());
  std::string text;
  return PhpTextOf(value, &text) ? NameOf(text) : kNoName;
}

// base[index]; index is null for "[]".
CPhpMachine::Operand CPhpMachine::Element(const Operand& base, const PhpValue* index) {
  Operand operand;
  operand.key = base.indexed ? 0 : base.key;
  operand.indexed = true;
  operand.index = index != nullptr ? IndexOf(*index) : kNoName;
  const bool is_super = operand.key != 0 && variables_[operand.key - 1].scope == kSuperScope;
  const std::string_view super = is_super ? names_.Text(variables_[operand.key - 1].name) : std::string_view();
  if (super == "GLOBALS") {
    if (operand.index == kNoName) return operand;
    operand.key = KeyIn(FactsOf(operand.index).superglobal != 0 ? kSuperScope : 0, operand.index);
    operand.value = Load(operand.key);
    if (index->Has(kComputed) && operand.value.Has(kWholeRequest)) {
      operand.value.origin |= kComputed;
      operand.value.way = index->way;
    }
    operand.indexed = false;
    return operand;
  }
  if (base.value.Has(kServerList)) {
    operand.value.origin = operand.index != kNoName ? ServerOrigin(names_.Text(operand.index)) : kServerList;
    if ((operand.index & kNumberName) != 0) operand.value.origin = kFromRequest;
    return operand;
  }
  operand.value = base.value.Taint();
  operand.value.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kComputed);
  if (base.value.Has(kFromUpload)) {
    const std::string_view part = names_.Text(operand.index);
    if (part == "tmp_name") operand.value.origin |= kTempUpload;
    if (part == "name" || part == "type") operand.value.origin |= kFromRequest;
  }
  if (super == "_SESSION") operand.value.origin |= kNeverAssigned;
  if (operand.index == kNoName) {
    if (base.value.array && base.value.array->size() != 0) operand.value = Each(base.value);
    return operand;
  }
  if (base.value.array && Spend(base.value.array->size() / 2)) {
    if (const PhpValue* const element = base.value.array->Find(operand.index)) {
      operand.value = *element;
      if (is_super)
        operand.value.origin |= kSuperglobals[FactsOf(variables_[operand.key - 1].name).superglobal - 1].origin;
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

// What "foreach" gives of a list: the origins of all elements and the text of the first.
PhpValue CPhpMachine::Each(const PhpValue& list) {
  PhpValue value = list.Taint();
  if (value.Has(kServerList)) value.origin |= kFromRequest;
  value.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kServerList);
  if (list.array && list.array->size() != 0) {
    value.text = (*list.array)[0].second.text;
    value.array = (*list.array)[0].second.array;
  }
  return value;
}

}  // namespace qiv

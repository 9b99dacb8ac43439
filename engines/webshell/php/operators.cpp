#include "engines/webshell/php/operators.h"

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/tokens.h"

namespace qiv {

bool IsPhpAssignment(std::uint32_t code) {
  switch (code) {
    case PhpOperator("="):
    case PhpOperator(".="):
    case PhpOperator("+="):
    case PhpOperator("-="):
    case PhpOperator("*="):
    case PhpOperator("/="):
    case PhpOperator("%="):
    case PhpOperator("^="):
    case PhpOperator("|="):
    case PhpOperator("&="):
    case PhpOperator("?\?="):
    case PhpOperator("<<="):
    case PhpOperator(">>="):
    case PhpOperator("**="):
      return true;
    default:
      return false;
  }
}

int PhpBinaryPrecedence(std::uint32_t code) {
  switch (code) {
    case PhpOperator("**"):
      return 15;
    case PhpOperator("*"):
    case PhpOperator("/"):
    case PhpOperator("%"):
      return 13;
    case PhpOperator("+"):
    case PhpOperator("-"):
    case PhpOperator("."):
      return 12;
    case PhpOperator("<<"):
    case PhpOperator(">>"):
      return 11;
    case PhpOperator("<"):
    case PhpOperator(">"):
    case PhpOperator("<="):
    case PhpOperator(">="):
      return 10;
    case PhpOperator("=="):
    case PhpOperator("!="):
    case PhpOperator("<>"):
    case PhpOperator("==="):
    case PhpOperator("!=="):
    case PhpOperator("<=>"):
      return 9;
    case PhpOperator("&"):
      return 8;
    case PhpOperator("^"):
      return 7;
    case PhpOperator("|"):
      return 6;
    case PhpOperator("&&"):
    case PhpOperator("||"):
      return 5;
    case PhpOperator("?\?"):
      return 4;
    default:
      return -1;
  }
}

PhpValue CPhpOperators::Made(std::string text, std::uint32_t origin, HidingWay way) {
  PhpValue value = PhpValue::OfText(std::move(text), origin, way);
  value.text.Hold(&budget_);
  if (budget_.IsOverdrawn()) value.text = {};
  return value;
}

PhpValue CPhpOperators::Concatenate(PhpValue left, const PhpValue& right) {
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
  if ((!left.HasText() && !left.is_number && !left.array) || !budget_.Spend(right.Text().size() + 1) ||
      (!right.HasText() && !PhpTextOf(right, &b)) ||
      (!in_place && (!budget_.Spend(left.Text().size()) || !PhpTextOf(left, &a)))) {
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

PhpValue CPhpOperators::Bitwise(std::uint32_t code, const PhpValue& left, const PhpValue& right) {
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
      !budget_.HasRoom(CPhpText::RoomFor(size)) || !budget_.Spend(left.Text().size() + right.Text().size())) {
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

PhpValue CPhpOperators::Binary(std::uint32_t code, PhpValue left, const PhpValue& right) {
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

PhpValue CPhpOperators::Stepped(std::uint32_t code, const PhpValue& old) {
  const int step = code == PhpOperator("++") ? 1 : -1;
  if (old.is_number) return PhpValue::OfNumber(old.number + step);
  if (old.HasText() && old.Text().size() == 1 && IsLetter(old.Text()[0]) && step == 1) {
    const char c = old.Text()[0];
    return Made(c == 'z'   ? "aa"
                : c == 'Z' ? "AA"
                           : std::string(1, static_cast<char>(c + 1)),
                old.origin | kComputed, HidingWay::kCharacters);
  }
  return !old.HasText() && !old.array && old.origin == 0 ? PhpValue::OfNumber(step) : old.Taint();
}

PhpValue CPhpOperators::Each(const PhpValue& list) {
  PhpValue value = list.Taint();
  if (value.Has(kServerList)) value.origin |= kFromRequest;
  value.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kServerList);
  if (list.array && list.array->size() != 0) {
    value.text = (*list.array)[0].second.text;
    value.array = (*list.array)[0].second.array;
  }
  return value;
}

bool CPhpOperators::Holds(const PhpValue& value, std::string_view text) {
  constexpr std::size_t kShort = 256;  // bytes that are read whatever the budget
  return (value.Text().size() <= kShort || budget_.Spend(value.Text().size() / 4)) &&
         value.Text().find(text) != std::string_view::npos;
}

bool CPhpOperators::SameText(const PhpValue& a, const PhpValue& b) {
  const std::string_view x = a.Text();
  const std::string_view y = b.Text();
  constexpr std::size_t kShort = 64;  // bytes that are read whatever the budget
  return x.size() == y.size() && (x.data() == y.data() || ((x.size() <= kShort || budget_.Spend(x.size())) && x == y));
}

CPhpShare<PhpArray> CPhpOperators::NewArray(const PhpArray* copied) {
  CPhpShare<PhpArray> array(new PhpArray);
  if (copied != nullptr) {
    array->elements = copied->elements;
    array->depth = copied->depth;
  }
  return array;
}

bool CPhpOperators::Account(PhpArray* array) {
  array->Hold(&budget_);
  return !budget_.IsOverdrawn();
}

}  // namespace qiv

#include "engines/webshell/php/builtins.h"

#include <algorithm>
#include <array>
#include <deque>
#include <string>
#include <unordered_map>
#include <utility>

#include "common/char_set.h"
#include "common/inflate.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"

namespace qiv {
namespace {

using Kind = PhpFunctionKind;

constexpr auto kDangerous = PhpFunction::kDangerous;
constexpr auto kTool = PhpFunction::kTool;
constexpr auto kMeasure = PhpFunction::kMeasure;
constexpr auto kPlain = PhpFunction::kPlain;

constexpr PhpFunction kFunctions[] = {
#include "engines/webshell/php/functions.inc"
};

using FunctionMap = std::unordered_map<std::string_view, const PhpFunction*>;

const FunctionMap& Functions() {
  static const FunctionMap map = [] {
    FunctionMap built;
    for (const PhpFunction& function : kFunctions) built.emplace(function.name, &function);
    return built;
  }();
  return map;
}

// What a list of PHP costs to make or copy for each element, in bytes of text.
constexpr std::size_t kElementWork = 64;
constexpr std::size_t kMostElements = 4096;  // of an array that is followed; more of them are data

using Texts = std::vector<std::string_view>;

// The texts of all arguments, or false. `numbers` keeps those of numbers.
bool TextsOf(std::span<const PhpValue> arguments, std::deque<std::string>* numbers, Texts* texts) {
  for (const PhpValue& argument : arguments) {
    if (argument.array) return false;
    if (argument.is_number) {
      texts->push_back(numbers->emplace_back(std::to_string(argument.number)));
    } else if (argument.HasText()) {
      texts->push_back(argument.Text());
    } else {
      return false;
    }
  }
  return !texts->empty();
}

// Whether a text of that many bytes may be made; pays for it.
bool MayMake(std::size_t bytes, CFlowBudget* budget) {
  return budget->HasRoom(CPhpText::RoomFor(bytes)) && budget->Spend(bytes);
}

std::string_view Substring(std::string_view text, std::int64_t start, bool has_length, std::int64_t length) {
  const auto size = static_cast<std::int64_t>(text.size());
  if (start < 0) start = std::max<std::int64_t>(0, size + start);
  if (start >= size) return {};
  std::int64_t end = size;
  if (has_length) end = length < 0 ? size + length : std::min(size, start + std::min(length, size));
  return end <= start ? std::string_view()
                      : text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

// strtr() with two lists of bytes.
std::string Translate(std::string_view source, std::string_view from, std::string_view to) {
  std::string text(source);
  std::array<char, 256> map{};
  for (int i = 0; i < 256; ++i) map[static_cast<std::size_t>(i)] = static_cast<char>(i);
  for (std::size_t i = 0; i < std::min(from.size(), to.size()); ++i) map[static_cast<unsigned char>(from[i])] = to[i];
  for (char& c : text) c = map[static_cast<unsigned char>(c)];
  return text;
}

std::string ReplaceNoCase(const std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  const std::string lower = CCharSet::LowerAscii(text);
  const std::string what = CCharSet::LowerAscii(from);
  std::string result;
  std::size_t at = 0;
  for (std::size_t p = lower.find(what); p != std::string::npos; p = lower.find(what, at)) {
    result.append(text, at, p - at).append(to);
    at = p + what.size();
  }
  return result.append(text, at);
}

// str_replace(); search and replacement may be arrays.
bool Replace(std::span<const PhpValue> a, bool no_case, CFlowBudget* budget, std::string* text) {
  constexpr std::size_t kMostPairs = 64;  // more of them are data, no disguise
  if (a.size() < 3 || !PhpTextOf(a[2], text)) return false;
  const std::size_t pairs = a[0].array ? a[0].array->size() : 1;
  if (pairs > kMostPairs) return false;
  for (std::size_t i = 0; i < pairs; ++i) {
    std::string from;
    std::string to;
    if (!PhpTextOf(a[0].array ? (*a[0].array)[i].second : a[0], &from)) return false;
    if (a[1].array) {
      if (i < a[1].array->size() && !PhpTextOf((*a[1].array)[i].second, &to)) return false;
    } else if (!PhpTextOf(a[1], &to)) {
      return false;
    }
    if (from.empty()) continue;
    const std::size_t grown =
        to.size() > from.size() ? text->size() / from.size() * (to.size() - from.size()) : std::size_t{0};
    if (!MayMake(text->size() + grown + from.size() + to.size(), budget)) return false;
    *text = no_case ? ReplaceNoCase(*text, from, to) : ReplaceAll(*text, from, to);
  }
  return true;
}

bool Join(std::span<const PhpValue> a, CFlowBudget* budget, std::string* text) {
  if (a.empty()) return false;
  const PhpValue& list = a[0].array ? a[0] : a.back();
  const PhpValue& glue_value = a[0].array ? a.back() : a[0];
  if (!list.array) return false;
  std::string glue;
  if (a.size() > 1 && !PhpTextOf(glue_value, &glue)) return false;
  constexpr std::size_t kNumber = 20;  // bytes of a number, or "Array"
  std::size_t bytes = 0;
  for (const auto& [key, element] : *list.array) bytes += std::max(element.Text().size(), kNumber) + glue.size();
  if (!MayMake(bytes, budget)) return false;
  for (const auto& [key, element] : *list.array) {
    std::string piece;
    if (!PhpTextOf(element, &piece)) return false;
    if (!text->empty()) *text += glue;
    *text += piece;
  }
  return true;
}

// A list that is paid for piece by piece.
class CListMaker {
 public:
  explicit CListMaker(CFlowBudget* budget) : budget_(budget), array_(new PhpArray) {}

  // False: there may be no more of them.
  bool Add(std::string_view piece) {
    if (array_->size() >= kMostElements || !budget_->Spend(kElementWork + piece.size())) return false;
    PhpValue value =
        piece.size() == 1 ? PhpValue::OfByte(piece[0], 0, HidingWay::kNone) : PhpValue::OfText(std::string(piece));
    value.text.Hold(budget_);
    array_->Add(NameOfNumber(array_->size()), value);
    array_->Hold(budget_);
    return !budget_->IsOverdrawn();
  }
  PhpValue Take() {
    PhpValue value;
    value.array = std::move(array_);
    return value;
  }

 private:
  CFlowBudget* budget_;
  CPhpShare<PhpArray> array_;
};

bool Explode(std::string_view name, const Texts& t, CFlowBudget* budget, PhpValue* value) {
  CListMaker list(budget);
  if (name == "explode" && t.size() >= 2 && !t[0].empty()) {
    for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + t[0].size()) {
      end = t[1].find(t[0], begin);
      if (!list.Add(t[1].substr(begin, end == std::string_view::npos ? end : end - begin))) return false;
    }
  } else if (name == "str_split" && t[0].size() <= kMostElements) {
    const auto width = static_cast<std::size_t>(t.size() > 1 ? std::max(1, ToNumber(t[1])) : 1);
    for (std::size_t i = 0; i < t[0].size(); i += width) {
      if (!list.Add(t[0].substr(i, width))) return false;
    }
  } else {
    return false;
  }
  *value = list.Take();
  return true;
}

bool Range(std::span<const PhpValue> a, CFlowBudget* budget, PhpValue* value) {
  std::string low;
  std::string high;
  if (a.size() < 2 || !PhpTextOf(a[0], &low) || !PhpTextOf(a[1], &high)) return false;
  CListMaker list(budget);
  if (!a[0].is_number && low.size() == 1 && high.size() == 1 && !IsDigit(low[0])) {
    for (int c = static_cast<unsigned char>(low[0]); c <= static_cast<unsigned char>(high[0]); ++c) {
      const char byte = static_cast<char>(c);
      if (!list.Add({&byte, 1})) return false;
    }
  } else {
    std::size_t count = 0;
    for (std::int64_t i = ToNumber(low), last = ToNumber(high); i <= last && count < kMostElements; ++i, ++count) {
      if (!list.Add(std::to_string(i))) return false;
    }
  }
  *value = list.Take();
  return true;
}

std::string Pack(const Texts& t) {
  std::string packed;
  if (t.size() < 2) return packed;
  if (t[0].starts_with("H")) return DecodeHex(t[1].size() % 2 == 0 ? std::string(t[1]) : std::string(t[1]) + "0");
  if (t[0].starts_with("C") || t[0].starts_with("c")) {
    for (std::size_t i = 1; i < t.size(); ++i) packed += static_cast<char>(ToNumber(t[i]));
  }
  return packed;
}

std::string Format(const Texts& t, CFlowBudget* budget) {
  std::string text;
  std::size_t next = 1;
  for (std::size_t i = 0; i < t[0].size(); ++i) {
    if (t[0][i] != '%' || i + 1 == t[0].size()) {
      text += t[0][i];
      continue;
    }
    ++i;
    std::size_t index = 0;
    std::size_t p = i;
    while (p < t[0].size() && IsDigit(t[0][p]))
      index = std::min<std::size_t>(index * 10 + static_cast<std::size_t>(t[0][p++] - '0'), 1000);
    if (p + 1 < t[0].size() && t[0][p] == '$') {
      i = p + 1;
    } else {
      index = 0;
    }
    const std::size_t argument = index != 0 ? index : next;
    if (t[0][i] == '%') {
      text += '%';
      continue;
    }
    if (index == 0) ++next;
    if (argument >= t.size() || !MayMake(text.size() / 8 + t[argument].size(), budget)) return {};
    if (t[0][i] == 's' || t[0][i] == 'd') {
      text += t[argument];
    } else if (t[0][i] == 'c') {
      text += static_cast<char>(ToNumber(t[argument]));
    } else {
      return {};
    }
  }
  return text;
}

// Text to text, with the texts of all arguments known. False: not one of these.
bool TextFunction(std::string_view name, const Texts& t, CFlowBudget* budget, std::string* text) {
  const std::string_view s = t[0];
  const std::size_t limit = std::min(budget->Work(), budget->Room() / 2);  // a text that grows takes twice its bytes
  if (name == "base64_decode") return *text = DecodeBase64(s), true;
  if (name == "str_rot13") return *text = DecodeRot13(s), true;
  if (name == "gzinflate") return *text = Inflate(s, DeflateWrap::kRaw, limit), true;
  if (name == "gzuncompress") return *text = Inflate(s, DeflateWrap::kZlib, limit), true;
  if (name == "gzdecode") return *text = Inflate(s, DeflateWrap::kGzip, limit), true;
  if (name == "convert_uudecode") return *text = DecodeUuencoded(s), true;
  if (name == "hex2bin") return *text = DecodeHex(s), true;
  if (name == "urldecode") return *text = DecodeUrl(s, true), true;
  if (name == "rawurldecode") return *text = DecodeUrl(s, false), true;
  if (name == "pack") return *text = Pack(t), true;
  if (name == "strrev") return text->assign(s.rbegin(), s.rend()), true;
  if (name == "chr") return *text = std::string(1, static_cast<char>(ToNumber(s))), true;
  if (name == "substr" || name == "mb_substr") {
    if (t.size() < 2) return false;
    return *text = Substring(s, ToNumber(t[1]), t.size() > 2, t.size() > 2 ? ToNumber(t[2]) : 0), true;
  }
  if (name == "substr_replace" && t.size() >= 3) {
    const std::string_view head = Substring(s, 0, true, ToNumber(t[2]));
    const std::size_t cut = t.size() > 3 ? static_cast<std::size_t>(std::max(0, ToNumber(t[3]))) : s.size();
    text->assign(head).append(t[1]).append(s.substr(std::min(s.size(), head.size() + cut)));
    return true;
  }
  if (name == "strtr" && t.size() >= 3) return *text = Translate(s, t[1], t[2]), true;
  if (name == "sprintf") return *text = Format(t, budget), true;
  if (name == "strtolower" || name == "lcfirst") {
    *text = CCharSet::LowerAscii(s);
    return true;
  }
  if (name == "strtoupper") {
    *text = s;
    for (char& c : *text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c;
    return true;
  }
  if (name == "trim" || name == "ltrim" || name == "rtrim" || name == "chop") {
    return *text = t.size() > 1 ? TrimBytes(s, t[1]) : Trim(s), true;
  }
  if (name == "ucfirst" || name == "strval" || name == "stripslashes") return *text = s, true;
  if (name == "str_repeat" && t.size() > 1) {
    const auto times = static_cast<std::size_t>(std::max(0, ToNumber(t[1])));
    if (!s.empty() && times > limit / s.size()) return false;
    for (std::size_t i = 0; i < times; ++i) *text += s;
    return true;
  }
  return false;
}

}  // namespace

const PhpFunction* FindPhpFunction(std::string_view name) {
  const auto found = Functions().find(name);
  return found == Functions().end() ? nullptr : found->second;
}

std::span<const PhpFunction> PhpFunctions() { return kFunctions; }

bool IsPhpFunction(std::string_view name, PhpFunction::Flag flag) {
  const PhpFunction* const function = FindPhpFunction(name);
  return function != nullptr && function->Is(flag);
}

bool IsRemoteAddress(std::string_view text) {
  return text.starts_with("http://") || text.starts_with("https://") || text.starts_with("ftp://");
}

bool IsPhpRunner(std::string_view lower_name) {
  if (lower_name == "eval") return true;
  const PhpFunction* const function = FindPhpFunction(lower_name);
  return function != nullptr &&
         (function->kind == Kind::kCode || function->kind == Kind::kCommand || function->kind == Kind::kMakeCode);
}

bool PhpTextOf(const PhpValue& value, std::string* text) {
  if (value.is_number) {
    *text = std::to_string(value.number);
  } else if (value.HasText()) {
    *text = value.Text();
  } else if (value.array) {
    *text = "Array";
  } else {
    return false;
  }
  return true;
}

PhpValue EvaluatePhpFunction(std::string_view name, std::span<const PhpValue> arguments, CFlowBudget* budget) {
  PhpValue result;
  for (const PhpValue& argument : arguments) result.Join(argument);
  result.origin &= ~static_cast<std::uint32_t>(kArrayLiteral | kClosure | kOwnFile);
  if (name == "basename") result.origin &= ~static_cast<std::uint32_t>(kWholeRequest);
  std::string text;
  bool known = false;
  if (name == "str_replace" || name == "str_ireplace") {
    known = Replace(arguments, name == "str_ireplace", budget, &text);
  } else if (name == "implode" || name == "join") {
    known = Join(arguments, budget, &text);
  } else if (name == "range") {
    PhpValue list;
    return Range(arguments, budget, &list) ? list : result;
  } else if (name == "ord") {
    return !arguments.empty() && arguments[0].HasText() && !arguments[0].Text().empty()
               ? PhpValue::OfNumber(static_cast<unsigned char>(arguments[0].Text()[0]))
               : PhpValue();
  } else if (name == "hexdec" || name == "bindec" || name == "octdec") {
    return {};
  } else {
    std::deque<std::string> numbers;
    Texts texts;
    PhpValue list;
    if (TextsOf(arguments, &numbers, &texts)) {
      if (Explode(name, texts, budget, &list)) {
        list.Join(result);
        return list;
      }
      known = TextFunction(name, texts, budget, &text);
    }
  }
  if (known && MayMake(text.size(), budget)) {
    result.text = CPhpText(std::move(text));
    result.text.Hold(budget);
  }
  const PhpFunction* const function = FindPhpFunction(name);
  if (function == nullptr || !function->Is(kPlain)) {
    result.origin |= kComputed;
    if (result.way == HidingWay::kNone) result.way = function != nullptr ? function->way : HidingWay::kOther;
  }
  return result;
}

}  // namespace qiv

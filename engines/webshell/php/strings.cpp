#include "engines/webshell/php/strings.h"

#include <string>
#include <utility>

#include "common/text.h"
#include "engines/webshell/php/tokens.h"

namespace qiv {

PhpValue CPhpStrings::Constant(std::string_view inner, char quote) {
  PhpValue value;
  bool escapes = false;
  if (inner.find('\\') == std::string_view::npos) {
    value = PhpValue::OfLasting(inner);
  } else if (budget_.HasRoom(CPhpText::RoomFor(inner.size())) && budget_.Spend(inner.size())) {
    value = operators_.Made(PhpUnquote(inner, quote, &escapes));
    if (escapes) {
      value.origin = kComputed | kEscaped;
      value.way = HidingWay::kCharacters;
    }
  }
  findings_.AddLiteral(value.Text());
  return value;
}

PhpValue CPhpStrings::Template(std::string_view inner) {
  PhpValue value = operators_.Made(std::string());
  std::size_t plain = 0;
  bool unclosed = false;  // no "}" follows; it is not looked for again
  bool open_index = false;
  const auto add_plain = [&](std::size_t end) {
    if (end > plain)
      value = operators_.Concatenate(std::move(value),
                                     PhpValue::OfText(PhpUnquote(inner.substr(plain, end - plain), '"', nullptr)));
  };
  for (std::size_t i = 0; i < inner.size(); ++i) {
    if (inner[i] == '\\') {
      ++i;
      continue;
    }
    if (inner[i] != '$' || i + 1 >= inner.size()) continue;
    std::size_t begin = i + 1;
    const bool brace = inner[begin] == '{';
    if (brace) ++begin;
    std::size_t end = begin;
    while (end < inner.size() && (IsWordByte(inner[end]) || static_cast<unsigned char>(inner[end]) >= 0x80)) ++end;
    if (brace && (end == begin || (end < inner.size() && inner[end] == '('))) {  // "${code()}" runs code
      const std::size_t close = unclosed ? std::string_view::npos : inner.find('}', end);
      unclosed = close == std::string_view::npos;
      if (!unclosed) findings_.AddNested(inner.substr(begin, close - begin));
      continue;
    }
    if (end == begin || IsDigit(inner[begin])) continue;
    const bool braced = i > 0 && inner[i - 1] == '{';
    if (braced) Calls(inner, i);
    add_plain(braced ? i - 1 : i);
    const PhpOperand operand = Embedded(inner, begin, &end, brace, &open_index);
    if (!value.text) {
      value.Join(operand.value);
    } else {
      value = operators_.Concatenate(std::move(value), operand.value);
    }
    value.origin &= ~static_cast<std::uint32_t>(kComputed);
    plain = end;
    i = end - 1;
  }
  if (value.text) add_plain(inner.size());
  return value;
}

// "{$name[...](...)}" calls.
void CPhpStrings::Calls(std::string_view inner, std::size_t begin) {
  constexpr std::size_t kLongestCall = 256;  // bytes: a longer call inside a string is not looked into
  const std::string_view expression = inner.substr(begin, kLongestCall);
  const std::size_t close = expression.find('}');
  if (close != std::string_view::npos && expression.substr(0, close).find('(') != std::string_view::npos) {
    findings_.AddNested(expression.substr(0, close));
  }
}

// The variable whose name goes from `begin` to `*end`, with its elements and members; `*end` moves behind them.
PhpOperand CPhpStrings::Embedded(std::string_view inner, std::size_t begin, std::size_t* end, bool brace,
                                 bool* open_index) {
  std::size_t at = *end;
  PhpOperand operand = scopes_.Lookup(symbols_.NameInSource(inner.substr(begin, at - begin)));
  if (brace && at < inner.size() && inner[at] == '}') ++at;
  while (at < inner.size() && inner[at] == '[') {
    const std::size_t close = *open_index ? std::string_view::npos : inner.find(']', at);
    *open_index = close == std::string_view::npos;
    if (*open_index) break;
    const PhpValue index = PhpValue::OfLasting(TrimBytes(inner.substr(at + 1, close - at - 1), "'\""));
    operand = scopes_.Element(operand, &index);
    at = close + 1;
  }
  if (inner.substr(at).starts_with("->")) {
    operand.value = operand.value.Taint();
    at += 2;
    while (at < inner.size() && IsWordByte(inner[at])) ++at;
  }
  if (at < inner.size() && inner[at] == '}') ++at;
  *end = at;
  return operand;
}

}  // namespace qiv

// Strings of a PHP file: constant ones, those with variables in them, commands.
#include <algorithm>
#include <memory>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/machine.h"

namespace qiv {

void CPhpMachine::OnString(const PhpToken& token) {
  Operand operand;
  const std::string_view inner = TextOf(token);
  if (token.kind == PhpTokenKind::kString) {
    bool escapes = false;
    if (inner.find('\\') == std::string_view::npos) {
      operand.value = PhpValue::OfLasting(inner);
    } else if (budget_.HasRoom(CPhpText::RoomFor(inner.size())) && Spend(inner.size())) {
      operand.value = Made(PhpUnquote(inner, static_cast<char>(token.code), &escapes));
      if (escapes) {
        operand.value.origin = kComputed | kEscaped;
        operand.value.way = HidingWay::kCharacters;
      }
    }
    if (pass_ == 1) Literal(operand.value.Text());
  } else {
    operand.value = Template(inner, '"');
    if (token.kind == PhpTokenKind::kCommand) {
      RunCommand("shell_exec", std::span<const PhpValue>(&operand.value, 1));
      operand.value = {};
    }
  }
  PushOperand(std::move(operand));
}

// A string with variables in it.
PhpValue CPhpMachine::Template(std::string_view inner, char quote) {
  constexpr std::size_t kLongestCall = 256;  // bytes: a longer call inside a string is not looked into
  PhpValue value = Made(std::string());
  std::size_t plain = 0;
  bool unclosed = false;  // no "}" follows; it is not looked for again
  bool open_index = false;
  const auto add_plain = [&](std::size_t end) {
    if (end > plain)
      value =
          Concatenate(std::move(value), PhpValue::OfText(PhpUnquote(inner.substr(plain, end - plain), quote, nullptr)));
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
      if (!unclosed) AddNested(inner.substr(begin, close - begin));
      continue;
    }
    if (end == begin || IsDigit(inner[begin])) continue;
    if (i > 0 && inner[i - 1] == '{') {  // "{$name[...](...)}" calls
      const std::string_view expression = inner.substr(i, kLongestCall);
      const std::size_t close = expression.find('}');
      if (close != std::string_view::npos && expression.substr(0, close).find('(') != std::string_view::npos) {
        AddNested(expression.substr(0, close));
      }
    }
    add_plain(i > 0 && inner[i - 1] == '{' ? i - 1 : i);
    Operand operand = Lookup(names_.Of(inner.substr(begin, end - begin), true));
    if (brace && end < inner.size() && inner[end] == '}') ++end;
    while (end < inner.size() && inner[end] == '[') {
      const std::size_t close = open_index ? std::string_view::npos : inner.find(']', end);
      open_index = close == std::string_view::npos;
      if (open_index) break;
      const PhpValue index = PhpValue::OfLasting(TrimBytes(inner.substr(end + 1, close - end - 1), "'\""));
      operand = Element(operand, &index);
      end = close + 1;
    }
    if (inner.substr(end).starts_with("->")) {
      operand.value = operand.value.Taint();
      end += 2;
      while (end < inner.size() && IsWordByte(inner[end])) ++end;
    }
    if (end < inner.size() && inner[end] == '}') ++end;
    if (!value.text) {
      value.Join(operand.value);
    } else {
      value = Concatenate(std::move(value), operand.value);
    }
    value.origin &= ~static_cast<std::uint32_t>(kComputed);
    plain = end;
    i = end - 1;
  }
  if (value.text) add_plain(inner.size());
  return value;
}

}  // namespace qiv

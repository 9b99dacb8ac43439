#include "engines/webshell/page/operators.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"

namespace qiv {
namespace {

bool ToDecimal(std::string_view text, double* number) {
  if (text.empty() || text.size() > 12) return false;
  if (text.starts_with("&h") || text.starts_with("0x")) {
    const std::string digits(text.substr(2));
    char* end = nullptr;
    *number = static_cast<double>(std::strtoul(digits.c_str(), &end, 16));
    return !digits.empty() && *end == '\0';
  }
  for (const char c : text) {
    if (!IsDigit(c) && c != '-' && c != '.') return false;
  }
  const std::string digits(text);
  char* end = nullptr;
  *number = std::strtod(digits.c_str(), &end);
  return *end == '\0';
}

// Whether text that ends so, or begins so, lets what is joined to it stand as a statement of its own.
bool Parts(std::string_view text, bool before) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!text.empty() && blank(before ? text.back() : text.front())) {
    before ? text.remove_suffix(1) : text.remove_prefix(1);
  }
  if (text.empty()) return true;
  const char c = before ? text.back() : text.front();
  return c == ':' || c == ';' || c == '\n' || c == '}' || c == '{' || (!before && (c == '\'' || c == '/'));
}

// The known result of a call that works on texts; false if it is not known.
bool TextOf(PageCall call, const std::vector<PageValue>& arguments, std::string* text) {
  if (arguments.empty() || !arguments[0].known) return false;
  const std::string& first = arguments[0].text;
  switch (call) {
    case PageCall::kCharacter: {
      double number = 0;
      if (!ToDecimal(first, &number) || number < 0 || number >= 65536) return false;
      const auto code = static_cast<std::uint32_t>(number);
      const char c = code < 0x80 ? static_cast<char>(code) : '?';
      *text = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
      return true;
    }
    case PageCall::kReverse:
      text->assign(first.rbegin(), first.rend());
      return true;
    case PageCall::kReplace:
      if (arguments.size() < 3 || !arguments[1].known || !arguments[2].known || arguments[1].text.empty()) return false;
      // Longer by more than the code can be is none of the code's.
      if (arguments[2].text.size() > arguments[1].text.size() + 16) return false;
      *text = ReplaceAll(first, arguments[1].text, arguments[2].text);
      return true;
    case PageCall::kUnescape:
      *text = PercentDecode(first);
      for (char& c : *text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
      return true;
    case PageCall::kMid: {
      double from = 0;
      double length = static_cast<double>(first.size());
      if (arguments.size() < 2 || !arguments[1].known || !ToDecimal(arguments[1].text, &from) || from < 1) return false;
      if (arguments.size() > 2 && (!arguments[2].known || !ToDecimal(arguments[2].text, &length) || length < 0))
        return false;
      if (from > static_cast<double>(first.size())) return false;
      *text = first.substr(static_cast<std::size_t>(from) - 1, static_cast<std::size_t>(length));
      return true;
    }
    case PageCall::kCase:
      *text = first;
      return true;
    default:
      return false;
  }
}

// Appends `right` to `left` by `mark`: numbers by arithmetic, texts end to end. False, and left alone, if the result is
// not known.
bool Join(PageValue* left, char mark, const PageValue& right, bool basic) {
  if (!left->known || !right.known) return false;
  double a = 0;
  double b = 0;
  const bool joins = mark == '&' ? basic : mark == '+' && (!ToDecimal(left->text, &a) || !ToDecimal(right.text, &b));
  if (joins) {
    left->text += right.text;
    return true;
  }
  if (!ToDecimal(left->text, &a) || !ToDecimal(right.text, &b)) return false;
  double result = 0;
  switch (mark) {
    case '+':
      result = a + b;
      break;
    case '-':
      result = a - b;
      break;
    case '*':
      result = a * b;
      break;
    case '/':
    case '\\':
      if (b == 0) return false;
      result = a / b;
      break;
    default:
      return false;
  }
  if (result < -1e9 || result > 1e9) return false;
  left->text = std::to_string(static_cast<long long>(result));
  return true;
}

}  // namespace

PageValue CPageOperators::Copy(const PageValue& value) {
  if (!value.known || value.text.size() <= kShortText) return value;
  if (value.text.size() <= copies_left_) {
    copies_left_ -= value.text.size();
    return value;
  }
  findings_.Note(kLosesSight);
  PageValue copy;
  copy.marks = value.marks;
  copy.object = value.object;
  copy.name = value.name;
  copy.alias = value.alias;
  return copy;
}

void CPageOperators::Combine(PageValue* left, char mark, PageValue right, bool basic) {
  constexpr std::string_view kArithmetic = "-*/\\^%x";
  if (mark == '&' || mark == '+') {
    Concatenate(left, mark, std::move(right), basic);
  } else {
    left->known = Join(left, mark, right, basic);
    left->marks |= right.marks;
    const bool keeps = mark == 'x' || (mark == '^' && !basic);  // a comparison; bytes unscrambled with a key
    if (kArithmetic.find(mark) != std::string_view::npos) left->marks &= kLong | (keeps ? kFed : 0U);
  }
  left->object = PageObject::kNone;
  left->alias = {};
}

void CPageOperators::Concatenate(PageValue* left, char mark, PageValue right, bool basic) {
  const bool left_fed = (left->marks & kFed) != 0;
  const bool right_fed = (right.marks & kFed) != 0;
  const bool left_known = left->known && !Parts(left->text, true);
  const bool led = right_fed && !left_fed && !(left->known && Parts(left->text, true));
  const bool piece = led || (left_fed && !right_fed && !(right.known && Parts(right.text, false)));
  // A file's name behind a folder that the request says is a path of the whole disk.
  if ((left->marks & (kFed | kMapped | kLed)) == kFed) right.marks &= ~static_cast<std::uint32_t>(kMapped);
  bool fits = left->text.size() + right.text.size() <= kShortText;
  if (!fits) {
    fits = right.text.size() <= joins_left_;
    if (fits) joins_left_ -= right.text.size();
    if (!fits) findings_.Note(kLosesSight);
  }
  const bool known = fits && Join(left, mark, right, basic);
  left->known = known;
  if (known && left->text.size() >= kLongLiteral) left->marks |= kLong;
  left->marks |= right.marks & ~static_cast<std::uint32_t>(kSql);
  if (piece) left->marks |= kPiece;
  // What is picked out of a text and set between words of code is a name or a number.
  if (!left_fed && left_known && (right.marks & kDecoded) != 0) left->marks &= ~static_cast<std::uint32_t>(kDecoded);
  if (led) left->marks |= kLed;
  if (!basic && left->text == "(" && !right.known) left->marks |= kJson;
}

void CPageOperators::WorkOut(PageCall call, const std::vector<PageValue>& arguments, PageValue* result) {
  result->known = TextOf(call, arguments, &result->text);
  if (!result->known || result->text.size() <= kShortText) return;
  result->known = result->text.size() <= copies_left_;
  if (result->known) {
    copies_left_ -= result->text.size();
  } else {
    findings_.Note(kLosesSight);
  }
}

}  // namespace qiv

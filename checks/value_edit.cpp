#include "checks/value_edit.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/ascii.h"
#include "base/hex.h"
#include "port/code_page.h"

namespace qiv {
namespace {

/// A decoded text, and where each of its bytes was; one place more than bytes.
struct MappedText {
  std::string text;
  std::vector<std::uint32_t> from;

  void Add(std::string_view decoded, std::size_t at) {
    text += decoded;
    from.insert(from.end(), decoded.size(), static_cast<std::uint32_t>(at));
  }
};

/// What an escape stands for, and its bytes as sent; none: there is no escape.
struct Escape {
  std::string decoded;
  std::size_t length = 0;
};

Escape PercentEscape(std::string_view raw, std::size_t at) {
  constexpr std::size_t kUnicode = 6;  // %uXXXX
  if (const int byte = EscapedByte(raw, at); byte >= 0) return {std::string(1, static_cast<char>(byte)), 3};
  if (at + kUnicode > raw.size() || LowerByte(raw[at + 1]) != 'u') return {};
  const std::string_view escape = raw.substr(at, kUnicode);
  const std::string decoded = PercentDecode(escape);
  return decoded == escape ? Escape{} : Escape{decoded, kUnicode};
}

Escape JsonEscape(std::string_view raw, std::size_t at) {
  constexpr std::string_view kShort = "bfnrt";
  constexpr std::string_view kMeaning = "\b\f\n\r\t";
  constexpr std::size_t kUnit = 6;  // \uXXXX
  if (at + 2 > raw.size()) return {};
  const char kind = raw[at + 1];
  if (kind != 'u') {
    const std::size_t known = kShort.find(kind);
    return {std::string(1, known == kShort.npos ? kind : kMeaning[known]), 2};
  }
  const auto unit = [raw](std::size_t from) {
    return from + kUnit <= raw.size() && raw[from] == '\\' && raw[from + 1] == 'u' ? HexNumber(raw, from + 2, 4) : -1;
  };
  const int first = unit(at);
  if (first < 0) return {};
  Escape escape{{}, kUnit};
  const int second = first >= 0xD800 && first < 0xDC00 ? unit(at + kUnit) : -1;
  if (second >= 0xDC00 && second < 0xE000) {
    AppendUtf8(0x10000U + ((static_cast<char32_t>(first) - 0xD800U) << 10U) + (static_cast<char32_t>(second) - 0xDC00U),
               &escape.decoded);
    escape.length = 2 * kUnit;
  } else {
    constexpr char32_t kReplacement = 0xFFFD;
    AppendUtf8(first >= 0xD800 && first < 0xE000 ? kReplacement : static_cast<char32_t>(first), &escape.decoded);
  }
  return escape;
}

Escape EntityEscape(std::string_view raw, std::size_t at) {
  constexpr std::size_t kLongest = 12;
  const std::size_t end = raw.substr(0, at + kLongest).find(';', at);
  if (end == raw.npos) return {};
  const std::string_view entity = raw.substr(at, end + 1 - at);
  std::string decoded = DecodeHtmlEntities(entity);
  return decoded == entity ? Escape{} : Escape{std::move(decoded), entity.size()};
}

Escape EscapeAt(const RequestValue& value, std::size_t at) {
  const char c = value.raw[at];
  switch (value.encoding) {
    case RequestValue::kPlain:
    case RequestValue::kConverted:
      return {};
    case RequestValue::kJson:
      return c == '\\' ? JsonEscape(value.raw, at) : Escape{};
    case RequestValue::kXml:
      return c == '&' ? EntityEscape(value.raw, at) : Escape{};
    case RequestValue::kPercent:
      return c == '%' ? PercentEscape(value.raw, at) : Escape{};
    case RequestValue::kForm:
    case RequestValue::kQuery:
    case RequestValue::kCookie:
      break;
  }
  if (c == '+') return {" ", 1};
  return c == '%' ? PercentEscape(value.raw, at) : Escape{};
}

// A map takes four bytes a byte.
constexpr std::size_t kMostMapped = 8 * 1024 * 1024;

MappedText Decode(RequestValue value) {
  MappedText mapped;
  value.raw = value.raw.substr(0, kMostMapped);
  mapped.from.reserve(value.raw.size() + 1);
  for (std::size_t at = 0; at < value.raw.size();) {
    const Escape escape = EscapeAt(value, at);
    mapped.Add(escape.length != 0 ? std::string_view(escape.decoded) : value.raw.substr(at, 1), at);
    at += std::max<std::size_t>(escape.length, 1);
  }
  mapped.from.push_back(static_cast<std::uint32_t>(value.raw.size()));
  return mapped;
}

std::string PercentEncode(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (IsWordByte(c) || c == '-' || c == '.' || c == '*') {
      encoded += c;
    } else {
      AppendEscapedByte(c, &encoded);
    }
  }
  return encoded;
}

std::string JsonEncode(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (c == '"' || c == '\\') encoded += '\\';
    encoded += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
  }
  return encoded;
}

std::string Encode(std::string_view text, const RequestValue& value) {
  switch (value.encoding) {
    case RequestValue::kPlain:
    case RequestValue::kConverted:
      return std::string(text);
    case RequestValue::kJson:
      return JsonEncode(text);
    case RequestValue::kXml:
      return HtmlEscape(text);
    case RequestValue::kForm:
    case RequestValue::kQuery:
      return PercentEncode(text);
    case RequestValue::kPercent:
    case RequestValue::kCookie:
      break;
  }
  // A header that holds no escape is read as it is.
  const bool escaped = value.raw.find('%') != value.raw.npos;
  const bool fits = std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F || c == ';' || c == ',' || c == '"';
  });
  return escaped || (value.encoding == RequestValue::kCookie && !fits) ? PercentEncode(text) : std::string(text);
}

}  // namespace

void EditValue(const RequestValue& value, std::string_view text,
               const std::function<void(std::string_view decoded, TextEdits* found)>& find, TextEdits* edits) {
  const auto begin = static_cast<std::size_t>(value.raw.data() - text.data());
  if (!edits->empty() && begin < edits->back().place.offset + edits->back().place.length) return;
  const bool as_sent = value.encoding == RequestValue::kPlain || value.encoding == RequestValue::kConverted;
  const MappedText mapped = as_sent ? MappedText{} : Decode(value);
  TextEdits found;
  find(as_sent ? value.raw : std::string_view(mapped.text), &found);
  for (const TextEdit& edit : found) {
    const std::size_t first = as_sent ? edit.place.offset : mapped.from[edit.place.offset];
    const std::size_t behind = edit.place.offset + edit.place.length;
    const std::size_t end = as_sent ? behind : mapped.from[behind];
    edits->push_back({{begin + first, end - first}, Encode(edit.text, value)});
  }
}

}  // namespace qiv

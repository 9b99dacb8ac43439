#include "checks/request_values.h"

#include <algorithm>
#include <cstdint>

#include "common/char_set.h"
#include "common/multipart.h"
#include "common/text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::int32_t kCookieHeader = 25;

/// The part of *rest before the next `separator`, which both are taken off.
std::string_view TakePiece(std::string_view* rest, char separator) {
  const std::size_t end = rest->find(separator);
  const std::string_view piece = rest->substr(0, end);
  rest->remove_prefix(end == kEnd ? rest->size() : end + 1);
  return piece;
}

bool VisitPairs(std::string_view text, char separator, RequestValue::Encoding encoding, const ValueVisitor& visit) {
  while (!text.empty()) {
    const std::string_view piece = Trim(TakePiece(&text, separator));
    const std::size_t equals = piece.find('=');
    const std::string_view name = equals == kEnd ? std::string_view() : piece.substr(0, equals);
    const std::string_view value = equals == kEnd ? piece : piece.substr(equals + 1);
    if (!name.empty() && !visit({{}, name, encoding})) return false;
    if (!value.empty() && !visit({name, value, encoding})) return false;
  }
  return true;
}

/// Every string of a JSON text, keys and values alike; a broken one is read to its end. In UTF-8 no byte of a character
/// looks like a quote or a backslash.
bool VisitJson(std::string_view text, const ValueVisitor& visit) {
  std::string_view name;
  for (std::size_t at = text.find('"'); at != kEnd; at = text.find('"', at + 1)) {
    const std::size_t begin = at + 1;
    at = begin;
    while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
    if (at >= text.size()) at = kEnd;
    const std::string_view string = text.substr(begin, at == kEnd ? kEnd : at - begin);
    std::size_t next = at == kEnd ? text.size() : at + 1;
    while (next < text.size() && IsSpace(text[next])) ++next;
    const bool is_name = next < text.size() && text[next] == ':';
    if (!string.empty() && !visit({is_name ? std::string_view() : name, string, RequestValue::kJson})) return false;
    name = is_name ? string : std::string_view();
    if (at == kEnd) break;
  }
  return true;
}

/// "\uXXXX" becomes UTF-8, half of a surrogate pair a mark of its own: enough to find ASCII words. What is malformed
/// stays.
std::string UnescapeJson(std::string_view text) {
  constexpr std::string_view kShort = "bfnrt";
  constexpr std::string_view kMeaning = "\b\f\n\r\t";
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    const std::size_t slash = std::min(text.find('\\'), text.size());
    plain += text.substr(0, slash);
    text.remove_prefix(slash);
    if (text.size() < 2) return plain += text;
    const char kind = text[1];
    text.remove_prefix(2);
    if (const std::size_t known = kShort.find(kind); known != kEnd) {
      plain += kMeaning[known];
    } else if (kind != 'u' || text.size() < 4) {
      plain += kind;
    } else {
      const std::string bytes =
          PercentDecode("%" + std::string(text.substr(0, 2)) + "%" + std::string(text.substr(2, 2)));
      if (bytes.size() != 2) {
        plain += kind;
        continue;
      }
      const auto byte = [&](std::size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(bytes[at])); };
      const char32_t unit = byte(0) << 8U | byte(1);
      constexpr char32_t kReplacement = 0xFFFD;
      AppendUtf8(unit >= 0xD800 && unit < 0xE000 ? kReplacement : unit, &plain);
      text.remove_prefix(4);
    }
  }
  return plain;
}

}  // namespace

std::string_view RequestValue::Decoded(std::string* room, std::size_t most) const {
  const std::string_view text = raw.substr(0, most);
  switch (encoding) {
    case kPlain:
      return text;
    case kJson:
      if (text.find('\\') == kEnd) return text;
      *room = UnescapeJson(text);
      return *room;
    case kPercent:
      if (text.find('%') == kEnd) return text;
      *room = PercentDecode(text);
      return *room;
    case kForm:
    case kQuery:
      break;
  }
  if (text.find_first_of("%+") == kEnd) return text;
  *room = text;
  std::replace(room->begin(), room->end(), '+', ' ');
  *room = PercentDecode(*room);
  if (encoding == kQuery && room->find('%') != kEnd) *room = PercentDecode(*room);
  return *room;
}

BodyForm BodyFormOf(const RequestFacts& facts) {
  const std::string type = CCharSet::LowerAscii(facts.content_type);
  const std::string_view body = facts.raw_body;
  if (IsMultipartBody(facts.content_type, body)) return BodyForm::kMultipart;
  const std::size_t first = std::min(body.find_first_not_of(" \t\r\n"), body.size());
  const std::size_t second = std::min(body.find_first_not_of(" \t\r\n", first + 1), body.size());
  const char head = first < body.size() ? body[first] : '\0';
  const bool braces = head == '[' || (head == '{' && second < body.size() && body[second] == '"');
  if (braces || type.find("json") != std::string::npos) return BodyForm::kJson;
  // Who posts a script as it is to a page that reads the raw body leaves the type of a form.
  if (head == '<') return BodyForm::kRaw;
  const bool form = type.empty() || type.find("form") != std::string::npos;
  return form ? BodyForm::kForm : BodyForm::kRaw;
}

bool ForEachQueryValue(const RequestFacts& facts, const ValueVisitor& visit) {
  const std::string_view url = facts.raw_url;
  const std::size_t mark = url.find('?');
  return mark == kEnd || VisitPairs(url.substr(mark + 1), '&', RequestValue::kQuery, visit);
}

bool ForEachPathValue(const RequestFacts& facts, const ValueVisitor& visit) {
  std::string_view path = std::string_view(facts.raw_url).substr(0, facts.raw_url.find('?'));
  if (const std::size_t scheme = path.find("://"); !path.starts_with('/') && scheme != kEnd) {
    path.remove_prefix(std::min(path.find('/', scheme + 3), path.size()));
  }
  while (!path.empty()) {
    const std::string_view segment = TakePiece(&path, '/');
    if (!segment.empty() && !visit({{}, segment, RequestValue::kPercent})) return false;
  }
  return true;
}

bool ForEachBodyValue(const RequestFacts& facts, const ValueVisitor& visit) {
  switch (BodyFormOf(facts)) {
    case BodyForm::kForm:
      return VisitPairs(facts.raw_body, '&', RequestValue::kForm, visit);
    case BodyForm::kJson:
      return VisitJson(facts.raw_body, visit);
    case BodyForm::kMultipart: {
      bool all = true;
      ForEachPart(facts.content_type, facts.raw_body, [&](const MultipartPart& part) {
        if (!part.head.has_file_name) all = visit({part.head.name, part.content, RequestValue::kPlain});
        return all;
      });
      return all;
    }
    case BodyForm::kRaw:
      break;
  }
  return facts.raw_body.empty() || visit({{}, facts.raw_body, RequestValue::kPlain});
}

bool ForEachHeaderValue(const RequestFacts& facts, const ValueVisitor& visit) {
  return std::all_of(facts.headers.begin(), facts.headers.end(), [&visit](const HeaderEntry& header) {
    if (header.number == kCookieHeader) return VisitPairs(header.value, ';', RequestValue::kForm, visit);
    return visit({header.name, header.value, RequestValue::kPercent});
  });
}

}  // namespace qiv

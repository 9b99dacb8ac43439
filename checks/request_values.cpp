#include "checks/request_values.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/hex.h"
#include "checks/body_charset.h"
#include "checks/plain_value.h"
#include "common/char_set.h"
#include "common/multipart.h"
#include "common/text.h"
#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::int32_t kCookieHeader = 25;
constexpr std::int32_t kRefererHeader = 36;

/// The part of *rest before the next `separator`, which both are taken off.
std::string_view TakePiece(std::string_view* rest, char separator) {
  const std::size_t end = rest->find(separator);
  const std::string_view piece = rest->substr(0, end);
  rest->remove_prefix(end == kEnd ? rest->size() : end + 1);
  return piece;
}

/// Whether a name may be one: "<svg onload=alert(1)>" has none, and is one text.
bool IsFieldName(std::string_view name, RequestValue::Encoding encoding) {
  if (std::all_of(name.begin(), name.end(), [](char c) { return IsWordByte(c) || c == '.' || c == '-'; })) return true;
  std::string room;
  return RequestValue{{}, name, encoding}.Decoded(&room).find_first_of("<>\"'") == kEnd;
}

bool VisitPairs(std::string_view text, char separator, RequestValue::Encoding encoding, BodyValues values,
                const ValueVisitor& visit) {
  const auto hand_out = [&](const RequestValue& value) {
    return (values == BodyValues::kTelling && IsPlainValue(value)) || visit(value);
  };
  while (!text.empty()) {
    const std::string_view piece = Trim(TakePiece(&text, separator));
    const std::size_t equals = piece.find('=');
    const std::string_view name = equals == kEnd ? std::string_view() : piece.substr(0, equals);
    const std::string_view value = equals == kEnd ? piece : piece.substr(equals + 1);
    if (!name.empty() && !hand_out({{}, name, encoding})) return false;
    if (!value.empty() && !hand_out({name, value, encoding})) return false;
    if (!name.empty() && !IsFieldName(name, encoding) && !visit({{}, piece, encoding})) return false;
  }
  return true;
}

/// Text and attributes of XML, each a value; the names of elements are not. Broken XML is read to its end: what can be
/// no element is text. CDATA is text without references; comments and the type declaration are values too, since what
/// they hold (entities) becomes text.
bool VisitXml(std::string_view text, const ValueVisitor& visit) {
  std::string_view name;
  std::size_t at = 0;
  const auto hand_out = [&](std::string_view of, std::string_view piece, RequestValue::Encoding encoding) {
    piece = Trim(piece);
    return piece.empty() || visit({of, piece, encoding});
  };
  const auto until = [&](std::string_view end, std::size_t from) {
    return std::min(text.find(end, from), text.size());
  };
  while (at < text.size()) {
    const std::size_t tag = until("<", at);
    if (!hand_out(name, text.substr(at, tag - at), RequestValue::kXml)) return false;
    if (tag == text.size()) break;
    constexpr std::string_view kCdata = "<![CDATA[";
    if (text.compare(tag, kCdata.size(), kCdata) == 0) {
      const std::size_t begin = tag + kCdata.size();
      const std::size_t end = until("]]>", begin);
      if (!hand_out(name, text.substr(begin, end - begin), RequestValue::kPlain)) return false;
      at = std::min(end + 3, text.size());
      continue;
    }
    const char kind = tag + 1 < text.size() ? text[tag + 1] : '\0';
    if (kind == '!' || kind == '?' || !(IsLetter(kind) || kind == '/' || kind == '_')) {
      at = std::min(until(">", tag) + 1, text.size());
      if (!hand_out({}, text.substr(tag, at - tag), RequestValue::kXml)) return false;
      continue;
    }
    // An element: its name, then attributes.
    std::size_t end = tag + 1;
    while (end < text.size() && !IsSpace(text[end]) && text[end] != '>' && text[end] != '/') ++end;
    if (kind != '/') name = text.substr(tag + 1, end - tag - 1);
    at = end;
    while (at < text.size() && text[at] != '>' && text[at] != '<') {
      const std::size_t quote = std::min(text.find_first_of("\"'<>", at), text.size());
      if (quote == text.size() || text[quote] == '<' || text[quote] == '>') {
        at = quote;
        break;
      }
      const std::string_view before = Trim(TrimBytes(Trim(text.substr(at, quote - at)), "="));
      const std::size_t close = std::min(text.find(text[quote], quote + 1), text.size());
      if (!hand_out(before, text.substr(quote + 1, close - quote - 1), RequestValue::kXml)) return false;
      at = std::min(close + 1, text.size());
    }
    if (at < text.size() && text[at] == '>') ++at;
  }
  return true;
}

/// The type of a form that is no multipart form, or none.
bool IsFormType(std::string_view content_type) {
  return Trim(content_type).empty() || FindNoCase(content_type, "urlencoded") != kEnd;
}

}  // namespace

bool LooksLikeJson(std::string_view text) {
  const std::size_t first = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  const std::size_t second = std::min(text.find_first_not_of(" \t\r\n", first + 1), text.size());
  const char head = first < text.size() ? text[first] : '\0';
  return head == '[' || (head == '{' && second < text.size() && text[second] == '"');
}

namespace {

/// What stands in JSON outside of strings, and is no JSON: another kind of text, or strings in other quotes.
bool VisitOutside(std::string_view gap, const ValueVisitor& visit) {
  static constexpr auto kIsJson = [] {
    std::array<bool, 256> table{};
    for (const char c : std::string_view("{}[]:,+-.0123456789eEtruefalsn \t\r\n"))
      table[static_cast<unsigned char>(c)] = true;
    return table;
  }();
  const auto is_json = [](char c) { return kIsJson[static_cast<unsigned char>(c)]; };
  return std::all_of(gap.begin(), gap.end(), is_json) || visit({{}, gap, RequestValue::kPlain});
}

/// The inside of a JSON string: up to the first quote behind an even number of backslashes.
std::string_view StringAt(std::string_view text, std::size_t begin) {
  for (std::size_t end = text.find('"', begin); end != kEnd; end = text.find('"', end + 1)) {
    std::size_t slashes = end;
    while (slashes > begin && text[slashes - 1] == '\\') --slashes;
    if ((end - slashes) % 2 == 0) return text.substr(begin, end - begin);
  }
  return text.substr(begin);
}

/// A broken one is read to its end. In UTF-8 no byte of a character looks like a quote or a backslash. `outside`: also
/// what stands outside of strings.
bool VisitJson(std::string_view text, bool outside, BodyValues values, const ValueVisitor& visit) {
  std::string_view name;
  std::size_t gap = 0;
  for (std::size_t at = text.find('"'); at != kEnd; at = text.find('"', gap)) {
    if (outside && !VisitOutside(text.substr(gap, at - gap), visit)) return false;
    const std::size_t plain = values == BodyValues::kTelling ? PlainStringEnd(text, at + 1) : kEnd;
    const std::string_view string = plain == kEnd ? StringAt(text, at + 1) : text.substr(at + 1, plain - at - 1);
    gap = std::min(at + 1 + string.size() + 1, text.size());
    std::size_t next = gap;
    while (next < text.size() && IsSpace(text[next])) ++next;
    const bool is_name = next < text.size() && text[next] == ':';
    if (plain == kEnd && !string.empty() &&
        !visit({is_name ? std::string_view() : name, string, RequestValue::kJson})) {
      return false;
    }
    name = is_name ? string : std::string_view();
  }
  return !outside || VisitOutside(text.substr(gap), visit);
}

}  // namespace

bool ForEachJsonValue(std::string_view text, const ValueVisitor& visit) {
  return VisitJson(text, false, BodyValues::kAll, visit);
}

namespace {

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
      const int digits = HexNumber(text, 0, 4);
      if (digits < 0) {
        plain += kind;
        continue;
      }
      const auto unit = static_cast<char32_t>(digits);
      constexpr char32_t kReplacement = 0xFFFD;
      AppendUtf8(unit >= 0xD800 && unit < 0xE000 ? kReplacement : unit, &plain);
      text.remove_prefix(4);
    }
  }
  return plain;
}

/// "%XX" and "+"; false when the text holds an escape of another kind.
bool DecodeForm(std::string_view text, std::string* room) {
  room->clear();
  for (std::size_t at = 0; at < text.size(); ++at) {
    char c = text[at];
    if (c == '+') {
      c = ' ';
    } else if (c == '%') {
      const int byte = EscapedByte(text, at);
      if (byte < 0 && at + 1 < text.size() && LowerByte(text[at + 1]) == 'u') return false;
      if (byte >= 0) {
        c = static_cast<char>(byte);
        at += 2;
      }
    }
    room->push_back(c);
  }
  return true;
}

}  // namespace

std::string_view RequestValue::Decoded(std::string* room, std::size_t most) const {
  const std::string_view text = raw.substr(0, most);
  switch (encoding) {
    case kPlain:
    case kConverted:
      return text;
    case kJson:
      if (text.find('\\') == kEnd) return text;
      *room = UnescapeJson(text);
      return *room;
    case kPercent:
      if (text.find('%') == kEnd) return text;
      *room = PercentDecode(text);
      return *room;
    case kXml:
      if (text.find('&') == kEnd) return text;
      *room = DecodeHtmlEntities(text);
      return *room;
    case kForm:
    case kQuery:
    case kCookie:
      break;
  }
  if (text.find('%') == kEnd && text.find('+') == kEnd) return text;
  if (!DecodeForm(text, room)) {
    *room = text;
    std::replace(room->begin(), room->end(), '+', ' ');
    *room = PercentDecode(*room);
  }
  if (encoding == kQuery && room->find('%') != kEnd) *room = PercentDecode(*room);
  return *room == text ? text : *room;
}

BodyForm BodyFormOf(std::string_view content_type, std::string_view body) {
  if (IsMultipartBody(content_type, body)) return BodyForm::kMultipart;
  if (LooksLikeJson(body) || FindNoCase(content_type, "json") != kEnd) return BodyForm::kJson;
  const std::size_t first = std::min(body.find_first_not_of(" \t\r\n"), body.size());
  constexpr std::string_view kDeclaration = "<?xml";
  const bool declared = body.compare(first, kDeclaration.size(), kDeclaration) == 0;
  if (declared || FindNoCase(content_type, "xml") != kEnd) return BodyForm::kXml;
  // Who posts a script as it is to a page that reads the raw body leaves the type of a form.
  if (first < body.size() && body[first] == '<') return BodyForm::kRaw;
  return IsFormType(content_type) ? BodyForm::kForm : BodyForm::kRaw;
}

bool ForEachQueryValue(const RequestFacts& facts, const ValueVisitor& visit) {
  const std::string_view url = facts.raw_url;
  const std::size_t mark = url.find('?');
  return mark == kEnd || VisitPairs(url.substr(mark + 1), '&', RequestValue::kQuery, BodyValues::kAll, visit);
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

bool ForEachBodyValue(std::string_view content_type, std::string_view body, const ValueVisitor& visit,
                      BodyValues values) {
  const BodyForm form = BodyFormOf(content_type, body);
  // Whatever a body of that type begins with, servers read it as a form.
  const bool pairs = form == BodyForm::kForm || (IsFormType(content_type) && body.find('&') != kEnd);
  if (pairs && !VisitPairs(body, '&', RequestValue::kForm, values, visit)) return false;
  switch (form) {
    case BodyForm::kForm:
      return true;
    case BodyForm::kJson:
      return VisitJson(body, true, values, visit);
    case BodyForm::kXml:
      return VisitXml(body, visit);
    case BodyForm::kMultipart: {
      bool all = true;
      ForEachPart(content_type, body, [&](const MultipartPart& part) {
        all = part.head.name.empty() || visit({{}, part.head.name, RequestValue::kPlain});
        for (std::size_t i = 0; all && i < part.head.file_name_count; ++i) {
          const std::string_view file_name = part.head.file_names[i];
          all = file_name.empty() || visit({{}, file_name, RequestValue::kPlain});
        }
        if (all && !part.head.has_file_name) all = visit({part.head.name, part.content, RequestValue::kPlain});
        return all;
      });
      return all;
    }
    case BodyForm::kRaw:
      break;
  }
  return body.empty() || visit({{}, body, RequestValue::kPlain});
}

bool ForEachReadBodyValue(std::string_view content_type, std::string_view body, const ValueVisitor& visit) {
  return ForEachBodyValue(content_type, body, visit) && (CharsetOfBody(content_type, body) != BodyCharset::kWide ||
                                                         ForEachBodyValue(content_type, WideToUtf8(body), visit));
}

bool ForEachValueOf(const HeaderEntry& header, const ValueVisitor& visit) {
  if (header.number == kCookieHeader)
    return VisitPairs(header.value, ';', RequestValue::kCookie, BodyValues::kAll, visit);
  const std::size_t query = header.number == kRefererHeader ? header.value.find('?') : kEnd;
  if (query != kEnd && !VisitPairs(std::string_view(header.value).substr(query + 1), '&', RequestValue::kCookie,
                                   BodyValues::kAll, visit))
    return false;
  return header.value.empty() || visit({header.name, header.value, RequestValue::kPercent});
}

bool ForEachHeaderValue(const RequestFacts& facts, const ValueVisitor& visit) {
  return std::all_of(facts.headers.begin(), facts.headers.end(),
                     [&visit](const HeaderEntry& header) { return ForEachValueOf(header, visit); });
}

}  // namespace qiv

#include "engines/injection/xss_markup.h"

#include <algorithm>
#include <array>
#include <string>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kLongestName = 48;  // bytes of an attribute's name that are looked at from behind

// Browsers of today know five of them; older ones took every control byte for one.
constexpr bool IsBlank(char c) { return static_cast<unsigned char>(c) <= ' '; }
constexpr bool IsQuote(char c) { return c == '"' || c == '\''; }
constexpr bool IsAttributeByte(char c) { return IsWordByte(c) || c == ':' || c == '-'; }

constexpr std::string_view kScriptScheme = "javascript:";

// Attributes whose value is a URL; others are read for "javascript:" in tags only.
constexpr std::array<std::string_view, 9> kUrlAttributes = {"action", "data",   "formaction", "from",      "href",
                                                            "src",    "srcdoc", "to",         "xlink:href"};
// Attributes that hold a URL behind something else.
constexpr std::array<std::string_view, 5> kListAttributes = {"by", "content", "from", "to", "values"};

template <typename List>
bool Holds(const List& list, std::string_view name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

bool IsEvent(std::string_view name, const InjectionLibrary& library) {
  return name.size() > 2 && name.substr(0, 2) == "on" && library.IsEvent(name);
}

// What tomorrow's browser may know as an event.
bool IsNamedLikeEvent(std::string_view name) {
  constexpr std::size_t kShortest = 5;
  return name.size() >= kShortest && name.substr(0, 2) == "on" && std::all_of(name.begin(), name.end(), IsLetter);
}

// Code without any of these does nothing: it calls, sets and builds nothing.
bool CanDoSomething(std::string_view code) { return code.find_first_of("([`={&\\") != kNone; }

}  // namespace

XssFinding CMarkupReader::Read(MarkupStart start) {
  finding_ = {};
  named_ = CNamedTags(text_);
  passed_over_tags_ = false;
  in_event_ = false;
  in_image_ = true;  // until a tag says something else
  in_tag_ = start == MarkupStart::kElement || start == MarkupStart::kRaw;
  if (in_tag_) {
    ReadElements(start == MarkupStart::kRaw);
    return finding_;
  }
  const char* const ends = start == MarkupStart::kDoubleQuoted   ? "\""
                           : start == MarkupStart::kSingleQuoted ? "'"
                                                                 : " \t\n\f\r>";
  const std::size_t end = text_.find_first_of(ends);
  tag_begin_ = end;
  if (end != kNone && text_[end] != '>') ReadAttributes(end + 1, false);
  return finding_;
}

void CMarkupReader::ReadElements(bool raw) {
  for (std::size_t pos = text_.find('<'); pos != kNone && finding_.type == XssType::kNone;) {
    const std::size_t name = pos + 1 < text_.size() && text_[pos + 1] == '/' ? pos + 2 : pos + 1;
    const bool tag = name < text_.size() && IsLetter(text_[name]);
    pos = text_.find('<', tag ? ReadTag(pos, raw) : pos + 1);
  }
}

// Where reading goes on: behind the tag's ">".
std::size_t CMarkupReader::ReadTag(std::size_t open, bool raw) {
  tag_begin_ = open;
  in_event_ = false;
  std::size_t pos = open + 2;  // behind a letter, or "</"
  while (pos < text_.size() && !IsBlank(text_[pos]) && text_[pos] != '/' && text_[pos] != '>' &&
         !(raw && text_[pos] == '<'))
    ++pos;
  const std::string_view name = text_.substr(open + 1, pos - open - 1);
  in_image_ = name == "img" || name == "image" || name == "input" || name == "source" || name == "video";
  if (pos == text_.size()) return pos;
  if (name == "script" && kinds_.Has(XssType::kScriptTag) && !(text_[pos] == '>' && named_.IsNamed(open, pos + 1))) {
    Find(XssType::kScriptTag, text_.substr(pos, 1));
    return text_.size();
  }
  return ReadAttributes(pos, raw);
}

std::size_t CMarkupReader::ReadAttributes(std::size_t pos, bool raw) {
  while (finding_.type == XssType::kNone) {
    while (pos < text_.size() && (IsBlank(text_[pos]) || text_[pos] == '/' || (raw && IsQuote(text_[pos])))) ++pos;
    if (pos > 1 && (text_[pos - 1] != ' ' || IsBlank(text_[pos - 2]))) in_event_ = false;
    if (pos == text_.size() || (raw && text_[pos] == '<')) return pos;
    if (text_[pos] == '>') return pos + 1;
    Attribute attribute;
    pos = ReadName(pos, raw, &attribute);
    if (pos < text_.size() && text_[pos] == '=') pos = ReadValue(pos + 1, raw, &attribute);
    Judge(attribute);
  }
  return text_.size();
}

// Leaves `pos` at the "=", or at what begins the next attribute.
std::size_t CMarkupReader::ReadName(std::size_t pos, bool raw, Attribute* attribute) const {
  const std::size_t begin = pos++;  // whatever it is, a "=" too
  while (pos < text_.size() && !IsBlank(text_[pos]) && text_[pos] != '/' && text_[pos] != '>' && text_[pos] != '=' &&
         !(raw && (IsQuote(text_[pos]) || text_[pos] == '<'))) {
    ++pos;
  }
  attribute->name = text_.substr(begin, pos - begin);
  while (pos < text_.size() && IsBlank(text_[pos])) ++pos;
  return pos;
}

std::size_t CMarkupReader::ReadValue(std::size_t pos, bool raw, Attribute* attribute) {
  while (pos < text_.size() && (IsBlank(text_[pos]) || (raw && IsQuote(text_[pos])))) ++pos;
  if (pos == text_.size()) return pos;
  std::size_t end = pos;
  if (!raw && IsQuote(text_[pos])) {
    end = std::min(text_.find(text_[pos], pos + 1), text_.size());
    attribute->value = text_.substr(pos + 1, end - pos - 1);
    if (attribute->value.find('<') != kNone) passed_over_tags_ = true;
    return std::min(end + 1, text_.size());
  }
  while (end < text_.size() && !IsBlank(text_[end]) && text_[end] != '>' &&
         !(raw && (IsQuote(text_[end]) || text_[end] == '<'))) {
    ++end;
  }
  attribute->value = text_.substr(pos, end - pos);
  // Line breaks and tabs written as references divide no value; where they were decoded, the rest of a URL follows.
  if (end < text_.size() && IsBlank(text_[end]) && text_[end] != ' ' && end > pos &&
      kScriptScheme.starts_with(attribute->value)) {
    attribute->value = text_.substr(pos, std::min(text_.find('>', end), text_.size()) - pos);
  }
  return end;
}

void CMarkupReader::Judge(const Attribute& attribute) {
  const std::string_view name = attribute.name;
  if (IsEvent(name, library_)) {
    if (CanDoSomething(attribute.value)) return Find(XssType::kHtmlEvent, attribute.value);
    in_event_ = in_event_ || !attribute.value.empty();
  } else if (in_tag_ && IsNamedLikeEvent(name) && attribute.value.find_first_of("(`") != kNone) {
    return Find(XssType::kHtmlEvent, attribute.value);
  } else if (in_event_ && CanDoSomething(name)) {
    return Find(XssType::kHtmlEvent, name);  // each "+" of the code was read as a blank
  }
  if (attribute.value.empty()) return;
  if (name == "srcdoc") return Find(XssType::kScriptLoading, attribute.value);
  const UrlPlace place = Holds(kListAttributes, name) ? UrlPlace::kAnywhere
                         : in_image_                  ? UrlPlace::kPicture
                                                      : UrlPlace::kAttribute;
  if (IsRunningUrl(attribute.value, place)) Find(XssType::kScriptLoading, attribute.value);
}

void CMarkupReader::Find(XssType type, std::string_view last) {
  if (!kinds_.Has(type)) return;
  const auto end = static_cast<std::size_t>(last.data() - text_.data()) + last.size();
  finding_ = {type, tag_begin_, end};
}

bool CMarkupReader::HoldsTellingAttribute(std::string_view text, const InjectionLibrary& library) {
  for (std::size_t equals = text.find('='); equals != kNone; equals = text.find('=', equals + 1)) {
    std::size_t end = equals;
    while (end > 0 && IsBlank(text[end - 1])) --end;
    std::size_t begin = end;
    while (begin > 0 && end - begin < kLongestName && IsAttributeByte(text[begin - 1])) --begin;
    const std::string_view name = text.substr(begin, end - begin);
    if (Holds(kUrlAttributes, name) || IsEvent(name, library)) return true;
  }
  return false;
}

}  // namespace qiv

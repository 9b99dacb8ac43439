#include "setup/xml_reader.h"

#include <algorithm>

#include "port/code_page.h"

namespace qiv::setup {
namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::size_t kMostDepth = 64;  ///< configuration files go to about ten

/// The character that "&...;" at the start of `text` stands for. Bytes of the reference; 0 when it is none.
std::size_t ReadReference(std::string_view text, std::string* out) {
  const std::size_t end = text.find(';');
  if (end == kEnd || end < 2 || end > 10) return 0;
  const std::string_view name = text.substr(1, end - 1);
  constexpr std::pair<std::string_view, char> kNames[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  for (const auto& [known, character] : kNames) {
    if (name == known) *out += character;
    if (name == known) return end + 1;
  }
  if (name.front() != '#') return 0;
  const bool is_hex = name.size() > 2 && name[1] == 'x';
  char32_t code = 0;
  for (const char c : name.substr(is_hex ? 2 : 1)) {
    const std::size_t digit = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
    if (digit >= (is_hex ? 16U : 10U)) return 0;
    code = code * (is_hex ? 16 : 10) + static_cast<char32_t>(digit);
  }
  if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return 0;
  AppendUtf8(code, out);
  return end + 1;
}

std::string Unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = text[i] == '&' ? ReadReference(text.substr(i), &plain) : 0;
    if (length == 0) plain += text[i];
    i += std::max<std::size_t>(length, 1);
  }
  return plain;
}

}  // namespace

CXmlReader::CXmlReader(std::string text) : text_(std::move(text)) {
  if (text_.starts_with("\xFF\xFE")) {
    std::u16string units;
    for (std::size_t i = 2; i + 1 < text_.size(); i += 2) {
      units +=
          static_cast<char16_t>(static_cast<unsigned char>(text_[i]) | static_cast<unsigned char>(text_[i + 1]) << 8);
    }
    text_ = Utf16ToUtf8(units);
  } else if (text_.starts_with("\xEF\xBB\xBF")) {
    at_ = 3;
  }
}

bool CXmlReader::Fail() {
  broken_ = true;
  at_ = text_.size();
  return false;
}

bool CXmlReader::SkipTo(std::string_view end) {
  const std::size_t found = text_.find(end, at_);
  if (found == kEnd) return Fail();
  at_ = found + end.size();
  return true;
}

void CXmlReader::Leave() {
  path_.resize(path_.size() - open_.back().name.size() - 1);
  open_.pop_back();
}

bool CXmlReader::NextElement() {
  if (is_empty_) Leave();
  is_empty_ = false;
  while (true) {
    const std::size_t tag = text_.find('<', at_);
    if (tag == kEnd) return open_.empty() ? false : Fail();
    at_ = tag;
    const std::string_view rest = std::string_view(text_).substr(tag);
    bool read = true;
    if (rest.starts_with("<!--")) {
      read = SkipTo("-->");
    } else if (rest.starts_with("<![CDATA[")) {
      read = SkipTo("]]>");
    } else if (rest.starts_with("<?") || rest.starts_with("<!")) {
      read = SkipTo(">");
    } else if (rest.starts_with("</")) {
      read = ReadEndTag();
    } else {
      return ReadStartTag();
    }
    if (!read) return false;
  }
}

bool CXmlReader::ReadEndTag() {
  const std::size_t end = text_.find('>', at_);
  if (end == kEnd || open_.empty()) return Fail();
  std::string_view name = std::string_view(text_).substr(at_ + 2, end - at_ - 2);
  name = name.substr(0, name.find_last_not_of(kSpace) + 1);
  if (name != open_.back().name) return Fail();
  Leave();
  at_ = end + 1;
  return true;
}

bool CXmlReader::ReadStartTag() {
  Element element;
  const std::size_t name_end = text_.find_first_of(" \t\r\n/>", at_ + 1);
  if (name_end == kEnd || name_end == at_ + 1 || open_.size() == kMostDepth) return Fail();
  element.name = text_.substr(at_ + 1, name_end - at_ - 1);
  at_ = name_end;
  while (true) {
    at_ = text_.find_first_not_of(kSpace, at_);
    if (at_ == kEnd) return Fail();
    if (text_[at_] == '>' || text_.compare(at_, 2, "/>") == 0) break;
    const std::size_t equals = text_.find('=', at_);
    const std::size_t quote = equals == kEnd ? kEnd : text_.find_first_not_of(kSpace, equals + 1);
    if (quote == kEnd || (text_[quote] != '"' && text_[quote] != '\'')) return Fail();
    const std::size_t end = text_.find(text_[quote], quote + 1);
    if (end == kEnd) return Fail();
    std::string_view name = std::string_view(text_).substr(at_, equals - at_);
    name = name.substr(0, name.find_last_not_of(kSpace) + 1);
    element.attributes.emplace_back(name, Unescaped(std::string_view(text_).substr(quote + 1, end - quote - 1)));
    at_ = end + 1;
  }
  is_empty_ = text_[at_] == '/';
  at_ += is_empty_ ? 2 : 1;
  path_ += "/" + element.name;
  open_.push_back(std::move(element));
  return true;
}

std::string CXmlReader::Attribute(std::string_view name) const {
  for (const auto& [known, value] : open_.back().attributes) {
    if (known == name) return value;
  }
  return {};
}

std::string CXmlReader::AttributeAround(std::string_view element, std::string_view name) const {
  for (auto around = open_.rbegin(); around != open_.rend(); ++around) {
    if (around->name != element) continue;
    for (const auto& [known, value] : around->attributes) {
      if (known == name) return value;
    }
    break;
  }
  return {};
}

}  // namespace qiv::setup

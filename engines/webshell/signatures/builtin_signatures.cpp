#include "engines/webshell/signatures/builtin_signatures.h"

#include <cstddef>
#include <map>
#include <string_view>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/signatures/signature_text.h"

namespace qiv {
namespace {

constexpr std::string_view kText =
#include "rules/webshell/builtin_signatures.inc"
    ;

// "\n" and "\r" are line ends, "\\" a backslash.
std::string Unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      plain += text[i];
      continue;
    }
    const char escaped = text[++i];
    plain += escaped == 'n' ? '\n' : escaped == 'r' ? '\r' : escaped;
  }
  return plain;
}

// The records of ASPX rules carry one more "0" than those of ASP rules.
void AddAspxField(std::string* text, std::size_t from) {
  constexpr std::string_view kShort = "{*}0{*}0{*}";
  for (std::size_t p = text->find(kShort, from); p != std::string::npos; p = text->find(kShort, p)) {
    text->insert(p, "{*}0");
    p = text->find("{#}", p);
  }
}

// Reads what is compiled in: a text that does not fit its form fails with the first test, not on a server.
class CReader {
 public:
  BuiltinSignatures Read() {
    for (const std::string_view line : Split(kText, '\n')) {
      if (line.empty() || line.front() == '#') continue;
      if (section_ == "[removal]") {  // the last one
        result_.removal.push_back(Unescaped(line));
      } else if (line.front() == '@') {
        list_ = &lists_[line];
      } else if (line.front() == '\t') {
        AddMember(line.substr(1));
      } else if (line.front() == '[') {
        section_ = line;
      } else {
        AddRule(Split(line, '\t'));
      }
    }
    return std::move(result_);
  }

 private:
  using Members = std::vector<std::string>;

  void AddMember(std::string_view text) {
    if (!text.starts_with('@')) return list_->push_back(Unescaped(text));
    const Members& other = lists_.at(text);
    list_->insert(list_->end(), other.begin(), other.end());
  }

  void AddRule(const std::vector<std::string_view>& fields) {
    enum Field : std::uint8_t { kPattern, kJoinedBy, kLimit, kEnglish, kChinese, kList };
    const SignatureName name{std::string(fields.at(kEnglish)), CCharSet::Utf8ToLocal(fields.at(kChinese))};
    std::vector<std::string_view> extra;
    if (fields.size() > kList) extra.assign(lists_.at(fields[kList]).begin(), lists_.at(fields[kList]).end());
    const std::size_t begin = result_.rules.size();
    AddSignatureRule(&result_.rules, Unescaped(fields[kPattern]), fields[kJoinedBy], name.Text(), extra,
                     DigitsToNumber(fields[kLimit]), section_ == "[php]" ? kPhpRuleKind : kAspRuleKind);
    if (section_ == "[aspx]") AddAspxField(&result_.rules, begin);
  }

  BuiltinSignatures result_;
  std::map<std::string_view, Members> lists_;
  Members* list_ = nullptr;
  std::string_view section_;
};

}  // namespace

BuiltinSignatures ReadBuiltinSignatures() { return CReader().Read(); }

}  // namespace qiv

#include "engines/page_script.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "common/text.h"

namespace qiv {
namespace {

struct Sink {
  std::string_view word;
  std::uint32_t reach;
  int member;  // 1: only behind a ".", -1: only without one, 0: either
  bool asp;
  bool aspx;
};

// Words that run, create or write what they are given.
constexpr Sink kSinks[] = {
    {"eval", kReachesCode, 0, true, true},
    {"execute", kReachesCode, -1, true, false},
    {"executeglobal", kReachesCode, -1, true, false},
    {"executestatement", kReachesCode, 0, true, true},
    {"addcode", kReachesCode, 1, true, true},
    {"compileassemblyfromsource", kReachesCode, 1, false, true},
    {"run", kReachesCommand, 1, true, true},
    {"exec", kReachesCommand, 1, true, true},
    {"shellexecute", kReachesCommand, 1, true, true},
    {"shell", kReachesCommand, -1, false, true},
    {"arguments", kReachesCommand, 1, false, true},
    {"start", kReachesCommand, 1, false, true},
    {"processstartinfo", kReachesCommand, -1, false, true},
    {"createobject", kReachesObject, 0, true, true},
    {"getobject", kReachesObject, 0, true, true},
    {"createinstance", kReachesObject, 1, false, true},
    {"load", kReachesObject, 1, false, true},
    {"invoke", kReachesObject, 1, false, true},
    {"savetofile", kReachesFile, 1, true, true},
    {"createtextfile", kReachesFile, 1, true, true},
    {"opentextfile", kReachesFile, 1, true, true},
    {"writealltext", kReachesFile, 1, false, true},
    {"writeallbytes", kReachesFile, 1, false, true},
    {"appendalltext", kReachesFile, 1, false, true},
    {"streamwriter", kReachesFile, 0, false, true},
    {"createtext", kReachesFile, 1, false, true},
    {"saveas", kReachesFile, 1, false, true},
};

constexpr std::string_view kScramblers[] = {
    "strreverse", "unescape",        "frombase64string",   "replace", "chr", "chrw", "mid",
    "split",      "createdecryptor", "transformfinalblock"};

constexpr std::string_view kNotFunctions[] = {"if",    "for",     "while", "switch", "catch",
                                              "using", "foreach", "lock",  "elseif", "select"};

constexpr bool IsNameByte(char c) { return IsWordByte(c) || static_cast<unsigned char>(c) >= 0x80; }

class CFollower {
 public:
  CFollower(std::string_view code, PageKind kind) : code_(code), aspx_(kind == PageKind::kAspx) {
    for (const Sink& sink : kSinks) {
      if (aspx_ ? sink.aspx : sink.asp) sinks_.emplace(sink.word, &sink);
    }
    // VBScript ends a statement with its line; the others with ";" or a brace.
    const auto count = [code](char c) { return static_cast<std::size_t>(std::count(code.begin(), code.end(), c)); };
    lines_ = count(';') * 2 < count('\n');
  }

  PageFlow Run() {
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t at = 0; at < code_.size();) at = Statement(at);
    }
    return std::move(flow_);
  }

 private:
  struct Word {
    std::string_view text;
    std::size_t begin;  // in the statement
    bool member;
    char next;  // the first byte behind it that is no blank
  };

  // The end of the statement at `at`; its words go to words_, outside strings and comments.
  std::size_t Statement(std::size_t at) {
    words_.clear();
    equals_ = std::string_view::npos;
    literal_ = 0;
    const std::size_t begin = at;
    char closed_by = '\n';
    char before = '\n';
    for (; at < code_.size(); ++at) {
      const char c = code_[at];
      if (c == '"' || (c == '\'' && !lines_)) {
        const std::size_t end = String(at);
        literal_ = std::max(literal_, end - at);
        at = end;
        before = '"';
        continue;
      }
      if (!lines_ && c == '/' && at + 1 < code_.size() && code_[at + 1] == '*') {
        const std::size_t close = code_.find("*/", at + 2);
        at = close == std::string_view::npos ? code_.size() : close + 1;
        continue;
      }
      if (c == '\'' || (!lines_ && c == '/' && at + 1 < code_.size() && code_[at + 1] == '/' && before != ':')) {
        at = std::min(code_.find('\n', at), code_.size());
        if (lines_) break;
        continue;
      }
      if (IsNameByte(c) && !IsDigit(c)) {
        const std::size_t start = at;
        while (at < code_.size() && IsNameByte(code_[at])) ++at;
        std::size_t next = at;
        while (next < code_.size() && (code_[next] == ' ' || code_[next] == '\t')) ++next;
        words_.push_back(
            {code_.substr(start, at - start), start - begin, before == '.', next < code_.size() ? code_[next] : '\n'});
        before = 'a';
        --at;
        continue;
      }
      if (lines_ ? c == '\n' || c == ':' : c == ';' || c == '{' || c == '}') {
        if (lines_ && c == '\n' && before == '_') continue;
        closed_by = c;
        break;
      }
      if (c == '=' && equals_ == std::string_view::npos) {
        const char next = at + 1 < code_.size() ? code_[at + 1] : '\n';
        if (next != '=' && before != '=' && before != '!' && before != '<' && before != '>') equals_ = at - begin;
      }
      if (c != ' ' && c != '\t' && c != '\r') before = c;
    }
    if (!words_.empty()) Judge(closed_by);
    return at + 1;
  }

  // The end of the string at `at` (its closing quote); strings end with their line.
  std::size_t String(std::size_t at) const {
    const char quote = code_[at];
    for (++at; at < code_.size(); ++at) {
      if (code_[at] == '\\' && !lines_) {
        ++at;
      } else if (code_[at] == quote || code_[at] == '\n') {
        return at;
      }
    }
    return code_.size();
  }

  bool IsSource(const Word& word) const {
    if (word.text == "request") return true;
    return aspx_ && word.member && (word.text == "text" || word.text == "value") && word.next != '=';
  }

  void Judge(char closed_by) {
    if (Declares(closed_by)) return;
    // Where the last word stands that the request feeds, and the last that comes out of scrambled text.
    std::size_t fed = 0;
    std::size_t scrambled = 0;
    const bool long_text =
        std::any_of(words_.begin(), words_.end(), [this](const Word& word) { return long_texts_.contains(word.text); });
    for (const Word& word : words_) {
      if (IsSource(word)) fed = word.begin + 1;
      if (!word.member && fed_.contains(word.text)) fed = word.begin + 1;
      if (!word.member && scrambled_.contains(word.text)) scrambled = word.begin + 1;
      const bool scrambler =
          std::find(std::begin(kScramblers), std::end(kScramblers), word.text) != std::end(kScramblers);
      const bool from_page = functions_.contains(word.text) && (literal_ > kLongLiteral || long_text);
      if (word.next == '(' && ((scrambler && literal_ > kLongLiteral) || from_page)) {
        scrambled = word.begin + 1;
      }
    }
    for (const Word& word : words_) {
      const auto sink = sinks_.find(word.text);
      if (sink != sinks_.end()) Reach(*sink->second, word, fed, scrambled);
      if (const auto function = functions_.find(word.text); function != functions_.end() && fed > word.begin) {
        for (const std::string_view parameter : function->second) fed_.insert(parameter);
      }
    }
    if (equals_ != std::string_view::npos) Assign(fed, scrambled);
  }

  void Reach(const Sink& sink, const Word& word, std::size_t fed, std::size_t scrambled) {
    if (sink.member != 0 && (sink.member > 0) != word.member) return;
    if (word.text == "arguments" && word.next != '=') return;
    if (sink.reach == kReachesCode && scrambled > word.begin + 1) flow_.reach |= kHiddenCode;
    if (fed <= word.begin + 1) return;
    if (flow_.reach == 0) flow_.detail = word.text;
    flow_.reach |= sink.reach;
  }

  void Assign(std::size_t fed, std::size_t scrambled) {
    const Word* target = nullptr;
    for (const Word& word : words_) {
      if (word.begin > equals_) break;
      if (word.text == "then" || word.text == "else") target = nullptr;
      if (word.text == "if" || word.text == "elseif") continue;
      target = &word;
      if (word.text == "session" || word.text == "application" || word.text == "viewstate") break;
    }
    if (target == nullptr || target->text == "request") return;
    if (literal_ > kHiddenLiteral) long_texts_.insert(target->text);
    if (fed > equals_) fed_.insert(target->text);
    if (scrambled > equals_) scrambled_.insert(target->text);
  }

  // "function name(a, b)", "sub name(a)", "type name(type a, type b) {".
  bool Declares(char closed_by) {
    std::size_t name = words_.size();
    for (std::size_t i = 0; i + 1 < words_.size(); ++i) {
      if (words_[i].text == "function" || words_[i].text == "sub") name = i + 1;
    }
    if (name == words_.size() && closed_by == '{' && equals_ == std::string_view::npos) {
      for (std::size_t i = 1; i < words_.size() && name == words_.size(); ++i) {
        if (words_[i].next == '(') name = i;
      }
    }
    if (name >= words_.size() || words_[name].member || words_[name].next != '(') return false;
    for (const std::string_view word : kNotFunctions) {
      if (words_[0].text == word || words_[name].text == word) return false;
    }
    if (words_[0].text == "end" || words_[0].text == "exit") return false;
    std::vector<std::string_view>& parameters = functions_[words_[name].text];
    parameters.clear();
    for (std::size_t i = name + 1; i < words_.size(); ++i) {
      if (words_[i].next == ',' || words_[i].next == ')') parameters.push_back(words_[i].text);
    }
    // What stands behind a one-line body's bracket is judged with the next statement only.
    return closed_by == '{' || lines_;
  }

  static constexpr std::size_t kLongLiteral = 24;  // bytes: shorter texts are words, not code

  std::string_view code_;
  bool aspx_;
  bool lines_;
  std::unordered_map<std::string_view, const Sink*> sinks_;
  std::unordered_map<std::string_view, std::vector<std::string_view>> functions_;
  std::unordered_set<std::string_view> fed_;
  static constexpr std::size_t kHiddenLiteral = 120;  // bytes: long enough for a program
  std::unordered_set<std::string_view> scrambled_;
  std::unordered_set<std::string_view> long_texts_;
  std::vector<Word> words_;
  std::size_t equals_ = std::string_view::npos;
  std::size_t literal_ = 0;
  PageFlow flow_;
};

}  // namespace

std::string ServerCode(std::string_view page) {
  constexpr std::size_t kTag = 256;  // bytes: a longer opening tag is none
  std::string code;
  bool any = false;
  for (std::size_t p = page.find('<'); p != std::string_view::npos;) {
    const std::string_view rest = page.substr(p);
    std::size_t begin = 0;
    std::string_view close;
    if (rest.starts_with("<%")) {
      begin = p + 2;
      close = "%>";
    } else if (rest.starts_with("<script")) {
      const std::size_t tag = rest.substr(0, kTag).find('>');
      if (tag == std::string_view::npos || rest.substr(0, tag).find("runat") == std::string_view::npos) {
        p = page.find('<', p + 1);
        continue;
      }
      begin = p + tag + 1;
      close = "</script";
    } else {
      p = page.find('<', p + 1);
      continue;
    }
    any = true;
    std::size_t end = page.find(close, begin);
    end = std::min(end, page.size());
    const std::string_view piece = page.substr(begin, end - begin);
    if (!piece.starts_with("@")) code.append(piece).append("\n");
    p = page.find('<', end);
  }
  return any && !code.empty() ? code : std::string(page);
}

PageFlow FollowPage(std::string_view code, PageKind kind) { return CFollower(code, kind).Run(); }

std::string JoinStrings(std::string_view code) {
  // chr(n) becomes "c"; then the joins between two strings are dropped.
  std::string written;
  written.reserve(code.size());
  for (std::size_t i = 0; i < code.size(); ++i) {
    const std::string_view rest = code.substr(i);
    const std::size_t head = rest.starts_with("chr(") ? 4 : rest.starts_with("chrw(") ? 5 : 0;
    if (head != 0 && (i == 0 || !IsNameByte(code[i - 1]))) {
      std::size_t p = i + head;
      while (p < code.size() && p < i + head + 4 && IsDigit(code[p])) ++p;
      const std::uint32_t value = DigitsToNumber(code.substr(i + head, p - i - head));
      if (p < code.size() && code[p] == ')' && value >= 32 && value < 127) {
        written += '"';
        const char c = static_cast<char>(value);
        written += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
        written += '"';
        i = p;
        continue;
      }
    }
    written += code[i];
  }
  std::string joined;
  joined.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    if (written[i] == '"') {
      std::size_t p = i + 1;
      while (p < written.size() && (written[p] == ' ' || written[p] == '\t')) ++p;
      if (p < written.size() && (written[p] == '&' || written[p] == '+')) {
        ++p;
        while (p < written.size() && (written[p] == ' ' || written[p] == '\t')) ++p;
        if (p < written.size() && written[p] == '"') {
          i = p;
          continue;
        }
      }
    }
    joined += written[i];
  }
  return joined;
}

}  // namespace qiv

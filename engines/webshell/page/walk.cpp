#include "engines/webshell/page/walk.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "engines/webshell/page/words.h"

namespace qiv {
namespace {

// Words that end a part of a statement in Basic.
bool Divides(std::string_view word) {
  return word == "then" || word == "else" || word == "if" || word == "elseif" || word == "while" || word == "until";
}

// Words in front of a statement in Basic.
constexpr std::string_view kBasicHeads[] = {"set",  "let",    "call",    "const",  "for",   "each",  "do",
                                            "loop", "public", "private", "return", "throw", "using", "byval"};

constexpr std::size_t kUsualTokens = 32;  // of a statement

}  // namespace

std::size_t CPageWalk::Run(CPageLayers::Part part) {
  basic_ = part.syntax == ScriptSyntax::kBasic;
  functions_.End();
  expressions_.Restart();
  open_ = false;
  starts_program_ = false;
  CStatements statements(part.code, part.syntax, &names_);
  char closed_by = '\n';
  tokens_.clear();
  tokens_.reserve(kUsualTokens);
  std::size_t tokens = 0;
  PageCodePlace place = part.evaluated;
  for (std::size_t begin = 0; statements.Next(&tokens_, &closed_by); begin = statements.At()) {
    if (!part.evaluated.inner) place = {part.syntax, {begin, statements.At() - begin}};
    findings_.At(place);
    tokens += tokens_.size();
    continues_ = closed_by == '\0';
    if (open_) {
      Continue();
    } else if (!tokens_.empty()) {
      Statement(closed_by);
    }
    starts_program_ = starts_program_ || std::any_of(tokens_.begin(), tokens_.end(), [](const Token& token) {
                        return token.kind == Token::kName && token.text == "processstartinfo";
                      });
    if (continues_) continue;
    expressions_.SetInitialises(closed_by == '{' && starts_program_);
    starts_program_ = false;
  }
  return tokens;
}

void CPageWalk::Statement(char closed_by) {
  if (Declares(closed_by)) return;
  basic_ ? BasicStatement() : BracesStatement();
}

void CPageWalk::BasicStatement() {
  const std::string_view first = tokens_[0].kind == Token::kName ? tokens_[0].text : std::string_view{};
  if (first == "end" || first == "exit") {
    if (first == "end" && tokens_.size() > 1 &&
        IsOneOf(tokens_[1].text, std::initializer_list<std::string_view>{"function", "sub", "property"})) {
      functions_.End();
    }
    return;
  }
  std::size_t begin = 0;
  bool condition = false;
  for (std::size_t i = 0; i < tokens_.size(); ++i) {
    if (tokens_[i].kind != Token::kName) continue;
    const std::string_view word = tokens_[i].text;
    if (Divides(word)) {
      Segment(begin, i, condition);
      begin = i + 1;
      condition = word != "then" && word != "else";
    } else if (i == begin && (word == "case" || word == "select")) {
      condition = true;
      begin = i + 1;
    } else if (i == begin && IsOneOf(word, kBasicHeads)) {
      if (word == "return") expressions_.BeginReturn();
      begin = i + 1;
    } else if (i == begin && (word == "dim" || word == "redim" || word == "static")) {
      ClearLocals(i + 1);
      begin = i + 1;
    } else if (i == begin && word == "with") {
      Segment(i + 1, tokens_.size(), true);
      expressions_.SetWith();
      return;
    }
  }
  LastSegment(begin, condition);
}

// Names of a function's own begin anew.
void CPageWalk::ClearLocals(std::size_t begin) {
  for (std::size_t k = begin; k < tokens_.size() && !functions_.Current().empty(); ++k) {
    if (tokens_[k].kind == Token::kName && tokens_[k - 1].text != "as" && scopes_.Find(tokens_[k].text) != nullptr) {
      scopes_.Store(tokens_[k].text, {});
    }
    if (tokens_[k].mark == '=') break;
  }
}

void CPageWalk::BracesStatement() {
  constexpr std::string_view kHeads[] = {"if",    "while", "for",   "foreach", "switch",
                                         "using", "lock",  "catch", "with",    "elseif"};
  constexpr std::string_view kSkipped[] = {"else", "do", "try", "finally", "throw", "case", "var", "const"};
  std::size_t begin = 0;
  while (begin < tokens_.size() && tokens_[begin].kind == Token::kName) {
    const std::string_view word = tokens_[begin].text;
    if (IsOneOf(word, kSkipped)) {
      ++begin;
    } else if (word == "return") {
      if (!functions_.Current().empty()) expressions_.BeginReturn();
      ++begin;
      break;
    } else if (IsOneOf(word, kHeads) && begin + 1 < tokens_.size() && tokens_[begin + 1].mark == '(') {
      std::size_t open = 0;
      std::size_t end = begin + 1;
      for (; end < tokens_.size(); ++end) {
        if (tokens_[end].mark == '(') ++open;
        if (tokens_[end].mark == ')' && --open == 0) break;
      }
      const bool condition = word == "if" || word == "while" || word == "switch";
      if (end == tokens_.size() && continues_) {
        head_brackets_ = open;
        LastSegment(begin + 2, condition);
        return;
      }
      Segment(begin + 2, end, condition);
      begin = std::min(end + 1, tokens_.size());
    } else {
      break;
    }
  }
  LastSegment(begin, false);
}

// A further piece of a statement whose last segment is open.
void CPageWalk::Continue() {
  std::size_t begin = 0;
  for (std::size_t i = 0; i < tokens_.size(); ++i) {
    const Token& token = tokens_[i];
    if (basic_ && token.kind == Token::kName && Divides(token.text)) {
      Steps(begin, i);
      EndSegment();
      BeginSegment(token.text != "then" && token.text != "else");
      begin = i + 1;
    } else if (head_brackets_ > 0) {
      if (token.mark == '(') ++head_brackets_;
      if (token.mark != ')' || --head_brackets_ > 0) continue;
      Steps(begin, i);
      EndSegment();
      BeginSegment(false);
      begin = i + 1;
    }
  }
  Steps(begin, tokens_.size());
  if (!continues_) EndSegment();
  open_ = continues_;
}

// "function name(a, b)", "sub name(a)", "type name(type a, type b) {".
bool CPageWalk::Declares(char closed_by) {
  const bool block = !basic_ && closed_by == '{';
  std::size_t name = DeclaredByWord();
  if (name == kNone && block) name = DeclaredByBraces();
  if (name == kRefused) return false;
  if (name >= tokens_.size() && block && DeclaresProperty()) return true;
  if (name >= tokens_.size() || tokens_[name].kind != Token::kName) return false;
  if (!basic_ && (name + 1 >= tokens_.size() || tokens_[name + 1].mark != '(')) return false;
  Declare(name);
  return true;
}

// Where the name stands; kNone: nothing says so, kRefused: nothing is declared.
std::size_t CPageWalk::DeclaredByWord() const {
  const std::size_t most = std::min<std::size_t>(tokens_.size(), 8);
  for (std::size_t i = 0; i + 1 < most && tokens_[i].kind == Token::kName; ++i) {
    const std::string_view word = tokens_[i].text;
    if (word == "end" || word == "exit") return kRefused;
    const bool property = basic_ && word == "property";
    if (word != "function" && word != "sub" && !property) continue;
    const bool accessor = word == "property" && i + 1 < tokens_.size() &&
                          IsOneOf(tokens_[i + 1].text, std::initializer_list<std::string_view>{"get", "let", "set"});
    return accessor ? i + 2 : i + 1;
  }
  return kNone;
}

std::size_t CPageWalk::DeclaredByBraces() const {
  constexpr std::string_view kNotFunctions[] = {"if",     "for",     "while", "switch", "catch",
                                                "using",  "foreach", "lock",  "elseif", "else",
                                                "select", "with",    "do",    "return", "new"};
  for (std::size_t i = 1; i + 1 < tokens_.size(); ++i) {
    if (tokens_[i].kind == Token::kMark && tokens_[i].mark == '=') return kRefused;
    if (tokens_[i + 1].mark != '(') continue;
    const bool declares = tokens_[i].kind == Token::kName && tokens_[i - 1].mark != '.' &&
                          !IsOneOf(tokens_[i].text, kNotFunctions) && !IsOneOf(tokens_[i - 1].text, kNotFunctions);
    return declares ? i : kRefused;
  }
  return kNone;
}

// "type name {": what its "get" returns is what reading the name gives.
bool CPageWalk::DeclaresProperty() {
  constexpr std::string_view kNotProperties[] = {"class", "namespace", "interface", "struct", "enum",  "new",
                                                 "else",  "do",        "try",       "return", "throw", "unsafe"};
  if (tokens_.size() < 2 || tokens_.size() > 6) return false;
  const bool names = std::all_of(tokens_.begin(), tokens_.end(), [&](const Token& token) {
    return token.kind == Token::kName && !IsOneOf(token.text, kNotProperties);
  });
  if (!names) return false;
  functions_.Begin(tokens_.back().text, {});
  return true;
}

void CPageWalk::Declare(std::size_t name) {
  constexpr std::size_t kMostParameters = 64;
  std::vector<std::string_view> parameters;
  for (std::size_t i = name + 2; i < tokens_.size() && parameters.size() < kMostParameters; ++i) {
    const bool last = i + 1 >= tokens_.size() || tokens_[i + 1].mark == ',' || tokens_[i + 1].mark == ')' ||
                      tokens_[i + 1].mark == ':' || tokens_[i + 1].text == "as" || tokens_[i + 1].mark == '=';
    if (tokens_[i].kind == Token::kName && last && tokens_[i - 1].text != "as" && tokens_[i - 1].mark != ':')
      parameters.push_back(tokens_[i].text);
    if (tokens_[i].mark == ')') break;
  }
  functions_.Begin(tokens_[name].text, std::move(parameters));
}

void CPageWalk::Segment(std::size_t begin, std::size_t end, bool condition) {
  BeginSegment(condition);
  Steps(begin, end);
  EndSegment();
}

// The rest of the tokens, and of the statement where it goes on.
void CPageWalk::LastSegment(std::size_t begin, bool condition) {
  BeginSegment(condition);
  Steps(begin, tokens_.size());
  if (!continues_) EndSegment();
  open_ = continues_;
}

void CPageWalk::BeginSegment(bool condition) {
  expressions_.Begin(condition);
  stepped_ = false;
}

void CPageWalk::Steps(std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) expressions_.Step(tokens_[i]);
  stepped_ = stepped_ || begin < end;
}

void CPageWalk::EndSegment() {
  head_brackets_ = 0;
  expressions_.End(!stepped_);
}

}  // namespace qiv

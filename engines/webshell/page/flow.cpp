// The statements of a page. Three passes at most let functions and variables stand behind their use; text that turns
// out to be evaluated is followed after the code that evaluates it.
#include "engines/webshell/page/follower.h"

#include <initializer_list>
#include <utility>

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
constexpr int kPasses = 3;                // what a call says reaches a function's result, and its caller, by the third

}  // namespace

PageFlow CPageFollower::Run(CWalkBudget* walks) {
  std::size_t steps = 0;
  for (int pass = 0; pass < kPasses; ++pass) {
    if (pass > 0 && !walks->Spend(steps)) break;
    steps = 0;
    changed_ = false;
    opaque_ = 0;
    joins_left_ = 2 * size_ + 4 * kRoom;
    for (std::size_t i = 0; i < parts_.size(); ++i) steps += Walk(parts_[i]) * CWalkBudget::kPageToken;
    if (pass == 0) walks->Owe(steps);
    if (!changed_) break;
  }
  if (scope_.Lost()) flow_.reach |= kLosesSight;
  return std::move(flow_);
}

// The number of tokens.
std::size_t CPageFollower::Walk(Part part) {
  basic_ = part.syntax == ScriptSyntax::kBasic;
  function_ = {};
  with_ = {};
  open_ = false;
  starts_program_ = false;
  CStatements statements(part.code, part.syntax, &names_);
  char closed_by = '\n';
  tokens_.clear();
  tokens_.reserve(kUsualTokens);
  std::size_t tokens = 0;
  while (statements.Next(&tokens_, &closed_by)) {
    tokens += tokens_.size();
    continues_ = closed_by == '\0';
    if (open_) {
      GoOn();
    } else if (!tokens_.empty()) {
      Statement(closed_by);
    }
    starts_program_ = starts_program_ || std::any_of(tokens_.begin(), tokens_.end(), [](const Token& token) {
                        return token.kind == Token::kName && token.text == "processstartinfo";
                      });
    if (continues_) continue;
    initialises_ = closed_by == '{' && starts_program_;
    starts_program_ = false;
  }
  return tokens;
}

void CPageFollower::Statement(char closed_by) {
  if (Declares(closed_by)) return;
  basic_ ? BasicStatement() : BracesStatement();
}

void CPageFollower::BasicStatement() {
  const std::string_view first = tokens_[0].kind == Token::kName ? tokens_[0].text : std::string_view{};
  if (first == "end" || first == "exit") {
    if (first == "end" && tokens_.size() > 1 &&
        IsOneOf(tokens_[1].text, std::initializer_list<std::string_view>{"function", "sub", "property"})) {
      function_ = {};
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
      if (word == "return") targets_.push_back({function_, false, false, {}, PageObject::kNone});
      begin = i + 1;
    } else if (i == begin && (word == "dim" || word == "redim" || word == "static")) {
      // Names of a function's own begin anew.
      for (std::size_t k = i + 1; k < tokens_.size() && !function_.empty(); ++k) {
        if (tokens_[k].kind == Token::kName && tokens_[k - 1].text != "as") {
          if (PageValue* const variable = scope_.Find(tokens_[k].text)) scope_.Store(tokens_[k].text, {});
        }
        if (tokens_[k].mark == '=') break;
      }
      begin = i + 1;
    } else if (i == begin && word == "with") {
      Segment(i + 1, tokens_.size(), true);
      with_ = Copy(frames_[0].value);
      return;
    }
  }
  LastSegment(begin, condition);
}

void CPageFollower::BracesStatement() {
  constexpr std::string_view kHeads[] = {"if",    "while", "for",   "foreach", "switch",
                                         "using", "lock",  "catch", "with",    "elseif"};
  constexpr std::string_view kSkipped[] = {"else", "do", "try", "finally", "throw", "case", "var", "const"};
  std::size_t begin = 0;
  while (begin < tokens_.size() && tokens_[begin].kind == Token::kName) {
    const std::string_view word = tokens_[begin].text;
    if (IsOneOf(word, kSkipped)) {
      ++begin;
    } else if (word == "return") {
      if (!function_.empty()) targets_.push_back({function_, false, false, {}, PageObject::kNone});
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
void CPageFollower::GoOn() {
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
bool CPageFollower::Declares(char closed_by) {
  constexpr std::string_view kNotFunctions[] = {"if",     "for",     "while", "switch", "catch",
                                                "using",  "foreach", "lock",  "elseif", "else",
                                                "select", "with",    "do",    "return", "new"};
  std::size_t name = tokens_.size();
  const std::size_t most = std::min<std::size_t>(tokens_.size(), 8);
  for (std::size_t i = 0; i + 1 < most; ++i) {
    if (tokens_[i].kind != Token::kName) break;
    const std::string_view word = tokens_[i].text;
    if (word == "end" || word == "exit") return false;
    if (word == "function" || word == "sub" || (basic_ && word == "property")) {
      name = i + 1;
      if (word == "property" && name < tokens_.size() &&
          IsOneOf(tokens_[name].text, std::initializer_list<std::string_view>{"get", "let", "set"})) {
        ++name;
      }
      break;
    }
  }
  if (name >= tokens_.size() && !basic_ && closed_by == '{') {
    for (std::size_t i = 1; i + 1 < tokens_.size(); ++i) {
      if (tokens_[i].kind == Token::kMark && tokens_[i].mark == '=') return false;
      if (tokens_[i + 1].mark != '(') continue;
      if (tokens_[i].kind != Token::kName || tokens_[i - 1].mark == '.' || IsOneOf(tokens_[i].text, kNotFunctions) ||
          IsOneOf(tokens_[i - 1].text, kNotFunctions)) {
        return false;
      }
      name = i;
      break;
    }
  }
  if (name >= tokens_.size() && !basic_ && closed_by == '{' && DeclaresProperty()) return true;
  if (name >= tokens_.size() || tokens_[name].kind != Token::kName) return false;
  if (!basic_ && (name + 1 >= tokens_.size() || tokens_[name + 1].mark != '(')) return false;
  Declare(name, tokens_.size());
  return true;
}

// "type name {": what its "get" returns is what reading the name gives.
bool CPageFollower::DeclaresProperty() {
  constexpr std::string_view kNotProperties[] = {"class", "namespace", "interface", "struct", "enum",  "new",
                                                 "else",  "do",        "try",       "return", "throw", "unsafe"};
  if (tokens_.size() < 2 || tokens_.size() > 6) return false;
  const bool names = std::all_of(tokens_.begin(), tokens_.end(), [&](const Token& token) {
    return token.kind == Token::kName && !IsOneOf(token.text, kNotProperties);
  });
  if (!names) return false;
  function_ = tokens_.back().text;
  scope_.Declare(function_, {});
  return true;
}

void CPageFollower::Declare(std::size_t name, std::size_t end) {
  constexpr std::size_t kMostParameters = 64;
  function_ = tokens_[name].text;
  std::vector<std::string_view> parameters;
  for (std::size_t i = name + 2; i < end && parameters.size() < kMostParameters; ++i) {
    const bool last = i + 1 >= end || tokens_[i + 1].mark == ',' || tokens_[i + 1].mark == ')' ||
                      tokens_[i + 1].mark == ':' || tokens_[i + 1].text == "as" || tokens_[i + 1].mark == '=';
    if (tokens_[i].kind == Token::kName && last && tokens_[i - 1].text != "as" && tokens_[i - 1].mark != ':')
      parameters.push_back(tokens_[i].text);
    if (tokens_[i].mark == ')') break;
  }
  const PageFunction& function = scope_.Declare(function_, std::move(parameters));
  const bool called_back = function_ == "raisecallbackevent" || function_ == "raisepostbackevent";
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    PageValue parameter;
    if (service_) flow_.reach |= kHearsClient;
    parameter.marks = function.marks[i] | (service_ || called_back ? kFed : 0U);
    scope_.Store(function.parameters[i], std::move(parameter));
  }
}

void CPageFollower::Segment(std::size_t begin, std::size_t end, bool condition) {
  BeginSegment(condition);
  Steps(begin, end);
  EndSegment();
}

// The rest of the tokens, and of the statement where it goes on.
void CPageFollower::LastSegment(std::size_t begin, bool condition) {
  BeginSegment(condition);
  Steps(begin, tokens_.size());
  if (!continues_) EndSegment();
  open_ = continues_;
}

void CPageFollower::BeginSegment(bool condition) {
  if (frames_.empty()) frames_.Push();
  depth_ = 0;
  ignored_ = 0;
  frames_[0].Clear();
  open_condition_ = condition;
  stepped_ = false;
}

void CPageFollower::Steps(std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) Step(tokens_[i], open_condition_);
  stepped_ = stepped_ || begin < end;
}

void CPageFollower::EndSegment() {
  head_brackets_ = 0;
  if (!stepped_) {
    targets_.clear();
    return;
  }
  while (depth_ > 0) Close();
  FinishOperand(' ');
  if (!Top().each.empty()) Set(Top().each, Top().value, false);
  Assign();
}

PageFlow FollowPage(const PageCode& code, PageKind kind, CWalkBudget* walks) {
  return CPageFollower(code, kind).Run(walks);
}

}  // namespace qiv

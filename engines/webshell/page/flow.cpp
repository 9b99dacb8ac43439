// The statements of a page. Three passes at most let functions and variables stand behind their use; text that turns
// out to be evaluated is followed after the code that evaluates it.
#include "engines/webshell/page/follower.h"

#include <initializer_list>
#include <utility>

namespace qiv {
namespace {

constexpr int kPasses = 3;  // what a call says reaches a function's result, and its caller, by the third

}  // namespace

PageFlow CPageFollower::Run() {
  for (int pass = 0; pass < kPasses; ++pass) {
    changed_ = false;
    opaque_ = 0;
    for (std::size_t i = 0; i < parts_.size(); ++i) Walk(parts_[i]);
    if (!changed_) break;
  }
  return std::move(flow_);
}

void CPageFollower::Walk(Part part) {
  basic_ = part.syntax == ScriptSyntax::kBasic;
  function_ = {};
  with_ = {};
  CStatements& statements = statements_.emplace_back(part.code, part.syntax);
  char closed_by = '\n';
  while (statements.Next(&tokens_, &closed_by)) {
    if (!tokens_.empty()) Statement(closed_by);
    initialises_ = closed_by == '{' && std::any_of(tokens_.begin(), tokens_.end(), [](const Token& token) {
                     return token.kind == Token::kName && token.text == "processstartinfo";
                   });
  }
}

void CPageFollower::Statement(char closed_by) {
  if (Declares(closed_by)) return;
  const std::string_view first = tokens_[0].kind == Token::kName ? tokens_[0].text : std::string_view{};
  std::size_t begin = 0;
  if (basic_) {
    if (first == "end" || first == "exit") {
      if (first == "end" && tokens_.size() > 1 &&
          IsOneOf(tokens_[1].text, std::initializer_list<std::string_view>{"function", "sub", "property"})) {
        function_ = {};
      }
      return;
    }
    bool condition = false;
    for (std::size_t i = 0; i < tokens_.size(); ++i) {
      if (tokens_[i].kind != Token::kName) continue;
      const std::string_view word = tokens_[i].text;
      if (word == "then" || word == "else" || word == "if" || word == "elseif" || word == "while" || word == "until") {
        Segment(begin, i, condition);
        begin = i + 1;
        condition = word != "then" && word != "else";
      } else if (i == begin && (word == "case" || word == "select")) {
        condition = true;
        begin = i + 1;
      } else if (i == begin && IsOneOf(word, std::initializer_list<std::string_view>{
                                                 "set", "let", "call", "const", "for", "each", "do", "loop", "public",
                                                 "private", "return", "throw", "using", "byval"})) {
        if (word == "return") targets_.push_back({function_, false, false, {}, PageObject::kNone});
        begin = i + 1;
      } else if (i == begin && (word == "dim" || word == "redim" || word == "static")) {
        // Names of a function's own begin anew.
        for (std::size_t k = i + 1; k < tokens_.size() && !function_.empty(); ++k) {
          if (tokens_[k].kind == Token::kName && tokens_[k - 1].text != "as") {
            if (const auto found = variables_.find(tokens_[k].text); found != variables_.end()) found->second = {};
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
    Segment(begin, tokens_.size(), condition);
    return;
  }
  constexpr std::string_view kHeads[] = {"if",    "while", "for",   "foreach", "switch",
                                         "using", "lock",  "catch", "with",    "elseif"};
  constexpr std::string_view kSkipped[] = {"else", "do", "try", "finally", "throw", "case", "var", "const"};
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
      Segment(begin + 2, end, word == "if" || word == "while" || word == "switch");
      begin = std::min(end + 1, tokens_.size());
    } else {
      break;
    }
  }
  Segment(begin, tokens_.size(), false);
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
  functions_[function_].parameters.clear();
  return true;
}

void CPageFollower::Declare(std::size_t name, std::size_t end) {
  function_ = tokens_[name].text;
  // A name made of escapes lives as long as its statements do.
  Function& function = functions_[function_];
  function.parameters.clear();
  for (std::size_t i = name + 2; i < end; ++i) {
    const bool last = i + 1 >= end || tokens_[i + 1].mark == ',' || tokens_[i + 1].mark == ')' ||
                      tokens_[i + 1].mark == ':' || tokens_[i + 1].text == "as" || tokens_[i + 1].mark == '=';
    if (tokens_[i].kind == Token::kName && last && tokens_[i - 1].text != "as" && tokens_[i - 1].mark != ':')
      function.parameters.push_back(tokens_[i].text);
    if (tokens_[i].mark == ')') break;
  }
  const bool called_back = function_ == "raisecallbackevent" || function_ == "raisepostbackevent";
  function.marks.resize(std::max(function.marks.size(), function.parameters.size()));
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    PageValue& parameter = variables_[function.parameters[i]];
    parameter = {};
    if (service_) flow_.reach |= kHearsClient;
    parameter.marks = function.marks[i] | (service_ || called_back ? kFed : 0U);
  }
}

void CPageFollower::Segment(std::size_t begin, std::size_t end, bool condition) {
  if (frames_.empty()) frames_.resize(1);
  depth_ = 0;
  ignored_ = 0;
  frames_[0].Clear();
  if (begin >= end) {
    targets_.clear();
    return;
  }
  for (std::size_t i = begin; i < end; ++i) Step(tokens_[i], condition);
  while (depth_ > 0) Close();
  FinishOperand(' ');
  if (!Top().each.empty()) Set(Top().each, Top().value, false);
  Assign();
}

PageFlow FollowPage(const PageCode& code, PageKind kind) { return CPageFollower(code, kind).Run(); }

}  // namespace qiv

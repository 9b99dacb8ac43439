#include "engines/webshell/page/expressions.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kDeepest = 64;  // open brackets; deeper ones are no code that somebody wrote
constexpr std::size_t kMostArguments = 16;
constexpr std::size_t kMostTargets = 32;

bool BeginsLikeSql(std::string_view text) {
  text = Trim(text);
  if (text.starts_with("select case")) return false;
  constexpr std::string_view kVerbs[] = {"select ", "insert ",  "update ",   "delete ", "exec ",
                                         "create ", "drop ",    "truncate ", "alter ",  "backup ",
                                         "use ",    "declare ", "dbcc ",     "execute "};
  return std::any_of(std::begin(kVerbs), std::end(kVerbs), [text](std::string_view v) { return text.starts_with(v); });
}

}  // namespace

void CPageExpressions::Begin(bool condition) {
  if (frames_.empty()) frames_.Push();
  depth_ = 0;
  ignored_ = 0;
  frames_[0].Clear();
  condition_ = condition;
}

void CPageExpressions::End(bool empty) {
  if (empty) {
    targets_.clear();
    return;
  }
  while (depth_ > 0) Close();
  FinishOperand(' ');
  if (!Top().each.empty()) Set(Top().each, Top().value, false);
  Assign();
}

void CPageExpressions::Step(const Token& token) {
  switch (token.kind) {
    case Token::kName:
      Word(token.text);
      break;
    case Token::kMark:
      Mark(token.mark);
      break;
    default:
      Constant(token);
  }
}

void CPageExpressions::Constant(const Token& token) {
  BeginOperand();
  PageFrame& frame = Top();
  frame.state = PageOperand::kValue;
  frame.current.Clear();
  frame.current.known = true;
  frame.current.text = token.text;
  if (token.kind == Token::kString) {
    if (token.text.size() >= kLongLiteral) frame.current.marks |= kLong;
    if (BeginsLikeSql(token.text)) frame.current.marks |= kSql;
    constexpr std::string_view kServers[] = {"provider=", "driver=", "server=", "data source="};
    if (std::any_of(std::begin(kServers), std::end(kServers), [&](std::string_view w) { return Holds(token.text, w); }))
      frame.current.marks |= kServer;
    constexpr std::string_view kRuns[] = {".xp_cmdshell", "exec xp_cmdshell", ".sp_oacreate", "exec sp_oacreate"};
    if (std::any_of(std::begin(kRuns), std::end(kRuns), [&](std::string_view r) { return Holds(token.text, r); }))
      frame.current.marks |= kProgram;
    if ((frame.current.marks & kProgram) != 0) findings_.Note(kRunsText);
  }
}

void CPageExpressions::Word(std::string_view word) {
  PageFrame& frame = Top();
  if (frame.behind_dot) {
    frame.behind_dot = false;
    frame.state = PageOperand::kWord;
    frame.word = word;
    frame.word_member = true;
    return;
  }
  constexpr std::string_view kBasicMarks[] = {"and",  "or", "not",  "xor", "mod",    "is",     "isnot",
                                              "like", "to", "step", "eqv", "orelse", "andalso"};
  made_next_ = made_next_ || word == "new";
  if (word == "new" || word == "typeof" || word == "byval" || word == "byref" || word == "await" || word == "ref" ||
      word == "out" || word == "addressof") {
    return;
  }
  if (word == "in" && frame.state == PageOperand::kWord) {
    frame.each = frame.word;
    frame.state = PageOperand::kNone;
    frame.has_value = false;
    return;
  }
  if ((layers_.IsBasic() && IsOneOf(word, kBasicMarks)) || word == "instanceof") {
    FinishOperand('x');
    return;
  }
  if (word == "as" && frame.state != PageOperand::kNone) {
    if (!layers_.IsBasic()) {
      FinishOperand('?');
    } else if (frame.state == PageOperand::kWord && depth_ == 0 && targets_.empty()) {
      // "dim x as new type(...)": what is made is what is assigned.
      targets_.push_back({frame.word, false, false, {}, PageObject::kNone});
      frame.state = PageOperand::kNone;
    }
    return;
  }
  const bool made = std::exchange(made_next_, false);
  BeginOperand();
  PageFrame& now = Top();
  now.word_made = made;
  now.state = PageOperand::kWord;
  now.word = word;
  now.word_member = false;
}

// A word behind a word calls it in Basic; elsewhere the first is a type.
void CPageExpressions::BeginOperand() {
  PageFrame& frame = Top();
  if (frame.state == PageOperand::kNone) return;
  if (layers_.IsBasic() && depth_ == 0 && targets_.empty() && frame.state == PageOperand::kWord && !frame.has_value) {
    Open(true, true);
  } else if (frame.state == PageOperand::kWord) {
    frame.state = PageOperand::kNone;
  } else {
    FinishOperand('x');
  }
}

void CPageExpressions::Mark(char mark) {
  switch (mark) {
    case '.':
      return Dot();
    case '(':
    case '[':
      return OpenBracket(mark);
    case ')':
    case ']':
      return CloseBracket();
    case ',':
      return Comma();
    case '=':
      return depth_ == 0 && !condition_ && (targets_.empty() || !layers_.IsBasic() || Top().state == PageOperand::kNone)
                 ? Equals(false)
                 : Compare();
    case 'a':
      if (depth_ == 0) Equals(true);
      return;
    case 'e':
    case 'n':
    case 'l':
    case 'g':
    case '<':
    case '>':
      return Compare();
    case '?':
      FinishOperand('x');
      Top().compares = false;
      Top().has_value = false;
      Top().value.Clear();
      return;
    case '!':
    case '~':
      return;
    default:
      FinishOperand(mark);
  }
}

void CPageExpressions::Dot() {
  PageFrame& frame = Top();
  frame.word_receiver = frame.state == PageOperand::kNone    ? with_
                        : frame.state == PageOperand::kValue ? std::move(frame.current)
                        : frame.word_member                  ? calls_.ReadMember(frame.word, frame.word_receiver)
                                                             : calls_.ReadWord(frame.word);
  frame.behind_dot = true;
}

void CPageExpressions::OpenBracket(char mark) {
  PageFrame& frame = Top();
  if (ignored_ > 0 || depth_ + 1 >= kDeepest) {
    ++ignored_;
    return;
  }
  if (mark == '[' && layers_.IsBasic() && frame.state == PageOperand::kNone) return;  // "[name]"
  if (mark == '[' && frame.state == PageOperand::kWord && frame.word != "session" && frame.word != "application" &&
      frame.word != "viewstate" && frame.word != "cache") {
    frame.current =
        frame.word_member ? calls_.ReadMember(frame.word, frame.word_receiver) : calls_.ReadWord(frame.word);
    frame.state = PageOperand::kValue;
  }
  const PageWord* const word = layers_.IsBasic() && depth_ == 0 && targets_.empty() &&
                                       frame.state == PageOperand::kWord && !frame.has_value && !condition_
                                   ? calls_.Find(frame.word, frame.word_member)
                                   : nullptr;
  if (word != nullptr && word->call == PageCall::kRunsCode) {
    Open(true, true);  // "execute (a) & b": all of it is the argument
    Open(false, false);
  } else {
    Open(frame.state != PageOperand::kNone, false);
  }
}

void CPageExpressions::CloseBracket() {
  if (ignored_ > 0) {
    --ignored_;
  } else if (depth_ > 0 && !(depth_ == 1 && Top().without_brackets)) {
    Close();
  }
}

void CPageExpressions::Comma() {
  if (depth_ > 0) {
    FinishArgument();
  } else {
    FinishOperand(' ');
    Assign();
    frames_[0].Clear();
  }
}

void CPageExpressions::Compare() {
  FinishOperand('x');
  Top().compares = true;
}

void CPageExpressions::FinishOperand(char next) {
  PageFrame& frame = Top();
  if (frame.state == PageOperand::kWord) {
    // What is appended to itself is not copied for it.
    PageValue* const own = depth_ == 0 && !frame.has_value && !frame.word_member && targets_.size() == 1 &&
                                   targets_[0].name == frame.word && (next == '&' || next == '+')
                               ? scopes_.Find(frame.word)
                               : nullptr;
    if (own != nullptr) {
      frame.current = std::move(*own);
      own->text.clear();
      own->known = false;
    } else {
      frame.current =
          frame.word_member ? calls_.ReadMember(frame.word, frame.word_receiver) : calls_.ReadWord(frame.word);
    }
  }
  if (frame.state != PageOperand::kNone) {
    if (frame.has_value) {
      operators_.Combine(&frame.value, frame.mark, std::move(frame.current), layers_.IsBasic());
    } else {
      frame.value = std::move(frame.current);
      frame.has_value = true;
    }
    frame.state = PageOperand::kNone;
  }
  frame.mark = next;
}

void CPageExpressions::FinishArgument() {
  FinishOperand(' ');
  PageFrame& frame = Top();
  if (frame.compares) frame.value.Clear();
  if (!frame.each.empty()) Set(frame.each, frame.value, false);
  frame.each = {};
  frame.known_arguments += frame.value.known ? 1 : 0;
  ++frame.argument_count;
  if (frame.arguments.size() < kMostArguments) {
    frame.arguments.push_back(std::move(frame.value));
  } else {
    frame.value.marks |= frame.arguments.back().marks;
    frame.arguments.back() = std::move(frame.value);
  }
  frame.value.Clear();
  frame.has_value = false;
  frame.compares = false;
}

void CPageExpressions::Open(bool call, bool without_brackets) {
  if (frames_.size() <= depth_ + 1) frames_.Push();
  PageFrame& frame = frames_[depth_];
  PageFrame& next = frames_[++depth_];
  next.Clear();
  next.call = call;
  next.made = std::exchange(frame.word_made, false);
  next.without_brackets = without_brackets;
  if (call) {
    if (frame.state == PageOperand::kWord) {
      next.callee = frame.word;
      next.member = frame.word_member;
      if (frame.word_member) next.receiver = std::move(frame.word_receiver);
    } else {
      next.receiver = std::move(frame.current);
    }
  }
  frame.state = PageOperand::kNone;
}

void CPageExpressions::Close() {
  if (Top().has_value || Top().state != PageOperand::kNone || !Top().call) FinishArgument();
  PageFrame& frame = Top();
  PageValue result;
  const std::string_view element = frame.call && frame.callee.empty() ? frame.receiver.name : std::string_view{};
  if (frame.call) {
    result = calls_.Call(&frame);
  } else if (!frame.arguments.empty()) {
    result = std::move(frame.arguments.back());
    if (frame.arguments.size() > 1) result.known = false;
    for (std::size_t i = 0; i + 1 < frame.arguments.size(); ++i) result.marks |= frame.arguments[i].marks;
    if (frame.argument_count >= kManyArguments) result.marks |= kLong;  // character codes
  }
  --depth_;
  Top().state = PageOperand::kValue;
  Top().current = std::move(result);
  Top().element = element;
}

void CPageExpressions::Equals(bool appends) {
  PageFrame& frame = Top();
  if (targets_.size() >= kMostTargets) {
    targets_.erase(targets_.begin() + kMostTargets / 2);
    findings_.Note(kLosesSight);
  }
  if (frame.state == PageOperand::kWord) {
    targets_.push_back({frame.word, frame.word_member, appends, frame.word_receiver.name, frame.word_receiver.object});
  } else if (frame.state == PageOperand::kValue) {
    targets_.push_back({frame.current.name, false, appends, {}, PageObject::kNone});
    targets_.back().element = frame.element;
  }
  frames_[0].Clear();
}

void CPageExpressions::Assign() {
  PageFrame& frame = Top();
  if (frame.compares) {
    frame.value.marks = 0;
    frame.value.known = false;
  }
  for (const PageTarget& target : targets_) {
    if (target.member && (frame.value.marks & kFed) != 0) sinks_.Connect(target.name, frame.value);
    if ((target.member || initialises_) && (frame.value.marks & kFed) != 0 &&
        (target.name == "arguments" || (target.name == "filename" && (initialises_ || target.receiver == "startinfo" ||
                                                                      target.object == PageObject::kShell)))) {
      findings_.Reach(kReachesCommand, target.name);
    }
    // Of other objects' members nothing is kept: one object's text is not another's.
    const bool own = !target.member || target.receiver.empty() || target.receiver == "this" || target.receiver == "me";
    if (target.name.empty()) {
      // An element: the list holds what it is given.
      if (PageValue* const list = scopes_.Find(target.element)) list->marks |= frame.value.marks & kFed;
    } else if (own) {
      Set(target.name, frame.value, target.appends);
    }
  }
  targets_.clear();
}

void CPageExpressions::Set(std::string_view name, const PageValue& value, bool appends) {
  const PageValue* const before_it = scopes_.Find(name);
  if (before_it != nullptr && before_it->object == PageObject::kOther && value.object == PageObject::kNone) return;
  if (const std::size_t bracket = name.find('('); bracket != std::string_view::npos) {
    const std::string_view list = name.substr(0, bracket);
    if (scopes_.Find(list) == nullptr) scopes_.Store(list, {});
    if (PageValue* const held = scopes_.Find(list)) held->marks |= value.marks;
  }
  PageValue variable;
  if (PageValue* const held = scopes_.Find(name)) variable = std::move(*held);
  const std::uint32_t before = variable.marks;
  if (appends) {
    operators_.Combine(&variable, '+', operators_.Copy(value), layers_.IsBasic());
  } else {
    constexpr std::uint32_t kReplaced = kPiece | kSql | kMapped | kLed;
    std::uint32_t marks = (variable.marks & ~kReplaced) | value.marks;
    if ((variable.marks & kFed) != 0 && (value.marks & kFed) == 0) marks |= variable.marks & kReplaced;
    const PageObject object = value.object == PageObject::kNone ? variable.object : value.object;
    variable = operators_.Copy(value);
    variable.marks = marks;
    variable.object = object;
    variable.name = name;
  }
  functions_.Return(name, variable.marks);
  findings_.SetChanged((before | variable.marks) != before);
  scopes_.Store(name, std::move(variable));
}

}  // namespace qiv

// Expressions are worked through token by token with a stack of open brackets; each holds what its arguments and the
// value built so far are known to be. Nothing recurses.
#include <utility>

#include "common/text.h"
#include "engines/webshell/page/follower.h"

namespace qiv {
namespace {

constexpr std::size_t kDeepest = 64;      // open brackets; deeper ones are no code that somebody wrote
constexpr std::size_t kLongLiteral = 32;  // bytes: shorter texts are words, not code

bool BeginsLikeSql(std::string_view text) {
  text = Trim(text);
  if (text.starts_with("select case")) return false;
  constexpr std::string_view kVerbs[] = {"select ", "insert ",  "update ",   "delete ", "exec ",
                                         "create ", "drop ",    "truncate ", "alter ",  "backup ",
                                         "use ",    "declare ", "dbcc ",     "execute "};
  return std::any_of(std::begin(kVerbs), std::end(kVerbs), [text](std::string_view v) { return text.starts_with(v); });
}

// Whether text that ends so, or begins so, lets what is joined to it stand as a statement of its own.
bool Parts(std::string_view text, bool before) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!text.empty() && blank(before ? text.back() : text.front())) {
    before ? text.remove_suffix(1) : text.remove_prefix(1);
  }
  if (text.empty()) return true;
  const char c = before ? text.back() : text.front();
  return c == ':' || c == ';' || c == '\n' || c == '}' || c == '{' || (!before && (c == '\'' || c == '/'));
}

}  // namespace

void CPageFollower::Step(const Token& token, bool condition) {
  switch (token.kind) {
    case Token::kName:
      Word(token.text);
      break;
    case Token::kMark:
      Mark(token.mark, condition);
      break;
    default:
      BeginOperand();
      Frame& frame = Top();
      frame.state = State::kValue;
      frame.current.Clear();
      frame.current.known = true;
      frame.current.text = token.text;
      if (token.kind == Token::kString) {
        if (token.text.size() >= kLongLiteral) frame.current.marks |= kLong;
        if (BeginsLikeSql(token.text)) frame.current.marks |= kSql;
        constexpr std::string_view kServers[] = {"provider=", "driver=", "server=", "data source="};
        if (std::any_of(std::begin(kServers), std::end(kServers),
                        [&](std::string_view w) { return Holds(token.text, w); }))
          frame.current.marks |= kServer;
        constexpr std::string_view kRuns[] = {".xp_cmdshell", "exec xp_cmdshell", ".sp_oacreate", "exec sp_oacreate"};
        if (std::any_of(std::begin(kRuns), std::end(kRuns), [&](std::string_view r) { return Holds(token.text, r); }))
          frame.current.marks |= kProgram;
        if ((frame.current.marks & kProgram) != 0) flow_.reach |= kRunsText;
      }
  }
}

void CPageFollower::Word(std::string_view word) {
  Frame& frame = Top();
  if (frame.behind_dot) {
    frame.behind_dot = false;
    frame.state = State::kWord;
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
  if (word == "in" && frame.state == State::kWord) {
    frame.each = frame.word;
    frame.state = State::kNone;
    frame.has_value = false;
    return;
  }
  if ((basic_ && IsOneOf(word, kBasicMarks)) || word == "instanceof") {
    FinishOperand('x');
    return;
  }
  if (word == "as" && frame.state != State::kNone) {
    if (!basic_) {
      FinishOperand('?');
    } else if (frame.state == State::kWord && depth_ == 0 && targets_.empty()) {
      // "dim x as new type(...)": what is made is what is assigned.
      targets_.push_back({frame.word, false, false, {}, PageObject::kNone});
      frame.state = State::kNone;
    }
    return;
  }
  const bool made = std::exchange(made_next_, false);
  BeginOperand();
  Frame& now = Top();
  now.word_made = made;
  now.state = State::kWord;
  now.word = word;
  now.word_member = false;
}

// A word behind a word calls it in Basic; elsewhere the first is a type.
void CPageFollower::BeginOperand() {
  Frame& frame = Top();
  if (frame.state == State::kNone) return;
  if (basic_ && depth_ == 0 && targets_.empty() && frame.state == State::kWord && !frame.has_value) {
    Open(true, true);
  } else if (frame.state == State::kWord) {
    frame.state = State::kNone;
  } else {
    FinishOperand('x');
  }
}

void CPageFollower::Mark(char mark, bool condition) {
  Frame& frame = Top();
  switch (mark) {
    case '.':
      frame.word_receiver = frame.state == State::kNone    ? with_
                            : frame.state == State::kValue ? std::move(frame.current)
                            : frame.word_member            ? ReadMember(frame.word, frame.word_receiver)
                                                           : ReadWord(frame.word);
      frame.behind_dot = true;
      return;
    case '(':
    case '[': {
      if (ignored_ > 0 || depth_ + 1 >= kDeepest) {
        ++ignored_;
        return;
      }
      if (mark == '[' && basic_ && frame.state == State::kNone) return;  // "[name]"
      if (mark == '[' && frame.state == State::kWord && frame.word != "session" && frame.word != "application" &&
          frame.word != "viewstate" && frame.word != "cache") {
        frame.current = frame.word_member ? ReadMember(frame.word, frame.word_receiver) : ReadWord(frame.word);
        frame.state = State::kValue;
      }
      const PageWord* const word =
          basic_ && depth_ == 0 && targets_.empty() && frame.state == State::kWord && !frame.has_value && !condition
              ? Find(frame.word, frame.word_member)
              : nullptr;
      if (word != nullptr && word->call == PageCall::kRunsCode) {
        Open(true, true);  // "execute (a) & b": all of it is the argument
        Open(false, false);
      } else {
        Open(frame.state != State::kNone, false);
      }
      return;
    }
    case ')':
    case ']':
      if (ignored_ > 0) {
        --ignored_;
      } else if (depth_ > 0 && !(depth_ == 1 && Top().without_brackets)) {
        Close();
      }
      return;
    case ',':
      if (depth_ > 0) {
        FinishArgument();
      } else {
        FinishOperand(' ');
        Assign();
        frames_[0].Clear();
      }
      return;
    case '=':
      if (depth_ == 0 && !condition && (targets_.empty() || !basic_ || frame.state == State::kNone)) {
        Equals(false);
      } else {
        FinishOperand('x');
        Top().compares = true;
      }
      return;
    case 'a':
      if (depth_ == 0) Equals(true);
      return;
    case 'e':
    case 'n':
    case 'l':
    case 'g':
    case '<':
    case '>':
      FinishOperand('x');
      Top().compares = true;
      return;
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

void CPageFollower::FinishOperand(char next) {
  Frame& frame = Top();
  if (frame.state == State::kWord) {
    // What is appended to itself is not copied for it.
    PageValue* const own = depth_ == 0 && !frame.has_value && !frame.word_member && targets_.size() == 1 &&
                                   targets_[0].name == frame.word && (next == '&' || next == '+')
                               ? scope_.Find(frame.word)
                               : nullptr;
    if (own != nullptr) {
      frame.current = std::move(*own);
      own->text.clear();
      own->known = false;
    } else {
      frame.current = frame.word_member ? ReadMember(frame.word, frame.word_receiver) : ReadWord(frame.word);
    }
  }
  if (frame.state != State::kNone) {
    if (frame.has_value) {
      Combine(&frame.value, frame.mark, std::move(frame.current));
    } else {
      frame.value = std::move(frame.current);
      frame.has_value = true;
    }
    frame.state = State::kNone;
  }
  frame.mark = next;
}

void CPageFollower::Combine(PageValue* left, char mark, PageValue right) {
  constexpr std::string_view kArithmetic = "-*/\\^%x";
  if (mark == '&' || mark == '+') {
    const bool left_fed = (left->marks & kFed) != 0;
    const bool right_fed = (right.marks & kFed) != 0;
    const bool left_known = left->known && !Parts(left->text, true);
    const bool led = right_fed && !left_fed && !(left->known && Parts(left->text, true));
    const bool piece = led || (left_fed && !right_fed && !(right.known && Parts(right.text, false)));
    // A file's name behind a folder that the request says is a path of the whole disk.
    if ((left->marks & (kFed | kMapped | kLed)) == kFed) right.marks &= ~static_cast<std::uint32_t>(kMapped);
    bool fits = left->text.size() + right.text.size() <= kShortText;
    if (!fits) {
      fits = right.text.size() <= joins_left_;
      fits ? joins_left_ -= right.text.size() : flow_.reach |= kLosesSight;
    }
    const bool known = fits && Join(left, mark, right, basic_);
    left->known = known;
    if (known && left->text.size() >= kLongLiteral) left->marks |= kLong;
    left->marks |= right.marks & ~static_cast<std::uint32_t>(kSql);
    if (piece) left->marks |= kPiece;
    // What is picked out of a text and set between words of code is a name or a number.
    if (!left_fed && left_known && (right.marks & kDecoded) != 0) left->marks &= ~static_cast<std::uint32_t>(kDecoded);
    if (led) left->marks |= kLed;
    if (!basic_ && left->text == "(" && !right.known) left->marks |= kJson;
  } else {
    left->known = Join(left, mark, right, basic_);
    left->marks |= right.marks;
    const bool keeps = mark == 'x' || (mark == '^' && !basic_);  // a comparison; bytes unscrambled with a key
    if (kArithmetic.find(mark) != std::string_view::npos) left->marks &= kLong | (keeps ? kFed : 0U);
  }
  left->object = PageObject::kNone;
  left->alias = {};
}

void CPageFollower::FinishArgument() {
  FinishOperand(' ');
  Frame& frame = Top();
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

void CPageFollower::Open(bool call, bool without_brackets) {
  if (frames_.size() <= depth_ + 1) frames_.Push();
  Frame& frame = frames_[depth_];
  Frame& next = frames_[++depth_];
  next.Clear();
  next.call = call;
  next.made = std::exchange(frame.word_made, false);
  next.without_brackets = without_brackets;
  if (call) {
    if (frame.state == State::kWord) {
      next.callee = frame.word;
      next.member = frame.word_member;
      if (frame.word_member) next.receiver = std::move(frame.word_receiver);
    } else {
      next.receiver = std::move(frame.current);
    }
  }
  frame.state = State::kNone;
}

void CPageFollower::Close() {
  if (Top().has_value || Top().state != State::kNone || !Top().call) FinishArgument();
  Frame& frame = Top();
  PageValue result;
  const std::string_view element = frame.call && frame.callee.empty() ? frame.receiver.name : std::string_view{};
  if (frame.call) {
    result = Call(&frame);
  } else if (!frame.arguments.empty()) {
    result = std::move(frame.arguments.back());
    if (frame.arguments.size() > 1) result.known = false;
    for (std::size_t i = 0; i + 1 < frame.arguments.size(); ++i) result.marks |= frame.arguments[i].marks;
    if (frame.argument_count >= kManyArguments) result.marks |= kLong;  // character codes
  }
  --depth_;
  Top().state = State::kValue;
  Top().current = std::move(result);
  Top().element = element;
}

void CPageFollower::Equals(bool appends) {
  Frame& frame = Top();
  if (targets_.size() >= kMostTargets) {
    targets_.erase(targets_.begin() + kMostTargets / 2);
    flow_.reach |= kLosesSight;
  }
  if (frame.state == State::kWord) {
    targets_.push_back({frame.word, frame.word_member, appends, frame.word_receiver.name, frame.word_receiver.object});
  } else if (frame.state == State::kValue) {
    targets_.push_back({frame.current.name, false, appends, {}, PageObject::kNone});
    targets_.back().element = frame.element;
  }
  frames_[0].Clear();
}

void CPageFollower::Assign() {
  Frame& frame = Top();
  if (frame.compares) {
    frame.value.marks = 0;
    frame.value.known = false;
  }
  for (const Target& target : targets_) {
    if (target.member && (frame.value.marks & kFed) != 0) Connects(target.name, frame.value);
    if ((target.member || initialises_) && (frame.value.marks & kFed) != 0 &&
        (target.name == "arguments" || (target.name == "filename" && (initialises_ || target.receiver == "startinfo" ||
                                                                      target.object == PageObject::kShell)))) {
      Reach(kReachesCommand, target.name);
    }
    // Of other objects' members nothing is kept: one object's text is not another's.
    const bool own = !target.member || target.receiver.empty() || target.receiver == "this" || target.receiver == "me";
    if (target.name.empty()) {
      // An element: the list holds what it is given.
      if (PageValue* const list = scope_.Find(target.element)) list->marks |= frame.value.marks & kFed;
    } else if (own) {
      Set(target.name, frame.value, target.appends);
    }
  }
  targets_.clear();
}

void CPageFollower::Set(std::string_view name, const PageValue& value, bool appends) {
  const PageValue* const before_it = scope_.Find(name);
  if (before_it != nullptr && before_it->object == PageObject::kOther && value.object == PageObject::kNone) return;
  if (const std::size_t bracket = name.find('('); bracket != std::string_view::npos) {
    const std::string_view list = name.substr(0, bracket);
    if (scope_.Find(list) == nullptr) scope_.Store(list, {});
    if (PageValue* const held = scope_.Find(list)) held->marks |= value.marks;
  }
  PageValue variable;
  if (PageValue* const held = scope_.Find(name)) variable = std::move(*held);
  const std::uint32_t before = variable.marks;
  if (appends) {
    Combine(&variable, '+', Copy(value));
  } else {
    constexpr std::uint32_t kReplaced = kPiece | kSql | kMapped | kLed;
    std::uint32_t marks = (variable.marks & ~kReplaced) | value.marks;
    if ((variable.marks & kFed) != 0 && (value.marks & kFed) == 0) marks |= variable.marks & kReplaced;
    const PageObject object = value.object == PageObject::kNone ? variable.object : value.object;
    variable = Copy(value);
    variable.marks = marks;
    variable.object = object;
    variable.name = name;
  }
  if (PageFunction* const function = name == function_ ? scope_.FindFunction(name) : nullptr) {
    changed_ = changed_ || (function->returns | variable.marks) != function->returns;
    function->returns |= variable.marks;
  }
  changed_ = changed_ || (before | variable.marks) != before;
  scope_.Store(name, std::move(variable));
}

PageValue CPageFollower::Copy(const PageValue& value) {
  if (!value.known || value.text.size() <= kShortText) return value;
  if (value.text.size() <= copies_left_) {
    copies_left_ -= value.text.size();
    return value;
  }
  flow_.reach |= kLosesSight;
  PageValue copy;
  copy.marks = value.marks;
  copy.object = value.object;
  copy.name = value.name;
  copy.alias = value.alias;
  return copy;
}

}  // namespace qiv

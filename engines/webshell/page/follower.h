// The walk through a page's code: state that page_flow.cpp (statements), page_expressions.cpp,
// page_calls.cpp (what words and calls mean) and page_acts.cpp (what the words that do something do) share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engines/webshell/flow/stack.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/page/names.h"
#include "engines/webshell/page/scope.h"
#include "engines/webshell/page/value.h"

namespace qiv {

class CPageFollower {
 public:
  CPageFollower(const PageCode& code, PageKind kind)
      : service_(Holds(code.attributes, "@webservice") || Holds(code.braces, "[webmethod") ||
                 Holds(code.basic, "<webmethod") || Holds(code.braces, "services.webmethod")),
        aspx_(kind == PageKind::kAspx),
        size_(code.basic.size() + code.braces.size()),
        names_(2 * size_ + kRoom),
        scope_(4 * size_ + 3 * kRoom, 2 * size_ + kRoom),
        copies_left_(4 * size_ + 4 * kRoom),
        layers_left_(2 * size_ + 2 * kRoom) {
    if (!code.basic.empty()) parts_.push_back({code.basic, ScriptSyntax::kBasic});
    if (!code.braces.empty()) parts_.push_back({code.braces, ScriptSyntax::kBraces});
  }

  PageFlow Run(CWalkBudget* walks);

 private:
  struct Part {
    std::string_view code;
    ScriptSyntax syntax;
  };
  enum class State : std::uint8_t { kNone, kWord, kValue };
  // An open bracket, a call without brackets, or the statement itself.
  struct Frame {
    bool call = false;
    bool without_brackets = false;
    bool member = false;  // the callee stands behind a "."
    bool compares = false;
    bool has_value = false;
    bool behind_dot = false;
    bool word_member = false;
    bool made = false;       // the call stands behind "new"
    bool word_made = false;  // the word does
    char mark = ' ';
    State state = State::kNone;
    std::string_view callee;
    std::string_view word;
    std::string_view element;  // the list that `current` was picked out of
    std::string_view each;     // the variable that walks over what follows "in"
    PageValue receiver;        // of the callee
    PageValue word_receiver;
    PageValue current;
    PageValue value;
    std::vector<PageValue> arguments;  // of very many the last one stands for the rest
    std::size_t known_arguments = 0;
    std::size_t argument_count = 0;

    void Clear() {
      call = without_brackets = member = compares = has_value = behind_dot = word_member = made = word_made = false;
      mark = ' ';
      state = State::kNone;
      callee = word = element = each = {};
      for (PageValue* const part : {&receiver, &word_receiver, &current, &value}) part->Clear();
      arguments.clear();
      known_arguments = argument_count = 0;
    }
  };
  struct Target {
    std::string_view name;
    bool member = false;
    bool appends = false;
    std::string_view receiver;
    PageObject object = PageObject::kNone;
    std::string_view element = {};  // the list it is an element of, where it has no name of its own
  };

  std::size_t Walk(Part part);
  void Statement(char closed_by);
  void BasicStatement();
  void BracesStatement();
  void GoOn();
  bool Declares(char closed_by);
  bool DeclaresProperty();
  void Declare(std::size_t name, std::size_t end);
  void Segment(std::size_t begin, std::size_t end, bool condition);
  void LastSegment(std::size_t begin, bool condition);
  void BeginSegment(bool condition);
  void Steps(std::size_t begin, std::size_t end);
  void EndSegment();
  void Step(const Token& token, bool condition);
  void Word(std::string_view word);
  void Mark(char mark, bool condition);
  void OpenBracket(char mark, bool condition);
  void BeginOperand();
  void FinishOperand(char next);
  void FinishArgument();
  void Open(bool call, bool without_brackets);
  void Close();
  void Equals(bool appends);
  void Assign();
  void Set(std::string_view name, const PageValue& value, bool appends);
  void Combine(PageValue* left, char mark, PageValue right);
  PageValue ReadWord(std::string_view word);
  PageValue ReadMember(std::string_view word, const PageValue& receiver);
  PageValue Call(Frame* frame);
  PageValue CallFunction(std::string_view name, const std::vector<PageValue>& arguments);
  PageValue FromRequest(std::string_view member, const std::vector<PageValue>& arguments) const;
  PageValue Act(const PageWord& word, Frame* frame);
  void Loads(const PageWord& word, const Frame& frame, std::uint32_t marks);
  bool Runs(const PageWord& word, const Frame& frame, std::uint32_t marks);
  PageValue OpenFile(const PageWord& word, const Frame& frame);
  void WritesFile(const PageWord& word, const Frame& frame);
  void ActOnText(const PageWord& word, Frame* frame, PageValue* result);
  void Opaque(std::string_view callee, const PageValue& value);
  void PassOn(std::string_view callee, const Frame& frame);
  void Connects(std::string_view callee, const PageValue& value);
  PageValue Create(const std::vector<PageValue>& arguments);
  void RunsCode(const PageValue& value, std::string_view word);
  void Path(const PageValue& path, std::string_view word);
  void Reach(std::uint32_t reach, std::string_view word);
  void Follow(const PageValue& value);
  const PageWord* Find(std::string_view word, bool member) const;
  std::string_view Element(std::string_view list, std::string_view index);
  PageValue Copy(const PageValue& value);
  Frame& Top() { return frames_[depth_]; }

  static constexpr std::size_t kRoom = 16384;  // bytes: what short pages may hold of each kind beyond their length
  static constexpr std::size_t kMostArguments = 16;
  static constexpr std::size_t kMostTargets = 32;

  bool service_;  // clients call the functions: what they are given is the request
  bool aspx_;
  bool basic_ = true;
  bool changed_ = false;
  std::vector<Part> parts_;
  std::size_t size_;  // of the code
  CPageNames names_;
  CPageScope scope_;
  std::list<std::string> layers_;  // texts that are evaluated
  std::unordered_set<std::string_view> followed_;
  std::unordered_map<std::string_view, bool> written_;  // by part of an object's name: whether the code holds it
  std::vector<Token> tokens_;
  CFlowStack<Frame, 4> frames_;  // as many as were ever open; those up to depth_ are
  std::size_t depth_ = 0;
  std::size_t ignored_ = 0;  // brackets opened below the deepest
  std::vector<Target> targets_;
  std::string_view function_;
  PageValue with_;
  bool shell_made_ = false;
  std::size_t opaque_ = 0;          // bytes of texts that only an object makes sense of, in this pass
  bool hot_method_ = false;         // a method that runs or loads is asked for by its name
  std::size_t veiled_methods_ = 0;  // types and methods asked for by names that are not written out
  bool made_next_ = false;          // the last word was "new"
  bool initialises_ = false;        // the statement names the fields of a program's start that is being made
  bool trusted_xslt_ = false;       // style sheets may hold scripts
  bool continues_ = false;          // the statement at hand is longer than its piece
  bool open_ = false;               // and so is its last segment
  bool open_condition_ = false;
  bool stepped_ = false;           // the open segment holds something
  std::size_t head_brackets_ = 0;  // of "if (...": open at the end of the piece
  bool starts_program_ = false;    // the statement names the start of a program
  std::size_t copies_left_;        // bytes of long texts that may be copied
  std::size_t joins_left_ = 0;     // bytes that may be joined to long texts in this pass
  std::size_t layers_left_;        // bytes of texts that may be followed
  PageFlow flow_;
};

}  // namespace qiv

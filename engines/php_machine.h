// The walk over a PHP file's tokens. Internal to php_flow*.cpp; see php_flow.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engines/php_builtins.h"
#include "engines/php_flow.h"
#include "engines/php_tokens.h"
#include "engines/php_value.h"

namespace qiv {

class CPhpMachine {
 public:
  CPhpMachine(std::string_view source, bool in_code);
  PhpFlowResult Run();

 private:
  static constexpr int kPasses = 3;  // definition behind use, then round a loop; more change nothing in practice
  static constexpr std::size_t kMostFindings = 16;
  static constexpr std::size_t kMostNested = 64;
  static constexpr std::size_t kWorkPerByte = 8;       // budget for each byte of source: layers of decoding, with room
  static constexpr std::size_t kWorkAnyway = 1 << 18;  // and for the shortest
  static constexpr std::size_t kMostElements = 4096;   // of an array that is followed
  static constexpr std::size_t kMostFrames = 4096;     // brackets inside each other; what is deeper is not followed

  struct Operand {
    PhpValue value;
    std::string key;       // the variable it names, with its scope; empty: none
    bool indexed = false;  // an element of that variable
    bool known_index = false;
    std::string index;     // its key, if known
    bool is_name = false;  // a bare name
    bool is_member = false;
    bool request_named = false;                      // a variable whose name the request chose
    std::string name;                                // of a bare name or member, lower-case
    std::shared_ptr<std::vector<std::string>> list;  // variables of a list(...)
  };
  // Precedences; those of the binary operators lie between kCoalesce and kUnary.
  static constexpr int kLowest = 0;      // everything
  static constexpr int kPrefixWord = 1;  // echo, return, include ...
  static constexpr int kAssignment = 2;
  static constexpr int kTernary = 3;
  static constexpr int kCoalesce = 4;
  static constexpr int kUnary = 16;
  // Codes of operations that are words.
  static constexpr std::uint32_t kIncludeCode = PhpOperator("inc");
  static constexpr std::uint32_t kReturnCode = PhpOperator("ret");
  static constexpr std::uint32_t kEchoCode = PhpOperator("ech");
  static constexpr std::uint32_t kNumberCast = PhpOperator("int");
  static constexpr std::uint32_t kPlainCast = PhpOperator("str");

  struct Operation {
    std::uint32_t code = 0;
    int precedence = 0;
    bool unary = false;
  };
  enum class FrameKind : std::uint8_t { kBlock, kParen, kCall, kIndex, kArray, kVariable, kSkip };
  struct Frame {
    FrameKind kind = FrameKind::kBlock;
    std::size_t values = 0;
    std::size_t operations = 0;
    std::size_t arguments = 0;  // of kCall and kArray: where its arguments begin
    Operand callee;
    bool named = false;  // callee.name is the function
    bool is_new = false;
    bool statement = false;  // "if (...)" and the like
    bool is_class = false;
    std::uint32_t scope = 0;  // to go back to
    std::uint32_t function = 0;
    PhpValue element;  // foreach: what its variables get
    bool in_foreach = false;
    bool has_key = false;
    std::string array_key;
  };
  struct Variable {
    PhpValue value;
    std::size_t depth = 0;
    bool assigned = false;
  };
  struct Function {
    std::string name;
    std::vector<std::string_view> parameters;
    std::vector<PhpValue> values;
    PhpValue returns;
    bool has_return = false;
  };

  // php_machine.cpp: tokens, brackets, statements
  void Pass();
  void Token();
  void OnOperator(const PhpToken& token);
  void OnName(const PhpToken& token);
  bool OnKeyword(std::string_view name);
  bool OnStructure(std::string_view name);
  void OnVariable(const PhpToken& token);
  void OnString(const PhpToken& token);
  void OnNumber(std::string_view text);
  void Prefix(std::uint32_t code);
  void OnMember();
  void OpenBracket(char bracket);
  void CloseBracket(char bracket);
  void OpenBlock();
  void CloseBlock();
  void EndStatement();
  void Declaration(bool is_closure);
  bool SkipTo(std::string_view a, std::string_view b);
  void Statement(FrameKind kind);
  void Ternary();
  void Comma();
  void Arrow();
  bool IsIndexBrace() const;
  const PhpToken* Next(std::size_t ahead = 1) const {
    return at_ + ahead < tokens_.size() ? &tokens_[at_ + ahead] : nullptr;
  }
  bool NextIs(std::string_view op, std::size_t ahead = 1) const { return Next(ahead) && Next(ahead)->Is(op); }
  std::string_view TextOf(const PhpToken& token) const { return token.Text(source_); }
  void PushFrame(FrameKind kind);
  void PushOperand(Operand operand);
  Operand PopOperand();
  void PushOperation(std::uint32_t code, int precedence, bool unary, bool keep_left = false);
  void Reduce(int precedence);
  void Apply(const Operation& operation);
  void DropArguments(std::size_t count);
  bool InForeach() const { return frames_.back().in_foreach; }

  // php_machine_values.cpp: variables and operators
  std::string KeyOf(std::string_view name) const;
  Operand Lookup(std::string_view name);
  PhpValue Load(const std::string& key, std::string_view name);
  void Assign(std::uint32_t code, Operand& target, PhpValue value);
  void Store(const std::string& key, const PhpValue& value, bool join);
  void StoreElement(const Operand& target, const PhpValue& value);
  void Increment(std::uint32_t code, bool prefix);
  PhpValue Binary(std::uint32_t code, PhpValue left, const PhpValue& right);
  PhpValue Concatenate(PhpValue left, const PhpValue& right);
  PhpValue Bitwise(std::uint32_t code, const PhpValue& left, const PhpValue& right);
  Operand Element(const Operand& base, const PhpValue* index);
  PhpValue Template(std::string_view inner, char quote);
  PhpValue Each(const PhpValue& list);
  bool Spend(std::size_t work);

  // php_machine_calls.cpp: functions and what they give away
  PhpValue Call(Frame& frame, std::span<PhpValue> arguments);
  PhpValue CallNamed(std::string_view name, std::span<PhpValue> arguments, bool hidden, HidingWay way);
  PhpValue CallKnown(const PhpFunction& function, std::span<PhpValue> arguments);
  PhpValue CallMember(std::string_view name, std::span<PhpValue> arguments, const Operand& callee);
  PhpValue CallUser(Function& function, std::span<const PhpValue> arguments);
  Function* FindUser(std::string_view name);
  void RunCode(std::string_view name, const PhpValue& code);
  void RunCommand(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue RunCallback(const PhpFunction& function, std::span<PhpValue> arguments);
  void RunPattern(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue Open(std::string_view name, std::span<const PhpValue> arguments);
  void Write(std::string_view name, std::span<const PhpValue> arguments);
  void Move(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue Read(std::string_view name, std::span<const PhpValue> arguments);
  void Include(const PhpValue& path);
  void Report(PhpFindingKind kind, std::string_view detail, HidingWay way = HidingWay::kNone);
  void AddNested(std::string_view text);

  std::string_view source_;
  std::vector<PhpToken> tokens_;
  std::size_t at_ = 0;
  bool operand_next_ = true;  // an operand is expected, not an operator
  int pass_ = 0;
  std::vector<Operand> values_;
  std::vector<Operation> operations_;
  std::vector<Frame> frames_;
  std::vector<PhpValue> arguments_;
  std::vector<std::string> argument_keys_;   // the variables that stand in them, in step with arguments_
  std::vector<std::string> argument_names_;  // "name => value", in step with arguments_
  std::unordered_map<std::string, Variable> variables_;
  std::unordered_set<std::string> globals_;  // keys of variables that stand for the global of their name
  std::unordered_set<std::string> written_;  // files that got their content from the request
  std::vector<Function> functions_;
  std::unordered_map<std::string, std::uint32_t> function_numbers_;
  std::uint32_t next_function_ = 0;
  std::uint32_t scope_ = 0;
  std::uint32_t function_ = 0;       // the function being walked + 1
  std::uint32_t pending_scope_ = 0;  // of the block that a declaration opens next, + 1
  bool pending_class_ = false;
  bool pending_new_ = false;
  bool weak_ = false;               // in a branch without braces
  bool request_variables_ = false;  // the request may set any variable
  bool com_objects_ = false;
  std::size_t work_left_ = 0;
  std::size_t nested_left_ = 0;
  PhpFlowResult result_;
};

}  // namespace qiv

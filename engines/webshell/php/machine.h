// The walk over a PHP file's tokens. Internal to this room; see flow.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engines/webshell/flow/stack.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/names.h"
#include "engines/webshell/php/tokens.h"
#include "engines/webshell/php/value.h"

namespace qiv {

/// Keywords, those together that are treated alike.
enum class PhpWord : std::uint8_t {
  kNone,
  kInclude,
  kEcho,
  kStatement,  // if, while ...
  kReturn,
  kElse,
  kBlock,  // do, try ...
  kNew,
  kClone,
  kList,
  kLogic,  // and, or, xor
  kInstanceof,
  kAs,
  kFunction,
  kArrowFunction,
  kClass,
  kModifier,
  kGlobal,
  kNamespace,
  kConst,
  kBoolean,
  kNull,
};

/// The number of a superglobal variable in its table, from 1 on; 0: none.
std::uint8_t SuperglobalNumber(std::string_view name);

/// Whether the operator of that code (PhpOperator) assigns.
bool IsPhpAssignment(std::uint32_t code);

class CPhpMachine {
 public:
  /// `most_room`: see FollowPhp.
  CPhpMachine(std::string_view source, bool in_code, std::size_t most_room);
  PhpFlowResult Run(CWalkBudget* walks);

 private:
  static constexpr int kPasses = 3;  // definition behind use, then round a loop; more change nothing in practice
  static constexpr std::size_t kMostFindings = 16;
  static constexpr std::size_t kMostNested = 64;
  static constexpr std::size_t kWorkPerByte = 8;       // budget for each byte of source: layers of decoding, with room
  static constexpr std::size_t kWorkAnyway = 1 << 18;  // and for the shortest
  static constexpr std::size_t kElementWork = 64;      // what it costs to copy an element, in bytes of text
  static constexpr std::size_t kCallWork = 192;        // to look up a function by a text
  static constexpr std::size_t kMostElements = 4096;   // of an array that is followed
  static constexpr std::size_t kMostArguments = 1 << 16;  // of all calls and arrays that are open
  static constexpr std::size_t kMostParameters = 64;      // of a function; more are not bound
  static constexpr std::size_t kMostFunctions = 1 << 16;  // the functions behind them count as one
  static constexpr std::size_t kMostPending = 4096;       // operators of a bracket that wait for their right side
  static constexpr std::size_t kMostWritten = 4096;       // files that are remembered
  // Brackets inside each other. PHP's own parser gives up at 10,000 symbols: what stands deeper never runs.
  static constexpr std::size_t kMostFrames = 10000;

  // A variable's place in variables_, from 1 on; 0: none.
  using VariableKey = std::uint32_t;
  // Scopes that are no function: of functions the number + 1, and 0 of the rest of the file.
  static constexpr std::uint32_t kSuperScope = 0xFFFFFFFF;   // superglobals
  static constexpr std::uint32_t kMemberScope = 0xFFFFFFFE;  // properties, of whatever object
  static constexpr std::uint32_t kConstScope = 0xFFFFFFFD;
  static constexpr std::string_view kMadeFunction = "\1lambda";  // names those of create_function, and no others

  struct Operand {
    PhpValue value;
    VariableKey key = 0;      // the variable it names
    PhpName index = kNoName;  // of an element: its key, if known
    PhpName name = kNoName;   // of a bare name or member, lower-case
    bool indexed = false;     // an element of that variable
    bool is_name = false;     // a bare name
    bool is_member = false;
    bool request_named = false;                      // a variable whose name the request chose
    std::unique_ptr<std::vector<VariableKey>> list;  // variables of a list(...) that is assigned to

    /// Lets go of what others may share or wait for.
    void Release() {
      if (value.text) value.text = {};
      if (value.array) value.array = {};
      if (list) list.reset();
    }
    /// As new.
    void Clear() {
      Release();
      value.origin = 0;
      value.number = 0;
      value.function = 0;
      value.way = HidingWay::kNone;
      key = 0;
      index = name = kNoName;
      value.is_number = indexed = is_name = is_member = request_named = false;
    }
  };
  // Precedences; those of the binary operators lie between kCoalesce and kUnary.
  static constexpr int kLowest = 0;      // everything
  static constexpr int kPrefixWord = 1;  // echo, return, include ...
  static constexpr int kAssignment = 2;
  static constexpr int kTernary = 3;
  static constexpr int kCoalesce = 4;
  static constexpr int kUnary = 16;
  // Codes of operations that are words.
  static constexpr std::uint32_t kArrowCode = PhpOperator("fn");
  static constexpr std::uint32_t kIncludeCode = PhpOperator("inc");
  static constexpr std::uint32_t kReturnCode = PhpOperator("ret");
  static constexpr std::uint32_t kEchoCode = PhpOperator("ech");
  static constexpr std::uint32_t kNumberCast = PhpOperator("int");
  static constexpr std::uint32_t kPlainCast = PhpOperator("str");

  // What a name is in general: looked up once for each different name.
  struct NameFacts {
    bool known = false;
    PhpWord word = PhpWord::kNone;
    std::uint8_t superglobal = 0;  // number + 1
    std::uint16_t function = 0;    // of PHP's own functions, its row + 1
    std::uint32_t user = 0;        // function of the file of that name, its number + 1
    VariableKey global = 0;        // variable of that name outside functions
    VariableKey constant = 0;      // constant of that name
  };
  static constexpr std::size_t kVariablePlace = 24;  // bytes, in a table that doubles at three quarters full
  NameFacts& FactsOf(PhpName name);
  /// The function of PHP's own of that lower-case name, or null.
  const PhpFunction* OwnFunction(PhpName name) {
    const std::uint16_t row = FactsOf(name).function;
    return row != 0 ? &PhpFunctions()[row - 1U] : nullptr;
  }
  PhpName NameWithoutRoom(std::string_view text);
  /// The same letters in lower case.
  PhpName LowerOf(PhpName name);
  // The name of a token; looked up once.
  PhpName NameOf(PhpToken& token);
  // The name that a text is used as; none when it is long and the budget does not allow to read it.
  PhpName NameOf(std::string_view text);

  struct Operation {
    std::uint32_t code = 0;
    std::int16_t precedence = 0;
    bool unary = false;
  };
  enum class FrameKind : std::uint8_t { kBlock, kParen, kCall, kIndex, kArray, kVariable, kSkip };
  struct Frame {
    FrameKind kind = FrameKind::kBlock;
    bool named = false;      // callee_name is the function
    bool is_member = false;  // callee_name is a method
    bool is_new = false;
    bool statement = false;  // "if (...)" and the like
    bool is_class = false;
    bool in_foreach = false;
    bool has_key = false;
    bool has_callee = false;  // what is called or looked into stands below its values
    std::uint32_t values = 0;
    std::uint32_t operations = 0;
    std::uint32_t arguments = 0;  // of kCall and kArray: where its arguments begin
    std::uint32_t block = 0;      // the innermost block: this frame or one around it
    std::uint32_t scope = 0;      // to go back to
    PhpName callee_name = kNoName;
    PhpName array_key = kNoName;
    PhpValue* element = nullptr;  // what "foreach" gives its variables, or "=>" an element; null: nothing, or no room
  };
  static constexpr std::size_t kPrepaid = 64;                        // of each stack, whatever was held before
  static constexpr std::size_t kOperandRoom = sizeof(Operand) + 24;  // five fill a block
  bool HasRoomForFrame() { return frames_.size() < kMostFrames && Grow(frames_.size(), &most_frames_, sizeof(Frame)); }
  // Whether a stack of that size may grow by one; `most`: the size that is paid for.
  bool Grow(std::size_t size, std::size_t* most, std::size_t bytes) {
    if (size < *most) return true;
    if (!budget_.Take(bytes)) return false;
    ++*most;
    return true;
  }
  bool GrowArguments();
  void SetElement(PhpValue&& value);
  void PopFrame();
  struct Variable {
    PhpValue value;
    std::uint32_t scope = 0;
    PhpName name = kNoName;
    std::uint32_t depth = 0;
    bool assigned = false;
    bool is_global = false;  // in a function: it stands for the file's variable of its name
  };
  struct Function {
    PhpName name = kNoName;
    std::vector<PhpName> parameters;
    std::vector<bool> by_reference;  // in step with parameters
    std::vector<PhpValue> values;
    PhpValue returns;
    bool has_return = false;
  };

  // What is called: by the text of a name, and what is known of it.
  struct Called {
    std::string_view name;
    Function* user = nullptr;            // of the file
    const PhpFunction* known = nullptr;  // of PHP's own
  };

  // machine.cpp, machine_operands.cpp, machine_brackets.cpp: tokens, operators, brackets, statements
  std::size_t Pass();
  void Token();
  void OnOperator(const PhpToken& token);
  void OnName(PhpToken& token);
  bool OnKeyword(PhpWord word);
  bool OnStructure(PhpWord word);
  void OnVariable(PhpToken& token);
  Operand OfVariables(Operand operand);
  void OnString(const PhpToken& token);
  void OnNumber(std::string_view text);
  void Prefix(std::uint32_t code);
  void OnMember();
  void OpenBracket(char bracket);
  void CloseBracket(char bracket);
  void OpenBlock();
  void CloseBlock();
  void CloseVariable();
  Operand MakeArray(const Frame& frame);
  Operand& ResultOf(const Frame& frame);
  void EndStatement();
  void Declaration(bool is_closure);
  std::uint32_t NextFunction();
  bool HasRoomForParameter(const Function& function, std::size_t count) {
    constexpr std::size_t kRoom = sizeof(PhpValue) + sizeof(PhpName) + 4;
    return count < kMostParameters && (count < function.values.size() || budget_.Take(kRoom));
  }
  bool SkipTo(std::string_view a, std::string_view b);
  void Statement(FrameKind kind);
  void Ternary();
  void Comma();
  void Arrow();
  bool IsIndexBrace() const;
  PhpToken* Next(std::size_t ahead = 1) { return tokens_.Ahead(ahead); }
  bool NextIs(std::string_view op, std::size_t ahead = 1) { return Next(ahead) && Next(ahead)->Is(op); }
  bool BeforeIs(std::string_view op) const { return tokens_.Before() != nullptr && tokens_.Before()->Is(op); }
  std::string_view TextOf(const PhpToken& token) const { return token.Text(source_); }
  Frame* PushFrame(FrameKind kind);
  Operand& NextOperand();
  void PushOperand(Operand&& operand);
  void Placed(Operand& operand);
  bool HasOperand() const { return values_.size() > frames_.back().values; }
  Operand PopOperand();
  void DropOperand();
  void DropOperands(std::size_t size);
  void PushOperation(std::uint32_t code, int precedence, bool unary, bool keep_left = false);
  void PushPending(std::uint32_t code, int precedence, bool unary);
  void Reduce(int precedence);
  void Apply(const Operation& operation);
  void ApplyUnary(std::uint32_t code, Operand* operand);
  void Return(const PhpValue& value);
  void DropArguments(std::size_t count);

  // machine_values.cpp: variables and operators
  VariableKey KeyIn(std::uint32_t scope, PhpName name);
  VariableKey AddVariable(std::uint32_t scope, PhpName name, std::size_t room);
  VariableKey KeyOf(PhpName name);
  Operand Lookup(PhpName name);
  PhpValue Load(VariableKey key);
  void Assign(std::uint32_t code, Operand& target, PhpValue value);
  void Store(VariableKey key, const PhpValue& value, bool join);
  void StoreElement(const Operand& target, const PhpValue& value);
  void Increment(std::uint32_t code, bool prefix);
  PhpValue Binary(std::uint32_t code, PhpValue left, const PhpValue& right);
  PhpValue Concatenate(PhpValue left, const PhpValue& right);
  PhpValue Bitwise(std::uint32_t code, const PhpValue& left, const PhpValue& right);
  Operand Element(const Operand& base, const PhpValue* index);
  PhpName IndexOf(const PhpValue& value);
  PhpValue Template(std::string_view inner, char quote);
  PhpValue Each(const PhpValue& list);
  bool Spend(std::size_t work) { return budget_.Spend(work); }
  PhpValue Made(std::string text, std::uint32_t origin = 0, HidingWay way = HidingWay::kNone);
  bool Holds(const PhpValue& value, std::string_view text);
  bool SameText(const PhpValue& a, const PhpValue& b);
  CPhpShare<PhpArray> NewArray(const PhpArray* copied = nullptr);
  bool Account(PhpArray* array);

  // machine_calls.cpp: functions and what they give away
  PhpValue Call(const Frame& frame, const Operand& called_value, std::span<PhpValue> arguments);
  PhpValue CallNamed(const Called& called, std::span<PhpValue> arguments, bool hidden, HidingWay way);
  PhpValue CallOther(const Called& called, std::span<PhpValue> arguments);
  PhpValue CallKnown(const PhpFunction& function, std::span<PhpValue> arguments);
  void GiveBack(const Frame& frame, const Called& called);
  PhpValue Derived(const Called& called, std::span<const PhpValue> arguments);
  void CallBack(Function& user, std::string_view caller, const PhpValue& value);
  void CallWithAll(Function& user, const PhpValue& given);
  PhpValue New(const Frame& frame, const PhpValue& name_value, std::span<PhpValue> arguments);
  PhpValue CallMade(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue CallMember(std::string_view name, std::span<PhpValue> arguments, const Operand& callee);
  PhpValue CallUser(Function& function, std::span<const PhpValue> arguments);
  Function* FindUser(PhpName lower_name);
  Function* FindUser(std::string_view lower_name) { return FindUser(NameOf(lower_name)); }
  Called CalledBy(std::string_view lower_name);
  Called CalledBy(PhpName lower_name);
  // Methods that PHP calls by itself.
  Function* FindMagic(std::size_t number) { return FindUser(magic_names_[number]); }
  static constexpr std::size_t kInvoke = 0;
  static constexpr std::size_t kGet = 1;
  static constexpr std::size_t kCallAny = 2;
  static constexpr std::size_t kConstruct = 3;
  std::string CalledName(const PhpValue& callee);
  void RunCode(std::string_view name, const PhpValue& code);
  void RunCommand(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue RunCallback(const PhpFunction& function, std::span<PhpValue> arguments);
  void RunPattern(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue Open(std::string_view name, std::span<const PhpValue> arguments);
  void Write(std::string_view name, std::span<const PhpValue> arguments);
  void Move(std::string_view name, std::span<const PhpValue> arguments);
  PhpValue Read(std::string_view name, std::span<const PhpValue> arguments);
  void Include(const PhpValue& path);
  void RunHandlers(const PhpValue& given);
  void ReportRunners(std::span<const PhpValue> arguments, const PhpValue& object, bool built_in);
  void Mail(std::span<const PhpValue> arguments);
  void Literal(std::string_view text);
  void ArrowFunction();
  void Report(PhpFindingKind kind, std::string_view detail, HidingWay way = HidingWay::kNone);
  void AddNested(std::string_view text);
  bool IsAdded(std::vector<std::string>* texts, std::string_view text);

  std::string_view source_;
  std::size_t room_per_byte_;
  CFlowBudget budget_;      // outlives all that is held
  std::size_t earned_ = 0;  // bytes of source that have earned their room
  CPhpNames names_{&budget_};
  bool in_code_;
  CPhpTokens tokens_;
  std::array<PhpName, 4> magic_names_{};
  CFlowStack<NameFacts, 32> facts_;  // per name
  bool operand_next_ = true;         // an operand is expected, not an operator
  int pass_ = 0;
  CFlowStack<Operand> values_;
  CFlowStack<Operation> operations_;
  CFlowStack<Frame> frames_;
  CFlowStack<PhpValue> elements_;  // of the frames that have one, in their order
  Operand beyond_;                 // takes what finds no room on the stack
  std::size_t most_values_ = kPrepaid;
  std::size_t most_operations_ = kPrepaid;
  std::size_t most_frames_ = kPrepaid;
  std::size_t most_elements_ = kPrepaid;
  std::vector<PhpValue> arguments_;
  struct ArgumentFacts {
    VariableKey key = 0;     // the variable that stands in it
    PhpName name = kNoName;  // "name => value"
  };
  std::vector<ArgumentFacts> argument_facts_;  // in step with arguments_
  CFlowStack<Variable> variables_;
  CProbeTable variable_table_;
  std::set<std::string, std::less<>> written_;  // files that got their content from the request
  CFlowStack<Function, 8> functions_;
  std::uint32_t next_function_ = 0;
  std::uint32_t scope_ = 0;          // of the function being walked its number + 1
  std::size_t skipped_ = 0;          // brackets open beyond kMostFrames
  std::uint32_t pending_scope_ = 0;  // of the block that a declaration opens next, + 1
  bool pending_class_ = false;
  bool pending_new_ = false;
  bool weak_ = false;               // in a branch without braces
  bool request_variables_ = false;  // the request may set any variable
  bool com_objects_ = false;
  bool unserialized_ = false;        // the request may set any property
  PhpValue printed_;                 // what the file prints, without its text
  PhpValue thrown_;                  // what its exceptions say
  std::vector<Function*> handlers_;  // functions called for errors and output
  struct MadeFunction {
    std::string parameters;
    std::string body;
  };
  std::vector<MadeFunction> made_;     // by create_function
  std::vector<std::uint32_t> arrows_;  // the functions whose "fn (...) =>" has been met but not its end
  std::size_t stray_braces_ = 0;       // "({": no PHP, but files that lost their quotes hold it
  std::size_t nested_left_ = 0;
  PhpFlowResult result_;
};

}  // namespace qiv

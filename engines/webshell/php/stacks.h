// The stacks of the walk over a PHP file: brackets that are open, operators that wait for their right side, operands,
// arguments. Operands stay where they are pushed: what is made of them takes their place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "engines/webshell/flow/stack.h"
#include "engines/webshell/php/operand.h"

namespace qiv {

class CPhpStacks {
 public:
  /// Brackets inside each other. PHP's own parser gives up at 10,000 symbols: what stands deeper never runs.
  static constexpr std::size_t kMostFrames = 10000;
  static constexpr std::size_t kMostArguments = 1 << 16;  ///< of all calls and arrays that are open
  static constexpr std::size_t kMostPending = 4096;       ///< operators of a bracket that wait for their right side

  explicit CPhpStacks(CFlowBudget* budget)
      : budget_(*budget), operands_(budget), operations_(budget), frames_(budget), elements_(budget) {}

  /// Empties all of them.
  void Clear();

  // What comes next: an operand, or an operator.
  bool OperandNext() const { return operand_next_; }
  void ExpectOperand(bool expected = true) { operand_next_ = expected; }
  void ExpectOperator() { operand_next_ = false; }

  // Brackets.
  bool HasRoomForFrame() { return frames_.size() < kMostFrames && frames_.MayPush(); }
  /// Null when brackets stand too deep: this one is only counted. `scope`: the scope around it.
  PhpFrame* PushFrame(PhpFrameKind kind, std::uint32_t scope);
  void PopFrame();
  PhpFrame& Top() { return frames_.back(); }
  const PhpFrame& Top() const { return frames_.back(); }
  const PhpFrame& FrameAt(std::size_t number) const { return frames_[number]; }
  std::size_t Depth() const { return frames_.size(); }
  /// Closes a bracket that was only counted; false: none is open.
  bool CloseSkipped();
  /// What the bracket gives its variables or elements; nothing, when there is no room.
  void SetElement(PhpValue&& value);

  // Operands of the innermost bracket.
  bool HasOperand() const { return operands_.size() > frames_.back().values; }
  std::size_t Operands() const { return operands_.size(); }
  PhpOperand& LastOperand() { return operands_.back(); }
  const PhpOperand& LastOperand() const { return operands_.back(); }
  /// Where the next operand goes, in whatever state; without an operator between them only the last counts.
  PhpOperand& NextOperand();
  /// Room for one more, whatever was expected.
  PhpOperand& PushOperand() { return operands_.MayPush() ? operands_.Push() : beyond_; }
  PhpOperand PopOperand();
  /// Until no more than that many are left, of all brackets.
  void DropOperands(std::size_t size);
  /// The last operand becomes the one at `place`; those above go.
  void KeepLastAt(std::size_t place);
  /// The last operand of the bracket; without one, what takes those that find no room.
  PhpOperand& LastOrBeyond() { return HasOperand() ? operands_.back() : beyond_; }
  /// The last one went into the one below it.
  void PopTaken() { operands_.Pop(); }

  // Operations of the innermost bracket.
  bool HasOperation() const { return operations_.size() > frames_.back().operations; }
  PhpOperation& LastOperation() { return operations_.back(); }
  /// The last one, if it binds at least as tightly; false: none does.
  bool TakeOperation(int precedence, PhpOperation* operation);
  void PopOperation() { operations_.Pop(); }
  /// Whether one more may wait.
  bool HasRoomForOperation();
  void PushOperation(const PhpOperation& operation);
  void DropOperations(std::size_t size) { operations_.Shrink(size); }
  /// Whether this many brackets and operators are what programs have.
  bool IsShallow() const;

  // Arguments of calls and elements of arrays that are open.
  /// One more of the innermost bracket; beyond the limits it is joined to the last.
  void AddArgument(PhpOperand* operand, PhpName name);
  std::span<PhpValue> Arguments(const PhpFrame& frame) { return std::span(arguments_).subspan(frame.arguments); }
  std::span<const PhpArgumentFacts> ArgumentFacts(const PhpFrame& frame) const {
    return std::span(argument_facts_).subspan(frame.arguments);
  }
  void DropArguments(std::size_t count);

 private:
  bool GrowArguments();

  CFlowBudget& budget_;
  CPaidStack<PhpOperand> operands_;
  CPaidStack<PhpOperation> operations_;
  CPaidStack<PhpFrame> frames_;
  CPaidStack<PhpValue> elements_;  // of the frames that have one, in their order
  PhpOperand beyond_;              // takes what finds no room on the stack
  std::vector<PhpValue> arguments_;
  std::vector<PhpArgumentFacts> argument_facts_;  // in step with arguments_
  std::size_t skipped_ = 0;                       // brackets open beyond kMostFrames
  bool operand_next_ = true;                      // an operand is expected, not an operator
};

}  // namespace qiv

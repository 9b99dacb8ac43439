#include "engines/webshell/php/machine.h"

#include <algorithm>
#include <utility>

namespace qiv {
namespace {

// Room that is there before a byte has earned any: for brackets as deep as they may stand. Each byte earns its part of
// the rest: names and variables of ordinary programs take some three, their texts and arrays less.
std::size_t FirstRoom(std::size_t source, std::size_t most_room) {
  constexpr std::size_t kLeastEarned = 4;  // by a byte
  return std::min(kPhpRoomAnyway, most_room - std::min(most_room, source * kLeastEarned));
}

}  // namespace

CPhpMachine::CPhpMachine(std::string_view source, bool in_code, std::size_t most_room)
    : in_any_case_(in_code ? 1 : 2),
      room_per_byte_((most_room - FirstRoom(source.size(), most_room)) / (source.size() + 1) + 1),
      budget_(kWorkAnyway, FirstRoom(source.size(), most_room), most_room),
      symbols_(source, &budget_),
      operators_(&budget_),
      stacks_(&budget_),
      scopes_(&budget_, &symbols_, &operators_, &stacks_),
      functions_(&budget_, &symbols_, &operators_),
      findings_(&budget_, kWorkAnyway + source.size() * 4),
      sinks_(source.size(), &budget_, &operators_, &findings_),
      calls_(source.size(), &budget_, &symbols_, &operators_, &scopes_, &functions_, &sinks_, &findings_),
      walk_(source, in_code, {budget_, symbols_, operators_, stacks_, scopes_, functions_, findings_, sinks_, calls_}) {
}

PhpFlowResult CPhpMachine::Run(CWalkBudget* walks) {
  std::size_t steps = 0;
  for (int pass = 0; pass < kPasses; ++pass) {
    if (pass >= in_any_case_ && !walks->Spend(steps)) break;
    steps = Pass(pass) * CWalkBudget::kPhpToken;
    if (pass < in_any_case_) walks->Owe(steps);
    if (pass > 0 && (!findings_.IsEmpty() || IsSettled())) break;
  }
  return findings_.Take();
}

// Whether another pass would do again what this one did: nothing is otherwise than when it began, nothing was refused.
// Functions pass values on from call to call and are taken to change; so are the sinks that keep what they were given.
bool CPhpMachine::IsSettled() const {
  return !scopes_.Changed() && functions_.Count() == 0 && !sinks_.Keeps() && !calls_.Keeps() &&
         !symbols_.Overflowed() && !budget_.HasRefused();
}

// The number of tokens.
std::size_t CPhpMachine::Pass(int pass) {
  stacks_.Clear();
  scopes_.Restart(pass);
  functions_.Restart();
  findings_.Restart(pass);
  calls_.Restart();
  walk_.Restart();
  std::size_t worked = 0;  // bytes that the budget was given work for in this pass
  std::size_t tokens = 0;
  for (std::size_t end = 0; walk_.Advance(&end); walk_.Token()) {
    ++tokens;
    if (end > worked) budget_.EarnWork((end - std::exchange(worked, end)) * kWorkPerByte);
    if (end > earned_) budget_.EarnRoom((end - std::exchange(earned_, end)) * room_per_byte_);
  }
  walk_.End();
  return tokens;
}

PhpFlowResult FollowPhp(std::string_view source, bool in_code, std::size_t most_room, CWalkBudget* walks) {
  return CPhpMachine(source, in_code, most_room).Run(walks);
}

}  // namespace qiv

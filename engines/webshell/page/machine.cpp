#include "engines/webshell/page/machine.h"

namespace qiv {
namespace {

constexpr std::size_t kRoom = 16384;  // bytes: what short pages may hold of each kind beyond their length
constexpr int kPasses = 3;            // what a call says reaches a function's result, and its caller, by the third

std::size_t SizeOf(const PageCode& code) { return code.basic.size() + code.braces.size(); }

bool IsService(const PageCode& code) {
  return Holds(code.attributes, "@webservice") || Holds(code.braces, "[webmethod") || Holds(code.basic, "<webmethod") ||
         Holds(code.braces, "services.webmethod");
}

}  // namespace

CPageMachine::CPageMachine(const PageCode& code, PageKind kind)
    : layers_(code, 2 * SizeOf(code) + 2 * kRoom, &findings_),
      names_(2 * SizeOf(code) + kRoom),
      scopes_(4 * SizeOf(code) + 3 * kRoom),
      functions_(2 * SizeOf(code) + kRoom, IsService(code), &scopes_, &findings_),
      operators_(4 * SizeOf(code) + 4 * kRoom, 2 * SizeOf(code) + 4 * kRoom, &findings_),
      sinks_(functions_.IsService(), &layers_, &scopes_, &operators_, &findings_),
      calls_(kind == PageKind::kAspx, &names_, &layers_, &scopes_, &functions_, &operators_, &sinks_, &findings_),
      expressions_(&layers_, &scopes_, &functions_, &operators_, &sinks_, &calls_, &findings_),
      walk_(&names_, &scopes_, &functions_, &expressions_, &findings_) {}

PageFlow CPageMachine::Run(CWalkBudget* walks) {
  std::size_t steps = 0;
  for (int pass = 0; pass < kPasses; ++pass) {
    if (pass > 0 && !walks->Spend(steps)) break;
    steps = 0;
    findings_.Restart();
    operators_.Restart();
    sinks_.Restart();
    for (std::size_t i = 0; i < layers_.Count(); ++i) steps += walk_.Run(layers_.Enter(i)) * CWalkBudget::kPageToken;
    if (pass == 0) walks->Owe(steps);
    if (!findings_.Changed()) break;
  }
  if (scopes_.Lost() || functions_.Lost()) findings_.Note(kIncomplete);
  return findings_.Take();
}

PageFlow FollowPage(const PageCode& code, PageKind kind, CWalkBudget* walks) {
  return CPageMachine(code, kind).Run(walks);
}

}  // namespace qiv

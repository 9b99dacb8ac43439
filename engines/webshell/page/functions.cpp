#include "engines/webshell/page/functions.h"

#include <utility>

namespace qiv {
namespace {

constexpr std::size_t kShortestName = 4;  // bytes: a type or method that runs something has a longer name

std::size_t HeldBy(const PageFunction& function) {
  return CHeldNames<PageFunction>::kEntryBytes + function.parameters.capacity() * sizeof(std::string_view) +
         function.marks.capacity() * sizeof(std::uint32_t);
}

}  // namespace

PageFunction* CPageFunctions::Find(std::string_view name) {
  CHeldNames<PageFunction>::Entry* const entry = functions_.Find(name);
  return entry == nullptr ? nullptr : &entry->thing;
}

void CPageFunctions::Begin(std::string_view name, std::vector<std::string_view> parameters) {
  current_ = name;
  const PageFunction& function = Declare(name, std::move(parameters));
  const bool called_back = name == "raisecallbackevent" || name == "raisepostbackevent";
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    PageValue parameter;
    if (service_) findings_.Note(kReadsRequest);
    parameter.marks = function.marks[i] | (service_ || called_back ? kTainted : 0U);
    scopes_.Store(function.parameters[i], std::move(parameter));
  }
}

PageValue CPageFunctions::Bind(std::string_view name, const std::vector<PageValue>& arguments) {
  PageValue result;
  result.name = name;
  PageFunction* const found = Find(name);
  if (found == nullptr) return result;
  PageFunction& function = *found;
  std::uint32_t given = 0;
  std::uint32_t taken = 0;
  for (std::size_t i = 0; i < arguments.size() && i < function.marks.size(); ++i) {
    findings_.SetChanged((function.marks[i] | arguments[i].marks) != function.marks[i]);
    function.marks[i] |= arguments[i].marks;
    given |= arguments[i].marks;
  }
  for (const std::uint32_t marks : function.marks) taken |= marks;
  // What only other calls' arguments bring is not in this one's result.
  std::uint32_t absent = taken & ~given;
  if ((given & kLong) != 0) absent &= ~static_cast<std::uint32_t>(kDecoded);
  result.marks = function.returns & ~absent;
  if (arguments.size() == 1 && arguments[0].known && arguments[0].text.size() >= kShortestName)
    result.marks |= kObfuscated;
  return result;
}

void CPageFunctions::Return(std::string_view name, std::uint32_t marks) {
  PageFunction* const function = name == current_ ? Find(name) : nullptr;
  if (function == nullptr) return;
  findings_.SetChanged((function->returns | marks) != function->returns);
  function->returns |= marks;
}

// The function of that name, with these parameters from now on.
PageFunction& CPageFunctions::Declare(std::string_view name, std::vector<std::string_view> parameters) {
  CHeldNames<PageFunction>::Entry& entry = functions_.Put(name);
  PageFunction& function = entry.thing;
  function.parameters = std::move(parameters);
  if (function.marks.size() < function.parameters.size()) function.marks.resize(function.parameters.size());
  functions_.MakeRoom(name, HeldBy(function), [](const PageFunction&) {});
  functions_.Hold(&entry, HeldBy(function));
  return function;
}

}  // namespace qiv

#include "common/rule_set_name.h"

#include <algorithm>

#include "port/critical_section.h"
#include "port/thread_annotations.h"

namespace qiv {
namespace {

struct Named {
  CCriticalSection lock;
  std::string name QIV_GUARDED_BY(lock);
  bool told QIV_GUARDED_BY(lock) = false;
};

/// Never destroyed: the log is written until the last static object goes.
Named& State() {
  static Named& state = *new Named;
  return state;
}

}  // namespace

void SetRuleSetName(std::string_view name) {
  const bool good = name.size() <= kLongestRuleSetName &&
                    std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c < 0x7F; });
  if (!good) name = {};
  Named& state = State();
  const CAutoLock lock(state.lock);
  if (state.name == name) return;
  state.name = name;
  state.told = false;
}

std::string TakeRuleSetName(bool always) {
  Named& state = State();
  const CAutoLock lock(state.lock);
  if (state.told && !always) return {};
  state.told = true;
  return state.name;
}

}  // namespace qiv

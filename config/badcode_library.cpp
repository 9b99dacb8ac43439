#include "config/badcode_library.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/text.h"
#include "config/address_libraries.h"
#include "engines/attacks/attack_library.h"

namespace qiv {

bool LoadAttackRules(std::string text, CAttackRules* rules, CAttackRules* leaks, AttackFault* fault) {
  AttackLibraryText library;
  if (!ReadAttackLibrary(CCharSet::ToLocal(std::move(text)), &library, fault)) return false;
  const auto of_responses = std::stable_partition(
      library.rules.begin(), library.rules.end(),
      [](const AttackRule& rule) { return (AttackFamilies()[rule.family].group & (kLeaks | kErrorLeaks)) == 0; });
  std::vector<AttackRule> leak_rules(std::make_move_iterator(of_responses),
                                     std::make_move_iterator(library.rules.end()));
  library.rules.erase(of_responses, library.rules.end());
  return rules->Set(std::move(library.rules), library.lists, fault) &&
         leaks->Set(std::move(leak_rules), library.lists, fault);
}

CBadcodeLibrary::CBadcodeLibrary(std::string path, CStateRecorder* states)
    : states_(*states),
      rules_(std::make_shared<CAttackRules>()),
      leaks_(std::make_shared<CAttackRules>()),
      file_(std::move(path), kFileMaxBytes) {}

Reload CBadcodeLibrary::ReloadChanged() {
  const CAutoLock lock(lock_);
  std::string why;
  const auto take = [&](const std::string* content) {
    auto rules = std::make_shared<CAttackRules>();
    auto leaks = std::make_shared<CAttackRules>();
    AttackFault fault;
    if (content != nullptr && !LoadAttackRules(DecipherPieces(*content), rules.get(), leaks.get(), &fault)) {
      why = fault.rule + ": " + fault.text;
      return false;
    }
    rules_.Store(std::move(rules));
    leaks_.Store(std::move(leaks));
    return true;
  };
  return ReloadFile(&file_, &states_, take, &why);
}

}  // namespace qiv

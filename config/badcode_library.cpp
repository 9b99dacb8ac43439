#include "config/badcode_library.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "config/address_libraries.h"
#include "config/local_form.h"
#include "engines/attacks/attack_library.h"

namespace qiv {
namespace {

constexpr std::size_t kMatchedFields = 4;  // identifier, family, where, pattern; of a list both

/// The rules of a text in local code; those for responses apart. False, with *fault, when one of them cannot be used.
bool LoadAttackRules(std::string_view text, CAttackRules* rules, CAttackRules* leaks, AttackFault* fault) {
  AttackLibraryText library;
  if (!ReadAttackLibrary(text, &library, fault)) return false;
  const auto of_responses = std::stable_partition(
      library.rules.begin(), library.rules.end(),
      [](const AttackRule& rule) { return (AttackFamilies()[rule.family].group & kOfResponses) == 0; });
  std::vector<AttackRule> leak_rules(std::make_move_iterator(of_responses),
                                     std::make_move_iterator(library.rules.end()));
  library.rules.erase(of_responses, library.rules.end());
  return rules->Set(std::move(library.rules), library.lists, fault) &&
         leaks->Set(std::move(leak_rules), library.lists, fault);
}

}  // namespace

CBadcodeLibrary::CBadcodeLibrary(std::string path, CStateRecorder* states)
    : states_(*states), rules_(std::make_shared<AttackRuleSet>()), file_(std::move(path), kFileMaxBytes) {}

Reload CBadcodeLibrary::ReloadChanged() {
  const CAutoLock lock(lock_);
  std::string why;
  const auto take = [&](const std::string* content) QIV_REQUIRES(lock_) {
    auto rules = std::make_shared<AttackRuleSet>();
    AttackFault fault;
    std::vector<std::string> lost;
    if (content != nullptr) {
      const std::string text = LibraryToLocalForm(DecipherPieces(*content), kAttackTags, &lost, kMatchedFields);
      if (!LoadAttackRules(text, &rules->attacks, &rules->leaks, &fault)) {
        why = fault.rule + ": " + fault.text;
        return false;
      }
    }
    ReportLost(&states_, file_.Name(), lost);
    rules_.Store(std::move(rules));
    return true;
  };
  return ReloadFile(&file_, &states_, take, &why);
}

}  // namespace qiv

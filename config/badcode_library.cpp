#include "config/badcode_library.h"

#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/text.h"
#include "config/address_libraries.h"
#include "engines/attacks/attack_library.h"

namespace qiv {
bool LoadAttackRules(std::string text, CAttackRules* rules, AttackFault* fault) {
  AttackLibraryText library;
  return ReadAttackLibrary(CCharSet::ToLocal(std::move(text)), &library, fault) &&
         rules->Set(std::move(library.rules), library.lists, fault);
}

CBadcodeLibrary::CBadcodeLibrary(std::string path, CStateRecorder* states)
    : states_(*states), rules_(std::make_shared<CAttackRules>()), file_(std::move(path), kFileMaxBytes) {}

Reload CBadcodeLibrary::ReloadChanged() {
  const CAutoLock lock(lock_);
  std::string why;
  const auto take = [&](const std::string* content) {
    auto rules = std::make_shared<CAttackRules>();
    AttackFault fault;
    if (content != nullptr && !LoadAttackRules(DecipherPieces(*content), rules.get(), &fault)) {
      why = fault.rule + ": " + fault.text;
      return false;
    }
    rules_.Store(std::move(rules));
    return true;
  };
  return ReloadFile(&file_, &states_, take, &why);
}

}  // namespace qiv

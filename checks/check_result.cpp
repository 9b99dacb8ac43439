#include "checks/check_result.h"

#include <new>

#include "common/secrets.h"

namespace qiv {

void HideSecrets(CheckResult* result) noexcept {
  for (std::string* const text : {&result->reason, &result->detail, &result->item, &result->smart_block_text}) {
    try {
      *text = WithoutSecrets(*text);
    } catch (const std::bad_alloc&) {
      text->clear();
    }
  }
}

}  // namespace qiv

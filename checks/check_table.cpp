#include "checks/check_table.h"

#include "checks/injection_check.h"
#include "checks/lists_check.h"
#include "checks/smart_blocking.h"
#include "checks/upload_check.h"
#include "checks/webshell_check.h"
#include "checks/webshell_output_check.h"

namespace qiv {
namespace {

// The order is part of the protection. Cheap tests of addresses and shapes come first, so that an attack in bulk costs
// little; tests of who may come here at all come before tests of what the request says; injection comes last because it
// reads every byte of query, body and headers.
constexpr CheckRow kRows[] = {
    {"lists", Stage::kLists, ListsCheck},
    {"upload", Stage::kRequest, UploadCheck},
    {"webshell", Stage::kRequest, WebshellCheck},
    {"injection", Stage::kRequest, InjectionCheck},
    {"webshell_output", Stage::kResponseBody, WebshellOutputCheck},
    {"smart_blocking", Stage::kAfterDecision, SmartBlockingCheck},
};

}  // namespace

std::span<const CheckRow> CheckTable() { return kRows; }

}  // namespace qiv

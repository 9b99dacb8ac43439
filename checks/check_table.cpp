#include "checks/check_table.h"

#include "checks/access_check.h"
#include "checks/badcode_check.h"
#include "checks/file_inclusion_check.h"
#include "checks/flood_check.h"
#include "checks/injection_check.h"
#include "checks/lists_check.h"
#include "checks/password_check.h"
#include "checks/request_shape_check.h"
#include "checks/smart_blocking.h"
#include "checks/upload_check.h"
#include "checks/webshell_check.h"
#include "checks/webshell_output_check.h"

namespace qiv {
namespace {

// The order is part of the protection. The authorization password comes first: what its form sent may reach nobody
// else. Cheap tests of addresses and shapes come first, so that an attack in bulk costs
// little; tests of who may come here at all come before tests of what the request says; injection comes last because it
// reads every byte of query, body and headers.
constexpr CheckRow kRows[] = {
    {"lists", Stage::kLists, ListsCheck},
    {"password", Stage::kRequest, PasswordCheck},
    {"overflow", Stage::kRequest, OverflowCheck},
    {"url", Stage::kRequest, UrlCheck},
    {"spider", Stage::kRequest, SpiderCheck},
    {"proxy", Stage::kRequest, ProxyCheck},
    {"flood", Stage::kRequest, FloodCheck},
    {"method", Stage::kRequest, MethodCheck},
    {"upload", Stage::kRequest, UploadCheck},
    {"webshell", Stage::kRequest, WebshellCheck},
    {"file_inclusion", Stage::kRequest, FileInclusionCheck},
    {"static_directory", Stage::kRequest, StaticDirectoryCheck},
    {"admin", Stage::kRequest, AdminCheck},
    {"time_limit", Stage::kRequest, TimeLimitCheck},
    {"hotlink", Stage::kRequest, HotlinkCheck},
    {"file_type", Stage::kRequest, FileTypeCheck},
    {"injection", Stage::kRequest, InjectionCheck},
    {"badcode", Stage::kRequestAlways, BadcodeCheck},
    {"directory_listing", Stage::kResponseBody, DirectoryListingCheck},
    {"webshell_output", Stage::kResponseBody, WebshellOutputCheck},
    {"not_found", Stage::kNotFound, NotFoundCheck},
    {"smart_blocking", Stage::kAfterDecision, SmartBlockingCheck},
};

}  // namespace

std::span<const CheckRow> CheckTable() { return kRows; }

}  // namespace qiv

// File inclusion: a value that names a local file outside what it should, or a remote one.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Leaves status alone or sets it to 2. Reads context.config, context.attacks and the raw texts of the request. What it
/// finds for BadcodeCheck on its way is left in result.request.
void FileInclusionCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

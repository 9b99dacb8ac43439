// Who may open what: static directories, administration pages, time limits, hotlinks and file types.
//
// Paths are judged in every reading of a server (config/path_readings.h): a protected path is guarded when one reading
// names it, an exception holds when all of them do.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

void StaticDirectoryCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
void AdminCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
void TimeLimitCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
void HotlinkCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
void FileTypeCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

// Sensitive words in responses.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// The uses that the site has for words in the answer to this request.
unsigned OutputWordUses(const RequestFacts& facts, const WebsiteConfig& site);

/// Leaves status alone or sets it to 2; adds what is replaced to result.request.edits. Reads context.config and
/// context.response. Who was shown a word is not counted towards a lock.
void SensitiveWordsOutputCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

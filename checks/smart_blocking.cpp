#include "checks/smart_blocking.h"

#include <string>
#include <string_view>

#include "common/messages.h"
#include "config/website_config.h"

namespace qiv {
namespace {

std::int64_t LockSeconds(const WebsiteConfig& site) {
  return site.response.lock_time > 0 ? site.response.lock_time : site.TempLockSeconds();
}

void AppendInBrackets(Language language, std::string_view text, std::string* out) {
  if (text.empty()) return;
  *out += Message(language, MessageId::kOpenBracket);
  *out += text;
  *out += Message(language, MessageId::kCloseBracket);
}

void Deny(const RequestFacts& facts, const CheckContext& context, std::string_view text, std::string_view item,
          std::string_view category) {
  const std::int64_t now = context.state.clock();
  RequestLock(context, ClientList::kDeny, ClientAddress(facts), now, now + LockSeconds(context.config),
              {text, item, category});
}

void LockAtOnce(const RequestFacts& facts, const CheckContext& context, CheckResult* result) {
  std::string text = result->smart_block_text;
  AppendInBrackets(context.config.language, result->reason, &text);
  Deny(facts, context, text, result->item,
       result->smart_block_title.empty() ? result->category : result->smart_block_title);
  result->smart_block = 0;
}

/// No blanks between the numbers and the words, in either language.
std::string CountedLockText(const CAttackCounter& counter, Language language, const CheckResult& result) {
  std::string text = std::to_string(counter.Period());
  text += Message(language, MessageId::kAttacksExceed);
  text += std::to_string(counter.Limit());
  text += Message(language, MessageId::kTimesTriggerLock);
  AppendInBrackets(language, result.detail.empty() ? result.reason : result.detail, &text);
  return text;
}

}  // namespace

void SmartBlockingCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const WebsiteConfig& site = context.config;
  if (result.smart_block) {
    if (site.library_enabled) LockAtOnce(facts, context, &result);
    return;
  }
  if (!site.response.lock || !result.plain_block || result.no_count || !site.library_enabled) return;

  CAttackCounter& counter = context.state.attacks;
  counter.Prune();
  // Counted and removed in one step: blocks on several threads at once yield one lock for each lock_freq of them.
  if (counter.Count(ClientAddress(facts), {}, CAttackCounter::OnTrigger::kRemove)) {
    Deny(facts, context, CountedLockText(counter, site.language, result),
         Message(site.language, MessageId::kSmartBlocking), Message(site.language, MessageId::kAttackCategory));
  }
  result.plain_block = 0;
}

}  // namespace qiv

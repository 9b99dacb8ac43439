#include "checks/password_check.h"

#include <memory>
#include <string>
#include <string_view>

#include "checks/access_block.h"
#include "checks/check_state.h"
#include "checks/form_target.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::string_view kField = "secretrkey";
constexpr std::string_view kCookie = "qivrd";

std::string Decoded(std::string_view text) { return PercentDecode(ReplaceAll(text, "+", " ")); }

/// What the form sent: a field of that name with the client's address behind it. The field of another address (the
/// client's has changed since) holds no password.
struct Typed {
  bool found = false;
  std::string password;
  bool for_client = false;
};
Typed TypedPassword(const RequestFacts& facts) {
  Typed typed;
  ForEachParameter(facts.keyed_body, [&](const Parameter& parameter) {
    const std::string name = Decoded(parameter.name);
    if (!name.starts_with(kField)) return true;
    typed = {true, Decoded(parameter.value), std::string_view(name).substr(kField.size()) == facts.client_ip};
    return !typed.for_client;
  });
  return typed;
}

/// The page may have been sent in either encoding.
bool IsPassword(const CVisitorProofs& proofs, std::string_view typed, const std::string& key) {
  const bool as_it_is = proofs.AreEqual(typed, key);
  const bool converted = proofs.AreEqual(CCharSet::ToLocal(std::string(typed)), key);
  return as_it_is || converted;
}

}  // namespace

void PasswordCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const ResponseSettings& response = context.config.response;
  CheckState& state = context.state;
  const std::int64_t now = state.clock();
  const CIpAddress client = ClientAddress(facts);
  const std::string_view cookie = CookieValue(facts.cookie, kCookie);
  if (cookie.empty() && facts.keyed_body.empty()) return;
  const std::shared_ptr<const CVisitorProofs> proofs = state.proofs.At(now);
  if (!facts.keyed_body.empty()) {
    const Typed typed = TypedPassword(facts);
    if (typed.found && typed.for_client && IsPassword(*proofs, typed.password, response.passwd_key)) {
      const std::int64_t seconds = context.config.TempLockSeconds();
      CheckResult note;
      note.check = "password";
      note.category = Message(context.config.language, MessageId::kAccessCategory);
      note.item = Message(context.config.language, MessageId::kPasswordItem);
      note.reason = Message(context.config.language, MessageId::kPasswordGiven);
      context.recorder.RecordNote(facts, context, note);
      if (context.config.library_enabled) {
        RequestLock(context, ClientList::kAuth, client, now, now + seconds, {note.reason, note.item, note.category});
      }
      state.wrong_passwords.Remove(client);
      result.request.answer.location = FormAction(facts.raw_url);
      result.request.answer.cookie = Cookie(
          kCookie, proofs->Make(ProofKind::kAuthorized, client, now + seconds, response.passwd_key), seconds, facts);
      result.status = kBlocked;
      result.log = 0;
      return;
    }
    if (typed.found) {
      BlockAccess({.kind = kKindAccess,
                   .category = MessageId::kAccessCategory,
                   .item = MessageId::kPasswordItem,
                   .reason = MessageId::kPasswordWrong,
                   .statistics = "passwd"},
                  facts, context, result);
      if (!state.wrong_passwords.Count(client, {}, CAttackCounter::OnTrigger::kRemove)) return;
      result.smart_block = 1;
      result.smart_block_title = Message(context.config.language, MessageId::kPasswordItem);
      result.smart_block_text = Message(context.config.language, MessageId::kPasswordLock);
      return;
    }
  }
  if (proofs->Read(ProofKind::kAuthorized, client, now, cookie, response.passwd_key)) result.status = kAllowed;
}

}  // namespace qiv

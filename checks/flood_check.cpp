#include "checks/flood_check.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/hex.h"
#include "checks/access_block.h"
#include "checks/check_state.h"
#include "checks/form_target.h"
#include "checks/verification_page.h"
#include "common/event_log.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

/// How much oftener a client may ask that has passed.
constexpr std::uint32_t kPassedFactor = 10;

bool IsCountedType(std::string_view path, const CExtensions& types) {
  const std::vector<std::string_view> extensions = PathExtensions(path);
  // A folder or a route is what a script answers.
  if (extensions.empty() || LastExtension(path).empty()) return true;
  return std::any_of(extensions.begin(), extensions.end(), [&types](std::string_view extension) {
    return types.Empty() ? IsServerScript(extension) : types.Holds(extension);
  });
}

std::uint64_t NonceOf(std::string_view hexadecimal) {
  std::uint64_t value = 0;
  for (const char c : hexadecimal) value = value << 4 | static_cast<std::uint64_t>(std::max(HexValue(c), 0));
  return value;
}

class CFloodRun {
 public:
  CFloodRun(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        result_(result),
        attack_(context.config.attack),
        access_(context.config.access),
        state_(context.state),
        client_(ClientAddress(facts)),
        now_(context.state.clock()) {}

  void Run() {
    if (!IsCounted() || IsExempt()) return;
    const bool pages = attack_.cc_strict_mode == 0;
    bool passed = pages && HasPassed();
    if (pages && !context_.log_only && TakeAnswer(&passed)) return;
    CClientCounter::Count count = state_.requests.Add(client_, now_, attack_.cc_lock_freq_sec);
    const auto limit = static_cast<std::uint64_t>(attack_.cc_lock_freq) * (passed ? kPassedFactor : 1);
    const bool over = count.requests > limit;
    if (context_.log_only) {
      if (over) WouldBlock(count.requests == limit + 1);
      return;
    }
    const bool first = over && !count.held;
    if (first) {
      state_.requests.Hold(client_, now_ + attack_.cc_lock_time);
      count.held = true;
    }
    if (!pages) {
      if (count.held) Lock(first);
      return;
    }
    if (first) AskService(now_ + attack_.cc_lock_time);
    if (passed && !over) return;
    if (count.held || state_.exchange.IsListed(ClientList::kCcCheck, client_, now_)) ShowPage(first);
  }

 private:
  bool IsCounted() const {
    const std::vector<std::string>& paths = RequestPaths(facts_);
    return std::any_of(paths.begin(), paths.end(),
                       [this](const std::string& path) { return IsCountedType(path, access_.cc_file_type); });
  }

  bool IsExempt() const {
    if (access_.cc_allow_ips.Contains(client_)) return true;
    const CIpRanges& ranges = context_.config.addresses.website_attack_cc_allow_area_ips;
    if (IsInArea(client_, ranges, access_.cc_allow_areas, context_)) return true;
    return !access_.cc_allow_urls.Empty() && access_.cc_allow_urls.HoldsAll(RequestPaths(facts_));
  }

  bool HasPassed() {
    const std::string_view proof = CookieValue(facts_.cookie, kPassedCookie);
    return !proof.empty() && Proofs().Read(ProofKind::kVerified, client_, now_, proof).has_value();
  }

  /// Their lock is not for requests that show nothing and are shown nothing.
  const CVisitorProofs& Proofs() {
    if (proofs_ == nullptr) proofs_ = state_.proofs.At(now_);
    return *proofs_;
  }

  std::uint32_t Kind() const { return static_cast<std::uint32_t>(attack_.cc_verify_type); }

  /// Of a page that the client was shown. True when that is the answer to the request. An answer that is forged, too
  /// late or another client's is as none.
  bool TakeAnswer(bool* passed) {
    const std::size_t question = std::min(facts_.raw_url.find('?'), facts_.raw_url.size());
    const std::string_view query =
        std::string_view(facts_.raw_url).substr(std::min(question + 1, facts_.raw_url.size()));
    const auto answer = ReadVerificationAnswer(attack_.cc_verify_type, query, facts_.cookie);
    const bool in_cookie = attack_.cc_verify_type == kVerifyCookie;
    // Who has passed may still send the page's form once more, and is then sent on likewise.
    if (!answer || (in_cookie && *passed)) return false;
    const std::optional<PageToken> token = Proofs().ReadPage(Kind(), client_, now_, answer->token);
    if (!token) return false;
    if (!IsRightAnswer(attack_.cc_verify_type, *token, answer->answer, now_)) {
      wrong_ = attack_.cc_verify_type == kVerifySelect;
      target_ = answer->target;
      return false;
    }
    const std::int64_t end = now_ + attack_.cc_lock_time;
    // One answer, sent again and again, is no way round the limit.
    if (state_.requests.Forgive(client_, token->issued)) {
      state_.flood.passed.fetch_add(1, std::memory_order_relaxed);
      AskService(0);
    }
    if (in_cookie && facts_.method != "GET") {
      *passed = true;  // with its form; the next request gets the other cookie
      return false;
    }
    RequestDecision& decision = result_.request;
    decision.answer.location =
        FormAction(in_cookie ? std::string_view(facts_.raw_url) : std::string_view(answer->target));
    decision.answer.cookie =
        Cookie(kPassedCookie, Proofs().Make(ProofKind::kVerified, client_, end), attack_.cc_lock_time, facts_);
    result_.status = kBlocked;
    result_.kind = kKindFlood;
    result_.log = 0;
    return true;
  }

  void AskService(std::int64_t end) {
    if (!context_.config.library_enabled) return;
    const MessageId text = end == 0 ? MessageId::kFloodPassed : MessageId::kFloodVerify;
    RequestLock(
        context_, ClientList::kCcCheck, client_, now_, end,
        {std::string(T(text)), std::string(T(MessageId::kFloodItem)), std::string(T(MessageId::kFloodCategory))});
  }

  void WriteTexts() {
    result_.status = kBlocked;
    result_.kind = kKindFlood;
    result_.category = T(MessageId::kFloodCategory);
    result_.item = T(MessageId::kFloodItem);
    result_.reason = T(MessageId::kFloodDenied);
    result_.detail = result_.reason;
    result_.log = 0;
  }

  /// The client is not held, so that it is free when the protection does more than log. One event a period.
  void WouldBlock(bool first) {
    WriteTexts();
    if (first) Tell();
  }

  void Tell() {
    result_.log = 1;
    context_.recorder.RecordStatistics("cc", facts_.client_ip, "-");
  }

  void Lock(bool first) {
    WriteTexts();
    if (!first) return;
    Tell();
    result_.notify = 1;
    state_.flood.locked.fetch_add(1, std::memory_order_relaxed);
    if (!context_.config.library_enabled) return;
    RequestLock(context_, ClientList::kDeny, client_, now_, now_ + attack_.cc_lock_time,
                {result_.reason, result_.item, result_.category});
  }

  void ShowPage(bool first) {
    WriteTexts();
    if (first) {
      state_.flood.clients.fetch_add(1, std::memory_order_relaxed);
      context_.recorder.RecordStatistics("cc", facts_.client_ip, "-");
    }
    state_.flood.pages.fetch_add(1, std::memory_order_relaxed);
    const std::string id = CEventLog::NewEventId();
    const std::uint64_t nonce = NonceOf(id);
    const std::string token = Proofs().MakePage(Kind(), client_, now_, nonce);
    const std::string target = FormAction(target_.empty() ? std::string_view(facts_.raw_url) : target_);
    const std::optional<PageToken> made = Proofs().ReadPage(Kind(), client_, now_, token);
    VerificationPage page{.kind = attack_.cc_verify_type,
                          .language = context_.config.language,
                          .token = token,
                          .answer = made ? made->answer : 0,
                          .nonce = nonce,
                          .target = target,
                          .client = facts_.client_ip,
                          .lost_form = facts_.method != "GET" && facts_.method != "HEAD",
                          .wrong_answer = wrong_,
                          .script_nonce = id};
    result_.request.prepared_page = RenderVerificationPage(page);
    result_.request.answer.policy = VerificationPolicy(id);
  }

  std::string_view T(MessageId id) const { return Message(context_.config.language, id); }

  const RequestFacts& facts_;
  const CheckContext& context_;
  CheckResult& result_;
  const AttackSettings& attack_;
  const PreparedAccess& access_;
  CheckState& state_;
  const CIpAddress client_;
  const std::int64_t now_;
  std::shared_ptr<const CVisitorProofs> proofs_;  ///< null until something is to be proved
  bool wrong_ = false;
  std::string target_;  ///< of the page that was answered wrongly
};

}  // namespace

void FloodCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  CFloodRun(facts, context, result).Run();
  context.state.ReportFlood();
}

void NotFoundCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  const AttackSettings& attack = context.config.attack;
  const std::vector<std::string>& paths = RequestPaths(facts);
  const CExtensions& free = context.config.access.e404_free_type;
  const bool is_free = std::all_of(paths.begin(), paths.end(),
                                   [&free](const std::string& path) { return free.Holds(LastExtension(path)); });
  if (is_free) return;
  CheckState& state = context.state;
  const CIpAddress client = ClientAddress(facts);
  const std::int64_t now = state.clock();
  const CClientCounter::Count count = state.missing.Add(client, now, attack.e404_lock_freq_sec);
  const bool first = context.log_only ? count.requests == attack.e404_lock_freq + 1
                                      : count.requests > attack.e404_lock_freq && !count.held;
  if (!first) return;
  if (!context.log_only) state.missing.Hold(client, now + attack.e404_lock_time);

  CheckResult note;
  const Language language = context.config.language;
  note.check = "not_found";
  note.category = Message(language, MessageId::kFloodCategory);
  note.item = Message(language, MessageId::kScanItem);
  note.reason = Message(language, MessageId::kScanDenied);
  note.detail = note.reason;
  context.recorder.RecordStatistics("e404", facts.client_ip, "-");
  if (context.log_only) {
    note.status = kBlocked;
    result = std::move(note);
    return;
  }
  context.recorder.RecordNote(facts, context, note);
  if (!context.config.library_enabled) return;
  RequestLock(context, ClientList::kDeny, client, now, now + attack.e404_lock_time,
              {note.reason, note.item, note.category});
}

}  // namespace qiv

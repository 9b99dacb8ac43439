#include "common/state_recorder.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "base/version.h"

namespace qiv {
namespace {

std::string_view StateWord(StateKind kind, bool fault) {
  if (kind == StateKind::kProtection) return fault ? "off" : "on";
  return fault ? "fault" : "ok";
}

/// What an administrator is told of it; nothing of what only concerns a part.
std::optional<SystemEvent> SystemEventOf(StateKind kind, bool fault) {
  switch (kind) {
    case StateKind::kProtection:
      return fault ? SystemEvent::kProtectionOff : SystemEvent::kProtectionOn;
    case StateKind::kLoad:
      return fault ? SystemEvent::kFileRefused : SystemEvent::kFileInForce;
    case StateKind::kOutput:
      return fault ? SystemEvent::kOutputFailed : SystemEvent::kOutputWorks;
    case StateKind::kSection:
    case StateKind::kItems:
    case StateKind::kBody:
    case StateKind::kFlood:
      break;
  }
  return std::nullopt;
}

MessageId FineReason(StateKind kind) {
  return kind == StateKind::kProtection ? MessageId::kStateProtected : MessageId::kStateInOrder;
}

}  // namespace

std::string_view StateKindName(StateKind kind) {
  constexpr std::string_view kNames[] = {"protection", "load", "section", "items", "output", "body", "flood"};
  return kNames[static_cast<std::size_t>(kind)];
}

CStateRecorder::CStateRecorder(CEventLog* log, Clock clock) : log_(log), clock_(clock) {
  // A process starts without protection, which is no news before something has been looked at.
  const CAutoLock lock(states_lock_);
  faults_[{StateKind::kProtection, "", ""}] = {MessageId::kCount, ""};
  fault_count_.store(faults_.size(), std::memory_order_relaxed);
}

void CStateRecorder::Fault(StateKind kind, std::string_view file, MessageId reason) noexcept {
  Fault(kind, file, StateFault{"", reason, ""});
}

void CStateRecorder::Fault(StateKind kind, std::string_view file, const StateFault& fault) noexcept {
  try {
    const CAutoLock lock(states_lock_);
    TakeFault(kind, file, fault);
  } catch (const std::exception&) {
    // Out of memory: it is still a change when it is reported again.
  }
}

void CStateRecorder::Fine(StateKind kind, std::string_view file, std::string_view item) noexcept {
  if (fault_count_.load(std::memory_order_relaxed) == 0) return;
  try {
    const CAutoLock lock(states_lock_);
    if (const auto held = faults_.find({kind, std::string(file), std::string(item)}); held != faults_.end()) {
      TakeFine(held);
    }
  } catch (const std::exception&) {
    // As above.
  }
}

void CStateRecorder::Replace(StateKind kind, std::string_view file, std::span<const StateFault> faults) noexcept {
  if (faults.empty() && fault_count_.load(std::memory_order_relaxed) == 0) return;
  try {
    const CAutoLock lock(states_lock_);
    for (auto held = faults_.lower_bound({kind, std::string(file), ""}); held != faults_.end();) {
      const auto& [held_kind, held_file, item] = held->first;
      if (held_kind != kind || held_file != file) break;
      const auto named = [&item = item](const StateFault& fault) { return fault.item == item; };
      const auto next = std::next(held);
      if (std::none_of(faults.begin(), faults.end(), named)) TakeFine(held);
      held = next;
    }
    for (const StateFault& fault : faults) TakeFault(kind, file, fault);
  } catch (const std::exception&) {
    // As above.
  }
}

void CStateRecorder::Happened(StateKind kind, MessageId reason, std::string_view detail) noexcept {
  try {
    const CAutoLock lock(states_lock_);
    Repeated& repeated = repeated_[{kind, reason}];
    const std::int64_t now = clock_();
    if (repeated.next_us != 0 && now < repeated.next_us) {
      ++repeated.silent;
      return;
    }
    std::string text(detail);
    if (repeated.silent != 0) {
      text.insert(0, "(+" + std::to_string(repeated.silent) + ") ");
    }
    Write({kind, "", ""}, true, reason, text);
    repeated = {now + kEventPause, 0};
  } catch (const std::exception&) {
    // The next one is written.
  }
}

bool CStateRecorder::IsFault(StateKind kind, std::string_view file, std::string_view item) const {
  const CAutoLock lock(states_lock_);
  return faults_.contains({kind, std::string(file), std::string(item)});
}

void CStateRecorder::TakeFault(StateKind kind, std::string_view file, const StateFault& fault) {
  Key key{kind, file, fault.item};
  const auto known = faults_.find(key);
  if (known != faults_.end() && known->second.reason == fault.reason && known->second.detail == fault.detail) return;
  Write(key, true, fault.reason, fault.detail);
  faults_.insert_or_assign(std::move(key), Held{fault.reason, fault.detail});
  fault_count_.store(faults_.size(), std::memory_order_relaxed);
}

void CStateRecorder::TakeFine(std::map<Key, Held>::iterator held) {
  Write(held->first, false, FineReason(std::get<StateKind>(held->first)), {});
  faults_.erase(held);
  fault_count_.store(faults_.size(), std::memory_order_relaxed);
}

void CStateRecorder::Write(const Key& key, bool fault, MessageId reason, std::string_view detail) {
  if (log_ == nullptr) return;
  const auto& [kind, file, item] = key;
  const std::string id = CEventLog::NewEventId();
  StateEvent event;
  event.event_id = id;
  event.kind = StateKindName(kind);
  event.state = StateWord(kind, fault);
  event.file = file;
  event.item = item;
  event.reason = Message(language_.load(std::memory_order_relaxed), reason);
  event.detail = detail;
  if (!version_told_.exchange(true)) event.version = kVersion;
  log_->WriteState(event);
  if (const auto system_event = SystemEventOf(kind, fault)) TellSystem(*system_event, StateSentence(event));
}

}  // namespace qiv

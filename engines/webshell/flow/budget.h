// What following a file's values may cost: work, and room in memory.
//
// Each byte of the source earns its part when the walk reaches it, so that whatever stands before a piece of code
// cannot use up what that code earns. Who makes something pays before it is made; what is held gives its room back when
// it goes. When nothing is left, contents are no longer known but where values come from still is.
#pragma once

#include <algorithm>
#include <cstddef>

namespace qiv {

/// Of one walk, and so of one thread.
class CFlowBudget {
 public:
  /// `room`: bytes that may be held in all; what is earned goes no further.
  CFlowBudget(std::size_t work, std::size_t room, std::size_t most_room)
      : work_(work), room_(std::min(room, most_room)), unearned_room_(most_room - room_) {}

  void EarnWork(std::size_t work) { work_ += work; }
  void EarnRoom(std::size_t bytes) {
    const std::size_t earned = std::min(bytes, unearned_room_);
    unearned_room_ -= earned;
    room_ += earned;
  }

  /// Pays for work about as long as copying that many bytes; false, and nothing is paid, when that much is not left.
  bool Spend(std::size_t work) {
    if (work > work_) return Refuse();
    work_ -= work;
    return true;
  }
  std::size_t Work() const { return work_; }

  /// Takes room for bytes that are to be held; false, and nothing is taken, when they do not fit.
  bool Take(std::size_t bytes) {
    if (!HasRoom(bytes)) return false;
    held_ += bytes;
    return true;
  }
  /// The same for what a file can have thousands of for nothing, as names: the last of the room is left to the walk and
  /// to values.
  bool TakeFromPlenty(std::size_t bytes) {
    constexpr std::size_t kReserve = 1 << 17;
    return HasRoom(kReserve + bytes) && Take(bytes);
  }
  /// The same for what is there already, whether it fits or not.
  void Hold(std::size_t bytes) { held_ += bytes; }
  void Give(std::size_t bytes) { held_ -= bytes; }
  /// Bytes that can still be taken.
  std::size_t Room() const { return room_ - std::min(room_, held_); }
  bool HasRoom(std::size_t bytes) { return bytes <= Room() || Refuse(); }
  bool IsOverdrawn() { return held_ > room_ && !Refuse(); }
  /// Whether it has ever said no: with more of it, things might have come out otherwise.
  bool HasRefused() const { return refused_; }

 private:
  bool Refuse() {
    refused_ = true;
    return false;
  }

  std::size_t work_;
  std::size_t room_;
  std::size_t unearned_room_;
  std::size_t held_ = 0;
  bool refused_ = false;
};

/// What the walks over one text, as PHP, as ASP and as ASPX, may take together. Every walk goes through its code once;
/// that it does so again, for what is defined behind its use, and through code inside the code, comes out of what the
/// text's bytes earn. Ordinary code takes three steps a byte for all of it; only texts of hardly anything but marks
/// take more.
class CWalkBudget {
 public:
  static constexpr std::size_t kPhpToken = 2;  ///< steps; some 40 ns each
  static constexpr std::size_t kPageToken = 1;

  explicit CWalkBudget(std::size_t bytes) : left_(kAnyway + bytes * kPerByte) {}

  /// For texts that are walked one after the other and share what is there anyway: begins the next one.
  void Begin(std::size_t bytes) {
    left_ += bytes * kPerByte;
    refused_ = false;
  }

  /// Pays for what is walked in any case.
  void Owe(std::size_t steps) { left_ -= std::min(left_, steps); }
  /// Pays for what may be left out; false, and nothing is paid, when that much is not left.
  bool Spend(std::size_t steps) {
    const bool fits = steps <= left_;
    refused_ = refused_ || !fits;
    left_ -= fits ? steps : 0;
    return fits;
  }
  /// Whether something was left out.
  bool Refused() const { return refused_; }

 private:
  static constexpr std::size_t kPerByte = 4;
  static constexpr std::size_t kAnyway = 1 << 16;

  std::size_t left_;
  bool refused_ = false;
};

/// A share of a budget's room that goes back with what holds it.
class CHeldRoom {
 public:
  CHeldRoom() = default;
  CHeldRoom(const CHeldRoom&) = delete;
  CHeldRoom& operator=(const CHeldRoom&) = delete;
  ~CHeldRoom() {
    if (budget_ != nullptr) budget_->Give(bytes_);
  }
  /// Holds `bytes` from now on, in place of what was held.
  void Set(CFlowBudget* budget, std::size_t bytes) {
    budget->Hold(bytes);
    if (budget_ != nullptr) budget_->Give(bytes_);
    budget_ = budget;
    bytes_ = bytes;
  }

 private:
  CFlowBudget* budget_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace qiv

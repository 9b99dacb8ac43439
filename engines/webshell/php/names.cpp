#include "engines/webshell/php/names.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kFirstSlots = 32;

std::uint32_t HashOf(std::string_view text) {
  std::uint64_t hash = HashSeed() + text.size();
  for (; text.size() >= 8; text.remove_prefix(8)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), 8);
    hash = (hash ^ word) * 0x9FB21C651E98DF25U;
    hash ^= hash >> 35;
  }
  // At most seven bytes are left; of four and more the first and the last four, which may be partly the same.
  std::uint64_t rest = 0;
  if (text.size() >= 4) {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::memcpy(&first, text.data(), 4);
    std::memcpy(&last, text.data() + text.size() - 4, 4);
    rest = std::uint64_t{first} << 32 | last;
  } else {
    for (const char c : text) rest = rest << 8 | static_cast<unsigned char>(c);
  }
  return MixHash(hash ^ rest);
}

}  // namespace

std::uint64_t HashSeed() {
  static const std::uint64_t seed = [] {
    int local = 0;  // its address differs as the system places stacks at random
    const auto time = static_cast<std::uint64_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count());
    return time * 0x9E3779B97F4A7C15U ^ reinterpret_cast<std::uintptr_t>(&local);
  }();
  return seed;
}

void CProbeTable::Grow() {
  std::vector<Slot> old(std::max(kFirstSlots, slots_.size() * 2));
  old.swap(slots_);
  const std::size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    for (std::size_t i = 0; slot.number != 0 && i < kMostProbes; ++i) {
      Slot& place = slots_[(slot.hash + i) & mask];
      if (place.number != 0) continue;
      place = slot;
      break;
    }
  }
}

CPhpNames::CPhpNames(CFlowBudget* budget) : budget_(budget) { Of("", true); }

PhpName CPhpNames::Of(std::string_view text, bool lasting) {
  if (text.size() != 1) return Find(text, lasting, false);
  PhpName& known = of_byte_[static_cast<unsigned char>(text[0])];
  if (known == kNoName) known = Find(text, lasting, false);
  return known;
}

PhpName CPhpNames::OfAnyway(std::string_view text) { return Find(text, false, true); }

PhpName CPhpNames::Find(std::string_view text, bool lasting, bool anyway) {
  constexpr std::size_t kMostDigits = 9;  // fits the number of a name
  if (!text.empty() && text.size() <= kMostDigits && IsDigit(text[0]) && (text[0] != '0' || text.size() == 1) &&
      std::all_of(text.begin(), text.end(), IsDigit)) {
    return NameOfNumber(DigitsToNumber(text));
  }
  return table_.FindOrAdd(
      HashOf(text), [&](PhpName name) { return Text(name) == text; },
      [&] {
        const std::size_t room = kRoom + (lasting ? 0 : text.size() + sizeof(std::string) + 32);
        if (anyway) {
          budget_->Hold(room);
        } else if (!budget_->TakeFromPlenty(room)) {
          return kNoName;
        }
        const std::string_view kept = lasting ? text : std::string_view(own_.emplace_back(text));
        entries_.Push() = {kept.data(), static_cast<std::uint32_t>(kept.size()), kNoName};
        return static_cast<PhpName>(entries_.size());
      });
}

PhpName CPhpNames::Lower(PhpName name) {
  if (name == kNoName || (name & kNumberName) != 0) return name;
  Entry& entry = entries_[name - 1];
  if (entry.lower == kNoName) {
    const std::string_view text = Text(name);
    const bool is_lower = std::none_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    entry.lower = is_lower ? name : Of(CCharSet::LowerAscii(text));
  }
  return entry.lower;
}

std::string_view CPhpNames::Text(PhpName name) const {
  if (name == kNoName || (name & kNumberName) != 0) return {};
  const Entry& entry = entries_[name - 1];
  return {entry.data, entry.size};
}

}  // namespace qiv

// All rules in one pass.
//
// The automaton reports the occurrences of all terms by their ends. Rules without order only need to know which terms
// occur at all.
//
// A sequence: searching again from a later first occurrence never finds what the search from the earliest one does not,
// so a rule is one position, the end of the earliest chain, and the number of its next term.
//
// A near sequence: from each occurrence of the first term the chain takes the first occurrence of the next term behind
// it, and breaks when that is too far. Chains that wait for the same term and are passed by the same occurrence go on,
// or break, as one: the occurrence takes all that wait from its begin or before, and the one that waited from the
// latest position decides whether it was near enough. So a step keeps a short queue of positions: only those inside the
// last few bytes (an occurrence may be reported before it but begin inside it) and the latest one before them can
// matter.
//
// Most texts hold terms that a script of any kind holds, but no rule's longest one: only when such a one occurs is any
// rule asked, and the occurrences so far, which are kept till then if they are few, are worked through.
//
// Each occurrence costs one look at each step that waits for its term: linear in the text, whatever it holds.
//
// Tested by tests/engines/webshell/signature_library_test.cpp against the search with its restarts.
#include "engines/webshell/signatures/signature_library.h"

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <numeric>
#include <unordered_map>
#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {

CSignatureLibrary::CSignatureLibrary(Parts parts)
    : rules_(std::move(parts.rules)), removal_(std::move(parts.removal)), whole_word_(parts.whole_word) {
  std::vector<std::string> patterns;
  for (const std::string& code : parts.free_code) patterns.push_back(BlankFreeLower(code));
  free_code_end_ = patterns.size();
  for (std::string& text : removal_) text = CCharSet::LowerAscii(std::string_view(text));
  std::erase(removal_, std::string());

  std::unordered_map<std::string_view, std::uint32_t> numbers;
  const auto number_of = [&](const std::string& term) {
    const auto [found, is_new] = numbers.try_emplace(term, static_cast<std::uint32_t>(patterns.size()));
    if (is_new) {
      patterns.push_back(term);
      steps_of_term_.emplace_back();
    }
    return found->second;
  };
  steps_of_term_.resize(free_code_end_);
  rule_terms_.resize(rules_.size());
  ordered_of_rule_.resize(rules_.size());
  for (std::uint32_t r = 0; r < rules_.size(); ++r) {
    const SignatureRule& rule = rules_[r];
    if (rule.terms.empty()) continue;
    order_.push_back(r);
    for (const std::string& term : rule.terms) rule_terms_[r].push_back(number_of(term));
    for (const std::string& term : rule.excluded) rule_terms_[r].push_back(number_of(term));
    if (!rule.in_order) continue;
    const bool near = rule.kind == PatternKind::kNearSequence;
    ordered_of_rule_[r] = static_cast<std::uint32_t>(ordered_.size());
    ordered_.push_back(
        {r, static_cast<std::uint32_t>(queue_size_.size()), static_cast<std::uint32_t>(rule.terms.size()), near});
    for (std::uint32_t step = 0; step < rule.terms.size(); ++step) {
      steps_of_term_[rule_terms_[r][step]].push_back({ordered_of_rule_[r], step});
      if (!near) continue;
      const std::size_t next = step + 1 < rule.terms.size() ? rule.terms[step + 1].size() : 0;
      next_length_.push_back(static_cast<std::uint32_t>(next));
      queue_size_.push_back(static_cast<std::uint32_t>(std::bit_ceil(next + 2)));
      queue_begin_.push_back(static_cast<std::uint32_t>(queue_room_));
      queue_room_ += queue_size_.back();
    }
  }
  std::stable_sort(order_.begin(), order_.end(),
                   [this](std::uint32_t a, std::uint32_t b) { return rules_[a].kind < rules_[b].kind; });
  asked_by_.resize(patterns.size());
  for (std::uint32_t place = 0; place < order_.size(); ++place) {
    const std::vector<std::string>& terms = rules_[order_[place]].terms;
    const auto longest = std::max_element(
        terms.begin(), terms.end(), [](const std::string& a, const std::string& b) { return a.size() < b.size(); });
    asked_by_[rule_terms_[order_[place]][static_cast<std::size_t>(longest - terms.begin())]].push_back(place);
  }
  terms_ = CMultiPattern(patterns);
}

bool CSignatureLibrary::IsWholeWord(std::string_view text, std::size_t begin, std::size_t end) const {
  return (begin == 0 || !IsWordByte(text[begin - 1])) && (end == text.size() || !IsWordByte(text[end]));
}

// One search. Its memory is taken when a rule's longest term occurs, or many of the others; of rules only those are
// asked whose longest term occurred.
class CSignatureLibrary::CSearch {
 public:
  CSearch(const CSignatureLibrary& library, std::string_view text) : library_(library), text_(text) {}

  bool OnOccurrence(std::uint32_t term, std::size_t begin) {
    if (term < library_.free_code_end_) {
      known_good_ = true;
      return false;
    }
    if (library_.whole_word_ && !library_.IsWholeWord(text_, begin, begin + library_.terms_.PatternLength(term)))
      return true;
    if (memory_ == nullptr) {
      if (library_.asked_by_[term].empty() && kept_count_ < kept_.size()) {
        kept_[kept_count_++] = {term, static_cast<std::uint32_t>(begin)};
        return true;
      }
      Start();
      for (std::size_t i = 0; i < kept_count_; ++i) Work(kept_[i].term, kept_[i].begin);
    }
    Work(term, begin);
    return true;
  }

  bool KnownGood() const { return known_good_; }

  /// Places in the library's order of the rules whose longest term occurred; no others hit. In order.
  const std::vector<std::uint32_t>& Candidates() {
    std::sort(candidates_.begin(), candidates_.end());
    return candidates_;
  }

  bool Hits(std::uint32_t rule) const {
    const SignatureRule& pattern = library_.rules_[rule];
    if (pattern.in_order && !progress_[library_.ordered_of_rule_[rule]].hit) return false;
    const std::vector<std::uint32_t>& terms = library_.rule_terms_[rule];
    for (std::size_t i = pattern.in_order ? pattern.terms.size() : 0; i < terms.size(); ++i) {
      if ((seen_[terms[i]] != 0) != (i < pattern.terms.size())) return false;
    }
    return true;
  }

 private:
  struct Progress {
    std::uint32_t next;  // sequences: the term waited for, from `position`
    std::uint32_t position;
    std::uint32_t hit;  // 0 or 1
  };
  struct Occurrence {
    std::uint32_t term;
    std::uint32_t begin;
  };
  // Positions from which chains wait, in ascending order.
  struct Queue {
    std::uint32_t front;
    std::uint32_t count;
  };

  void Work(std::uint32_t term, std::size_t begin) {
    const std::size_t end = begin + library_.terms_.PatternLength(term);
    if (seen_[term] == 0) {
      seen_[term] = 1;
      const std::vector<std::uint32_t>& rules = library_.asked_by_[term];
      candidates_.insert(candidates_.end(), rules.begin(), rules.end());
    }
    for (const Step step : library_.steps_of_term_[term]) {
      Progress& progress = progress_[step.rule];
      if (progress.hit) continue;
      if (library_.ordered_[step.rule].near) {
        Near(step, begin, end, &progress);
      } else if (progress.next == step.number && begin >= progress.position) {
        progress.position = static_cast<std::uint32_t>(end);
        progress.hit = ++progress.next == library_.ordered_[step.rule].steps;
      }
    }
  }

  // All of it in one piece, since many texts are short; what stands in a queue's room is written before it is read.
  void Start() {
    constexpr std::size_t kWord = sizeof(std::uint32_t);
    const std::size_t seen = library_.terms_.PatternCount() / kWord + 1;
    const std::size_t progress = library_.ordered_.size() * (sizeof(Progress) / kWord);
    const std::size_t queues = library_.queue_size_.size() * (sizeof(Queue) / kWord);
    memory_ = std::make_unique_for_overwrite<std::uint32_t[]>(seen + progress + queues + library_.queue_room_);
    std::fill_n(memory_.get(), seen + progress + queues, 0U);
    seen_ = reinterpret_cast<std::uint8_t*>(memory_.get());
    progress_ = reinterpret_cast<Progress*>(memory_.get() + seen);
    queues_ = reinterpret_cast<Queue*>(memory_.get() + seen + progress);
    room_ = memory_.get() + seen + progress + queues;
  }

  std::uint32_t& At(std::uint32_t queue, std::uint32_t index) {
    return room_[library_.queue_begin_[queue] + ((queues_[queue].front + index) & (library_.queue_size_[queue] - 1))];
  }
  void Pop(std::uint32_t queue) {
    ++queues_[queue].front;
    --queues_[queue].count;
  }

  // What lies too far behind to be told from a later position is dropped: an occurrence still to come ends behind
  // `position`, so it begins behind position - length of its term.
  void Push(std::uint32_t queue, std::size_t position) {
    while (queues_[queue].count >= 2 && At(queue, 1) + library_.next_length_[queue] <= position) Pop(queue);
    At(queue, queues_[queue].count) = static_cast<std::uint32_t>(position);
    ++queues_[queue].count;
  }

  void Near(Step step, std::size_t begin, std::size_t end, Progress* progress) {
    const OrderedRule& rule = library_.ordered_[step.rule];
    const std::uint32_t own = rule.first_step + step.number;
    if (step.number > 0) {
      const std::uint32_t before = own - 1;
      bool taken = false;
      std::size_t latest = 0;
      while (queues_[before].count > 0 && At(before, 0) <= begin) {
        taken = true;
        latest = At(before, 0);
        Pop(before);
      }
      const std::size_t gap = library_.whole_word_ ? kNearGapWholeWord : kNearGap;
      if (!taken || begin - latest > gap) return;
    }
    if (step.number + 1 == rule.steps) {
      progress->hit = true;
    } else {
      Push(own, end);
    }
  }

  const CSignatureLibrary& library_;
  std::string_view text_;
  bool known_good_ = false;
  std::vector<std::uint32_t> candidates_;
  std::array<Occurrence, 32> kept_;  // while nothing was asked
  std::size_t kept_count_ = 0;
  std::unique_ptr<std::uint32_t[]> memory_;
  std::uint8_t* seen_ = nullptr;  // per term
  Progress* progress_ = nullptr;  // per ordered rule
  Queue* queues_ = nullptr;
  std::uint32_t* room_ = nullptr;
};

CSignatureLibrary::Match CSignatureLibrary::Find(std::string_view text, std::size_t size) const {
  CSearch search(*this, text);
  terms_.Find(text, [&](std::uint32_t term, std::size_t begin) { return search.OnOccurrence(term, begin); });
  if (search.KnownGood()) return {true, nullptr};
  for (const std::uint32_t place : search.Candidates()) {
    const std::uint32_t rule = order_[place];
    if (rules_[rule].size_limit != 0 && rules_[rule].size_limit < size) continue;
    if (search.Hits(rule)) return {false, &rules_[rule]};
  }
  return {};
}

}  // namespace qiv

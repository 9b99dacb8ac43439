// The keyword-rule test for a whole list in one pass.
//
// Rules are kept as a tree of words. A step (node) waits for its word from a position on: the end of the occurrence
// that satisfied its parent, later the end of an occurrence that failed the whole-word test. The automaton reports the
// occurrences of all words by their ends; an occurrence that begins at or behind a step's position satisfies it, which
// sets its children waiting. A step is satisfied by the first occurrence that can, which is what a search word after
// word finds, and once satisfied is done with: any later occurrence could only make its children wait longer.
//
// The steps waiting for one word form a queue of groups, each with one position. Positions are ends of occurrences and
// these only grow, so the queue is sorted by itself: new groups go to its end. An occurrence takes the groups at the
// front whose position it does not precede; they are all satisfied, or all join into one group at the end of the queue.
// So an occurrence costs one step of work plus that of the groups it takes, and every group taken was once put there
// by a step satisfied or an occurrence failed: linear in text and tree, whatever the words.
//
// Tested by tests/engines/injection/keyword_rules_test.cpp against the search word after word.
#include "engines/injection/keyword_rules.h"

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <utility>

#include "common/text.h"

namespace qiv {

CKeywordRules::CKeywordRules(std::vector<InjectionRule> rules) : rules_(std::move(rules)) {
  std::unordered_map<std::string_view, std::uint32_t> numbers;
  std::unordered_map<std::uint64_t, std::uint32_t> children;  // (parent, word) -> step
  std::vector<std::string> words;
  steps_.emplace_back();
  for (std::uint32_t rule = 0; rule < rules_.size(); ++rule) {
    const std::vector<std::string>& list = rules_[rule].words;
    if (list.empty() || std::find(list.begin(), list.end(), std::string()) != list.end()) continue;
    std::uint32_t step = 0;
    for (const std::string& text : list) {
      const auto [word, new_word] = numbers.try_emplace(text, static_cast<std::uint32_t>(words.size()));
      if (new_word) words.push_back(text);
      const std::uint64_t edge = std::uint64_t{step} << 32 | word->second;
      const auto [child, new_child] = children.try_emplace(edge, static_cast<std::uint32_t>(steps_.size()));
      if (new_child) {
        steps_.push_back({word->second, kNone, rule, kNone, steps_[step].first_child});
        steps_[step].first_child = child->second;
      }
      step = child->second;
    }
    steps_[step].rule = std::min(steps_[step].rule, rule);
    steps_[0].best_below = std::min(steps_[0].best_below, rule);
  }
  words_ = CWordList(words);
  first_step_of_word_.assign(words.size(), kNone);
  for (std::uint32_t s = steps_[0].first_child; s != kNone; s = steps_[s].next_sibling) {
    first_step_of_word_[steps_[s].word] = s;
  }
}

bool CKeywordRules::IsWholeWord(std::string_view text, std::size_t begin, std::uint32_t word) const {
  const std::size_t end = begin + words_.Patterns().PatternLength(word);
  if (begin > 0 && IsWordByte(text[begin]) && IsWordByte(text[begin - 1])) return false;
  return end == text.size() || !IsWordByte(text[end - 1]) || !IsWordByte(text[end]);
}

// One search. Its memory is taken when the first word occurs, and never grows. Queues are set up when their word first
// occurs or is first waited for, so that a short text does not pay for a long list.
class CKeywordRules::CSearch {
 public:
  CSearch(const CKeywordRules& rules, std::string_view text) : rules_(rules), text_(text) {}

  // False when no better rule can come.
  bool OnOccurrence(std::uint32_t word, std::size_t begin) {
    if (queues_ == nullptr) Start();
    Queue& queue = QueueOf(word);
    if (queue.front == kNone || waiting_[queue.front].position > begin) return true;
    const std::uint32_t taken = Take(&queue, begin);
    const std::size_t end = begin + rules_.words_.Patterns().PatternLength(word);
    if (!rules_.IsWholeWord(text_, begin, word)) {
      Put(&queue, taken, end);
      return true;
    }
    for (std::uint32_t step = taken; step != kNone; step = waiting_[step].next) Satisfy(step, end);
    return best_ != rules_.steps_[0].best_below;
  }

  std::uint32_t Best() const { return best_; }

 private:
  // What a step keeps while it waits. A group is a chain of steps; its first step holds what belongs to the group.
  struct Waiting {
    std::size_t position;
    std::uint32_t next;        // step of the same group
    std::uint32_t last;        // last step of the group
    std::uint32_t next_group;  // first step of the next group in the queue
  };
  struct Queue {
    std::uint32_t front;
    std::uint32_t back;
  };
  static constexpr std::uint32_t kSetBits = 64;

  void Start() {
    const std::size_t words = rules_.first_step_of_word_.size();
    set_up_ = std::make_unique<std::uint64_t[]>(words / kSetBits + 1);
    queues_ = std::make_unique_for_overwrite<Queue[]>(words);
    waiting_ = std::make_unique_for_overwrite<Waiting[]>(rules_.steps_.size());
  }

  Queue& QueueOf(std::uint32_t word) {
    const std::uint64_t bit = std::uint64_t{1} << word % kSetBits;
    if ((set_up_[word / kSetBits] & bit) == 0) {
      set_up_[word / kSetBits] |= bit;
      queues_[word] = {kNone, kNone};
      const std::uint32_t step = rules_.first_step_of_word_[word];
      if (step != kNone) PutStep(&queues_[word], step, 0);
    }
    return queues_[word];
  }

  // Takes the groups that wait from `begin` or before off the queue, as one chain.
  std::uint32_t Take(Queue* queue, std::size_t begin) {
    const std::uint32_t first = queue->front;
    std::uint32_t group = first;
    while (waiting_[group].next_group != kNone && waiting_[waiting_[group].next_group].position <= begin) {
      const std::uint32_t next = waiting_[group].next_group;
      waiting_[waiting_[first].last].next = next;
      waiting_[first].last = waiting_[next].last;
      group = next;
    }
    queue->front = waiting_[group].next_group;
    if (queue->front == kNone) queue->back = kNone;
    return first;
  }

  // Puts a chain at the end of the queue, into the last group if that waits from the same position.
  void Put(Queue* queue, std::uint32_t chain, std::size_t position) {
    if (queue->back != kNone && waiting_[queue->back].position == position) {
      Waiting& group = waiting_[queue->back];
      waiting_[group.last].next = chain;
      group.last = waiting_[chain].last;
      return;
    }
    waiting_[chain].position = position;
    waiting_[chain].next_group = kNone;
    if (queue->back == kNone) {
      queue->front = chain;
    } else {
      waiting_[queue->back].next_group = chain;
    }
    queue->back = chain;
  }

  void PutStep(Queue* queue, std::uint32_t step, std::size_t position) {
    waiting_[step].next = kNone;
    waiting_[step].last = step;
    Put(queue, step, position);
  }

  // The step's word ended at `end`: its rule matches, its children wait, unless a better rule is known already.
  void Satisfy(std::uint32_t step, std::size_t end) {
    best_ = std::min(best_, rules_.steps_[step].rule);
    for (std::uint32_t s = rules_.steps_[step].first_child; s != kNone; s = rules_.steps_[s].next_sibling) {
      const Step& child = rules_.steps_[s];
      if (child.best_below < best_) PutStep(&QueueOf(child.word), s, end);
    }
  }

  const CKeywordRules& rules_;
  std::string_view text_;
  std::unique_ptr<std::uint64_t[]> set_up_;  // a bit per word: its queue is set up
  std::unique_ptr<Queue[]> queues_;          // per word
  std::unique_ptr<Waiting[]> waiting_;       // per step
  std::uint32_t best_ = kNone;
};

const InjectionRule* CKeywordRules::FindFirst(const JudgedText& text) const {
  CSearch search(*this, text.lowered);
  CWholeCharacters whole(words_, text.exact);
  words_.Patterns().Find(text.lowered, [&](std::uint32_t word, std::size_t begin) {
    return !whole.Counts(word, begin) || search.OnOccurrence(word, begin);
  });
  return search.Best() == kNone ? nullptr : &rules_[search.Best()];
}

}  // namespace qiv

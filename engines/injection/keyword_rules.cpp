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
    std::size_t bytes = 0;
    for (const std::string& text : list) {
      bytes += text.size();
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
    shortest_ = shortest_ == 0 ? bytes : std::min(shortest_, bytes);
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

// One search. Its memory is taken when the first word occurs, unless an earlier search took it, and never grows. Queues
// are set up when their word first occurs or is first waited for, so that a short text does not pay for a long list.
class CKeywordRules::CSearch {
 public:
  CSearch(const CKeywordRules& rules, std::string_view text, CRoom* room) : rules_(rules), text_(text), room_(*room) {}
  ~CSearch() {
    for (const std::uint32_t word : room_.words_set_up_) room_.set_up_[word / kSetBits] = 0;
    room_.words_set_up_.clear();
  }
  CSearch(const CSearch&) = delete;
  CSearch& operator=(const CSearch&) = delete;

  // False when no better rule can come.
  bool OnOccurrence(std::uint32_t word, std::size_t begin) {
    if (room_.queues_ == nullptr) Start();
    Queue& queue = QueueOf(word);
    if (queue.front == kNone || room_.waiting_[queue.front].position > begin) return true;
    const std::uint32_t taken = Take(&queue, begin);
    const std::size_t end = begin + rules_.words_.Patterns().PatternLength(word);
    if (!rules_.IsWholeWord(text_, begin, word)) {
      Put(&queue, taken, end);
      return true;
    }
    for (std::uint32_t step = taken; step != kNone; step = room_.waiting_[step].next) Satisfy(step, end);
    return best_ != rules_.steps_[0].best_below;
  }

  std::uint32_t Best() const { return best_; }

 private:
  static constexpr std::uint32_t kSetBits = 64;

  void Start() {
    const std::size_t words = rules_.first_step_of_word_.size();
    room_.set_up_ = std::make_unique<std::uint64_t[]>(words / kSetBits + 1);
    room_.queues_ = std::make_unique_for_overwrite<Queue[]>(words);
    room_.waiting_ = std::make_unique_for_overwrite<Waiting[]>(rules_.steps_.size());
  }

  Queue& QueueOf(std::uint32_t word) {
    const std::uint64_t bit = std::uint64_t{1} << word % kSetBits;
    if ((room_.set_up_[word / kSetBits] & bit) == 0) {
      room_.set_up_[word / kSetBits] |= bit;
      room_.words_set_up_.push_back(word);
      room_.queues_[word] = {kNone, kNone};
      const std::uint32_t step = rules_.first_step_of_word_[word];
      if (step != kNone) PutStep(&room_.queues_[word], step, 0);
    }
    return room_.queues_[word];
  }

  // Takes the groups that wait from `begin` or before off the queue, as one chain.
  std::uint32_t Take(Queue* queue, std::size_t begin) {
    const std::uint32_t first = queue->front;
    std::uint32_t group = first;
    while (room_.waiting_[group].next_group != kNone &&
           room_.waiting_[room_.waiting_[group].next_group].position <= begin) {
      const std::uint32_t next = room_.waiting_[group].next_group;
      room_.waiting_[room_.waiting_[first].last].next = next;
      room_.waiting_[first].last = room_.waiting_[next].last;
      group = next;
    }
    queue->front = room_.waiting_[group].next_group;
    if (queue->front == kNone) queue->back = kNone;
    return first;
  }

  // Puts a chain at the end of the queue, into the last group if that waits from the same position.
  void Put(Queue* queue, std::uint32_t chain, std::size_t position) {
    if (queue->back != kNone && room_.waiting_[queue->back].position == position) {
      Waiting& group = room_.waiting_[queue->back];
      room_.waiting_[group.last].next = chain;
      group.last = room_.waiting_[chain].last;
      return;
    }
    room_.waiting_[chain].position = position;
    room_.waiting_[chain].next_group = kNone;
    if (queue->back == kNone) {
      queue->front = chain;
    } else {
      room_.waiting_[queue->back].next_group = chain;
    }
    queue->back = chain;
  }

  void PutStep(Queue* queue, std::uint32_t step, std::size_t position) {
    room_.waiting_[step].next = kNone;
    room_.waiting_[step].last = step;
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
  CRoom& room_;
  std::uint32_t best_ = kNone;
};

const InjectionRule* CKeywordRules::FindFirst(const JudgedText& text) const {
  CRoom room;
  return FindFirst(text, &room);
}

const InjectionRule* CKeywordRules::FindFirst(const JudgedText& text, CRoom* room) const {
  if (text.lowered.size() < shortest_) return nullptr;
  CSearch search(*this, text.lowered, room);
  CWholeCharacters whole(words_, text.exact);
  words_.Patterns().Find(text.lowered, [&](std::uint32_t word, std::size_t begin) {
    return !whole.Counts(word, begin) || search.OnOccurrence(word, begin);
  });
  return search.Best() == kNone ? nullptr : &rules_[search.Best()];
}

}  // namespace qiv

// Texts for comparing fast engines with slow ones: all sequences of a few tokens, and random sequences.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

using Tokens = std::vector<std::string>;

/// Calls f(view) on a copy without a byte to spare, so that the address sanitizer sees a read behind the end.
template <typename F>
void WithExactCopy(std::string_view text, F&& f) {
  const auto block = std::make_unique<char[]>(text.size());
  std::copy(text.begin(), text.end(), block.get());
  f(std::string_view(block.get(), text.size()));
}

/// Every sequence of at most `longest` tokens.
template <typename F>
void ForEachSequence(const Tokens& tokens, std::size_t longest, F&& f) {
  std::vector<std::size_t> digits;
  for (;;) {
    std::string text;
    for (const std::size_t digit : digits) text += tokens[digit];
    WithExactCopy(text, f);
    std::size_t at = 0;
    while (at < digits.size() && ++digits[at] == tokens.size()) digits[at++] = 0;
    if (at == digits.size()) digits.push_back(0);
    if (digits.size() > longest) return;
  }
}

/// `count` random sequences of at most `longest` tokens; the same ones in every run.
template <typename F>
void ForRandomSequences(const Tokens& tokens, std::size_t longest, int count, F&& f) {
  std::mt19937 random(20240607);
  for (int i = 0; i < count; ++i) {
    std::string text;
    for (std::size_t n = random() % (longest + 1); n > 0; --n) text += tokens[random() % tokens.size()];
    WithExactCopy(text, f);
  }
}

}  // namespace qiv

// Whether a text is writing, and what stands within it.
//
// People post articles, source and logs, and these hold commands and code on purpose. A value that a command, a file
// name or an expression is made of is short, or has the attack in its first word.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace qiv {

/// Of one text, looked at when it is first asked. `text` must outlive it. Not thread safe.
class CTextShape {
 public:
  explicit CTextShape(std::string_view text) : text_(text) {}
  /// Whether the text is writing, and what begins at `at` belongs to it: more than a word stands before.
  bool IsWithinWriting(std::size_t at);

 private:
  static constexpr std::size_t kNoWriting = std::string_view::npos;

  const std::string_view text_;
  std::optional<std::size_t> begin_;  // the end of its first word, or kNoWriting
};

}  // namespace qiv

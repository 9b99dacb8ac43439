// What the operators of page scripts, and words that work on texts, make of values that are known in part.
#pragma once

#include <cstddef>
#include <vector>

#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/value.h"
#include "engines/webshell/page/words.h"

namespace qiv {

/// Bytes of a text that may always be copied; longer ones take from what the code's length allows. So what stands in
/// front of a few short lines cannot use up what they need.
inline constexpr std::size_t kShortText = 256;

inline constexpr std::size_t kLongLiteral = 32;  ///< bytes: shorter texts are words, not code

class CPageOperators {
 public:
  /// Bytes of long texts that may be copied, and in each pass joined to others.
  CPageOperators(std::size_t copies, std::size_t joins, CPageFindings* findings)
      : copies_left_(copies), joins_(joins), findings_(*findings) {}

  /// Before each pass.
  void Restart() { joins_left_ = joins_; }

  /// The value, without its text where that may not be copied.
  PageValue Copy(const PageValue& value);
  /// `right` joins `left` by `mark`. `basic`: in VBScript or VB.NET.
  void Combine(PageValue* left, char mark, PageValue right, bool basic);
  /// The text that a call makes of its arguments, where it is known.
  void WorkOut(PageCall call, const std::vector<PageValue>& arguments, PageValue* result);

 private:
  void Concatenate(PageValue* left, char mark, PageValue right, bool basic);

  std::size_t copies_left_;
  std::size_t joins_;
  std::size_t joins_left_ = 0;
  CPageFindings& findings_;
};

}  // namespace qiv

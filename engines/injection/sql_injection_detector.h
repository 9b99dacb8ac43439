// The SQL injection detector: is there, right after a cut word or at the start, one of the library's rule words,
// followed by blank space and more text, as in an SQL clause?
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/injection_settings.h"

namespace qiv {

/// The text without SQL comments, every "+" turned into a blank.
std::string SqlCommentStripper(std::string_view text);

/// The word that opens a segment when it is followed by blank space and more text that does not begin with ","; else
/// empty.
std::string_view LeadingWord(std::string_view segment);

/// No state of its own; case-sensitive; thread safe; linear in the text.
class SqlInjectionDetector {
 public:
  /// True on a hit, with *result set to a copy of the matched rule; in per-parameter mode (the text is split into
  /// name=value parameters and each value examined) its remark is replaced by the detail line. Null settings, an empty
  /// text and an empty rule or cut-word list are no hit.
  static bool Check(std::string_view text, const InjectionSettings* settings, const InjectionLibrary& library,
                    InjectionRule* result, bool per_parameter);

  /// Index of the rule that matches one unit of text, kNoMatch, or Rules().size() for the reserved format mismatch.
  static std::ptrdiff_t MatchUnit(std::string_view text, const InjectionLibrary& library);
  static constexpr std::ptrdiff_t kNoMatch = -1;

  /// Fills *result for the index that MatchUnit returned, the reserved one included.
  static void FillResult(std::ptrdiff_t index, std::string_view name, std::string_view value, bool per_parameter,
                         const InjectionSettings& settings, const InjectionLibrary& library, InjectionRule* result);
};

}  // namespace qiv

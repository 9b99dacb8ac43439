// The SQL injection detector: is there, right after a cut word or at the start, one of the library's rule words,
// followed by blank space and more text, as in an SQL clause?
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/injection_settings.h"
#include "engines/injection/judged_text.h"
#include "engines/injection/sql_expression_detector.h"

namespace qiv {

/// The text without SQL comments, every "+" turned into a blank.
std::string SqlCommentStripper(std::string_view text);

/// The word that opens a segment when it is followed by blank space and more text that does not begin with ","; else
/// empty.
std::string_view LeadingWord(std::string_view segment);

enum class SqlFindingId {
  kNone,
  kRule,
  kExpression,      ///< found by its form: see sql_expression_detector.h
  kFormatMismatch,  ///< reserved: an index one past the rules; nothing here finds it
};

/// What was found, and where in the text that was given.
struct SqlFinding {
  SqlFindingId id = SqlFindingId::kNone;
  const InjectionRule* rule = nullptr;  ///< of the library; null unless id is kRule
  SqlExpressionKind kind{};             ///< of a kExpression
  bool is_parameter = false;            ///< whether the text was split into parameters
  TextPlace name;                       ///< of the parameter
  TextPlace value;                      ///< the parameter's, else the whole text
  TextPlace word;                       ///< the rule's word, with comments that stand in it
};

/// No state of its own; case-sensitive; thread safe; linear in the text. It speaks no language: checks/ makes the match
/// record and the detail line of a finding.
class SqlInjectionDetector {
 public:
  /// True on a hit, with *finding set; else *finding is left alone. Per parameter: the text is split into name=value
  /// parameters and each value examined. Null settings, an empty text and an empty rule or cut-word list are no hit.
  static bool Check(const JudgedText& text, const InjectionSettings* settings, const InjectionLibrary& library,
                    SqlFinding* finding, bool per_parameter);

  /// Index of the rule that matches one unit of text, kNoMatch, or Rules().size() for the reserved format mismatch.
  static std::ptrdiff_t MatchUnit(const JudgedText& text, const InjectionLibrary& library);
  static constexpr std::ptrdiff_t kNoMatch = -1;

  /// The finding for the index that MatchUnit returned, the reserved one included, without its places.
  static SqlFinding FindingOf(std::ptrdiff_t index, const InjectionLibrary& library);
};

}  // namespace qiv

// Injection protection of a place's values, one by one and in each of their forms (value_forms.h).
//
// The whole text of a place is judged by the check itself; here each value is asked for SQL by its form
// (sql_expression_detector.h), and every form that the whole text does not hold is judged by the rules and detectors as
// well: strings of JSON unescaped, cookies decoded, runs of blanks and comments squeezed. Most values are let go at one
// look (plain_value.h).
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "checks/request_values.h"
#include "checks/value_forms.h"
#include "config/website_config.h"
#include "engines/injection/injection_library.h"
#include "engines/injection/keyword_rules.h"
#include "engines/injection/sql_injection_detector.h"
#include "engines/injection/xss_detector.h"

namespace qiv {

/// What was found in a value, and the value. Places are those of `text`, which is "name=value".
struct ValueHit {
  SqlFinding sql;                          // of the SQL detector, or by form
  const InjectionRule* keyword = nullptr;  // or of the keyword rules
  XssType xss = XssType::kNone;            // or of the XSS detector
  TextPlace fragment;                      // where the latter found it
  std::string text;                        // decoded
  std::size_t name_length = 0;
};

/// Bytes in which everything stands by accident: text in UTF-16, or in a body that is no form a share of control bytes
/// that no text has. `text` is the value decoded.
bool IsBinary(const RequestValue& value, std::string_view text);

/// What is looked for.
struct ValueSwitches {
  bool sql = false;       ///< keyword rules
  bool detector = false;  ///< and what is found without them
  bool xss = false;
  bool xss_forms = false;  ///< scripting by its form also in what the whole text holds
};

/// Walks over the values of a place. No argument is owned.
class CValueJudge {
 public:
  CValueJudge(const InjectionSettings& settings, const InjectionLibrary& library, const CKeywordRules& rules,
              const ValueSwitches& switches)
      : settings_(settings), library_(library), rules_(rules), switches_(switches) {}

  /// True on a hit: the walk ends.
  bool Judge(const RequestValue& value);
  const ValueHit& Hit() const { return hit_; }

 private:
  // JSON in a parameter, and JSON in a string of that, are looked into.
  static constexpr std::size_t kMostNested = 2;

  bool JudgeForm(const RequestValue& value, std::string_view text, bool is_sent);
  bool FindExpression(const RequestValue& value, std::string_view text);
  bool JudgeByRules(const RequestValue& value, std::string_view text);
  bool JudgeSqueezed(const RequestValue& value, std::string_view text);
  bool FindScript(const RequestValue& value, std::string_view text, const JudgedText& alone, bool forms_only);
  bool JudgeNested(const RequestValue& value, std::string_view text);
  /// The text and its lower-case copy as they would stand in a form: rules know what is before a value and behind it.
  JudgedText InForm(std::string_view text);
  /// Keeps the text as "name=value"; the offset of the value in it.
  std::size_t Keep(const RequestValue& value, std::string_view text);

  const InjectionSettings& settings_;
  const InjectionLibrary& library_;
  const CKeywordRules& rules_;
  const ValueSwitches switches_;
  ValueHit hit_;
  std::size_t depth_ = 0;
  // Kept from value to value: few of them take memory.
  std::array<ValueFormRoom, kMostNested + 1> rooms_;
  std::string exact_;
  std::string lowered_;
  std::string squeezed_;
  CKeywordRules::CRoom rules_room_;
};

}  // namespace qiv

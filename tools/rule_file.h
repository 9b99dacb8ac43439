// Rule files as people write them (rules/library, rules/keywords): UTF-8, one rule a line, fields divided by tabs:
//
//   identifier <TAB> words <TAB> shown <TAB> English remark <TAB> Chinese remark
//
// Words are divided by "*". "-" for the shown text shows the words. "%XX" stands for a byte that cannot be written
// (%25, %2A, %09; %20 for a blank at an end). Empty lines and lines that begin with "#" say nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/language.h"
#include "tools/report.h"

namespace qiv {

struct RuleLine {
  std::size_t line = 0;
  std::string identifier;
  std::vector<std::string> words;  ///< none empty, at least one
  std::string shown;               ///< empty: the words
  std::string english;
  std::string chinese;
};

/// The rules of a file in order. Lines that are none are reported as errors.
std::vector<RuleLine> ReadRuleFile(std::string_view text, CReport* report);

/// The text form of one file; ReadRuleFile gives the rules back.
std::string WriteRuleFile(const std::vector<RuleLine>& rules);

/// How a rule list is stored: UTF-8 library records, each ended by "{#}".
struct RecordForm {
  Language language = Language::kEnglish;  ///< of the remarks
  char separator = '*';                    ///< between the words
  bool user_defined = false;               ///< the loader percent-decodes the shown text and the words
};

/// The record of a rule, without its "{#}". Empty, with an error in *report, when the library's form cannot carry it.
std::string LibraryRecord(const RuleLine& rule, const RecordForm& form, CReport* report);

}  // namespace qiv

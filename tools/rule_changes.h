// What is different between two rule sets, for people: rules by their identifiers, other files by their lines.
#pragma once

#include <string>
#include <vector>

#include "tools/rule_set.h"

namespace qiv {

/// One line for each file with changes; at most a page, for a file names but few of its rules. Empty when nothing is
/// different. Both in the order of their paths.
std::string RuleChanges(const std::vector<FileText>& before, const std::vector<FileText>& after);

/// Whether a file of a rule set holds rules with identifiers, and how many.
std::size_t CountRules(const FileText& file);
/// Whether one of the files has a rule with this identifier.
bool HasRule(const std::vector<FileText>& files, std::string_view identifier);

}  // namespace qiv

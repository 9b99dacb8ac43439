// The rules for attacks between the plain files of rules/badcode and their stored form, _badcode.db.
//
// FAMILY.txt (lfi.txt, rce.txt, ...): one rule a line, seven fields divided by tabs:
//
//   identifier <TAB> where <TAB> pattern <TAB> English remark <TAB> Chinese remark <TAB> hits <TAB> misses
//
// lists.txt: lists of words that patterns name, one a line: name <TAB> words divided by blanks.
// ordinary.txt: texts that no rule may find, one a line. UTF-8. Empty lines and lines that begin with "#" say nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/language.h"
#include "tools/plain_library.h"

namespace qiv {

/// Whether the folder holds rules of a family.
bool HoldsBadcodeFiles(const std::string& directory);

/// The text of _badcode.db. Empty when something was an error: a line that does not parse, a rule that does not find
/// its own text, or finds the one it must not, or an ordinary one. Messages name file and line, and go to stderr.
std::string PackBadcodeFiles(const std::string& directory, Language language, int* exit_code);

/// The files of a stored library; both remarks of a rule are the stored one. Empty when the text is no such library.
std::vector<PlainLibraryFile> UnpackBadcodeFiles(std::string_view file_text);

}  // namespace qiv

// The webshell library between the plain files of rules/webshell and its stored form, _trojan.db.
//
// trojan_rules.txt: one rule a line, five fields divided by tabs:
//
//   pattern <TAB> php or asp <TAB> size limit in bytes, 0 none <TAB> English name <TAB> Chinese name
//
// trojan_free.txt: code that is never taken for a webshell, trojan_removal.txt: texts that scatter words, each one a
// line. UTF-8. Empty lines and lines that begin with "#" say nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/plain_library.h"

namespace qiv {

/// Whether the folder holds one of the files.
bool HoldsWebshellFiles(const std::string& directory);

/// The text of _trojan.db. Empty when something was an error; every message names its file and line, and goes to stderr
/// at once.
std::string PackWebshellFiles(const std::string& directory, int* exit_code);

/// The files of a stored library. Empty when the text is no such library.
std::vector<PlainLibraryFile> UnpackWebshellFiles(std::string_view file_text);

}  // namespace qiv

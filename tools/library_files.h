// Rule libraries between the plain files of rules/library and their stored form.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/rule_file.h"

namespace qiv {

/// The plain files of a library folder, without ".txt": also the tags of their lists in the stored form.
inline constexpr std::string_view kLibraryLists[] = {"sql_rules", "sql_keys", "xss_events"};

/// The text of _sql.db (or, user-defined, of _sql_user.db) from a folder that holds at least one of the lists. The
/// separator of `form` is chosen here. Empty when something was an error; every message names its file, and goes to
/// stderr at once.
std::string PackLibrary(const std::string& directory, RecordForm form, int* exit_code);

/// One list of a stored library in readable form. Both remarks are the stored one.
struct LibraryList {
  std::string_view name;  ///< of kLibraryLists
  std::vector<RuleLine> rules;
};
/// Of a deciphered library; empty when the text is none.
std::vector<LibraryList> UnpackLibrary(std::string_view text, bool user_defined);

}  // namespace qiv

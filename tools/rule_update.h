// Exchanging the rule set of an installation, and taking that back.
//
// DIR/rules holds the set in force, DIR/rules.old the one before it. What is the site's own - settings.json, own/, the
// exemptions, lists - is never written here.
#pragma once

#include <string>

namespace qiv {

/// Prints what is different, packs and checks with the set in `source`, and only then exchanges DIR/rules and what is
/// packed. A source that is DIR/rules itself is packed as it stands. Nothing has changed after an error. `only_show`:
/// nothing is written at all. The exit code.
int UpdateRules(const std::string& directory, const std::string& source, bool only_show);

/// The same with DIR/rules.old, which becomes DIR/rules, and the other way round.
int UndoRules(const std::string& directory);

/// Prints name and version of what is in force, of DIR/rules and of DIR/rules.old, and which files were edited there.
int ShowRules(const std::string& directory);

}  // namespace qiv

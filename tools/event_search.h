// Events in the module's log.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// The number as the log holds it: visitors read it out or copy it with what stands around it.
std::string CleanEventId(std::string_view given);
bool IsEventId(std::string_view id);

/// The event's line, in the log or what was moved away from it, the newest first; empty when it is in none.
/// `directory`: the module's, with its trailing separator.
std::string FindEvent(const std::string& directory, const std::string& id);

}  // namespace qiv

// What a program needs to know and do that sets a system up.
#pragma once

#include <string>

namespace qiv {

/// Whether this process has an administrator's rights in force.
bool IsElevated();

/// A variable of the environment, UTF-8; empty when there is none.
std::string EnvironmentText(const std::string& name);

/// Full path of the running program's file, UTF-8; empty when it cannot be found.
std::string ProgramFile();

/// Deletes a file, or an empty folder, when the system starts the next time. False where the system knows no such
/// thing.
bool RemoveAtRestart(const std::string& path);

}  // namespace qiv

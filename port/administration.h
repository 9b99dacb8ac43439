// What a program needs to know and do that sets a system up.
#pragma once

#include <string>

namespace qiv {

/// Whether this process has an administrator's rights in force.
bool IsElevated();

/// A variable of the environment, UTF-8; empty when there is none.
std::string EnvironmentText(const std::string& name);

/// Sets it, for this process and what it starts. Not while other threads read variables. False when that failed.
bool SetEnvironmentText(const std::string& name, const std::string& value);

/// A text below HKEY_LOCAL_MACHINE, UTF-8, variables in it not expanded; empty when there is none, or no registry.
std::string RegistryText(const std::string& key, const std::string& value);

/// Full path of the running program's file, UTF-8; empty when it cannot be found.
std::string ProgramFile();

/// Deletes a file, or an empty folder, when the system starts the next time. False where the system knows no such
/// thing.
bool RemoveAtRestart(const std::string& path);

}  // namespace qiv

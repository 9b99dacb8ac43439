// Several copies of a test program at once, for what several processes share.
#pragma once

#include <optional>
#include <string>

namespace qiv {

/// In a copy started by RunChildren: its number, from 0. Nothing in the test program itself.
std::optional<int> ChildNumber();
/// In a copy: what RunChildren was given.
std::string ChildArgument();

/// Runs `count` copies of this program at once, each with only the test that runs now, and waits for them. That test
/// starts by asking ChildNumber() which side it is on. True when every copy ended with success.
bool RunChildren(int count, const std::string& argument);

/// Whether this is a Windows program under wine, where appends of several processes may overwrite each other.
bool RunsUnderWine();

}  // namespace qiv

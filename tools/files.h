// Files and folders as the commands see them. Paths are UTF-8; "/" separates on every system.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/report.h"

namespace qiv {

/// Bytes of a file that a command reads whole.
inline constexpr std::uint64_t kLongestInput = std::uint64_t{200} << 20;

/// A file whole, or standard input for "-". False when it cannot be read or is beyond kLongestInput.
bool ReadInput(const std::string& path, std::string* content);
/// The same; where it cannot be read, the report has an error that says why.
bool ReadInput(const std::string& path, std::string* content, CReport* report);

/// "cannot be read: " and the system's reason, or what the path is instead of a file of at most `limit` bytes. After a
/// read of it has failed.
std::string CannotRead(const std::string& path, std::uint64_t limit = kLongestInput);
/// "cannot be written: " and the reason of this thread's last failed system call: for right after a failed write.
std::string CannotWrite();

bool IsFile(const std::string& path);
/// When it was last written, in seconds since 1970; 0 when it cannot be examined.
std::int64_t WrittenAt(const std::string& path);
bool IsDirectory(const std::string& path);

/// Creates the folder and those above it.
bool MakeDirectories(const std::string& path);

/// Writes to standard output, unchanged. What cannot be written is remembered.
void WriteOutput(std::string_view text);
/// Whether standard output took everything so far.
bool OutputIsGood();

/// The module directory for what the user gave: that directory itself or the config folder in it. With its trailing
/// separator; empty when there is neither DIR/config nor a DIR called config.
std::string ResolveModuleDirectory(const std::string& given);

/// The folder of rule data: `given` when it is not empty; else rules/ beside the executable, beside its folder, or in
/// share/qiv/ there; else that of the source tree this tool was built from. Empty when there is none.
std::string FindRulesDirectory(const std::string& given);

}  // namespace qiv

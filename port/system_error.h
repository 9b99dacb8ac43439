// What the system says about a call that failed.
#pragma once

#include <string>

namespace qiv {

/// The reason of this thread's last failed system call, UTF-8, one line without its end: "Permission denied". Ask
/// before anything else is called.
std::string LastSystemError();

}  // namespace qiv

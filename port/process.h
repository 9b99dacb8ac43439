// Programs run to their end, for programs of ours that set a system up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qiv {

struct ProgramResult {
  bool started = false;
  bool ended = false;  ///< by itself, in time
  int exit_code = -1;
  std::string output;  ///< both streams together, UTF-8; why it was not started when it was not

  bool Succeeded() const { return ended && exit_code == 0; }
};

/// Runs the program at this path and waits for it. It gets the arguments exactly as they are, whatever blanks, quotes
/// or characters they hold (Windows: written as the usual run-time libraries read a command line), and no input. One
/// that has not ended after `limit_ms` milliseconds is ended. What it starts itself and leaves running is not waited
/// for.
ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments, std::int64_t limit_ms);

}  // namespace qiv

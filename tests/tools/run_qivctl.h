// Runs the built qivctl, and shell lines with it.
#pragma once

#include <cstdio>
#include <string>

#include "port/file.h"
#include "tests/port/temporary_directory.h"

namespace qiv {

struct Outcome {
  int exit_code;
  std::string output;  ///< both streams
};

inline Outcome Shell(const std::string& command, const std::string& input = "") {
  static const CTemporaryDirectory scratch;
  const std::string file = scratch.Path("input");
  ReplaceFile(file, input);
  // The shell adds the exit code as three digits.
  std::FILE* const pipe = popen(("{ " + command + "; } 2>&1 <" + file + "; printf %03d $?").c_str(), "r");
  Outcome run{-1, ""};
  char buffer[4096];
  for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;) run.output.append(buffer, got);
  pclose(pipe);
  if (run.output.size() < 3) return run;
  run.exit_code = std::stoi(run.output.substr(run.output.size() - 3));
  run.output.resize(run.output.size() - 3);
  return run;
}

inline Outcome Qivctl(const std::string& arguments, const std::string& input = "") {
  return Shell(std::string(QIVCTL) + " " + arguments, input);
}

}  // namespace qiv

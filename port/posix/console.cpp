#include "port/console.h"

namespace qiv {

std::vector<std::string> CommandLineArguments(int argc, char** argv) {
  return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

void PrepareStandardStreams() {}

}  // namespace qiv

#include "port/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace qiv {

std::vector<std::string> CommandLineArguments(int argc, char** argv) {
  return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

void PrepareStandardStreams() {}

int TerminalWidth() {
  constexpr int kUsualWidth = 80;  // of a terminal that does not say
  winsize size{};
  if (::isatty(STDERR_FILENO) == 0) return 0;
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

bool ShowsColor(OutputStream stream) {
  return ::isatty(stream == OutputStream::kOutput ? STDOUT_FILENO : STDERR_FILENO) != 0;
}

}  // namespace qiv

// qivctl top.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "port/administration.h"
#include "port/clock.h"
#include "port/console.h"
#include "tools/color.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"
#include "tools/top_view.h"

namespace qiv {
namespace {

constexpr std::chrono::milliseconds kLook{50};  // between two looks whether to end
constexpr unsigned kLongestPause = 3600;
constexpr std::uint64_t kMostLines = 500;

struct TopOptions {
  std::string directory;
  unsigned every = 1;
  std::uint64_t lines = 0;
  bool once = false;
  std::string color = "auto";
};

volatile std::sig_atomic_t interrupted = 0;  // the signal's number

// The first interruption leaves the terminal as it was, a second one ends at once.
void OnInterrupt(int signal) {
  interrupted = signal;
  std::signal(signal, SIG_DFL);
}

bool GoOn() { return interrupted == 0; }

/// The alternate screen of a terminal, without a cursor; what was shown before is back afterwards.
class CScreen {
 public:
  explicit CScreen(bool used) : used_(used) {
    if (used_) WriteOutput("\x1B[?1049h\x1B[?25l");
  }
  ~CScreen() {
    if (used_) WriteOutput("\x1B[?25h\x1B[?1049l");
  }
  CScreen(const CScreen&) = delete;
  CScreen& operator=(const CScreen&) = delete;

  void Show(const std::vector<std::string>& frame) const {
    std::string text = used_ ? "\x1B[H" : "";
    for (std::size_t i = 0; i < frame.size(); ++i) {
      if (used_) {
        // No line end behind the last: the terminal would move its lines up.
        text += (i == 0 ? "" : "\r\n") + frame[i] + "\x1B[K";
      } else {
        const std::size_t end = frame[i].find_last_not_of(' ');
        text += frame[i].substr(0, end == std::string::npos ? 0 : end + 1) + "\n";
      }
    }
    if (used_) text += "\x1B[J";
    WriteOutput(text);
  }

 private:
  const bool used_;
};

void Pause(std::chrono::seconds length) {
  const auto end = std::chrono::steady_clock::now() + length;
  while (GoOn() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kLook);
}

int Top(const TopOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty())
    return Fail(PrintablePath(options.directory), "is no module directory: it holds no config folder");
  interrupted = 0;
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  const bool terminal = EnvironmentText("TERM") != "dumb" && ShowsColor(OutputStream::kOutput);
  CTopView::Shape shape;
  shape.lines = static_cast<std::size_t>(options.lines);
  shape.colour = WantsColor(options.color, OutputStream::kOutput);
  CTopView view(directory);
  {
    const CScreen screen(terminal && !options.once);
    std::int64_t now = 0;
    while (GoOn() && OutputIsGood()) {
      now = std::max(now, UnixSeconds());  // a clock that is set back holds the view, and no more
      if (!view.Update(now, GoOn)) break;
      shape.size = OutputTerminalSize();
      if (options.once) shape.size.rows = 0;
      screen.Show(view.Frame(shape, now));
      if (options.once) return kExitOk;
      Pause(std::chrono::seconds(options.every));
    }
  }
  return interrupted != 0 ? kExitSignal + interrupted : kExitOk;
}

}  // namespace

void AddTopCommand(CCommand* program) {
  const auto options = std::make_shared<TopOptions>();
  CCommand& top = program->AddCommand("top", "Show what the firewall does, anew every second, until Ctrl-C");
  top.AddOption("folder", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  top.AddOption("--every", &options->every, "seconds between two views").Range(1, kLongestPause).ShowDefault();
  top.AddOption("--lines", &options->lines, "of each table; as many as fit unless given").Range(1, kMostLines);
  top.AddFlag("--once", &options->once, "print one view and end");
  AddColorOption(&top, &options->color);
  top.OnRun([options] { return Top(*options); });
}

}  // namespace qiv

#include "port/process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "port/clock.h"

extern char** environ;

namespace qiv {
namespace {

constexpr int kPauseMilliseconds = 20;

void ReadWaiting(int pipe, int wait_ms, std::string* output) {
  pollfd waiting{pipe, POLLIN, 0};
  char piece[4096];
  while (::poll(&waiting, 1, wait_ms) > 0) {
    const ssize_t got = ::read(pipe, piece, sizeof piece);
    if (got <= 0) {
      if (wait_ms > 0) ::poll(nullptr, 0, wait_ms);  // closed, but the program goes on
      return;
    }
    output->append(piece, static_cast<std::size_t>(got));
    wait_ms = 0;
  }
}

}  // namespace

ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments, std::int64_t limit_ms) {
  ProgramResult result;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    result.output = strerror(errno);
    return result;
  }
  std::vector<char*> line{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) line.push_back(const_cast<char*>(argument.c_str()));
  line.push_back(nullptr);
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_addopen(&streams, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&streams, ends[1], 1);
  posix_spawn_file_actions_adddup2(&streams, ends[1], 2);
  pid_t child = 0;
  const int error = ::posix_spawn(&child, program.c_str(), &streams, nullptr, line.data(), environ);
  posix_spawn_file_actions_destroy(&streams);
  ::close(ends[1]);
  if (error != 0) {
    result.output = strerror(error);
    ::close(ends[0]);
    return result;
  }
  result.started = true;
  const std::int64_t end = MonotonicMicroseconds() + limit_ms * 1000;
  int status = 0;
  while (!result.ended && MonotonicMicroseconds() < end) {
    ReadWaiting(ends[0], kPauseMilliseconds, &result.output);
    result.ended = ::waitpid(child, &status, WNOHANG) == child;
  }
  if (!result.ended) {
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
  } else {
    result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  ReadWaiting(ends[0], 0, &result.output);
  ::close(ends[0]);
  return result;
}

}  // namespace qiv

#include "tests/port/child_processes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#ifdef _WIN32
#include <process.h>
#include <windows.h>
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace qiv {
namespace {

constexpr char kNumberName[] = "QIV_TEST_CHILD";
constexpr char kArgumentName[] = "QIV_TEST_CHILD_ARGUMENT";

#ifdef _WIN32
void SetVariable(const char* name, const std::string& value) { _putenv_s(name, value.c_str()); }

std::intptr_t Start(const std::string& filter) {
  char program[MAX_PATH];
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  // The C library joins the arguments by blanks, so the path of the program itself stays out of them.
  return _spawnl(_P_NOWAIT, program, "child", filter.c_str(), nullptr);
}

bool Succeeded(std::intptr_t process) {
  int status = -1;
  return process != -1 && _cwait(&status, process, 0) != -1 && status == 0;
}

bool HasWineCall() { return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr; }
#else
void SetVariable(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }

std::intptr_t Start(const std::string& filter) {
  std::string name = "child";
  std::string argument = filter;
  char* arguments[] = {name.data(), argument.data(), nullptr};
  pid_t process = -1;
  const int error = ::posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, arguments, environ);
  return error == 0 ? process : -1;
}

bool Succeeded(std::intptr_t process) {
  int status = -1;
  return process != -1 && ::waitpid(static_cast<pid_t>(process), &status, 0) == process && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

bool HasWineCall() { return false; }
#endif

}  // namespace

std::optional<int> ChildNumber() {
  const char* number = std::getenv(kNumberName);
  if (number == nullptr || *number == '\0') return std::nullopt;
  return std::atoi(number);
}

std::string ChildArgument() {
  const char* argument = std::getenv(kArgumentName);
  return argument == nullptr ? "" : argument;
}

bool RunsUnderWine() { return HasWineCall(); }

bool RunChildren(int count, const std::string& argument) {
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
  SetVariable(kArgumentName, argument);
  std::vector<std::intptr_t> processes;
  for (int number = 0; number < count; ++number) {
    SetVariable(kNumberName, std::to_string(number));
    processes.push_back(Start(filter));
  }
  SetVariable(kNumberName, "");
  bool all_succeeded = true;
  for (const std::intptr_t process : processes) all_succeeded = Succeeded(process) && all_succeeded;
  return all_succeeded;
}

}  // namespace qiv

// Every method of the interface, called once in each direction between a host of the MSVC ABI and a module built by
// g++: both must give the same account of names, arguments and answers.
#include <gtest/gtest.h>
#include <windows.h>

#include <set>
#include <string>

#include "tests/abi/windows_program.h"

namespace {

std::string Describe(const proof::Call& call) {
  std::string text = call.name;
  for (int i = 0; i < call.count; ++i) text += " " + std::to_string(call.arguments[i]);
  return text;
}

/// How many methods slots.txt lists, the destructor (which nobody calls) left out.
constexpr std::size_t kMethods = 165;

TEST(Abi, EveryCallReachesItsMethod) {
  HMODULE library = LoadLibraryA(QIV_CALLING_MODULE);
  ASSERT_NE(library, nullptr) << GetLastError();
  auto function = [library](const char* name) { return reinterpret_cast<void (*)()>(GetProcAddress(library, name)); };
  ASSERT_NE(function("RegisterModule"), nullptr);
  const char* const host_mismatch = DriveEveryCall(function("RegisterModule"), function("CallContextObjects"));
  EXPECT_STREQ(host_mismatch, nullptr);
  using MismatchFunction = const char* (*)();
  using TranscriptFunction = const proof::Transcript* (*)();
  EXPECT_STREQ(reinterpret_cast<MismatchFunction>(function("ModuleMismatch"))(), nullptr);

  const proof::Transcript& module = *reinterpret_cast<TranscriptFunction>(function("ModuleTranscript"))();
  const proof::Transcript& host = *HostTranscript();
  ASSERT_LT(host.count, proof::kMaxCalls);
  ASSERT_EQ(host.count, module.count);
  std::set<std::string> names;
  for (int i = 0; i < host.count; ++i) {
    EXPECT_EQ(Describe(host.calls[i]), Describe(module.calls[i])) << "call " << i;
    names.insert(host.calls[i].name);
  }
  EXPECT_EQ(names.size(), kMethods + 1);  // and RegisterModule
}

}  // namespace

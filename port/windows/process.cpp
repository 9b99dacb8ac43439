#include "port/process.h"

#include <windows.h>

#include "port/clock.h"
#include "port/code_page.h"
#include "port/system_error.h"
#include "port/windows/wide_path.h"

namespace qiv {
namespace {

constexpr DWORD kPauseMilliseconds = 20;

class CHandle {
 public:
  ~CHandle() { Close(); }
  HANDLE* Out() { return &handle_; }
  HANDLE Get() const { return handle_; }
  void Close() {
    if (handle_ != nullptr) CloseHandle(handle_);
    handle_ = nullptr;
  }

 private:
  HANDLE handle_ = nullptr;
};

/// An argument as CommandLineToArgvW and the C run-time take it apart: backslashes count only before a quote.
void AppendArgument(const std::wstring& argument, std::wstring* line) {
  if (!line->empty()) *line += L' ';
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    *line += argument;
    return;
  }
  *line += L'"';
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') line->append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    *line += c;
  }
  line->append(backslashes, L'\\');
  *line += L'"';
}

void ReadWaiting(HANDLE pipe, std::string* output) {
  DWORD waiting = 0;
  while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &waiting, nullptr) && waiting != 0) {
    const std::size_t before = output->size();
    output->resize(before + waiting);
    DWORD got = 0;
    if (!ReadFile(pipe, output->data() + before, waiting, &got, nullptr)) got = 0;
    output->resize(before + got);
    if (got == 0) return;
  }
}

/// Programs of the system write in the console's code page.
std::string ConsoleTextToUtf8(const std::string& text) {
  if (text.empty()) return text;
  const int length = static_cast<int>(text.size());
  if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, nullptr, 0) > 0) return text;
  std::u16string wide(text.size(), u'\0');
  const int units = MultiByteToWideChar(CP_OEMCP, 0, text.data(), length, reinterpret_cast<wchar_t*>(wide.data()),
                                        static_cast<int>(wide.size()));
  return Utf16ToUtf8(std::u16string_view(wide).substr(0, static_cast<std::size_t>(units > 0 ? units : 0)));
}

}  // namespace

ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments, std::int64_t limit_ms) {
  ProgramResult result;
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  CHandle reader;
  CHandle writer;
  if (!CreatePipe(reader.Out(), writer.Out(), &inherited, 0)) {
    result.output = LastSystemError();
    return result;
  }
  SetHandleInformation(reader.Get(), HANDLE_FLAG_INHERIT, 0);
  std::wstring line;
  AppendArgument(Wide(program), &line);
  for (const std::string& argument : arguments) AppendArgument(Wide(argument), &line);
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = writer.Get();
  start.hStdError = writer.Get();
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(Wide(program).c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                      &process)) {
    result.output = LastSystemError();
    return result;
  }
  result.started = true;
  writer.Close();
  CloseHandle(process.hThread);
  const std::int64_t end = MonotonicMicroseconds() + limit_ms * 1000;
  // The pipe is emptied while the program runs, lest it wait for room, but its end is the process's, not the pipe's:
  // what it left running may hold the pipe open.
  while (!result.ended && MonotonicMicroseconds() < end) {
    result.ended = WaitForSingleObject(process.hProcess, kPauseMilliseconds) == WAIT_OBJECT_0;
    ReadWaiting(reader.Get(), &result.output);
  }
  DWORD code = 0;
  if (!result.ended) {
    TerminateProcess(process.hProcess, 1);
  } else if (GetExitCodeProcess(process.hProcess, &code)) {
    result.exit_code = static_cast<int>(code);
  }
  CloseHandle(process.hProcess);
  result.output = ConsoleTextToUtf8(result.output);
  return result;
}

}  // namespace qiv

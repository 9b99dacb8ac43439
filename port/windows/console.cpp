#include "port/console.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>

#include "port/code_page.h"

namespace qiv {

std::vector<std::string> CommandLineArguments(int /*argc*/, char** /*argv*/) {
  // The narrow arguments have been through the system's code page; the wide ones have not.
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) return arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(Utf16ToUtf8(reinterpret_cast<const char16_t*>(wide[i])));
  LocalFree(wide);
  return arguments;
}

void PrepareStandardStreams() {
  for (std::FILE* const stream : {stdin, stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
  SetConsoleOutputCP(CP_UTF8);
}

int TerminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info)) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

bool ShowsColor(OutputStream stream) {
  constexpr DWORD kObeySequences = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING, which older headers lack
  const HANDLE console = GetStdHandle(stream == OutputStream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(console, &mode) != 0 && SetConsoleMode(console, mode | kObeySequences) != 0;
}

}  // namespace qiv

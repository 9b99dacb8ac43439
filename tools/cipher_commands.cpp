// qivctl encrypt, decrypt.
#include <algorithm>
#include <string>
#include <string_view>

#include "base/hex.h"
#include "common/aes.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/report.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::size_t kBlockDigits = 2 * CAES::kBlockSize;

/// What a line cannot be used for; null when nothing is wrong with it.
const char* Fault(std::string_view line, bool encrypt) {
  if (encrypt) return line.find('\0') == std::string_view::npos ? nullptr : "a text with a zero byte cannot be carried";
  if (!std::all_of(line.begin(), line.end(), [](char c) { return HexValue(c) >= 0; }))
    return "the line is not hexadecimal";
  return line.size() % kBlockDigits == 0 ? nullptr : "the line is no whole number of 32-digit blocks";
}

/// One line of output for each line of input; an empty one for a line that cannot be used.
int Convert(bool encrypt) {
  CReport report("standard input");
  std::string input;
  if (!ReadInput("-", &input, &report)) return report.Print();
  std::string_view text = input;
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string output;
  std::size_t number = 0;
  for (std::string_view line : SplitUtf8(text, "\n")) {
    if (input.empty()) break;
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (const char* const fault = Fault(line, encrypt); fault != nullptr) {
      report.Error(number, fault);
    } else {
      output += encrypt ? encrypt_text("", line) : decrypt_text("", line);
    }
    output += '\n';
  }
  WriteOutput(output);
  return report.Print();
}

}  // namespace

void AddCipherCommands(CCommand* program) {
  CCommand& encrypt = program->AddCommand("encrypt", "Encipher each line of standard input");
  encrypt.OnRun([] { return Convert(true); });
  CCommand& decrypt = program->AddCommand("decrypt", "Decipher each line of standard input");
  decrypt.OnRun([] { return Convert(false); });
}

}  // namespace qiv

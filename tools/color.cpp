#include "tools/color.h"

#include "port/administration.h"

namespace qiv {

void AddColorOption(CCommand* command, std::string* when) {
  command->AddOption("--color", when, "colours; auto: on a terminal, unless NO_COLOR is set")
      .ShowDefault()
      .Choices({"auto", "always", "never"});
}

bool WantsColor(const std::string& when, OutputStream stream) {
  if (when != "auto") {
    if (when == "always") ShowsColor(stream);  // a console has to be told
    return when == "always";
  }
  return EnvironmentText("NO_COLOR").empty() && EnvironmentText("TERM") != "dumb" && ShowsColor(stream);
}

std::string Colored(const std::string& text, Color color, bool wanted) {
  if (!wanted) return text;
  const char* const digit = color == Color::kRed ? "1" : color == Color::kGreen ? "2" : "3";
  return std::string("\x1b[1;3") + digit + "m" + text + "\x1b[0m";
}

}  // namespace qiv

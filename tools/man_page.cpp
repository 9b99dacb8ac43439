#include "tools/man_page.h"

#include <string_view>

namespace qiv {
namespace {

/// A text as it is to be read: nothing in it commands the formatter, and hyphens can be copied as such.
std::string Plain(std::string_view text) {
  std::string plain;
  for (const char c : text) {
    if (c == '\\') {
      plain += "\\e";
    } else if (c == '-') {
      plain += "\\-";
    } else if ((c == '.' || c == '\'') && (plain.empty() || plain.back() == '\n')) {
      plain += std::string("\\&") + c;
    } else {
      plain += c;
    }
  }
  return plain;
}

std::string Bold(std::string_view text) { return "\\fB" + Plain(text) + "\\fR"; }
std::string Italic(std::string_view text) { return "\\fI" + Plain(text) + "\\fR"; }

/// "qivctl-library-pack"
std::string PageName(const CCommand& command) {
  std::string name = command.Path();
  for (char& c : name) {
    if (c == ' ') c = '-';
  }
  return name;
}

std::string UpperCase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string ValueNameOf(const CCommandOption& option) {
  if (!option.NameOfValue().empty()) return option.NameOfValue();
  if (option.Kind() == ValueKind::kFile) return "FILE";
  return option.Kind() == ValueKind::kFolder ? "FOLDER" : "VALUE";
}

/// "-o FILE, --output=FILE", in the formatter's spelling.
std::string Head(const CCommandOption& option) {
  if (option.IsPositional()) return Italic(option.Names().front()) + (option.IsList() ? " ..." : "");
  std::string head;
  for (const std::string& name : option.Names()) {
    if (!head.empty()) head += ", ";
    head += Bold(name);
    if (!option.IsFlag()) head += (name.starts_with("--") ? "=" : " ") + Italic(ValueNameOf(option));
  }
  return head;
}

std::string Sentence(const CCommandOption& option) {
  std::string text = Plain(option.Meaning());
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') text.front() = static_cast<char>(text.front() - 32);
  if (!text.ends_with('.')) text += '.';
  std::string choices;
  for (const std::string& choice : option.ChoicesOf()) choices += (choices.empty() ? "" : ", ") + Bold(choice);
  if (!choices.empty()) text += "\nOne of " + choices + ".";
  if (!option.Default().empty()) text += "\nIf not given: " + Bold(option.Default()) + ".";
  if (option.IsRequired() && !option.IsPositional()) text += "\nRequired.";
  return text + "\n";
}

std::string Synopsis(const CCommand& command) {
  std::string text = ".B " + Plain(command.Path()) + "\n";
  for (const CCommandOption* const option : command.Options()) {
    if (option->IsHidden()) continue;
    const std::string head = option->IsPositional() ? Head(*option)
                             : option->IsFlag()     ? Bold(option->Names().back())
                                                    : Bold(option->Names().back()) + "=" + Italic(ValueNameOf(*option));
    text += option->IsRequired() ? head + "\n" : "[" + head + "]\n";
  }
  if (!command.Commands().empty())
    text += command.RequiresCommand() ? "\\fIcommand\\fR ...\n" : "[\\fIcommand\\fR ...]\n";
  return text;
}

std::string Entry(const std::string& head, const std::string& text) { return ".TP\n" + head + "\n" + text; }

void AppendPages(const CCommand& command, const std::string& version, std::vector<ManPage>* pages) {
  const std::string name = PageName(command);
  const bool is_program = pages->empty();
  std::string meaning = command.Meaning();
  std::string text = ".\\\" Made by \"qivctl man\".\n.TH \"" + UpperCase(name) + "\" \"1\" \"\" \"qivctl " + version +
                     "\" \"User Commands\"\n.SH NAME\n" + Plain(name) + " \\- " +
                     Plain(meaning.substr(0, meaning.find(". "))) + "\n.SH SYNOPSIS\n" + Synopsis(command) +
                     ".SH DESCRIPTION\n" + Plain(meaning) + (meaning.ends_with('.') ? "\n" : ".\n");
  std::string commands;
  std::string see_also = is_program ? "" : Bold("qivctl") + "(1)";
  for (const auto& below : command.Commands()) {
    commands += Entry(Bold(below->Name()), Plain(below->Meaning()) + ".\n");
    see_also += (see_also.empty() ? "" : ",\n") + Bold(PageName(*below)) + "(1)";
  }
  if (!commands.empty()) text += ".SH COMMANDS\n" + commands;
  std::string options;
  for (const CCommandOption* const option : command.Options()) {
    if (!option->IsHidden()) options += Entry(Head(*option), Sentence(*option));
  }
  options += Entry(Bold("-h") + ", " + Bold("--help"), "Print what there is and exit.\n");
  if (is_program) options += Entry(Bold("--version"), "Print the version and exit.\n");
  text += ".SH OPTIONS\n" + options + ".SH EXIT STATUS\n" + Entry("0", "Done.\n") +
          Entry("1", "Done, and something doubtful was found.\n") +
          Entry("2", "Not done, or not whole; standard error says why.\n");
  if (!see_also.empty()) text += ".SH SEE ALSO\n" + see_also + "\n";
  pages->push_back({name + ".1", text});
  // Commands stand two deep at most.
  for (const auto& below : command.Commands()) AppendPages(*below, version, pages);
}

}  // namespace

std::vector<ManPage> ManPages(const CCommand& program, const std::string& version) {
  std::vector<ManPage> pages;
  AppendPages(program, version, &pages);
  return pages;
}

}  // namespace qiv

// The only file that includes the parser's headers: they take longer to compile than all commands together.
#include "command_line/command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <sstream>
#include <utility>

#include "command_line/suggestion.h"

namespace qiv {

CCommandOption::CCommandOption(CLI::Option* option, std::string names, std::string meaning, bool is_flag, bool is_list)
    : option_(option), meaning_(std::move(meaning)), is_flag_(is_flag), is_list_(is_list) {
  for (std::size_t begin = 0; begin <= names.size();) {
    const std::size_t end = std::min(names.find(',', begin), names.size());
    names_.push_back(names.substr(begin, end - begin));
    begin = end + 1;
  }
}

CCommandOption& CCommandOption::Required() {
  option_->required();
  is_required_ = true;
  return *this;
}

CCommandOption& CCommandOption::Choices(const std::vector<std::string>& choices) {
  option_->check(CLI::IsMember(choices));
  choices_ = choices;
  return *this;
}

CCommandOption& CCommandOption::Range(std::uint64_t least, std::uint64_t most) {
  option_->check(CLI::Range(least, most));
  return *this;
}

CCommandOption& CCommandOption::Check(std::function<std::string(const std::string&)> mistake) {
  option_->check(std::move(mistake));
  return *this;
}

CCommandOption& CCommandOption::Excludes(CCommandOption* other) {
  option_->excludes(other->option_);
  return *this;
}

CCommandOption& CCommandOption::OneValueEach() {
  option_->allow_extra_args(false);
  return *this;
}

CCommandOption& CCommandOption::Divided(char between) {
  option_->delimiter(between);
  return *this;
}

CCommandOption& CCommandOption::ValueName(const std::string& name) {
  option_->type_name(name);
  value_name_ = name;
  return *this;
}

CCommandOption& CCommandOption::ValueIs(ValueKind kind) {
  kind_ = kind;
  return *this;
}

CCommandOption& CCommandOption::ShowDefault() {
  option_->capture_default_str();
  default_ = option_->get_default_str();
  return *this;
}

CCommandOption& CCommandOption::Hidden() {
  option_->group("");
  is_hidden_ = true;
  return *this;
}

CCommand::CCommand(CLI::App* app, CCommand* above, std::string name, std::string meaning)
    : app_(app), above_(above), name_(std::move(name)), meaning_(std::move(meaning)) {}

CCommand::~CCommand() = default;

CCommand& CCommand::AddCommand(const std::string& name, const std::string& meaning) {
  if (!requires_command_) app_->require_subcommand(0, 1);
  commands_.push_back(std::make_unique<CCommand>(app_->add_subcommand(name, meaning), this, name, meaning));
  return *commands_.back();
}

void CCommand::RequireCommand() {
  app_->require_subcommand(1);
  requires_command_ = true;
}

CCommand& CCommand::AddOneOf(const std::string& name) {
  CLI::App* const group = app_->add_option_group(name);
  group->require_option(1);
  groups_.push_back(std::make_unique<CCommand>(group, this, name, std::string()));
  return *groups_.back();
}

CCommandOption& CCommand::AddOption(const std::string& names, std::string* value, const std::string& meaning) {
  return Keep(app_->add_option(names, *value, meaning), names, meaning, false, false);
}

CCommandOption& CCommand::AddOption(const std::string& names, std::vector<std::string>* values,
                                    const std::string& meaning) {
  return Keep(app_->add_option(names, *values, meaning), names, meaning, false, true);
}

CCommandOption& CCommand::AddOption(const std::string& names, unsigned* value, const std::string& meaning) {
  return Keep(app_->add_option(names, *value, meaning), names, meaning, false, false);
}

CCommandOption& CCommand::AddOption(const std::string& names, std::uint64_t* value, const std::string& meaning) {
  return Keep(app_->add_option(names, *value, meaning), names, meaning, false, false);
}

CCommandOption& CCommand::AddOption(const std::string& names, double* value, const std::string& meaning) {
  return Keep(app_->add_option(names, *value, meaning), names, meaning, false, false);
}

CCommandOption& CCommand::AddFlag(const std::string& names, bool* value, const std::string& meaning) {
  return Keep(app_->add_flag(names, *value, meaning), names, meaning, true, false);
}

CCommandOption& CCommand::Keep(CLI::Option* option, const std::string& names, const std::string& meaning, bool is_flag,
                               bool is_list) {
  options_.push_back(std::make_unique<CCommandOption>(option, names, meaning, is_flag, is_list));
  return *options_.back();
}

std::string CCommand::Path() const { return above_ == nullptr ? name_ : above_->Path() + " " + name_; }

std::vector<const CCommandOption*> CCommand::Options() const {
  std::vector<const CCommandOption*> all;
  for (const auto& option : options_) all.push_back(option.get());
  for (const auto& group : groups_) {
    for (const CCommandOption* const option : group->Options()) all.push_back(option);
  }
  return all;
}

const CCommand* CCommand::Chosen() const {
  for (const auto& command : commands_) {
    if (command->app_->parsed()) return command.get();
  }
  return nullptr;
}

namespace {

/// The innermost command that was named.
const CCommand* Innermost(const CCommand* command) {
  while (const CCommand* const below = command->Chosen()) command = below;
  return command;
}

std::string UnknownName(const CCommand& command, const std::string& argument) {
  const std::string name = argument.substr(0, argument.find('='));
  const bool is_option = name.size() > 1 && name.front() == '-';
  std::vector<std::string_view> known;
  if (is_option) {
    for (const CCommandOption* const option : command.Options()) {
      for (const std::string& known_name : option->Names()) {
        if (known_name.starts_with("--") && !option->IsHidden()) known.push_back(known_name);
      }
    }
    known.push_back("--help");
  } else {
    for (const auto& below : command.Commands()) known.push_back(below->Name());
  }
  const std::string kind = is_option ? "option" : known.empty() ? "argument" : "command";
  return "unknown " + kind + " \"" + name + "\"" + Suggestion(name, known);
}

}  // namespace

CProgram::CProgram(const std::string& name, const std::string& meaning, const std::string& version)
    : CProgram(std::make_unique<CLI::App>(meaning, name), name, meaning) {
  if (!version.empty()) owned_app_->set_version_flag("--version", name + " " + version);
}

CProgram::CProgram(std::unique_ptr<CLI::App> app, const std::string& name, const std::string& meaning)
    : CCommand(app.get(), nullptr, name, meaning), owned_app_(std::move(app)) {
  owned_app_->allow_windows_style_options(false);  // "/a/path" is a path on every system
}

CProgram::~CProgram() = default;

ParsedCommandLine CProgram::Parse(const std::vector<std::string>& arguments) {
  ParsedCommandLine parsed;
  std::string mistake;
  try {
    owned_app_->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    for (const CCommand* command = this; command != nullptr && mistake.empty(); command = command->Chosen()) {
      mistake = command->Mistake();
    }
  } catch (const CLI::Success& shown) {
    std::ostringstream text;
    owned_app_->exit(shown, text, text);
    parsed.kind = ParsedCommandLine::Kind::kShown;
    parsed.text = text.str();
    return parsed;
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> unknown = owned_app_->remaining(true);
    mistake = unknown.empty() ? error.what() : UnknownName(*Innermost(this), unknown.front());
  }
  parsed.command = Innermost(this);
  if (!mistake.empty()) {
    parsed.kind = ParsedCommandLine::Kind::kWrong;
    parsed.text = mistake + "; \"" + parsed.command->Path() + " --help\" says what there is";
  }
  return parsed;
}

int CProgram::ParseAndRun(const std::vector<std::string>& arguments) {
  constexpr int kExitWrong = 2;
  const ParsedCommandLine parsed = Parse(arguments);
  if (parsed.kind == ParsedCommandLine::Kind::kRun) return parsed.command->Run();
  const bool shown = parsed.kind == ParsedCommandLine::Kind::kShown;
  const std::string text = shown ? parsed.text : Name() + ": " + parsed.text + "\n";
  std::fwrite(text.data(), 1, text.size(), shown ? stdout : stderr);
  return shown ? 0 : kExitWrong;
}

}  // namespace qiv

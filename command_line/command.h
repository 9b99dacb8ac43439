// Commands and options of a program: declared once, in a table that reads the command line, makes the help and can be
// asked what there is.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace qiv {

/// What stands as a value, for shells that complete it.
enum class ValueKind { kText, kFile, kFolder };

/// An option, a flag or an argument without a name of its own ("positional"). Each function returns the option itself.
class CCommandOption {
 public:
  CCommandOption(CLI::Option* option, std::string names, std::string meaning, bool is_flag, bool is_list);
  CCommandOption(const CCommandOption&) = delete;
  CCommandOption& operator=(const CCommandOption&) = delete;

  CCommandOption& Required();
  CCommandOption& Choices(const std::vector<std::string>& choices);
  /// Of a number; both ends belong to it.
  CCommandOption& Range(std::uint64_t least, std::uint64_t most);
  /// Asked of each value: what is wrong with it, or nothing.
  CCommandOption& Check(std::function<std::string(const std::string&)> mistake);
  CCommandOption& Excludes(CCommandOption* other);
  CCommandOption& OneValueEach();         ///< of a list: "--x a b" takes a alone
  CCommandOption& Divided(char between);  ///< of a list: "--x a,b" holds two
  CCommandOption& ValueName(const std::string& name);
  CCommandOption& ValueIs(ValueKind kind);
  CCommandOption& ShowDefault();  ///< the help tells the value that the variable has now
  CCommandOption& Hidden();       ///< stands in no help

  // What there is to tell of it.
  const std::vector<std::string>& Names() const { return names_; }  ///< "-o", "--output"; of a positional: its name
  const std::string& Meaning() const { return meaning_; }
  const std::string& Default() const { return default_; }
  const std::vector<std::string>& ChoicesOf() const { return choices_; }
  const std::string& NameOfValue() const { return value_name_; }
  ValueKind Kind() const { return kind_; }
  bool IsPositional() const { return names_.front().front() != '-'; }
  bool IsFlag() const { return is_flag_; }
  bool IsList() const { return is_list_; }
  bool IsRequired() const { return is_required_; }
  bool IsHidden() const { return is_hidden_; }

 private:
  CLI::Option* option_;
  std::vector<std::string> names_;
  std::string meaning_;
  std::string default_;
  std::string value_name_;
  std::vector<std::string> choices_;
  ValueKind kind_ = ValueKind::kText;
  bool is_flag_;
  bool is_list_;
  bool is_required_ = false;
  bool is_hidden_ = false;
};

/// A command with its options and the commands below it. Variables that options fill must live as long as it does.
class CCommand {
 public:
  CCommand(CLI::App* app, CCommand* above, std::string name, std::string meaning);
  CCommand(const CCommand&) = delete;
  CCommand& operator=(const CCommand&) = delete;
  ~CCommand();

  CCommand& AddCommand(const std::string& name, const std::string& meaning);
  /// One of the commands below it must be given; else none need be.
  void RequireCommand();
  /// Options that exclude one another, of which one must be given: to be added to what this returns.
  CCommand& AddOneOf(const std::string& name);

  CCommandOption& AddOption(const std::string& names, std::string* value, const std::string& meaning);
  CCommandOption& AddOption(const std::string& names, std::vector<std::string>* values, const std::string& meaning);
  CCommandOption& AddOption(const std::string& names, unsigned* value, const std::string& meaning);
  CCommandOption& AddOption(const std::string& names, std::uint64_t* value, const std::string& meaning);
  CCommandOption& AddOption(const std::string& names, double* value, const std::string& meaning);
  CCommandOption& AddFlag(const std::string& names, bool* value, const std::string& meaning);

  /// What the command does, with its exit code.
  void OnRun(std::function<int()> run) { run_ = std::move(run); }
  /// What is wrong with the options taken together, or nothing. Asked after those of the commands above it.
  void Demand(std::function<std::string()> mistake) { mistake_ = std::move(mistake); }
  /// 0 where there is nothing to run.
  int Run() const { return run_ ? run_() : 0; }

  const std::string& Name() const { return name_; }
  /// With the names of the commands above it: "qivctl library pack".
  std::string Path() const;
  const std::string& Meaning() const { return meaning_; }
  const std::vector<std::unique_ptr<CCommand>>& Commands() const { return commands_; }
  /// In their order, those of AddOneOf among them.
  std::vector<const CCommandOption*> Options() const;
  bool RequiresCommand() const { return requires_command_; }
  /// The command below it that the command line named; null without one.
  const CCommand* Chosen() const;
  /// As Demand says.
  std::string Mistake() const { return mistake_ ? mistake_() : std::string(); }

 private:
  CCommandOption& Keep(CLI::Option* option, const std::string& names, const std::string& meaning, bool is_flag,
                       bool is_list);

  CLI::App* app_;
  CCommand* above_;
  std::string name_;
  std::string meaning_;
  std::vector<std::unique_ptr<CCommandOption>> options_;
  std::vector<std::unique_ptr<CCommand>> commands_;
  std::vector<std::unique_ptr<CCommand>> groups_;
  std::function<int()> run_;
  std::function<std::string()> mistake_;
  bool requires_command_ = false;
};

struct ParsedCommandLine {
  enum class Kind { kRun, kShown, kWrong };
  Kind kind = Kind::kRun;
  const CCommand* command = nullptr;  ///< of kRun
  std::string text;                   ///< of kShown: the help or the version; of kWrong: the mistake
};

/// The whole program: the command above all others.
class CProgram : public CCommand {
 public:
  /// Without a version there is no --version.
  CProgram(const std::string& name, const std::string& meaning, const std::string& version = {});
  ~CProgram();

  /// Fills the variables. The arguments are UTF-8, without the program's name.
  ParsedCommandLine Parse(const std::vector<std::string>& arguments);
  /// Parses and runs; prints help to standard output, a mistake to standard error with the program's name before it.
  /// 2 for a mistake.
  int ParseAndRun(const std::vector<std::string>& arguments);

 private:
  explicit CProgram(std::unique_ptr<CLI::App> app, const std::string& name, const std::string& meaning);
  std::unique_ptr<CLI::App> owned_app_;
};

}  // namespace qiv

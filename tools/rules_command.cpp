// qivctl rules update, undo, show.
#include <memory>
#include <string>

#include "tools/commands.h"
#include "tools/rule_update.h"

namespace qiv {

void AddRulesCommand(CCommand* program) {
  struct Options {
    std::string directory;
    std::string source;
    bool only_show = false;
  };
  const auto options = std::make_shared<Options>();
  CCommand& rules = program->AddCommand("rules", "The rule set of an installation");
  rules.RequireCommand();
  const auto with_config = [options](CCommand& command) {
    command.AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  };

  CCommand& update = rules.AddCommand("update", "Bring a new rule set into force; settings and own rules stay");
  update
      .AddOption(
          "folder", &options->source,
          "the new rule set: an unpacked archive, or its rules/ (the installation's own rules/: pack them again)")
      .ValueIs(ValueKind::kFolder)
      .Required();
  with_config(update);
  update.AddFlag("--show", &options->only_show, "only tell what would change, and whether it passes");
  update.OnRun([options] { return UpdateRules(options->directory, options->source, options->only_show); });

  CCommand& undo = rules.AddCommand("undo", "Bring the rule set before the last update back");
  with_config(undo);
  undo.OnRun([options] { return UndoRules(options->directory); });

  CCommand& show = rules.AddCommand("show", "Print name and version of the rules");
  with_config(show);
  show.OnRun([options] { return ShowRules(options->directory); });
}

}  // namespace qiv

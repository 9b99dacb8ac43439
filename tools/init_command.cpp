// qivctl init.
#include <memory>
#include <string>

#include "tools/commands.h"
#include "tools/installation.h"

namespace qiv {

void AddInitCommand(CCommand* program) {
  const auto options = std::make_shared<InitOptions>();
  const auto language = std::make_shared<std::string>("en-US");
  CCommand& init = program->AddCommand("init", "Create settings and libraries for a new installation");
  init.AddOption("directory", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  init.AddOption("--language", language.get(), "language of pages and remarks")
      .ShowDefault()
      .Choices({"en-US", "zh-CN"});
  init.AddOption("--profile", &options->profile, "which settings to begin with")
      .ShowDefault()
      .Choices({"default", "strict", "off"});
  init.AddOption("--rules", &options->rules, "folder of the rule data (found beside qivctl when left out)")
      .ValueIs(ValueKind::kFolder);
  init.AddFlag("--force", &options->force, "overwrite files that are there");
  init.OnRun([options, language] {
    options->language = *language == "zh-CN" ? Language::kChinese : Language::kEnglish;
    return InitInstallation(*options);
  });
}

}  // namespace qiv

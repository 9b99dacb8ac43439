// qivctl init.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "tools/commands.h"
#include "tools/installation.h"

namespace qiv {

void AddInitCommand(CLI::App* app, int* exit_code) {
  const auto options = std::make_shared<InitOptions>();
  const auto language = std::make_shared<std::string>("en-US");
  CLI::App* const init = app->add_subcommand("init", "Create settings and libraries for a new installation");
  init->add_option("directory", options->directory, "the module's directory")->required();
  init->add_option("--language", *language, "language of pages and remarks")
      ->capture_default_str()
      ->check(CLI::IsMember({"en-US", "zh-CN"}));
  init->add_option("--profile", options->profile, "which settings to begin with")
      ->capture_default_str()
      ->check(CLI::IsMember({"default", "strict", "off"}));
  init->add_option("--rules", options->rules, "folder of the rule data (found beside qivctl when left out)");
  init->add_flag("--force", options->force, "overwrite files that are there");
  init->callback([options, language, exit_code] {
    options->language = *language == "zh-CN" ? Language::kChinese : Language::kEnglish;
    *exit_code = InitInstallation(*options);
  });
}

}  // namespace qiv

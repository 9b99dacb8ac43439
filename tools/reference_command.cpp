// qivctl reference: prints docs/configuration-reference.md.
#include <CLI/CLI.hpp>

#include "tools/commands.h"
#include "tools/files.h"
#include "tools/reference_page.h"
#include "tools/report.h"

namespace qiv {

void AddReferenceCommand(CLI::App* app, int* exit_code) {
  CLI::App* const reference = app->add_subcommand("reference", "Print the reference page of all keys, Markdown");
  reference->callback([exit_code] {
    WriteOutput(ReferencePage());
    *exit_code = kExitOk;
  });
}

}  // namespace qiv

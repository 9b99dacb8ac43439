// qivctl completions, man.
#include <memory>
#include <string>

#include "base/version.h"
#include "port/file.h"
#include "tools/commands.h"
#include "tools/completions.h"
#include "tools/files.h"
#include "tools/man_page.h"
#include "tools/report.h"

namespace qiv {
namespace {

int PrintCompletions(const CCommand& program, const std::string& shell) {
  WriteOutput(CompletionScript(program, shell == "bash"  ? CompletedShell::kBash
                                        : shell == "zsh" ? CompletedShell::kZsh
                                                         : CompletedShell::kPowershell));
  return kExitOk;
}

/// The program's own page to standard output, or all of them into a folder.
int WriteManPages(const CCommand& program, const std::string& directory) {
  const std::vector<ManPage> pages = ManPages(program, kVersion);
  if (directory.empty()) {
    WriteOutput(pages.front().text);
    return kExitOk;
  }
  if (!MakeDirectories(directory)) return Fail(directory, CannotWrite());
  for (const ManPage& page : pages) {
    const std::string path = directory + "/" + page.file;
    if (!ReplaceFile(path, page.text)) return Fail(path, CannotWrite());
  }
  return kExitOk;
}

}  // namespace

void AddDocumentationCommands(CCommand* program) {
  const auto shell = std::make_shared<std::string>();
  CCommand& completions = program->AddCommand("completions", "Print a script with which a shell completes commands");
  completions.AddOption("shell", shell.get(), "the shell that will read it")
      .Required()
      .Choices({"bash", "zsh", "powershell"});
  completions.OnRun([program, shell] { return PrintCompletions(*program, *shell); });

  const auto directory = std::make_shared<std::string>();
  CCommand& man = program->AddCommand("man", "Print the manual page, or write those of all commands");
  man.AddOption("directory", directory.get(), "folder that receives a page for each command")
      .ValueIs(ValueKind::kFolder);
  man.OnRun([program, directory] { return WriteManPages(*program, *directory); });
}

}  // namespace qiv

// qivctl reference: prints docs/configuration-reference.md.
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/reference_page.h"
#include "tools/report.h"

namespace qiv {

void AddReferenceCommand(CCommand* program) {
  CCommand& reference = program->AddCommand("reference", "Print the reference page of all keys, Markdown");
  reference.OnRun([] {
    WriteOutput(ReferencePage());
    return kExitOk;
  });
}

}  // namespace qiv

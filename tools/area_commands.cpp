// qivctl area build, area lookup.
#include <memory>
#include <string>
#include <vector>

#include "common/area_library.h"
#include "port/file.h"
#include "tools/area_builder.h"
#include "tools/area_csv.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/report.h"

namespace qiv {
namespace {

struct BuildOptions {
  std::vector<std::string> inputs;
  std::string output;
};

struct LookupOptions {
  std::vector<std::string> addresses;
  std::string library;
};

std::string FamilyFile(const std::string& folder, bool ipv4) { return folder + (ipv4 ? "/iplib.db" : "/iplibv6.db"); }

int WriteLibrary(CAreaBuilder* builder, bool ipv4, const std::string& path) {
  const std::size_t ranges = builder->RangeCount();
  const CAreaBuilder::File file = builder->Build();
  if (file.content.empty()) return Fail(path, "there are more ranges than a library holds (16,777,216)");
  if (!ReplaceFile(path, file.content)) return Fail(path, CannotWrite());
  std::string summary = path + ": " + std::to_string(ranges) + (ipv4 ? " IPv4" : " IPv6") + " ranges, " +
                        std::to_string(builder->AreaCount()) + " areas, " + std::to_string(file.content.size()) +
                        " bytes";
  if (file.overlaps != 0) summary += "; " + std::to_string(file.overlaps) + " ranges cross the one before them";
  WriteOutput(summary + "\n");
  return kExitOk;
}

int Build(const BuildOptions& options) {
  CAreaBuilder ipv4(true);
  CAreaBuilder ipv6(false);
  int exit_code = kExitOk;
  for (const std::string& input : options.inputs) {
    CReport report(input);
    std::string text;
    if (ReadInput(input, &text, &report)) ReadAreaCsv(text, &ipv4, &ipv6, &report);
    if (report.Print() != kExitOk) exit_code = kExitError;
  }
  if (exit_code != kExitOk) return exit_code;
  const bool has_ipv4 = ipv4.RangeCount() != 0;
  const bool has_ipv6 = ipv6.RangeCount() != 0;
  if (!has_ipv4 && !has_ipv6) return Fail(options.output, "the lists hold no range");
  if (IsDirectory(options.output)) {
    if (has_ipv4) exit_code = WriteLibrary(&ipv4, true, FamilyFile(options.output, true));
    if (has_ipv6 && exit_code == kExitOk) exit_code = WriteLibrary(&ipv6, false, FamilyFile(options.output, false));
    return exit_code;
  }
  if (has_ipv4 && has_ipv6) {
    return Fail(options.output, "the lists hold IPv4 and IPv6 ranges; name a folder that receives a file for each");
  }
  return WriteLibrary(has_ipv4 ? &ipv4 : &ipv6, has_ipv4, options.output);
}

int Lookup(const LookupOptions& options) {
  int exit_code = kExitOk;
  for (const std::string& text : options.addresses) {
    const auto address = CIpAddress::Parse(text);
    if (!address) return Fail(text, "is no IP address");
    const bool ipv4 = address->IsIpv4();
    const std::string path = IsDirectory(options.library) ? FamilyFile(options.library, ipv4) : options.library;
    AreaLoad result = AreaLoad::kOk;
    const auto library = CAreaLibrary::Load(path, ipv4, &result);
    if (!library) return Fail(path, std::string(AreaLoadText(result)));
    const Area* const area = library->Find(*address);
    if (area == nullptr) exit_code = kExitFinding;
    WriteOutput(address->Text() + "\t" + (area ? std::string(area->code) : std::string("-")) + "\t" +
                (area ? std::string(area->name) : std::string()) + "\n");
  }
  return exit_code;
}

}  // namespace

void AddAreaCommand(CCommand* program) {
  CCommand& area = program->AddCommand("area", "The library that tells the area of an address");
  area.RequireCommand();

  const auto build_options = std::make_shared<BuildOptions>();
  CCommand& build = area.AddCommand("build", "Build libraries from lists of ranges");
  build.AddOption("csv", &build_options->inputs, "lines of start,end,code[,name] or cidr,code[,name]; UTF-8")
      .ValueIs(ValueKind::kFile)
      .Required();
  build.AddOption("-o,--output", &build_options->output, "the file, or a folder that receives iplib.db and iplibv6.db")
      .ValueIs(ValueKind::kFile)
      .Required();
  build.OnRun([build_options] { return Build(*build_options); });

  const auto lookup_options = std::make_shared<LookupOptions>();
  CCommand& lookup = area.AddCommand("lookup", "Print address, code and name; exit 1 when there is no area");
  lookup.AddOption("ip", &lookup_options->addresses, "the addresses").Required();
  lookup.AddOption("--db", &lookup_options->library, "the file, or the folder of iplib.db and iplibv6.db")
      .ValueIs(ValueKind::kFile)
      .Required();
  lookup.OnRun([lookup_options] { return Lookup(*lookup_options); });
}

}  // namespace qiv

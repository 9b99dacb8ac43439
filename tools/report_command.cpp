// qivctl report.
#include <cstdint>
#include <memory>
#include <string>

#include "tools/commands.h"
#include "tools/report_run.h"

namespace qiv {

void AddReportCommand(CCommand* program) {
  struct Options {
    ReportRequest request;
    std::uint64_t top = 10;
    std::string language;
  };
  const auto options = std::make_shared<Options>();
  ReportRequest& request = options->request;
  request.output = "firewall-report.html";
  CCommand& report = program->AddCommand("report", "Write a page about what the firewall did");
  report.AddOption("folder", &request.directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  report.AddOption("-o,--output", &request.output, "the page; - is standard output")
      .ValueIs(ValueKind::kFile)
      .ShowDefault();
  report.AddOption("--since", &request.since, "count from then on: 24h, 7d, 2026-05-01, \"2026-05-01 12:30\"");
  report.AddOption("--until", &request.until, "count up to then; in the same forms");
  report.AddOption("--top", &options->top, "rows of each table").Range(1, ReportRequest::kMostRows).ShowDefault();
  report.AddOption("--language", &options->language, "that the page begins in; the browser's unless given")
      .Choices({"en-US", "zh-CN"});
  report.OnRun([options] {
    ReportRequest& wanted = options->request;
    wanted.top = static_cast<std::size_t>(options->top);
    if (!options->language.empty()) {
      wanted.language = options->language == "zh-CN" ? Language::kChinese : Language::kEnglish;
    }
    return WriteReport(wanted);
  });
}

}  // namespace qiv

// qivctl check: raw requests through the module's own notifications, in process.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "checks/event_recorder.h"
#include "common/char_set.h"
#include "common/ip_address.h"
#include "common/json.h"
#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "tools/check_trace.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/printable.h"
#include "tools/report.h"
#include "tools/request_frames.h"

namespace qiv {
namespace {

struct CheckOptions {
  std::string config;  ///< directory of the installation
  std::vector<std::string> files;
  std::string client;  ///< address the requests seem to come from
  bool json = false;
  bool batch = false;  ///< framed requests on standard input
};

/// Takes the place of the event log, and asks each check for its verdict.
class CCapture final : public IEventRecorder {
 public:
  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult& result) override { block = result; }
  void RecordWouldBlock(const RequestFacts&, const CheckContext&, const CheckResult& result) override {
    if (!would_block) would_block = result;
  }
  void RecordStatistics(std::string_view, std::string_view, std::string_view) override {}
  std::optional<CheckResult> block;
  std::optional<CheckResult> would_block;  ///< the first
  CCheckTrace trace;
};

struct Decision {
  std::string file;
  /// "pass", "blocked", "would block" (website_log_only), or "refused" by the server itself
  std::string decision = "pass";
  int status = 0;      ///< of a page or a refusal
  CheckResult result;  ///< of a block
  std::string refusal;
  const CCheckTrace* trace = nullptr;  ///< null when no check was asked
};

Decision Judge(host::CModuleHost& server, CCapture& capture, const CheckOptions& options, std::string_view text) {
  Decision decision;
  std::optional<host::InProcessRequest> request =
      host::ParseRawRequest(text, server.options(), &decision.status, &decision.refusal);
  if (!request) {
    decision.decision = "refused";
    return decision;
  }
  if (!options.client.empty()) request->remote_address = options.client;
  capture.block.reset();
  capture.would_block.reset();
  capture.trace.Begin();
  const host::InProcessResponse response = host::RunInProcess(server, *request);
  if (response.refused) {
    decision.decision = "refused";
    decision.status = response.status;
    decision.refusal = response.reason;
    return decision;
  }
  decision.trace = &capture.trace;
  if (response.finished || capture.block) {
    decision.decision = "blocked";
    decision.status = response.status;
    if (capture.block) decision.result = *capture.block;
  } else if (capture.would_block) {
    decision.decision = "would block";
    decision.result = *capture.would_block;
  }
  return decision;
}

std::string JsonLine(const Decision& decision) {
  JsonObject line;
  line.SetText("file", decision.file);
  line.SetText("decision", decision.decision);
  const CheckResult& result = decision.result;
  const std::pair<const char*, std::string_view> texts[] = {{"check", result.check},       {"item", result.item},
                                                            {"category", result.category}, {"reason", result.reason},
                                                            {"detail", result.detail},     {"rule", result.rule}};
  for (const auto& [key, text] : texts) line.SetText(key, CCharSet::LocalToUtf8(text));
  line.SetText("refusal", decision.refusal);
  line.Set("status", std::make_unique<JsonNumber>(std::to_string(decision.status)));
  if (decision.trace != nullptr) line.Set("checks", decision.trace->Json(*State().config.Current()));
  return WriteJson(line) + "\n";
}

std::string ReadableText(const Decision& decision) {
  std::string text = decision.file + ": " + decision.decision;
  if (decision.status) text += " (" + std::to_string(decision.status) + ")";
  if (!decision.refusal.empty()) text += ": " + decision.refusal;
  text += '\n';
  const CheckResult& result = decision.result;
  const std::pair<const char*, std::string_view> lines[] = {{"  check:  ", result.check},
                                                            {"  item:   ", result.item},
                                                            {"  reason: ", result.reason},
                                                            {"  detail: ", result.detail},
                                                            {"  rule:   ", result.rule}};
  for (const auto& [label, value] : lines) {
    if (!value.empty()) text.append(label).append(Printable(value)).append("\n");
  }
  if (decision.trace != nullptr) text += "  checks:\n" + decision.trace->Text(*State().config.Current());
  return text;
}

/// Tab-separated: decision, status, check, item, reason (of a refusal: why), rule.
std::string TabbedLine(const Decision& decision) {
  const CheckResult& result = decision.result;
  std::string line = decision.decision + '\t' + std::to_string(decision.status) + '\t' + result.check;
  const std::string_view reason = decision.refusal.empty() ? std::string_view(result.reason) : decision.refusal;
  for (const std::string_view text : {std::string_view(result.item), reason, std::string_view(result.rule)})
    line.append("\t").append(Printable(text));
  return line + '\n';
}

/// An exit code other than kExitOk when the installation cannot judge anything; the reason has been printed then.
int Prepare(const CheckOptions& options, CCapture& capture) {
  const std::string directory = ResolveModuleDirectory(options.config);
  CReport report(options.config);
  if (directory.empty()) {
    report.Error(0, "there is no config folder");
  } else if (!options.client.empty() && !CIpAddress::Parse(options.client)) {
    report.Error(0, "--client " + options.client + " is no IP address");
  } else {
    const bool tabbed = options.batch && !options.json;  // which tells of no check
    InitialiseModule(directory, false, &capture, tabbed ? nullptr : &capture.trace);
  }
  return report.Print();
}

/// Requests from files, each with its text below its name.
int CheckFiles(host::CModuleHost& server, CCapture& capture, const CheckOptions& options) {
  int exit_code = kExitOk;
  for (const std::string& file : options.files) {
    std::string text;
    CReport report(file);
    if (!ReadInput(file, &text, &report)) return report.Print();
    Decision decision = Judge(server, capture, options, text);
    decision.file = file;
    WriteOutput(options.json ? JsonLine(decision) : ReadableText(decision));
    if (decision.decision != "pass") exit_code = kExitFinding;
  }
  return exit_code;
}

/// Framed requests from standard input, one line each. What was asked is answered before the next frame is waited for.
int CheckBatch(host::CModuleHost& server, CCapture& capture, const CheckOptions& options) {
  CRequestFrames frames(stdin);
  std::string text;
  int exit_code = kExitOk;
  for (;;) {
    switch (frames.Read(&text)) {
      case CRequestFrames::Next::kEnd:
        return exit_code;
      case CRequestFrames::Next::kMalformed: {
        CReport report("standard input");
        report.Error(0, "request " + std::to_string(frames.Number()) + " " + frames.Problem());
        return report.Print();
      }
      case CRequestFrames::Next::kRequest:
        break;
    }
    Decision decision = Judge(server, capture, options, text);
    decision.file = std::to_string(frames.Number());
    WriteOutput(options.json ? JsonLine(decision) : TabbedLine(decision));
    if (decision.decision != "pass") exit_code = kExitFinding;
  }
}

int Check(const CheckOptions& options) {
  CCapture capture;
  if (const int exit_code = Prepare(options, capture); exit_code != kExitOk) return exit_code;
  int exit_code = kExitOk;
  {
    host::CModuleHost server;
    const bool registered = iis::Succeeded(server.Register(&RegisterModule));
    if (!registered || !State().config.IsConfigValid()) {
      CReport report(State().config.Paths().config_file);
      report.Error(0, "the configuration cannot be used: the module would let every request pass");
      exit_code = report.Print();
    } else {
      exit_code = options.batch ? CheckBatch(server, capture, options) : CheckFiles(server, capture, options);
    }
  }
  EndModule();
  return exit_code;
}

}  // namespace

void AddCheckCommand(CCommand* program) {
  const auto options = std::make_shared<CheckOptions>();
  CCommand& command = program->AddCommand(
      "check", "Run raw HTTP requests through the module offline. Exit code 0: all pass, 1: one is blocked or refused");
  command.AddOption("--config", &options->config, "Directory of the installation, or its config folder")
      .ValueIs(ValueKind::kFolder)
      .Required();
  command.AddOption("--client", &options->client, "Address the requests come from");
  command.AddFlag("--json", &options->json, "One JSON object a line");
  CCommand& input = command.AddOneOf("input");
  input.AddFlag("--batch", &options->batch,
                "Requests from standard input, each after a line \"%% BYTES\" and before a line feed; one line of "
                "result each, divided by tabs: decision, status, check, item, reason, rule");
  input.AddOption("requests", &options->files, "Files with a request as it goes over the wire; - is standard input")
      .ValueIs(ValueKind::kFile);
  command.OnRun([options] { return Check(*options); });
}

}  // namespace qiv

// What a decision costs here and in a public peer: the same requests, one after the other, in one process.
//
//   peers [--rounds N] [--rules FILE ...] [--json]
//
// For each request the cheapest of N rounds counts, in microseconds of processor time; the rounds alternate. "ours" is
// a request through the host with the module minus the same without it: the decision alone, as the peer's is.
#include <cstdlib>  // what the next header needs

#include <modsecurity/intervention.h>
#include <modsecurity/modsecurity.h>
#include <modsecurity/rules_set.h>
#include <modsecurity/transaction.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/installation.h"
#include "bench/requests.h"
#include "command_line/command.h"
#include "host/in_process.h"
#include "module/register_module.h"
#include "port/console.h"

namespace {

using qiv::bench::DecisionCase;
using qiv::host::InProcessRequest;

constexpr double kShortestRound = 50'000;  // microseconds: the clock's steps and a first run's misses vanish in it

double ProcessorMicroseconds() { return static_cast<double>(std::clock()) * 1e6 / CLOCKS_PER_SEC; }

/// Microseconds that one call takes, from as many calls as fill a round.
double Round(const std::function<void()>& work) {
  double spent = 0;
  std::size_t calls = 0;
  const double begin = ProcessorMicroseconds();
  do {
    work();
    ++calls;
    spent = ProcessorMicroseconds() - begin;
  } while (spent < kShortestRound);
  return spent / static_cast<double>(calls);
}

class CPeer {
 public:
  /// Empty, or why the rules cannot be used.
  std::string Load(const std::vector<std::string>& files) {
    // As its recommended settings are.
    if (rules_.load("SecRuleEngine On\nSecRequestBodyAccess On\nSecResponseBodyAccess Off\nSecAuditEngine Off\n"
                    "SecPcreMatchLimit 1000\nSecPcreMatchLimitRecursion 1000\n"
                    "SecRequestBodyLimit 33554432\nSecRequestBodyNoFilesLimit 33554432\n"
                    "SecRule REQUEST_HEADERS:Content-Type \"^application/json\" "
                    "\"id:200001,phase:1,t:none,t:lowercase,pass,nolog,ctl:requestBodyProcessor=JSON\"\n") < 0) {
      return rules_.getParserError();
    }
    for (const std::string& file : files) {
      if (rules_.loadFromUri(file.c_str()) < 0) return file + ": " + rules_.getParserError();
    }
    return {};
  }

  /// False when the request is stopped.
  bool Decide(const InProcessRequest& request) {
    modsecurity::Transaction transaction(&server_, &rules_, nullptr);
    transaction.processConnection("127.0.0.1", 50000, "127.0.0.1", 80);
    transaction.processURI(request.raw_url.c_str(), request.method.c_str(), "1.1");
    for (const qiv::host::HeaderField& header : request.headers)
      transaction.addRequestHeader(header.name, header.value);
    if (!request.body.empty()) transaction.addRequestHeader("Content-Length", std::to_string(request.body.size()));
    transaction.processRequestHeaders();
    if (!request.body.empty()) {
      transaction.appendRequestBody(reinterpret_cast<const unsigned char*>(request.body.data()), request.body.size());
    }
    transaction.processRequestBody();
    transaction.addResponseHeader("Content-Type", std::string("text/html"));
    transaction.processResponseHeaders(200, "HTTP/1.1");
    transaction.processResponseBody();
    transaction.processLogging();
    modsecurity::ModSecurityIntervention intervention{};
    modsecurity::intervention::reset(&intervention);
    const bool stopped = transaction.intervention(&intervention);
    modsecurity::intervention::free(&intervention);
    return !stopped;
  }

 private:
  modsecurity::ModSecurity server_;
  modsecurity::RulesSet rules_;
};

struct Costs {
  double host = std::numeric_limits<double>::max();
  double whole = std::numeric_limits<double>::max();
  double peer = std::numeric_limits<double>::max();
  bool stopped = false;  // by the peer
};

Costs Measure(const InProcessRequest& request, unsigned rounds, CPeer* peer) {
  const qiv::host::InProcessHandler handler = qiv::host::AnswerWith(200, "ok");
  qiv::host::CModuleHost bare;
  qiv::host::CModuleHost guarded;
  if (iis::Failed(guarded.Register(&RegisterModule))) throw std::runtime_error("the module did not register");
  Costs costs;
  const auto through = [&](qiv::host::CModuleHost& host) {
    if (qiv::host::RunInProcess(host, request, handler).status != 200)
      throw std::runtime_error("an ordinary request was not answered with 200");
  };
  for (unsigned round = 0; round < rounds; ++round) {
    costs.host = std::min(costs.host, Round([&] { through(bare); }));
    costs.whole = std::min(costs.whole, Round([&] { through(guarded); }));
    costs.peer = std::min(costs.peer, Round([&] { costs.stopped = !peer->Decide(request) || costs.stopped; }));
  }
  return costs;
}

void Print(const char* name, const Costs& costs, bool json) {
  const double ours = std::max(costs.whole - costs.host, 0.01);
  const double ratio = costs.peer / ours;
  if (json) {
    std::printf("{\"request\":\"%s\",\"ours_us\":%.2f,\"peer_us\":%.2f,\"ratio\":%.1f,\"peer_stopped\":%s}\n", name,
                ours, costs.peer, ratio, costs.stopped ? "true" : "false");
  } else {
    std::printf("| %s | %.1f | %.0f%s | %.0f |\n", name, ours, costs.peer, costs.stopped ? " (stopped)" : "", ratio);
  }
  std::fflush(stdout);
}

int Compare(const std::vector<std::string>& files, unsigned rounds, bool json) {
  const qiv::bench::CBenchInstallation installation(QIV_BENCH_RULES);
  if (!installation.Use()) return 2;
  CPeer peer;
  if (const std::string error = peer.Load(files); !error.empty()) throw std::runtime_error(error);
  if (!json) std::printf("| request | ours, us | peer, us | ratio |\n|---|---|---|---|\n");
  for (const DecisionCase& decision : qiv::bench::Decisions()) {
    Print(decision.name, Measure(decision.make(), rounds, &peer), json);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned rounds = 5;
  bool json = false;
  std::vector<std::string> files;
  qiv::CProgram program("peers", "What a decision costs here and in a public peer");
  program.AddOption("--rounds", &rounds, "The cheapest of so many counts").Range(1, 100);
  program.AddOption("--rules", &files, "Rule files of the peer, in their order").Required();
  program.AddFlag("--json", &json, "One JSON object a line");
  program.OnRun([&] { return Compare(files, rounds, json); });
  try {
    return program.ParseAndRun(qiv::CommandLineArguments(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "peers: %s\n", error.what());
    return 2;
  }
}

#include "host/command_line.h"

#include <string_view>

#include "base/version.h"
#include "command_line/command.h"
#include "host/ascii.h"
#include "host/request_input.h"

namespace qiv::host {
namespace {

constexpr unsigned kLongestTimeout = 86400;  ///< seconds
constexpr unsigned kMostThreads = 1024;

/// "1.2.3.4:80" or "[::1]:80".
std::string ParseListen(const std::string& text, CommandLine* result) {
  const std::size_t colon = text.rfind(':');
  std::uint64_t port = 0;
  HostAddress address;
  if (colon == std::string::npos || !ParseDecimal(text.substr(colon + 1), &port) || port > 65535) {
    return "wants ADDRESS:PORT, not \"" + text + "\"";
  }
  std::string host = text.substr(0, colon);
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (!ParseAddress(host, 0, &address) || bracketed != (address.any.sa_family == iis::kFamilyIpv6)) {
    return "wants a numeric address as 127.0.0.1 or [::1], not \"" + text.substr(0, colon) + "\"";
  }
  result->listen_address = host;
  result->listen_port = static_cast<std::uint16_t>(port);
  return {};
}

/// "http://host[:port][/]".
std::string ParseUpstream(const std::string& text, CommandLine* result) {
  const std::string error = "wants http://HOST:PORT, not \"" + text + "\"";
  std::string_view rest = text;
  if (!EqualsIgnoreCase(rest.substr(0, 7), "http://")) return error;
  rest.remove_prefix(7);
  if (!rest.empty() && rest.back() == '/') rest.remove_suffix(1);
  if (rest.empty() || rest.find_first_of("/?#@ ") != std::string_view::npos) return error;
  const std::size_t bracket = rest.rfind(']');
  const std::size_t colon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
  std::string_view host = rest.substr(0, colon);
  const std::string_view port = colon == std::string_view::npos ? "80" : rest.substr(colon + 1);
  std::uint64_t number = 0;
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  if (host.empty() || !ParseDecimal(port, &number) || number < 1 || number > 65535) {
    return error;
  };
  result->upstream_host = host;
  result->upstream_port = port;
  return {};
}

}  // namespace

ParsedOptions ParseCommandLine(const std::vector<std::string>& arguments, CommandLine* result, std::string* text) {
  CProgram program("qivhost", "Serves a folder, or another server, over HTTP with a native module in between.",
                   kVersion);
  const auto add_seconds = [&](const char* name, unsigned* value, const char* meaning) {
    program.AddOption(name, value, meaning).Range(1, kLongestTimeout).ValueName("SECONDS");
  };
  std::string listen;
  std::string upstream;
  program.AddOption("--module", &result->module, "native module to load; without it requests go through unchecked")
      .ValueName("FILE")
      .ValueIs(ValueKind::kFile);
  program.AddOption("--listen", &listen, "numeric address; port 0 picks a free one, which is printed")
      .Required()
      .ValueName("ADDRESS:PORT")
      .Check([&](const std::string& value) { return ParseListen(value, result); });
  CCommandOption& root = program.AddOption("--root", &result->root, "serve the files of this folder")
                             .ValueName("DIR")
                             .ValueIs(ValueKind::kFolder);
  CCommandOption& url = program.AddOption("--upstream", &upstream, "pass requests on to this server")
                            .ValueName("http://HOST:PORT")
                            .Check([&](const std::string& value) { return ParseUpstream(value, result); });
  root.Excludes(&url);
  program.AddOption("--threads", &result->threads, "requests worked on at once").ShowDefault().Range(1, kMostThreads);
  program.AddOption("--waiting-threads", &result->waiting_threads, "threads that may wait for slow peers besides")
      .ShowDefault()
      .Range(1, kMostThreads);
  program.AddOption("--site-id", &result->site_id, "site number that the module sees")
      .ShowDefault()
      .Range(1, 0xFFFFFFFFu);
  add_seconds("--timeout", &result->timeout_seconds,
              "silence of a client, an upstream or a tunnel that is borne, 120 if not given");
  add_seconds("--head-timeout", &result->head_timeout_seconds, "time for a whole request head, if not as --timeout");
  add_seconds("--drain-timeout", &result->drain_timeout_seconds,
              "time to read on after an early answer, if not as --timeout");
  program.AddOption("--min-rate", &result->least_rate, "bytes a second that bodies and responses must move, 0 for none")
      .ShowDefault()
      .Range(0, 1u << 30);
  program.AddFlag(
      "--trust-forwarded", &result->trust_forwarded,
      "pass X-Forwarded-For and its like from clients on, with the client added, instead of replacing them");
  program.AddFlag("--quiet", &result->quiet, "no line per request");
  program.Demand(
      [&] { return std::string(result->root.empty() && upstream.empty() ? "--root or --upstream is required" : ""); });
  const ParsedCommandLine parsed = program.Parse(arguments);
  if (result->head_timeout_seconds == 0) result->head_timeout_seconds = result->timeout_seconds;
  if (result->drain_timeout_seconds == 0) result->drain_timeout_seconds = result->timeout_seconds;
  *text = parsed.text;
  if (parsed.kind == ParsedCommandLine::Kind::kShown) return ParsedOptions::kShown;
  return parsed.kind == ParsedCommandLine::Kind::kRun ? ParsedOptions::kServe : ParsedOptions::kWrong;
}

}  // namespace qiv::host

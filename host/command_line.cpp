#include "host/command_line.h"

#include <string_view>

#include "host/ascii.h"
#include "host/request_input.h"

namespace qiv::host {
namespace {

bool ParseNumber(std::string_view text, std::uint64_t lowest, std::uint64_t highest, std::uint64_t* value) {
  return ParseDecimal(text, value) && *value >= lowest && *value <= highest;
}

/// "1.2.3.4:80" or "[::1]:80".
std::string ParseListen(const std::string& text, CommandLine* result) {
  const std::size_t colon = text.rfind(':');
  std::uint64_t port = 0;
  HostAddress address;
  if (colon == std::string::npos || !ParseNumber(text.substr(colon + 1), 0, 65535, &port)) {
    return "--listen wants ADDRESS:PORT, not \"" + text + "\"";
  }
  std::string host = text.substr(0, colon);
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (!ParseAddress(host, 0, &address) || bracketed != (address.any.sa_family == iis::kFamilyIpv6)) {
    return "--listen wants a numeric address as 127.0.0.1 or [::1], not \"" + text.substr(0, colon) + "\"";
  }
  result->listen_address = host;
  result->listen_port = static_cast<std::uint16_t>(port);
  return {};
}

/// "http://host[:port][/]".
std::string ParseUpstream(const std::string& text, CommandLine* result) {
  const std::string error = "--upstream wants http://HOST:PORT, not \"" + text + "\"";
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
  if (host.empty() || !ParseNumber(port, 1, 65535, &number)) return error;
  result->upstream_host = host;
  result->upstream_port = port;
  return {};
}

std::string SetOption(const std::string& name, const std::string& value, CommandLine* result) {
  std::uint64_t number = 0;
  if (name == "--listen") return ParseListen(value, result);
  if (name == "--upstream") return ParseUpstream(value, result);
  if (name == "--module") {
    result->module = value;
  } else if (name == "--root") {
    result->root = value;
  } else if (name == "--threads") {
    if (!ParseNumber(value, 1, 1024, &number)) return "--threads wants a number from 1 to 1024";
    result->threads = static_cast<unsigned>(number);
  } else if (name == "--site-id") {
    if (!ParseNumber(value, 1, 0xFFFFFFFF, &number)) return "--site-id wants a number from 1 to 4294967295";
    result->site_id = static_cast<std::uint32_t>(number);
  } else {
    if (!ParseNumber(value, 1, 86400, &number)) return "--timeout wants seconds from 1 to 86400";
    result->timeout_seconds = static_cast<unsigned>(number);
  }
  return {};
}

bool TakesValue(std::string_view name) {
  for (const std::string_view known :
       {"--module", "--listen", "--root", "--upstream", "--threads", "--site-id", "--timeout"}) {
    if (known == name) return true;
  }
  return false;
}

}  // namespace

const char kUsage[] =
    "usage: qivhost [--module FILE] --listen ADDR:PORT (--root DIR | --upstream http://HOST:PORT) [options]\n"
    "\n"
    "  --module FILE       the native module to load (without it requests go through unchecked)\n"
    "  --listen ADDR:PORT  numeric address; port 0 picks a free one, which is printed\n"
    "  --root DIR          serve the files of this folder\n"
    "  --upstream URL      pass requests on to this server\n"
    "  --threads N         requests worked on at once (default: 64)\n"
    "  --site-id N         the site number that the module sees (default: 1)\n"
    "  --timeout SECONDS   silence of a client or an upstream that is borne (default: 120)\n"
    "  --forwarded-for     add the client's address to X-Forwarded-For towards the upstream\n"
    "  --quiet             no line per request\n"
    "  --help              this text\n";

std::string ParseCommandLine(const std::vector<std::string>& arguments, CommandLine* result) {
  std::vector<std::string> seen;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    std::string name = arguments[i];
    if (name == "--quiet") {
      result->quiet = true;
    } else if (name == "--forwarded-for") {
      result->forwarded_for = true;
    } else if (name == "--help" || name == "-h") {
      result->help = true;
      return {};
    } else {
      const std::size_t equals = name.find('=');
      std::string value = equals == std::string::npos ? "" : name.substr(equals + 1);
      name = name.substr(0, equals);
      if (!TakesValue(name)) return "unknown option \"" + name + "\"";
      if (equals == std::string::npos) {
        if (i + 1 == arguments.size()) return name + " wants a value";
        value = arguments[++i];
      }
      if (value.empty()) return name + " wants a value";
      for (const std::string& earlier : seen) {
        if (earlier == name) return name + " is given twice";
      }
      seen.push_back(name);
      const std::string error = SetOption(name, value, result);
      if (!error.empty()) return error;
    }
  }
  if (result->listen_address.empty()) return "--listen is missing";
  if (result->root.empty() == result->upstream_host.empty()) return "exactly one of --root and --upstream is wanted";
  return {};
}

}  // namespace qiv::host

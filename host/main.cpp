// qivhost: serves a site or an upstream over HTTP with the module in between.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/command_line.h"
#include "host/file_handle.h"
#include "host/module_host.h"
#include "host/proxy.h"
#include "host/server.h"
#include "host/static_files.h"
#include "port/code_page.h"
#include "port/system_error.h"

namespace qiv::host {
namespace {

int Milliseconds(unsigned seconds) { return static_cast<int>(seconds) * 1000; }

int Fail(const std::string& text) {
  std::fprintf(stderr, "qivhost: %s\n", text.c_str());
  return 2;
}

std::string WithoutSlash(std::string path) {
  while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) path.pop_back();
  return path;
}

int Serve(const CommandLine& line) {
  const std::string root = WithoutSlash(line.root);
  if (!root.empty() && !IsFolder(root)) return Fail(root + ": cannot be served: " + LastSystemError());

  HostOptions options;
  options.site_id = line.site_id;
  if (!root.empty()) options.site_root = root + "/";
  CModuleHost host(options);
  std::string error;
  if (!line.module.empty() && !host.Load(line.module, &error)) return Fail(error);

  std::unique_ptr<IRequestHandler> handler;
  if (!root.empty()) {
    handler = std::make_unique<CStaticFiles>(root);
  } else {
    ProxySettings settings;
    settings.host = line.upstream_host;
    settings.port = line.upstream_port;
    settings.timeout_milliseconds = Milliseconds(line.timeout_seconds);
    settings.trust_forwarded = line.trust_forwarded;
    handler = std::make_unique<CProxy>(settings);
  }

  ServerSettings settings;
  settings.address = line.listen_address;
  settings.port = line.listen_port;
  settings.threads = line.threads;
  settings.waiting_threads = line.waiting_threads;
  settings.timeout = Milliseconds(line.timeout_seconds);
  settings.head_timeout = Milliseconds(line.head_timeout_seconds);
  settings.drain_timeout = Milliseconds(line.drain_timeout_seconds);
  settings.least_rate = line.least_rate;
  settings.log_requests = !line.quiet;
  CServer server(host, *handler, settings);
  if (!server.Listen(&error)) return Fail(error);
  const bool bracketed = line.listen_address.find(':') != std::string::npos;
  std::printf(bracketed ? "listening on [%s]:%u\n" : "listening on %s:%u\n", line.listen_address.c_str(),
              static_cast<unsigned>(server.port()));
  std::fflush(stdout);
  server.Run();
  host.Shutdown();
  std::fflush(stdout);
  return 0;
}

}  // namespace
}  // namespace qiv::host

namespace {

int Run(const std::vector<std::string>& arguments) {
  qiv::host::CommandLine line;
  std::string text;
  switch (qiv::host::ParseCommandLine(arguments, &line, &text)) {
    case qiv::host::ParsedOptions::kWrong:
      std::fprintf(stderr, "qivhost: %s\n%s", text.c_str(), "try qivhost --help\n");
      return 2;
    case qiv::host::ParsedOptions::kShown:
      std::fputs(text.c_str(), stdout);
      return 0;
    case qiv::host::ParsedOptions::kServe:
      break;
  }
  return qiv::host::Serve(line);
}

}  // namespace

#if defined(_WIN32)
int wmain(int count, wchar_t** values) {
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(qiv::Utf16ToUtf8(reinterpret_cast<const char16_t*>(values[i])));
  }
  return Run(arguments);
}
#else
int main(int count, char** values) { return Run(std::vector<std::string>(values + 1, values + count)); }
#endif

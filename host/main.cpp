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

namespace qiv::host {
namespace {

constexpr unsigned kDefaultThreads = 64;

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
  if (!root.empty() && !IsFolder(root)) return Fail("--root " + root + ": no such folder");

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
    settings.timeout_milliseconds = static_cast<int>(line.timeout_seconds) * 1000;
    settings.add_forwarded_for = line.forwarded_for;
    handler = std::make_unique<CProxy>(settings);
  }

  ServerSettings settings;
  settings.address = line.listen_address;
  settings.port = line.listen_port;
  settings.threads = line.threads == 0 ? kDefaultThreads : line.threads;
  settings.timeout_milliseconds = static_cast<int>(line.timeout_seconds) * 1000;
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
  const std::string error = qiv::host::ParseCommandLine(arguments, &line);
  if (!error.empty()) {
    std::fprintf(stderr, "qivhost: %s\n%s", error.c_str(), "try qivhost --help\n");
    return 2;
  }
  if (line.help) {
    std::fputs(qiv::host::kUsage, stdout);
    return 0;
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

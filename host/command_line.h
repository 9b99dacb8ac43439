// The options of qivhost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qiv::host {

struct CommandLine {
  std::string module;          ///< module file; empty: serve without one
  std::string listen_address;  ///< IPv4 or IPv6 text, without brackets
  std::uint16_t listen_port = 0;
  std::string root;           ///< folder of the site; empty when there is an upstream
  std::string upstream_host;  ///< empty when there is a root
  std::string upstream_port;
  unsigned threads = 0;
  std::uint32_t site_id = 1;
  unsigned timeout_seconds = 120;  ///< silence of a client or upstream that is borne
  bool forwarded_for = false;
  bool quiet = false;
  bool help = false;
};

extern const char kUsage[];

/// Reads the arguments (without the program's name, UTF-8). Gives an error text, empty when they are good.
std::string ParseCommandLine(const std::vector<std::string>& arguments, CommandLine* result);

}  // namespace qiv::host

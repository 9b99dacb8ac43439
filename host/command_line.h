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
  unsigned threads = 64;
  unsigned waiting_threads = 256;
  std::uint32_t site_id = 1;
  unsigned timeout_seconds = 120;
  unsigned head_timeout_seconds = 0;   ///< 0: as timeout_seconds
  unsigned drain_timeout_seconds = 0;  ///< 0: as timeout_seconds
  unsigned least_rate = 240;           ///< bytes a second
  bool trust_forwarded = false;
  bool quiet = false;
};

enum class ParsedOptions { kServe, kShown, kWrong };

/// Reads the arguments (without the program's name, UTF-8). `text` is what to print: of --help and --version for
/// kShown, of the mistake for kWrong.
ParsedOptions ParseCommandLine(const std::vector<std::string>& arguments, CommandLine* result, std::string* text);

}  // namespace qiv::host

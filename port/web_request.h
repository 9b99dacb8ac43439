// One look at a web server: whether it answers.
#pragma once

#include <string>

namespace qiv {

struct WebAnswer {
  int status = 0;       ///< of HTTP; 0 when there was no answer
  std::string failure;  ///< why there was none, UTF-8
};

struct WebPlace {
  std::string url;
  std::string host;  ///< the site's name, as its Host header says it; empty: what the URL names
};

/// GETs a URL and reads the status line of the answer; redirections are not followed. Each step (connection, sending,
/// waiting) may take `limit_ms` milliseconds. "https" on Windows only, and there without a look at the certificate: for
/// questions to this machine, of which nothing but the status is believed.
WebAnswer FetchStatus(const WebPlace& place, int limit_ms);

}  // namespace qiv

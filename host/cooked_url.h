// The decoded, canonical form of a request's URL.
#pragma once

#include <string>
#include <string_view>

namespace qiv::host {

struct CookedUrl {
  std::u16string full;  ///< scheme, host with port, path, query
  std::size_t host_at = 0;
  std::size_t host_length = 0;
  std::size_t path_length = 0;   ///< the path follows the host
  std::size_t query_length = 0;  ///< with its "?"; 0 when there is none

  std::u16string_view Path() const { return std::u16string_view(full).substr(host_at + host_length, path_length); }
  std::u16string_view Query() const {
    return std::u16string_view(full).substr(host_at + host_length + path_length, query_length);
  }
};

/// Decodes the path once (%XX as UTF-8 or else byte by byte, %uXXXX), turns "\" into "/", drops repeated slashes,
/// resolves "." and "..". The query is not decoded: each byte becomes one unit. `authority` is the Host header or the
/// local address. A whole URL brings its own authority. False, with a reason, when the server refuses the URL: a
/// malformed escape, a control character, a path that climbs above the root, a segment that is too long.
bool CookUrl(std::string_view raw_url, std::string_view authority, bool secure, CookedUrl* cooked, const char** reason);

}  // namespace qiv::host

#include "checks/form_target.h"

#include "base/hex.h"
#include "common/text.h"

namespace qiv {

std::string FormAction(std::string_view raw_url) {
  const std::size_t scheme = raw_url.find("://");
  if (!raw_url.starts_with('/')) {
    const std::size_t slash = scheme == std::string_view::npos ? scheme : raw_url.find('/', scheme + 3);
    raw_url = slash == std::string_view::npos ? std::string_view("/") : raw_url.substr(slash);
  }
  // Two slashes (or backslashes, which browsers take for them) would name another host; "/./" in front does not.
  const bool names_host = raw_url.size() > 1 && (raw_url[1] == '/' || raw_url[1] == '\\');
  return (names_host ? "/." : "") + EscapeUnprintable(raw_url);
}

std::string Cookie(std::string_view name, std::string_view value, std::int64_t seconds, const RequestFacts& facts) {
  std::string cookie;
  AppendAll(&cookie, {name, "=", value, "; Path=/; Max-Age=", std::to_string(seconds), "; HttpOnly; SameSite=Lax"});
  if (facts.site_url.starts_with("https://")) cookie += "; Secure";
  return cookie;
}

}  // namespace qiv

#include "engines/webshell/php/sources.h"

#include <algorithm>
#include <iterator>

#include "common/text.h"

namespace qiv {
namespace {

struct Superglobal {
  std::string_view name;
  std::uint32_t origin;
};

constexpr Superglobal kSuperglobals[] = {
    {"_GET", kRequestOrigin},
    {"_POST", kRequestOrigin},
    {"_COOKIE", kRequestOrigin},
    {"_REQUEST", kRequestOrigin},
    {"HTTP_GET_VARS", kRequestOrigin},
    {"HTTP_POST_VARS", kRequestOrigin},
    {"HTTP_COOKIE_VARS", kRequestOrigin},
    {"HTTP_RAW_POST_DATA", kRequestOrigin},
    {"_FILES", kFromUpload},
    {"HTTP_POST_FILES", kFromUpload},
    {"_SERVER", kServerList},
    {"HTTP_SERVER_VARS", kServerList},
    {"_ENV", 0},
    {"GLOBALS", 0},
    {"_SESSION", 0},
};

// The elements of $_SERVER that the client writes.
bool IsClientHeader(std::string_view key) {
  return (key.starts_with("HTTP_") && key != "HTTP_HOST" && key != "HTTP_HTTPS") || key == "QUERY_STRING" ||
         key == "PATH_INFO" || key == "ORIG_PATH_INFO" || key == "PHP_AUTH_USER" || key == "PHP_AUTH_PW";
}

}  // namespace

std::uint8_t SuperglobalNumber(std::string_view name) {
  const auto found = std::find_if(std::begin(kSuperglobals), std::end(kSuperglobals),
                                  [name](const Superglobal& global) { return global.name == name; });
  return found == std::end(kSuperglobals) ? 0 : static_cast<std::uint8_t>(found - std::begin(kSuperglobals) + 1);
}

std::uint32_t ServerOrigin(std::string_view key) {
  if (IsClientHeader(key)) return kRequestOrigin;
  if (key == "SCRIPT_FILENAME" || key == "PATH_TRANSLATED" || key == "PHP_SELF" || key == "SCRIPT_NAME") {
    return kOwnFile | kHostFacts;
  }
  if (key == "DOCUMENT_ROOT" || key == "SERVER_ADDR" || key == "SERVER_NAME" || key == "REQUEST_URI" ||
      key == "HTTP_HOST") {
    return kHostFacts;
  }
  return !key.empty() && IsDigit(key[0]) ? std::uint32_t{kFromRequest} : 0;
}

std::uint32_t SuperglobalOrigin(std::uint8_t number) { return kSuperglobals[number - 1].origin; }

}  // namespace qiv

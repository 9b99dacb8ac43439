#include "port/web_request.h"

#include <windows.h>
#include <winhttp.h>

#include "port/windows/wide_path.h"

namespace qiv {
namespace {

class CInternetHandle {
 public:
  explicit CInternetHandle(HINTERNET handle) : handle_(handle) {}
  ~CInternetHandle() {
    if (handle_ != nullptr) WinHttpCloseHandle(handle_);
  }
  CInternetHandle(const CInternetHandle&) = delete;
  CInternetHandle& operator=(const CInternetHandle&) = delete;
  HINTERNET Get() const { return handle_; }

 private:
  HINTERNET handle_;
};

WebAnswer NoAnswer() {
  const DWORD code = GetLastError();
  switch (code) {
    case ERROR_WINHTTP_CANNOT_CONNECT:
      return {0, "nobody listens there"};
    case ERROR_WINHTTP_NAME_NOT_RESOLVED:
      return {0, "there is no host of that name"};
    case ERROR_WINHTTP_TIMEOUT:
      return {0, "no answer in time"};
    case ERROR_WINHTTP_CONNECTION_ERROR:
      return {0, "the connection was closed"};
    default:
      return {0, "error " + std::to_string(code)};
  }
}

}  // namespace

WebAnswer FetchStatus(const WebPlace& place, int limit_ms) {
  const std::wstring wide = Wide(place.url);
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (!WinHttpCrackUrl(wide.c_str(), 0, 0, &parts)) return {0, "this is no URL"};
  const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
  const std::wstring path(parts.lpszUrlPath, parts.dwUrlPathLength + parts.dwExtraInfoLength);
  const bool is_secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  const CInternetHandle session(
      WinHttpOpen(L"qivsetup", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (session.Get() == nullptr) return NoAnswer();
  WinHttpSetTimeouts(session.Get(), limit_ms, limit_ms, limit_ms, limit_ms);
  const CInternetHandle connection(WinHttpConnect(session.Get(), host.c_str(), parts.nPort, 0));
  if (connection.Get() == nullptr) return NoAnswer();
  const CInternetHandle request(WinHttpOpenRequest(connection.Get(), L"GET", path.empty() ? L"/" : path.c_str(),
                                                   nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                   is_secure ? WINHTTP_FLAG_SECURE : 0));
  if (request.Get() == nullptr) return NoAnswer();
  DWORD policy = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
  WinHttpSetOption(request.Get(), WINHTTP_OPTION_REDIRECT_POLICY, &policy, sizeof policy);
  DWORD ignored = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID |
                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
  if (is_secure) WinHttpSetOption(request.Get(), WINHTTP_OPTION_SECURITY_FLAGS, &ignored, sizeof ignored);
  const std::wstring header = L"Host: " + Wide(place.host);
  if (!place.host.empty() && !WinHttpAddRequestHeaders(request.Get(), header.c_str(), static_cast<DWORD>(header.size()),
                                                       WINHTTP_ADDREQ_FLAG_ADD | WINHTTP_ADDREQ_FLAG_REPLACE)) {
    return NoAnswer();
  }
  if (!WinHttpSendRequest(request.Get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) ||
      !WinHttpReceiveResponse(request.Get(), nullptr)) {
    return NoAnswer();
  }
  DWORD status = 0;
  DWORD size = sizeof status;
  if (!WinHttpQueryHeaders(request.Get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                           WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
    return NoAnswer();
  }
  return {static_cast<int>(status), ""};
}

}  // namespace qiv

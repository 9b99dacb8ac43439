// Runs requests through modules without a socket: for tests and for offline checks.
//
//   CModuleHost host;
//   host.Register(&RegisterModule);
//   InProcessRequest request;
//   request.raw_url = "/a.asp?id=1";
//   InProcessResponse response = RunInProcess(host, request);
//
// A handler plays the application. It receives the request's context and answers through the module interface itself;
// `AnswerWith` makes the usual one.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_options.h"
#include "host/module_host.h"
#include "iis/httpserv.h"

namespace qiv::host {

struct HeaderField {
  std::string name;
  std::string value;
};

/// Gives the next piece of a body: fills at most `size` bytes, returns how many; 0 is the end, below 0 a lost client.
using BodyStream = std::function<std::int64_t(char* buffer, std::size_t size)>;

struct InProcessRequest {
  std::string method = "GET";
  std::string raw_url = "/";  ///< as sent: path and query, or a whole URL
  /// As sent, in order; equal names are merged as the server merges them. Without a Host header "localhost" is added
  /// (HTTP/1.1 only); without Content-Length one is added for a body that is not chunked and not empty.
  std::vector<HeaderField> headers;
  std::string body;
  BodyStream body_stream;                      ///< used instead of `body` when set; give Content-Length or `chunked`
  bool chunked = false;                        ///< the body has no announced length; adds Transfer-Encoding
  std::string remote_address = "203.0.113.7";  ///< IPv4 or IPv6 text
  std::uint16_t remote_port = 50000;
  std::string local_address = "192.0.2.1";
  std::uint16_t local_port = 80;
  iis::USHORT remote_family = 0;  ///< not 0: the address family shown instead of the real one
  bool secure = false;
  iis::USHORT major_version = 1;
  iis::USHORT minor_version = 1;
  bool warm_up = false;   ///< an initialisation request of the server itself: no raw URL, no connection
  bool is_child = false;  ///< GetParentContext gives another context
  /// Read the entity body to its end just before the handler runs, into InProcessResponse::handler_body.
  bool read_body_for_handler = true;
};

struct InProcessResponse {
  bool refused = false;  ///< the server itself answered (bad request); no module saw it
  bool sent = false;     ///< a response head went out
  int status = 0;
  std::string reason;
  std::vector<HeaderField> headers;  ///< as on the wire, in order, duplicates kept
  std::string body;                  ///< without transfer coding; empty for HEAD
  int sends = 0;                     ///< pieces that went out, the head's included
  bool finished = false;             ///< a notification returned FINISH_REQUEST
  bool reset = false;                ///< the connection was reset
  bool closed = false;               ///< the connection does not stay open
  bool length_mismatch = false;      ///< Content-Length was not the length of the body written (it was put right)
  bool handler_ran = false;
  std::string handler_body;                       ///< what the handler could read as entity body
  iis::HRESULT handler_read_result = 0;           ///< how that reading ended: kHandleEof when whole
  std::vector<std::string> notifications;         ///< names of the module methods called, in order
  std::vector<HeaderField> handler_headers;       ///< request headers as the handler saw them
  std::string error_body;                         ///< body that custom errors threw away
  std::vector<iis::ULONG> kernel_cache_disabled;  ///< the reason of each call of DisableKernelCache

  /// First value of a header (name without regard to case); nothing when absent.
  std::optional<std::string> Header(std::string_view name) const;
  /// All values of a header, in order.
  std::vector<std::string> Headers(std::string_view name) const;
};

using InProcessHandler = std::function<void(iis::IHttpContext& context)>;

/// A handler that sets the status and the headers and writes the body in one buffered chunk.
InProcessHandler AnswerWith(int status, std::string body, std::vector<HeaderField> headers = {});

/// Reads the entity body to its end through the interface. Returns the HRESULT that ended the reading.
iis::HRESULT ReadEntity(iis::IHttpContext& context, std::string* body);

/// Writes one piece of memory into the response, copied.
iis::HRESULT WriteText(iis::IHttpContext& context, std::string_view text, bool more_data = true);

/// Runs one request. Without a handler the answer is 200, "text/html", "<html><body>ok</body></html>". Thread safe.
InProcessResponse RunInProcess(CModuleHost& host, const InProcessRequest& request,
                               const InProcessHandler& handler = {});

/// Parses the text of one HTTP/1.1 request (head and body, chunked coding removed) as strictly as the server does.
/// On refusal gives nothing and sets `status` (400, 411, 501, 505) and `error`.
std::optional<InProcessRequest> ParseRawRequest(std::string_view text, const HostOptions& options, int* status,
                                                std::string* error);

}  // namespace qiv::host

// How the host behaves where the real server's behaviour is not certain, and its few settings.
//
// Each switch has the likelier behaviour as its default; tests run the module with both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "iis/http_types.h"

namespace qiv::host {

/// Which value GetHeader gives when several unknown headers have the name asked for (Set-Cookie).
enum class ManyValues { kFirst, kLast, kJoined };

/// When "100 Continue" goes out to a client that asked for it.
enum class ContinueMoment { kFirstRead, kAtOnce };

/// What becomes of an existing body of a response with a status of 400 or more.
enum class ExistingResponse {
  kAuto,         ///< kept only when the status was set with fTrySkipCustomErrors
  kReplace,      ///< always replaced by the server's own page
  kPassThrough,  ///< every body that is not empty is kept
};

struct HostOptions {
  // Request body.
  bool unknown_remaining_after_insert = false;  ///< of a chunked body: the length stays unknown after InsertEntityBody
  bool unknown_remaining_after_end = false;     ///< of a chunked body: the length stays unknown after the end was seen
  std::uint64_t short_read_seed = 0;            ///< not 0: ReadEntityBody gives fewer bytes than asked, at random
  ContinueMoment continue_moment = ContinueMoment::kFirstRead;

  // Server variables.
  bool missing_header_variable_is_empty = false;  ///< HTTP_<NAME> of an absent header: S_OK and "", not an error
  bool https_lower_case = false;                  ///< HTTPS is "on"/"off" instead of "ON"/"OFF"

  // Pipeline.
  bool post_begin_after_finish = false;      ///< OnPostBeginRequest also runs after FINISH_REQUEST from OnBeginRequest
  bool global_handled_ends_request = false;  ///< GL_NOTIFICATION_HANDLED ends the request with what the response holds
  bool send_response_on_other_thread = false;  ///< OnSendResponse runs on a thread of its own, the flusher waits
  bool send_response_never = false;            ///< OnSendResponse is not called at all (as when a cache answers)
  bool dispose_before_cleanup = false;         ///< modules are disposed before stored contexts are cleaned up

  // Response.
  ManyValues many_values = ManyValues::kFirst;
  bool custom_errors = true;
  ExistingResponse existing_response = ExistingResponse::kAuto;
  std::size_t response_buffer_limit = 4u << 20;  ///< bytes buffered before a write flushes
  std::string server_name = "qivhost";           ///< value of the Server header every response starts with
  /// Headers added when a response first leaves, as the configuration's custom headers are.
  std::vector<std::pair<std::string, std::string>> custom_headers;

  // Parser.
  bool fold_header_lines = false;  ///< continuation lines are joined with a blank instead of refused

  iis::DWORD site_id = 1;
  std::string application_pool = "DefaultAppPool";
  std::string site_root = "C:\\inetpub\\wwwroot\\";  ///< physical path of the site, with its separator; UTF-8
};

}  // namespace qiv::host

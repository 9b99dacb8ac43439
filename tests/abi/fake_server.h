// What the GoogleTest half and the MSVC half of module_test say to each other: plain structures and C functions.
#pragma once

#if defined(_MSC_VER)
#include "tests/abi/natural_httpserv.h"
#endif

namespace proof {

struct Header {
  const char* name;
  const char* value;
};

/// One request as a client sends it.
struct ScriptedRequest {
  const char* method;
  const char* raw_url;
  const Header* headers;
  int header_count;
  const unsigned char* body;  ///< null: no body
  unsigned body_size;
  int chunked;  ///< the length is not announced
};

inline constexpr unsigned kMaxPage = 256 * 1024;
inline constexpr unsigned kMaxNotes = 64;

/// What became of it.
struct Outcome {
  int begin;         ///< what OnBeginRequest returned
  int post_execute;  ///< what OnPostExecuteRequestHandler returned; -1 when the handler did not run
  int send;          ///< what OnSendResponse returned
  int status;
  int skip_custom_errors;
  char content_type[256];
  unsigned page_size;
  unsigned char page[kMaxPage];
  unsigned reads;  ///< calls of ReadEntityBody
  unsigned insertions;
  const unsigned char* inserted;  ///< in request memory; valid until the next request
  unsigned inserted_size;
  unsigned request_memory;  ///< bytes handed out by AllocateRequestMemory
  int contexts_set;
  int contexts_found;  ///< GetModuleContext calls that returned the object
  int context_cleaned;
  unsigned set_cookies;  ///< Set-Cookie headers at the end
  unsigned faults;
  const char* fault[kMaxNotes];  ///< calls that the server did not expect, and arguments it could not accept
};

}  // namespace proof

#if defined(_MSC_VER)
using RegisterFunction = HRESULT (*)(DWORD, IHttpModuleRegistrationInfo*, IHttpServer*);
#else
using RegisterFunction = void (*)();
#endif

/// Calls RegisterModule. Null, or what was wrong with the registration.
extern "C" const char* ServerStart(RegisterFunction register_module);
/// Takes one request through the notifications, in the server's order.
extern "C" void ServerRequest(const proof::ScriptedRequest* request, proof::Outcome* outcome);
/// Ends the module. Null, or what was wrong.
extern "C" const char* ServerStop();

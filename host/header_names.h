// Numbers of header names and of methods, and the phrases of status codes.
#pragma once

#include <string_view>

#include "iis/http_types.h"

namespace qiv::host {

/// Number of a name, without regard to case; -1 when the server does not know it.
int RequestHeaderId(std::string_view name);
/// The same for responses. Server, Set-Cookie and WWW-Authenticate give -1: the server keeps them as unknown headers.
int ResponseHeaderId(std::string_view name);

/// Number of a method, exact in case; HttpVerbUnknown for others.
iis::HTTP_VERB VerbOf(std::string_view method);

/// The usual reason phrase of a status; "Unknown" when there is none.
std::string_view ReasonOf(int status);

}  // namespace qiv::host

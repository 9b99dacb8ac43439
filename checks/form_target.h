// Where pages of ours send the visitor, and the cookies that they set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "checks/request_facts.h"

namespace qiv {

/// The request's URL as the target of a form on the page: on this host whatever the URL says ("//other/x" is a path
/// here), every byte outside ASCII percent-encoded; not yet escaped for HTML.
std::string FormAction(std::string_view raw_url);

/// The value of a Set-Cookie header: for the whole site, out of reach of scripts, for that many seconds, and over a
/// secured connection only when the request came over one. `value`: a token.
std::string Cookie(std::string_view name, std::string_view value, std::int64_t seconds, const RequestFacts& facts);

}  // namespace qiv

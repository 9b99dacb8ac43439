// The sources of taint of a page: the request and its members.
#pragma once

#include <string_view>
#include <vector>

#include "engines/webshell/page/value.h"

namespace qiv {

/// What a member of the request gives, called with these arguments.
PageValue RequestMember(std::string_view member, const std::vector<PageValue>& arguments);

}  // namespace qiv

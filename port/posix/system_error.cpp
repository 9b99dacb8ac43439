#include "port/system_error.h"

#include <cerrno>
#include <system_error>

namespace qiv {

std::string LastSystemError() { return std::system_category().message(errno); }

}  // namespace qiv

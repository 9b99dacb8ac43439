#include "port/system_log.h"

namespace qiv {

void WriteSystemLog(SystemEvent, const std::string&) noexcept {}

}  // namespace qiv

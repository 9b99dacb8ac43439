// What one module registered.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "iis/httpserv.h"

namespace qiv::host {

/// Higher comes first, but for SEND_RESPONSE, where FIRST is closest to the wire and so comes last.
enum class Priority { kLast, kLow, kMedium, kHigh, kFirst };

struct RegisteredModule {
  std::u16string name;
  iis::HTTP_MODULE_ID id = nullptr;
  std::size_t position = 0;  ///< in CModuleHost::modules()
  iis::IHttpModuleFactory* factory = nullptr;
  iis::CGlobalModule* global = nullptr;
  iis::DWORD main = 0;
  iis::DWORD post = 0;
  iis::DWORD global_notifications = 0;
  std::array<Priority, 32> priorities{};  ///< by bit number
  Priority global_priority = Priority::kMedium;
};

}  // namespace qiv::host

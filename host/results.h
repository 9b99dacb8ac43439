// Results that the system's headers would define as macros, and the border no exception crosses.
#pragma once

#include <new>

#include "iis/http_types.h"

namespace qiv::host {

inline constexpr iis::HRESULT kOk = 0;
inline constexpr iis::HRESULT kInvalidArgument = iis::MakeHresult(0x80070057);

/// Runs an operation of an interface object: running out of memory becomes a result.
template <class Operation>
iis::HRESULT Guarded(Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return iis::kOutOfMemory;
  }
}

}  // namespace qiv::host

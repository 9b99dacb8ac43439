// Requests as browsers send them, in the sizes whose decisions are measured.
#pragma once

#include <span>

#include "host/in_process.h"

namespace qiv::bench {

host::InProcessRequest PlainGet();

struct DecisionCase {
  const char* name;
  host::InProcessRequest (*make)();
};

/// Ordinary requests: a plain GET, a query of 200 bytes, a form of 2 KiB, JSON of 64 KiB, a form of 1 MiB, an upload of
/// 10 MiB. None of them is blocked.
std::span<const DecisionCase> Decisions();

}  // namespace qiv::bench

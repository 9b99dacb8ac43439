// The one ordered list of protection checks.
#pragma once

#include <cstdint>
#include <span>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Where in a notification a check runs. The pipeline runs the rows of a stage in table order.
enum class Stage {
  kLists,          ///< black and white lists, first in every notification
  kRequest,        ///< while nothing has decided: shape, type and upload, access, injection; phase 1
  kRequestAlways,  ///< malicious code and sensitive words on the request; phase 1, allowed requests too
  kResponseBody,   ///< malicious code, webshell output and sensitive words in the response; phases 3 and 4
  kNotFound,       ///< the reply is a 404; phase 4; its decision never changes this reply
  kAfterDecision,  ///< smart blocking; phases 1 and 3
};

/// What a check looks at. Bits.
enum RequestPart : std::uint32_t {
  kPartClient = 1U << 0,
  kPartForwarded = 1U << 1,  ///< the marks that proxies leave
  kPartMethod = 1U << 2,
  kPartUrl = 1U << 3,   ///< as sent
  kPartPath = 1U << 4,  ///< in the readings of servers
  kPartQuery = 1U << 5,
  kPartAgent = 1U << 6,
  kPartReferer = 1U << 7,
  kPartCookie = 1U << 8,
  kPartHeaders = 1U << 9,
  kPartBody = 1U << 10,
  kPartTime = 1U << 11,
  kPartResponse = 1U << 12,
};

struct CheckRow {
  const char* name;  ///< stable, lower snake case; written to the event log
  Stage stage;
  void (*run)(const RequestFacts& facts, const CheckContext& context, CheckResult& result);
  /// The parts that the check looks at with this configuration. None: it is off, and is not asked. Null: always asked.
  std::uint32_t (*reads)(const WebsiteConfig& config) = nullptr;

  bool IsOn(const WebsiteConfig& config) const { return reads == nullptr || reads(config) != 0; }
};

/// All rows, grouped by stage in the order of Stage.
std::span<const CheckRow> CheckTable();

}  // namespace qiv

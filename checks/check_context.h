// What a check may ask beside the request itself.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "checks/check_state.h"
#include "checks/event_recorder.h"

namespace qiv {

struct WebsiteConfig;
class CAttackRules;
class CQivLibs;
class InjectionLibrary;

/// Where in the life of its request a notification stands.
enum Phase : std::int32_t { kPhaseBegin = 1, kPhasePostExecute = 3, kPhaseSendResponse = 4 };

/// Made by the module for each notification; owns nothing. The configuration and the libraries are those in force when
/// the request began, and stay to its end; the rest outlives all requests.
struct CheckContext {
  const WebsiteConfig& config;
  const InjectionLibrary& library;
  const CQivLibs* webshells;    ///< null while there is none: nothing can be looked for
  const CAttackRules* attacks;  ///< never null where a check looks for attacks by families
  CheckState& state;            ///< counters, the service's lists, address libraries, the clock
  IEventRecorder& recorder;
  Phase phase = kPhaseBegin;
  /// The head of the application's answer as it is sent, when a check wants it and it is uncompressed text; phase 3.
  std::string_view response_body = {};
  bool log_only = false;  ///< what the check decides is written down and not done
};

/// Asks the service to put a client on a list until `end` (CExchangeFiles::WriteLock). Checks lock in no other way: one
/// that only logs locks nobody.
bool RequestLock(const CheckContext& context, ClientList list, const CIpAddress& client, std::int64_t now,
                 std::int64_t end, std::initializer_list<std::string_view> details);

}  // namespace qiv

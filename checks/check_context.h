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

/// Which part of an answer is looked at. One that goes out before it is whole is looked at piece by piece.
enum class ResponsePart : std::uint8_t { kHead, kFirstPiece, kLaterPiece };

/// The application's answer, as far as checks want it and it can be read.
struct ResponseText {
  ResponsePart part = ResponsePart::kHead;
  std::string_view text;  ///< of it, as it is sent; empty: no text by its type, compressed, or on its way already
  std::string_view type;  ///< its Content-Type, may be empty
  int status = 200;
  bool page = true;         ///< HTML or plain text, or of no type; else JSON or XML
  bool whole = true;        ///< the text is all of it
  bool may_change = false;  ///< all of it can be had, and it is no part of something larger
};

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
  ResponseText response = {};           ///< phases 3 and 4
  bool log_only = false;                ///< what the check decides is written down and not done
  const CAttackRules* leaks = nullptr;  ///< what is looked for in responses; null: nothing
};

/// Asks the service to put a client on a list until `end` (CExchangeFiles::WriteLock). Checks lock in no other way: one
/// that only logs locks nobody.
bool RequestLock(const CheckContext& context, ClientList list, const CIpAddress& client, std::int64_t now,
                 std::int64_t end, std::initializer_list<std::string_view> details);

}  // namespace qiv

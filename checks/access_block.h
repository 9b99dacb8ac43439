// What the access protections share: how they block, and what they ask about the client and the path.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "common/area_library.h"
#include "common/ip_address.h"
#include "common/messages.h"

namespace qiv {

/// How one of them blocks. `category`, `item` and `reason` are messages; `subject` follows the reason after a colon
/// unless it is empty.
struct AccessBlock {
  CheckKind kind;
  MessageId category;
  MessageId item;
  MessageId reason;
  std::string_view subject = {};
  std::string_view statistics;
  bool log = true;  ///< whether the event log gets a line
};
/// A plain block: counted towards a lock.
void BlockAccess(const AccessBlock& block, const RequestFacts& facts, const CheckContext& context, CheckResult& result);

/// Whether the client is in an area: of the names in the address library, or of the ranges that the firewall service
/// made of them.
bool IsInArea(const CIpAddress& client, const CIpRanges& ranges, const CAreaNames& names, const CheckContext& context);

/// The readings of the request's path (PathReadings), made once. As long as the facts.
const std::vector<std::string>& RequestPaths(const RequestFacts& facts);

/// The extensions that the names of a path have, without dot: of "/a/x.php/y.jpg" "jpg" and "php", of a path without
/// any none. `path`: a reading. Views into it.
std::vector<std::string_view> PathExtensions(std::string_view path);
/// That of the last name.
std::string_view LastExtension(std::string_view path);

/// Whether a server runs a file with this extension, in lower case.
bool IsServerScript(std::string_view extension);

}  // namespace qiv

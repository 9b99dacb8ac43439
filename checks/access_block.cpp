#include "checks/access_block.h"

#include <algorithm>
#include <memory>

#include "checks/upload_name.h"
#include "common/text.h"
#include "config/path_readings.h"
#include "config/website_config.h"

namespace qiv {
namespace {

/// Names of routes that run code, which upload protection does not take for names of scripts.
constexpr std::string_view kScriptRoutes[] = {"action", "dhtml", "do", "inc", "phpx"};

}  // namespace

void BlockAccess(const AccessBlock& block, const RequestFacts& facts, const CheckContext& context,
                 CheckResult& result) {
  const Language language = context.config.language;
  result.category = Message(language, block.category);
  result.item = Message(language, block.item);
  result.reason = Message(language, block.reason);
  if (!block.subject.empty()) AppendAll(&result.reason, {Message(language, MessageId::kColon), block.subject});
  result.detail = result.reason;
  BlockPlainly(block.kind, block.statistics, facts, context, result);
  result.log = block.log ? 1 : 0;
}

bool IsInArea(const CIpAddress& client, const CIpRanges& ranges, const CAreaNames& names, const CheckContext& context) {
  if (ranges.Contains(client)) return true;
  const CAddressLibraries* const libraries = context.state.libraries;
  if (names.Empty() || libraries == nullptr) return false;
  const std::shared_ptr<const CAreaLibrary> library = libraries->Areas(client.IsIpv4());
  const Area* const area = library->Find(client);
  return area != nullptr && names.Contains(*area);
}

const std::vector<std::string>& RequestPaths(const RequestFacts& facts) {
  if (facts.path_readings.empty()) facts.path_readings = PathReadings(PathOfUrl(facts.raw_url));
  return facts.path_readings;
}

std::vector<std::string_view> PathExtensions(std::string_view path) {
  std::vector<std::string_view> extensions;
  for (const std::string_view name : Split(path, "/")) {
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot + 1 < name.size()) extensions.push_back(name.substr(dot + 1));
  }
  return extensions;
}

std::string_view LastExtension(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

bool IsServerScript(std::string_view extension) {
  return IsScriptExtension(extension) ||
         std::find(std::begin(kScriptRoutes), std::end(kScriptRoutes), extension) != std::end(kScriptRoutes);
}

}  // namespace qiv

// What is read, written, moved and included.
#include <algorithm>
#include <array>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/php_machine.h"

namespace qiv {
namespace {

constexpr std::uint32_t kRequest = kFromRequest | kWholeRequest;
constexpr std::size_t kLongestPath = 4096;  // bytes; longer names no system opens

bool EndsWithScript(std::string_view path) {
  constexpr std::array<std::string_view, 8> kScripts = {".php", ".php3", ".php5", ".phtml",
                                                        ".asp", ".aspx", ".jsp",  ".pht"};
  constexpr std::size_t kLongestEnd = 6;
  const std::string lower = CCharSet::LowerAscii(path.substr(path.size() - std::min(path.size(), kLongestEnd)));
  return std::any_of(kScripts.begin(), kScripts.end(), [&](std::string_view end) { return lower.ends_with(end); });
}

bool IsAddress(std::string_view text) {
  return text.starts_with("http://") || text.starts_with("https://") || text.starts_with("ftp://");
}

}  // namespace

PhpValue CPhpMachine::Open(std::string_view name, std::span<const PhpValue> arguments) {
  PhpValue handle;
  if (arguments.empty()) return handle;
  const std::string_view path = arguments[0].Text();
  if (path == "php://input" || path.starts_with("/etc/")) return Read(name, arguments);
  handle.origin = arguments[0].origin & (kFromRequest | kWholeRequest | kFromUpload);
  if (IsAddress(path)) handle.origin |= kFromNetwork;
  if (EndsWithScript(path) && arguments.size() > 1 && !arguments[1].Text().starts_with("r"))
    handle.origin |= kScriptTarget;
  return handle;
}

void CPhpMachine::Write(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2) return;
  const PhpValue& target = arguments[0];
  const PhpValue& data = arguments[1];
  const bool script = target.Has(kScriptTarget) || (name == "file_put_contents" && EndsWithScript(target.Text()));
  if (data.Has(kFromRequest) && (script || target.Has(kFromRequest))) return Report(PhpFindingKind::kFileWrite, name);
  if (data.Has(kFromRequest) && name == "file_put_contents" && target.HasText() &&
      target.Text().size() <= kLongestPath && written_.size() < kMostWritten) {
    written_.emplace(target.Text());
  }
  if (data.Has(kFromNetwork) && (script || target.Has(kFromRequest))) Report(PhpFindingKind::kDownload, name);
  if (data.HasText() && data.Text().find("<?") != std::string_view::npos) AddNested("?>" + std::string(data.Text()));
}

void CPhpMachine::Move(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2 || name == "rename") return;
  const PhpValue& source = arguments[0];
  const PhpValue& target = arguments[1];
  if (source.Has(kFromUpload) || name == "move_uploaded_file") {
    if (target.Has(kFromUpload | kFromRequest) || EndsWithScript(target.Text())) Report(PhpFindingKind::kUpload, name);
  } else if (IsAddress(source.Text()) && EndsWithScript(target.Text())) {
    Report(PhpFindingKind::kDownload, name);
  } else if (source.Has(kWholeRequest) && target.Has(kFromRequest)) {
    Report(PhpFindingKind::kFileWrite, name);
  }
}

PhpValue CPhpMachine::Read(std::string_view name, std::span<const PhpValue> arguments) {
  PhpValue value;
  if (arguments.empty()) return value;
  const PhpValue& path = arguments[0];
  const std::string_view text = path.Text();
  if (text == "php://input") {
    value.origin = kRequest;
  } else if (text == "/etc/passwd" || text == "/etc/shadow") {
    Report(PhpFindingKind::kSensitive, text);
  } else if (name == "fsockopen" || name == "pfsockopen" || name.find("socket_") != std::string_view::npos) {
    value.origin = kFromNetwork;
  } else if (IsAddress(text) || path.Has(kFromNetwork)) {
    value.origin = kFromNetwork;
  } else if (path.Has(kTempUpload | kWholeRequest)) {
    value.origin = kRequest;
  }
  return value;
}

void CPhpMachine::Include(const PhpValue& path) {
  if (path.Has(kWholeRequest) || path.Has(kTempUpload) ||
      (path.HasText() && path.Text().size() <= kLongestPath && written_.contains(path.Text()))) {
    Report(PhpFindingKind::kInclude, "include");
  } else if (path.Has(kFromNetwork)) {
    Report(PhpFindingKind::kNetworkCode, "include");
  } else if (path.HasText() && (IsAddress(path.Text()) || path.Text() == "php://input")) {
    Report(PhpFindingKind::kNetworkCode, "include");
  }
}

}  // namespace qiv

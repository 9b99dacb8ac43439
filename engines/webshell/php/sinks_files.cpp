// Sinks that work on files: what is read, written, moved and included.
#include "engines/webshell/php/sinks.h"

#include <algorithm>
#include <array>

#include "common/char_set.h"
#include "engines/webshell/php/builtins.h"
#include "engines/webshell/php/sources.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestPath = 4096;  // bytes; longer names no system opens
constexpr std::size_t kIncluder = 256;      // bytes: a file that is nothing but an include of what it is told

// The last bytes in lower case; a trail byte among them is one of the path's, whose bytes are compared.
std::string LowerEnd(std::string_view path) {
  constexpr std::size_t kLongestEnd = 6;
  return CCharSet::LowerAscii(path.substr(path.size() - std::min(path.size(), kLongestEnd)));
}

bool EndsWithScript(std::string_view path) {
  constexpr std::array<std::string_view, 8> kScripts = {".php", ".php3", ".php5", ".phtml",
                                                        ".asp", ".aspx", ".jsp",  ".pht"};
  const std::string lower = LowerEnd(path);
  return std::any_of(kScripts.begin(), kScripts.end(), [&](std::string_view end) { return lower.ends_with(end); });
}

// What a browser shows, not what a program includes.
bool EndsWithPicture(std::string_view path) {
  constexpr std::array<std::string_view, 7> kPictures = {".jpg", ".jpeg", ".png", ".gif", ".bmp", ".ico", ".swf"};
  const std::string lower = LowerEnd(path);
  return std::any_of(kPictures.begin(), kPictures.end(), [&](std::string_view end) { return lower.ends_with(end); });
}

}  // namespace

PhpValue CPhpSinks::Open(std::string_view name, std::span<const PhpValue> arguments) {
  PhpValue handle;
  if (arguments.empty()) return handle;
  const std::string_view path = arguments[0].Text();
  if (path == "php://input" || path.starts_with("/etc/")) return Read(name, arguments);
  handle.origin = arguments[0].origin & (kFromRequest | kWholeRequest | kFromUpload);
  if (IsRemoteAddress(path)) handle.origin |= kFromNetwork;
  if ((EndsWithScript(path) || arguments[0].Has(kOwnFile)) && arguments.size() > 1 &&
      !arguments[1].Text().starts_with("r"))
    handle.origin |= kScriptTarget;
  return handle;
}

void CPhpSinks::Write(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2) return;
  const bool log = name == "error_log";  // text, 3, path
  if (log && arguments.size() < 3) return;
  const PhpValue& target = arguments[log ? 2 : 0];
  PhpValue data = arguments[log ? 0 : 1];
  if (name.ends_with("printf")) {
    for (const PhpValue& argument : arguments.subspan(1)) data.Join(argument);
  }
  const bool path = log || name == "file_put_contents";
  const bool script = target.Has(kScriptTarget) || (path && (EndsWithScript(target.Text()) || target.Has(kOwnFile)));
  if (data.Has(kFromRequest) && (script || target.Has(kFromRequest)))
    return findings_.Report(PhpFindingKind::kFileWrite, name);
  if (data.Has(kFromRequest) && name == "file_put_contents" && target.HasText() &&
      target.Text().size() <= kLongestPath && written_.size() < kMostWritten &&
      budget_.Take(target.Text().size() + 96)) {
    written_.emplace(target.Text());
  }
  if (data.Has(kDecoded) && (script || target.Has(kWholeRequest)))
    findings_.Report(PhpFindingKind::kFileWrite, name, data.way);
  if (data.Has(kFromNetwork) && (script || target.Has(kFromRequest))) findings_.Report(PhpFindingKind::kDownload, name);
  if (operators_.Holds(data, "<?")) findings_.AddNested("?>" + std::string(data.Text()));
}

void CPhpSinks::Move(std::string_view name, std::span<const PhpValue> arguments) {
  if (arguments.size() < 2 || name == "rename") return;
  const PhpValue& source = arguments[0];
  const PhpValue& target = arguments[1];
  if (source.Has(kFromUpload) || name == "move_uploaded_file") {
    if (target.Has(kFromUpload | kFromRequest) || EndsWithScript(target.Text()))
      findings_.Report(PhpFindingKind::kUpload, name);
  } else if (IsRemoteAddress(source.Text()) && (EndsWithScript(target.Text()) || EndsWithScript(source.Text()))) {
    findings_.Report(PhpFindingKind::kDownload, name);
  } else if (source.Has(kWholeRequest) && target.Has(kFromRequest)) {
    findings_.Report(PhpFindingKind::kFileWrite, name);
  }
}

PhpValue CPhpSinks::Read(std::string_view name, std::span<const PhpValue> arguments) {
  PhpValue value;
  if (arguments.empty()) return value;
  const PhpValue& path = arguments[0];
  const std::string_view text = path.Text();
  if (text == "php://input") {
    value.origin = kRequestOrigin;
  } else if (text == "/etc/passwd" || text == "/etc/shadow") {
    findings_.Report(PhpFindingKind::kSensitive, text);
  } else if (path.Has(kOwnFile) || EndsWithPicture(text)) {  // what stands behind the code, or in its comments
    value.origin = kDecoded | kComputed;
    value.way = HidingWay::kOther;
  } else if (name.starts_with("curl_") || name == "get_meta_tags" || name == "dns_get_record") {
    value.origin = kFromNetwork;
  } else if (name == "fsockopen" || name == "pfsockopen" || name.find("socket_") != std::string_view::npos) {
    value.origin = kFromNetwork;
  } else if (IsRemoteAddress(text) || path.Has(kFromNetwork | kRemotePath)) {
    value.origin = kFromNetwork;
  } else if (path.Has(kTempUpload | kWholeRequest)) {
    value.origin = kRequestOrigin;
  }
  return value;
}

void CPhpSinks::Include(const PhpValue& path) {
  if (path.Has(kWholeRequest) || path.Has(kTempUpload) ||
      (path.HasText() && path.Text().size() <= kLongestPath && written_.contains(path.Text()))) {
    findings_.Report(PhpFindingKind::kInclude, "include");
  } else if (path.Has(kFromNetwork | kRemotePath)) {
    findings_.Report(PhpFindingKind::kNetworkCode, "include");
  } else if (path.HasText() && (path.Text().starts_with("data:") || operators_.Holds(path, "://"))) {
    if (!path.Text().starts_with("phar://") && !path.Text().starts_with("vfs://"))
      findings_.Report(PhpFindingKind::kNetworkCode, path.Text());
  } else if ((path.Has(kDecoded) && path.way == HidingWay::kBase64) || path.Has(kEscaped) ||
             EndsWithPicture(path.Text()) || (path.Has(kNeverAssigned) && source_ <= kIncluder)) {
    findings_.Report(PhpFindingKind::kInclude, path.HasText() ? path.Text() : "include");
  }
}

// Spam, what the host gives away, and the arguments of the program that sends.
void CPhpSinks::Mail(std::span<const PhpValue> arguments) {
  if (arguments.size() < 3) return;
  const PhpValue& to = arguments[0];
  if (arguments.size() > 4 && (arguments[4].Has(kWholeRequest) || operators_.Holds(arguments[4], "-X"))) {
    findings_.Report(PhpFindingKind::kBackdoor, "mail");
  }
  const bool address = operators_.Holds(to, "@");
  const bool hidden =
      address && (to.Has(kDecoded | kEscaped) || (to.Has(kComputed) && to.way == HidingWay::kCharacters));
  if (hidden || (address && AnyHas(arguments.subspan(1), kHostFacts))) {
    findings_.Report(PhpFindingKind::kSensitive, "mail");
  }
  const auto foreign = [](const PhpValue& value) { return value.Has(kFromRequest | kNeverAssigned); };
  if (std::all_of(arguments.begin(), arguments.begin() + 3, foreign)) findings_.Report(PhpFindingKind::kMail, "mail");
}

}  // namespace qiv

#include "engines/webshell/php/policy.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace qiv {
namespace {

using Kind = PhpFindingKind;
using Id = MessageId;

constexpr std::size_t kTiny = 32;             // bytes: a call and its tags, nothing else
constexpr std::size_t kSmallScript = 1024;    // bytes
constexpr std::size_t kSmallUploader = 2047;  // bytes: stores an upload and shows no form
constexpr std::size_t kSmallPage = 4096;      // bytes: shows another host's pages, or does one thing, and nothing else
constexpr std::size_t kSmallProgram = 10240;  // bytes: a class of a framework seldom fits
constexpr std::size_t kUploader = 16384;      // bytes: an upload form and what stores it; more is an application
constexpr std::size_t kStandalone = 32768;    // bytes: a file whose variables come from nowhere
constexpr std::size_t kTool = 65536;          // bytes: a tool in one file, not an application's script

constexpr std::uint64_t kFramework = kPhpNamespace | kPhpPackage | kPhpAsksDefined;

constexpr PhpLabels Risk(Id label) { return {Id::kRiskCharacteristics, label}; }

// Findings of the walk. Frameworks keep factories in variables; an unknown function that is given the request may be
// anything in a program of several files.
constexpr PhpPolicy kPolicies[] = {
    {.kind = Kind::kBackdoor, .name = Id::kBackdoor},
    {.kind = Kind::kHidden, .name = Id::kBackdoor, .details = kPhpNamed},
    {.kind = Kind::kHidden, .name = Id::kBackdoor, .condition = {.most_bytes = kSmallProgram}, .details = kPhpVariable},
    {.kind = Kind::kHidden, .name = Id::kBackdoor, .condition = {.none = kPhpNamespace}, .details = kPhpVariable},
    {.kind = Kind::kHidden, .name = Id::kBackdoor, .condition = {.all = kPhpStandalone}, .details = kPhpUnnamed},
    {.kind = Kind::kRequestCall, .name = Id::kBackdoor, .details = kPhpNamed},
    {.kind = Kind::kRequestCall,
     .name = Id::kBackdoor,
     .condition = {.most_bytes = kSmallProgram},
     .details = kPhpVariable},
    {.kind = Kind::kRequestCall, .name = Id::kBackdoor, .condition = {.none = kPhpNamespace}, .details = kPhpVariable},
    {.kind = Kind::kRequestCall, .name = Id::kBackdoor, .condition = {.all = kPhpStandalone}, .details = kPhpUnnamed},
    {.kind = Kind::kInclude, .name = Id::kSuspiciousReference, .labels = Risk(Id::kLabelFile)},
    {.kind = Kind::kFileWrite, .name = Id::kSuspiciousBackdoor, .labels = Risk(Id::kLabelInput)},
    {.kind = Kind::kNetworkCode, .name = Id::kSuspiciousBackdoor},
    {.kind = Kind::kDownload, .name = Id::kCopyUnknownFile},
    {.kind = Kind::kTunnel, .name = Id::kSuspiciousBackdoor, .condition = {.none = kPhpNamespace}},
    {.kind = Kind::kBuiltIn, .name = Id::kBuiltInType, .labels = Risk(Id::kLabelFunction)},
    {.kind = Kind::kSensitive, .name = Id::kInformationLeakage},
    {.kind = Kind::kTool,
     .name = Id::kFileDetector,
     .labels = Risk(Id::kLabelParameter),
     .condition = {.most_bytes = kTool, .all = kPhpStandalone, .none = kPhpAsksDefined | kPhpPackage},
     .suspicious = true},
    {.kind = Kind::kRemoteText,
     .name = Id::kSuspiciousBackdoor,
     .labels = Risk(Id::kLabelInput),
     .condition = {.most_bytes = kSmallPage, .all = kPhpStandalone, .none = kPhpForm},
     .suspicious = true},
    {.kind = Kind::kMail, .name = Id::kSuspiciousBackdoor, .condition = {.all = kPhpStandalone}, .suspicious = true},
    {.kind = Kind::kUpload,  // a form that posts a file to the page itself, which stores it under the name it came with
     .name = Id::kFileUploader,
     .condition = {.most_bytes = kUploader, .all = kPhpForm, .none = kFramework},
     .suspicious = true},
    {.kind = Kind::kUpload,
     .name = Id::kFileUploader,
     .condition = {.most_bytes = kSmallUploader,
                   .all = kPhpStandalone,
                   .any = kPhpUploads | kPhpMovesUpload,
                   .none = kFramework},
     .suspicious = true},
    {.kind = Kind::kUnknownSource,
     .name = Id::kExecuteVariables,
     .condition = {.most_bytes = kStandalone, .all = kPhpStandalone},
     .suspicious = true},
};

constexpr PhpWordPolicy kEncoders[] = {
    {Id::kPhpShield, {}, "E_D(", false, {.all = kPhpEncoded, .none = kPhpDefines}},
};

// What small scripts do, told by their words alone.
constexpr PhpWordPolicy kWordPolicies[] = {
    {Id::kSuspiciousVariable,
     Risk(Id::kLabelVariable),
     "$_SESSION",
     false,
     {.most_bytes = kSmallScript, .all = kPhpStandalone | kPhpSession | kPhpDecodesRequest}},
    {Id::kInformationLeakage, {}, "phpinfo()", true, {.most_bytes = kSmallScript, .all = kPhpTiny | kPhpPhpinfo}},
    {Id::kFileDetector,
     {},
     "readdir",
     true,
     {.most_bytes = kSmallScript, .all = kPhpReadsFolder | kPhpAsksWritable | kPhpRequestWord, .none = kPhpDefines}},
    {Id::kProcessCreation,
     {},
     "pcntl_fork",
     true,
     {.most_bytes = kSmallScript, .all = kPhpForks | kPhpWhile | kPhpExec}},
    {Id::kCopyUnknownFile,
     {},
     "copy",
     false,
     {.most_bytes = kSmallPage, .all = kPhpCopiesRemote | kPhpNamesScript, .none = kPhpPartOfProgram}},
    {Id::kFileUploader,
     Risk(Id::kLabelFile),
     "_FILES",
     true,
     {.most_bytes = kSmallPage,
      .all = kPhpUploads | kPhpForm | kPhpSubmit,
      .any = kPhpCopies | kPhpMovesUpload | kPhpPutsFile,
      .none = kPhpPartOfProgram | kPhpFunction | kPhpExit}},
    {Id::kSuspiciousComputation,
     Risk(Id::kLabelFunction),
     "ord",
     true,
     {.most_bytes = kSmallPage, .all = kPhpOrd | kPhpArray | kPhpBranches, .none = kPhpPartOfProgram}},
    {Id::kEncoding,
     Risk(Id::kLabelFunction),
     "str_rot13",
     true,
     {.most_bytes = kSmallPage, .all = kPhpRot13 | kPhpRequest, .none = kPhpPartOfProgram}},
};

// Any of its literals makes a fact.
struct FactLiteral {
  std::uint64_t fact;
  std::string_view literal;
};
constexpr FactLiteral kLiterals[] = {
    {kPhpNamespace, "namespace"},
    {kPhpPackage, "@package"},
    {kPhpAsksDefined, "defined("},
    {kPhpDefines, "define("},
    {kPhpForm, "<form"},
    {kPhpSubmit, "submit"},
    {kPhpUploads, "_files["},
    {kPhpMovesUpload, "move_uploaded_file("},
    {kPhpCopies, "copy("},
    {kPhpPutsFile, "file_put_contents("},
    {kPhpFunction, "function"},
    {kPhpExit, "exit"},
    {kPhpCopiesRemote, "copy(\"http"},
    {kPhpCopiesRemote, "copy('http"},
    {kPhpNamesScript, ".php"},
    {kPhpOrd, "@ord($"},
    {kPhpArray, "array"},
    {kPhpBranches, "isset"},
    {kPhpBranches, "else"},
    {kPhpRot13, "str_rot13("},
    {kPhpRequest, "_get["},
    {kPhpRequest, "_post["},
    {kPhpRequest, "_request["},
    {kPhpRequest, "_server["},
    {kPhpRequestWord, "_get"},
    {kPhpRequestWord, "_post"},
    {kPhpRequestWord, "_request"},
    {kPhpRequestWord, "table"},
    {kPhpSession, "$_session["},
    {kPhpDecodesRequest, "]=base64_decode($_"},
    {kPhpDecodesRequest, "]=hex2bin($_"},
    {kPhpPhpinfo, "phpinfo()"},
    {kPhpReadsFolder, "readdir"},
    {kPhpAsksWritable, "is_writable"},
    {kPhpForks, "pcntl_fork"},
    {kPhpWhile, "while"},
    {kPhpExec, "exec("},
    {kPhpPartOfProgram, "require"},
    {kPhpPartOfProgram, "include"},
    {kPhpPartOfProgram, "namespace"},
    {kPhpPartOfProgram, "define("},
    {kPhpPartOfProgram, "@package"},
};

constexpr auto kByFact = [] {
  auto rows = std::to_array(kLiterals);
  std::sort(rows.begin(), rows.end(), [](const FactLiteral& a, const FactLiteral& b) { return a.fact < b.fact; });
  return rows;
}();

bool Holds(std::string_view text, std::string_view what) { return text.find(what) != std::string_view::npos; }

}  // namespace

bool HasPhpFact(std::string_view text, std::string_view copy, std::uint64_t fact) {
  if (fact == kPhpTiny) return copy.size() <= kTiny;
  if (fact == kPhpEncoded) return Holds(copy, "@include(\"") && Holds(copy, "e_d(");
  if (fact == kPhpPartOfProgram && (Holds(text, "class ") || Holds(text, "interface "))) return true;
  auto row = std::lower_bound(kByFact.begin(), kByFact.end(), fact,
                              [](const FactLiteral& literal, std::uint64_t wanted) { return literal.fact < wanted; });
  for (; row != kByFact.end() && row->fact == fact; ++row) {
    if (Holds(copy, row->literal)) return true;
  }
  return false;
}

const PhpPolicy* FindPhpPolicy(const PhpFinding& finding, CFileFacts* facts) {
  const std::uint8_t detail = finding.detail.empty() ? kPhpUnnamed : finding.detail == "$" ? kPhpVariable : kPhpNamed;
  const auto found = std::find_if(std::begin(kPolicies), std::end(kPolicies), [&](const PhpPolicy& row) {
    return row.kind == finding.kind && (row.details & detail) != 0 && facts->Meet(row.condition);
  });
  return found == std::end(kPolicies) ? nullptr : found;
}

bool IsWeakPhpFinding(PhpFindingKind kind) { return kind >= Kind::kTool || kind == Kind::kUpload; }

const PhpWordPolicy* FindPhpWordPolicy(bool encoders, CFileFacts* facts) {
  const std::span<const PhpWordPolicy> rows =
      encoders ? std::span<const PhpWordPolicy>(kEncoders) : std::span<const PhpWordPolicy>(kWordPolicies);
  const auto found =
      std::find_if(rows.begin(), rows.end(), [facts](const PhpWordPolicy& row) { return facts->Meet(row.condition); });
  return found == rows.end() ? nullptr : &*found;
}

}  // namespace qiv

// Policy for PHP files: which findings are reported of which files, and under what name. All limits of the judgement,
// as against those of the walk, stand here and in policy.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "common/messages.h"
#include "engines/webshell/flow/file_facts.h"
#include "engines/webshell/php/flow.h"

namespace qiv {

// Code inside code: how far it is followed.
inline constexpr int kPhpDeepestLayer = 10;              ///< samples wrap themselves up to some ten times
inline constexpr std::size_t kPhpMostLayers = 64;        ///< texts judged for one file
inline constexpr std::size_t kPhpLayerBytesPerByte = 4;  ///< compressed code grows three- to fourfold
inline constexpr std::size_t kPhpLayerBytesAnyway = 1 << 18;
inline constexpr std::size_t kPhpLayerBytesPerStep = 8;  ///< to look into one at all; its tokens are paid besides
inline constexpr std::size_t kPhpLayerRoom = kPhpRoomAnyway / 2;  ///< for one, whatever those that wait hold
inline constexpr std::int32_t kPhpLayerRisk = 60;  ///< the limit for code that was hidden: that says the rest

/// What a file is, does or holds, by its blank-free lower-case text.
enum PhpFact : std::uint64_t {
  kPhpStandalone = 1U << 0,     ///< PhpFlowResult::standalone
  kPhpPartOfProgram = 1U << 1,  ///< includes others, or defines what others use
  kPhpTiny = 1U << 2,           ///< one call and its tags
  kPhpNamespace = 1U << 3,
  kPhpPackage = 1U << 4,      ///< the comment that files of packages begin with
  kPhpAsksDefined = 1U << 5,  ///< "defined(": what includes it defines something
  kPhpDefines = 1U << 6,
  kPhpForm = 1U << 7,
  kPhpSubmit = 1U << 8,
  kPhpUploads = 1U << 9,  ///< $_FILES[
  kPhpMovesUpload = 1U << 10,
  kPhpCopies = 1U << 11,
  kPhpPutsFile = 1U << 12,
  kPhpFunction = 1U << 13,
  kPhpExit = 1U << 14,
  kPhpCopiesRemote = 1U << 15,  ///< copy("http
  kPhpNamesScript = 1U << 16,   ///< ".php"
  kPhpOrd = 1U << 17,           ///< @ord($
  kPhpArray = 1U << 18,
  kPhpBranches = 1U << 19,
  kPhpRot13 = 1U << 20,
  kPhpRequest = 1U << 21,      ///< an element of $_GET, $_POST, $_REQUEST or $_SERVER
  kPhpRequestWord = 1U << 22,  ///< the word of one, or of a table
  kPhpSession = 1U << 23,
  kPhpDecodesRequest = 1U << 24,  ///< ...]=base64_decode($_
  kPhpPhpinfo = 1U << 25,
  kPhpReadsFolder = 1U << 26,
  kPhpAsksWritable = 1U << 27,
  kPhpForks = 1U << 28,
  kPhpWhile = 1U << 29,
  kPhpExec = 1U << 30,
  kPhpEncoded = std::uint64_t{1} << 31,  ///< a file of an encoder: its loader is included, and given a text
};

/// Tests every fact but kPhpStandalone. `copy`: the blank-free lower-case text of `text`.
bool HasPhpFact(std::string_view text, std::string_view copy, std::uint64_t fact);

/// What the detail of a finding is; a set of bits.
enum PhpDetail : std::uint8_t {
  kPhpNamed = 1,     ///< a name
  kPhpVariable = 2,  ///< "$": some variable
  kPhpUnnamed = 4,   ///< none: nobody knows what is called
  kPhpAnyDetail = 7,
};

struct PhpLabels {
  MessageId category;
  MessageId label;
};

/// A finding of the walk that is reported where the condition holds.
struct PhpPolicy {
  PhpFindingKind kind;
  MessageId name;
  std::optional<PhpLabels> labels = {};
  FileCondition condition = {};
  std::uint8_t details = kPhpAnyDetail;
  bool suspicious = false;  ///< a weak finding
};

/// The first row for the finding that the file meets, or null.
const PhpPolicy* FindPhpPolicy(const PhpFinding& finding, CFileFacts* facts);

/// Findings that say less than the others come last.
bool IsWeakPhpFinding(PhpFindingKind kind);

/// What the words of a file alone tell.
struct PhpWordPolicy {
  MessageId name;
  std::optional<PhpLabels> labels;
  std::string_view detail;
  bool suspicious;
  FileCondition condition;
};

/// The first row that the file meets, or null. `encoders`: those that say which program encoded it, and no others.
const PhpWordPolicy* FindPhpWordPolicy(bool encoders, CFileFacts* facts);

}  // namespace qiv

// Follows values through a PHP file, without running it: from what the request says, and from texts that were put
// together so as not to be read, to what runs code, commands or hidden names.
//
// The tokens are walked statement by statement with an explicit stack of operators, values and brackets. A variable
// keeps what it was last given (origins, its taint, are joined where it was assigned on a deeper level); functions of
// the file are bound to the arguments of their calls; everything is walked again, kPasses times at most, so that a
// function defined behind its call and a value carried round a loop are seen. Arguments of "eval" and decoded texts
// come back as nested code for the caller to judge.
//
// Work and memory are bounded by the length of the text: the bytes of all texts that are put together, and the elements
// of all arrays that are copied, come out of one budget. Each byte of the source earns its part when the walk reaches
// it, so that whatever stands before a piece of code cannot use up what that code earns. When nothing is left, texts
// are no longer known but origins still flow. Names are numbers (names.h); every stack has a limit, so that each token
// costs a bounded amount beside what it pays for: the whole is linear. Sources are in sources.h, what propagates taint
// in operators.h, scopes.h and calls.h, sinks in sinks.h. The result equals that of a walk without limits where
// none was met; where one was, contents are unknown, and what stands beyond the last bracket, argument or parameter
// that is followed passes nothing on. Branches count as taken, loops as walked kPasses times.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "engines/webshell/php/value.h"

namespace qiv {

enum class PhpFindingKind : std::uint8_t {
  kBackdoor,       ///< the request decides what code or command runs
  kRequestCall,    ///< the request names the function that is called
  kInclude,        ///< the request names the file that is run
  kFileWrite,      ///< the request decides the content of a file it names, or of a script
  kUpload,         ///< an upload is stored under a name that the request chose
  kHidden,         ///< a dangerous call behind a disguise
  kNetworkCode,    ///< what another host sends is run
  kDownload,       ///< a script is fetched from another host
  kTunnel,         ///< opens a socket where the request wants it
  kBuiltIn,        ///< a method of PHP's own classes is handed what runs code
  kTool,           ///< works on the files, folders, hosts or databases that the request names
  kRemoteText,     ///< prints what another host sends
  kSensitive,      ///< reads the system's accounts
  kMail,           ///< sends what the request says to whom it says
  kUnknownSource,  ///< runs a variable that nothing in the file assigns
};

struct PhpFinding {
  PhpFindingKind kind;
  HidingWay way;
  std::string detail;  ///< the function's name, as far as it is known
  TextPlace place;     ///< in the source: the call, else the statement as far as it was walked
};

struct PhpInnerCode {
  std::string code;
  TextPlace place;  ///< in the source: what runs, decodes or holds it
};

struct PhpFlowResult {
  std::vector<PhpFinding> findings;   ///< in the order met; at most kMostFindings
  std::vector<PhpInnerCode> nested;   ///< code that the file runs or decodes; each to be judged as code
  std::vector<PhpInnerCode> encoded;  ///< what long constant texts turn out to be, decoded; nobody says what for
  bool standalone = true;  ///< no include, class, namespace, or function called that the file does not define
};

inline constexpr std::size_t kPhpRoomAnyway = std::size_t{1} << 19;

/// Bytes that may be held while a file of that many bytes is followed, and the code inside it.
constexpr std::size_t PhpRoom(std::size_t file) {
  constexpr std::size_t kPerByte = 9;
  return file * kPerByte < kPhpRoomAnyway ? kPhpRoomAnyway : file * kPerByte;
}

/// `in_code`: the text begins inside PHP. `most_room`: bytes that may be held at a time. `walks` pays for the second
/// pass of code inside code and for every third one.
PhpFlowResult FollowPhp(std::string_view source, bool in_code, std::size_t most_room, CWalkBudget* walks);
inline PhpFlowResult FollowPhp(std::string_view source, bool in_code) {
  CWalkBudget walks(source.size());
  return FollowPhp(source, in_code, PhpRoom(source.size()), &walks);
}

}  // namespace qiv

// Judges the path of a request by its form: whether it tries to be read by the server as something else than it says,
// or asks for a file that no site means to publish.
//
// The path is looked at as sent and after each of up to four decodings ("%XX", "%uXXXX"), because servers, filters and
// applications decode once each. In each form its names (between slashes and backslashes) are held against the tables
// of this file. Linear in the path.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class UrlFault : std::uint8_t {
  kNone,
  kControlByte,    ///< a byte below a blank, or DEL, by whatever encoding
  kOverlong,       ///< an ASCII character in two or more bytes of UTF-8
  kTraversal,      ///< ".." that leads above the root or is disguised
  kScriptParsing,  ///< "x.asp;.jpg", "x.asp/y.jpg", "x.jpg/y.php"
  kShortName,      ///< an 8.3 name, as "secret~1.txt"
  kBadName,        ///< a device, a stream ("::$DATA"), a drive, dots or blanks behind a script's name
  kSensitiveFile,  ///< settings, sources, backups, data of version control
};

/// Which faults are looked for beside control bytes, over-long encodings and traversal.
struct UrlSwitches {
  bool short_names = false;
  bool bad_names = false;  ///< and sensitive files
  bool script_parsing = false;
};

struct UrlJudgement {
  UrlFault fault = UrlFault::kNone;
  std::string name;  ///< the part of the path that it was found in, decoded; at most 64 bytes
};

/// `path`: as sent, without query (PathOfUrl).
UrlJudgement JudgeUrlPath(std::string_view path, const UrlSwitches& switches);

/// Whether a text is a list of client addresses as proxies write it: addresses with or without port, "unknown" or
/// "_name" each, separated by commas.
bool IsForwardedList(std::string_view text);

}  // namespace qiv

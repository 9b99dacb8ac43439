// Script code in a value of a request: not a page, but what is sent to a webshell, or what plants one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engines/webshell/webshell_result.h"

namespace qiv {

/// What a text holds that could be code; a set of bits.
enum CodeHint : std::uint32_t {
  kHintPhpTag = 1U << 0,   ///< "<?", other than of XML
  kHintPageTag = 1U << 4,  ///< "<%"
  kHintCall = 1U << 1,     ///< a function that AnalyseFragment knows is called
  kHintSource = 1U << 2,   ///< "$_": the request as PHP sees it
  kHintMarker = 1U << 3,   ///< the marks around a client's answer
};

/// A search for a few bytes; of ordinary texts hardly more than memchr. Nothing is found by AnalyseFragment in a text
/// without hints. Letters of either case.
std::uint32_t CodeHints(std::string_view text);

enum class FragmentStrength {
  kNone,
  kWeak,    ///< a function that runs code or commands is called, with whatever
  kStrong,  ///< runs what a request or a decoder gives it, or speaks like a webshell's client
};

/// Looks for calls that run code or commands. Strong:
///  - with the request or a decoder as argument: eval(base64_decode($_POST[z0])), assert(strrev(..)),
///  Execute(Chr(..)..)
///  - inside an interpolated text: ${@print(1)}
///  - among what clients send first: @ini_set("display_errors","0");@set_time_limit(0);
///  - between the marks of their answers: echo("->|"); ... echo("|<-");
/// Method calls and comments do not count. Fills *result unless it finds nothing. Linear.
FragmentStrength AnalyseFragment(std::string_view text, WebshellResult* result);

/// What a text that is base64 as a whole decodes to, of at most `most` bytes of it; empty when it is not base64, or not
/// of printable text. Of ordinary texts it looks at a few bytes.
std::string DecodeEncodedText(std::string_view text, std::size_t most);

}  // namespace qiv

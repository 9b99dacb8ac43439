// Server code of ASP and ASPX pages: cutting it out of the page, and following what the request says through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

enum class PageKind : std::uint8_t { kAsp, kAspx };

/// The server code of a lower-cased page: what stands between "<%" and "%>" (directives "<%@" left out) and in script
/// elements with "runat", each piece ended by a line feed. A page without either marker is taken as code whole (a
/// handler's class).
std::string ServerCode(std::string_view page);

/// What the request was seen to reach; a set of bits.
enum PageReach : std::uint32_t {
  kReachesCode = 1U << 0,     ///< code that is evaluated
  kReachesCommand = 1U << 1,  ///< a command or program
  kReachesFile = 1U << 2,     ///< path of a file that is written
  kReachesObject = 1U << 3,   ///< the name of an object or type that is created
  kHiddenCode = 1U << 4,      ///< code that is evaluated comes out of a function of the page or of scrambled text
  kWritesFile = 1U << 5,      ///< path and content of a file that is written
};

struct PageFlow {
  std::uint32_t reach = 0;
  std::string detail;  ///< the word that the request reached first
};

/// Follows the request through lower-cased server code, statement by statement: a variable whose assigned text holds
/// the request or such a variable is fed by it, as is a parameter of a function called with it. Words count as whole
/// words outside strings. Linear in the code; the statements are walked twice, so that functions may stand behind their
/// use.
PageFlow FollowPage(std::string_view code, PageKind kind);

/// The code with joined string pieces ("a"&"b", "a"+"b") closed up and chr(n), chrw(n) written out.
std::string JoinStrings(std::string_view code);

}  // namespace qiv

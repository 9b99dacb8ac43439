// Follows values through the server code of a page, without running it: from what the request says (sources), through
// variables, functions, members and texts that are put together (propagation), to what runs code or programs, creates
// objects, and reads or writes files (sinks).
//
// The code is cut out of the page by language and walked statement by statement, each expression token by token with an
// explicit stack of open brackets. A variable keeps what it was last given, and the marks of all it was given;
// functions of the page are bound to the arguments of their calls. Everything is walked again while a pass learned
// something, kPasses times at most. Text that is evaluated and known becomes a further piece of code.
//
// Linear: statements come in pieces of a bounded number of tokens, brackets have a deepest level, and the bytes of long
// texts that are copied, joined or followed, as the room of names, variables and functions, are bounded by a multiple
// of the code's length. What finds no room goes, the oldest first, and its marks are those of every unknown variable:
// the result then says so (kIncomplete). It equals what a walk without limits would find of the first kPasses passes,
// wherever that is not set; order of branches and loops is not told apart.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/page/script.h"

namespace qiv {

/// What was seen; a set of bits.
enum PageReach : std::uint32_t {
  kReachesCode = 1U << 0,       ///< the request becomes code that is evaluated or loaded
  kReachesCommand = 1U << 1,    ///< the request becomes a command or program
  kHiddenCode = 1U << 2,        ///< code that is evaluated comes out of scrambled text, or from another server
  kHiddenObject = 1U << 3,      ///< an object that runs programs, created by a name put together from pieces
  kHiddenFiles = 1U << 4,       ///< the same for objects that work on files
  kPathRequested = 1U << 5,     ///< the request names the file that is written, as a path of the whole disk
  kPathMapped = 1U << 6,        ///< the same, below the site's root
  kContentRequested = 1U << 7,  ///< the request is what is written to a file
  kReadsRequested = 1U << 8,    ///< the request names a file that is read, as a path of the whole disk
  kMakesShell = 1U << 9,        ///< an object or process that runs programs is created
  kMakesFiles = 1U << 10,       ///< an object that works on files is created
  kEvaluates = 1U << 11,        ///< something that is not written out in the code is evaluated
  kUsesShell = 1U << 13,        ///< such an object or process is told to run something
  kConnects = 1U << 14,         ///< the request names a server that is connected to
  kRunsSql = 1U << 15,          ///< the request is a statement that a database runs
  kRunsText = 1U << 12,         ///< a database is told to run programs
  kPathBelow = 1U << 16,        ///< the request says a piece of the path of a text file that is written
  kWritesItself = 1U << 17,     ///< the page is the file that is written, or an upload is put beside it
  kUploadsToRoot = 1U << 19,    ///< an upload is put into the site's root folder
  kReadsRequest = 1U << 18,     ///< the code uses something that the request says
  kIncomplete = 1U << 20,       ///< limits kept something from being followed
};

struct PageFlow {
  std::uint32_t reach = 0;
  std::string detail;            ///< the word that the request, or scrambled text, reached first
  PageCodePlace place;           ///< the statement that holds that word
  bool hidden = false;           ///< that word is not written out in the code
  bool depends_on_kind = false;  ///< as a page of the other kind it may be another
};

/// Follows the request through lower-cased server code, statement by statement: variables, functions and their
/// parameters, members; texts that are put together are worked out, and text that is evaluated is followed in its turn.
/// Linear in the code: a fixed number of passes, of which `walks` pays for all but the first; what is worked out and
/// held is bounded by the code's length.
PageFlow FollowPage(const PageCode& code, PageKind kind, CWalkBudget* walks);

}  // namespace qiv

// Values of page scripts, and the words that do something with them. For page_flow.cpp alone.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// What is known of a value; a set of bits.
enum ValueMark : std::uint32_t {
  kFed = 1U << 0,       ///< the request says it
  kPiece = 1U << 1,     ///< the request says only a piece of it: other text stands right before or behind
  kLong = 1U << 2,      ///< comes out of a long literal
  kDecoded = 1U << 3,   ///< put together from single characters of a long literal
  kSql = 1U << 4,       ///< begins like a statement of a database
  kFile = 1U << 5,      ///< read from a file
  kMapped = 1U << 6,    ///< a path below the site's root
  kNet = 1U << 7,       ///< another server's answer
  kLed = 1U << 8,       ///< begins with text that is not the request's
  kServer = 1U << 9,    ///< says how to reach a database
  kSelf = 1U << 10,     ///< the page's own path
  kHere = 1U << 13,     ///< the page's folder
  kProgram = 1U << 11,  ///< a statement that has a database run a program
  kJson = 1U << 12,     ///< text of another's in round brackets, as data is evaluated
  kRoot = 1U << 15,     ///< the site's root folder
  kVeiled = 1U << 14,   ///< worked out of a literal by a function of the page, or by a decoding
};

enum class PageObject : std::uint8_t {
  kNone,
  kRequest,
  kShell,
  kFso,
  kFile,
  kHttp,
  kEngine,
  kResponse,
  kControl,
  kOther
};

struct PageValue {
  std::uint32_t marks = 0;
  PageObject object = PageObject::kNone;
  bool known = false;      ///< `text` is the whole value
  std::string_view name;   ///< of the word it was read from
  std::string_view alias;  ///< the function that the value is
  std::string text;

  /// As new; keeps the text's memory.
  void Clear() {
    marks = 0;
    object = PageObject::kNone;
    known = false;
    name = {};
    alias = {};
    text.clear();
  }
};

enum class PageCall : std::uint8_t {
  kNone,
  kRunsCode,     // the first argument
  kLoadsCode,    // any argument, of an assembly or deserialiser
  kRunsCommand,  // any argument
  kRunsShell,    // any argument, of an object that runs programs
  kCreates,      // the object that the first argument names
  kWritesPath,   // the first argument is the path
  kWritesFile,   // the first is the path, the second the content
  kFetchesFile,  // the second is the path
  kWrites,       // the first argument goes to a file
  kReadsPath,    // the first argument is the path
  kReads,        // what the object holds
  kClean,        // numbers and the like
  kMaps,         // a path below the site's root
  kCharacter,
  kReverse,
  kReplace,
  kUnescape,
  kMid,
  kCase,  // the text as it is
  kBase64,
  kInvokes,
};

struct PageWord {
  std::string_view word;
  PageCall call;
  std::int8_t member;  // 1: only behind a ".", -1: only without one, 0: either
  bool asp;
  bool aspx;
};

/// Bytes of a text that may always be copied; longer ones take from what the code's length allows. So what stands in
/// front of a few short lines cannot use up what they need.
inline constexpr std::size_t kShortText = 256;

inline constexpr std::size_t kManyArguments = 10;  ///< character codes one after the other

template <typename List>
bool IsOneOf(std::string_view word, const List& list) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

/// The word's row, or null.
const PageWord* FindPageWord(std::string_view word);

/// What kind of object the program identifier or class identifier names; `*part` is the part of it that says so.
PageObject ObjectOf(std::string_view name, std::string_view* part);

/// Whether a method of this name, asked for by it, runs or loads what it is given.
bool IsHot(std::string_view name);

/// Whether the member of the request is not the client's to choose.
bool IsServersOwn(std::string_view member);

/// The known result of a call that works on texts; false if it is not known.
bool WorkOut(PageCall call, const std::vector<PageValue>& arguments, std::string* text);

/// Appends `right` to `left` by `mark`: numbers by arithmetic, texts end to end. False, and left alone, if the result
/// is not known.
bool Join(PageValue* left, char mark, const PageValue& right, bool basic);

}  // namespace qiv

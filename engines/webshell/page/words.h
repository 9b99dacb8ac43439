// The words of page scripts that matter here: sinks, sources of other values, what works on texts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "engines/webshell/page/value.h"

namespace qiv {

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

}  // namespace qiv

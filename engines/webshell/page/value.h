// What following a page knows of a value without running anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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

}  // namespace qiv

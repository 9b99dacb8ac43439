// Reads a value as a browser reads HTML, from each place in which a page may print it.
//
// A value is printed into an element, or into an attribute that a quote or a blank ends. From there the tokenizer of
// HTML says what is a tag, an attribute and its value: "/", form feed and line feed divide attributes as blanks do, a
// quote behind a value does too, a ">" in quotes ends nothing. What is looked for is what runs: an event attribute
// whose value is code that can do something, a script element, an attribute whose value is a URL that is a script. Each
// reading is one pass over the text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/xss_finding.h"
#include "engines/injection/xss_script.h"

namespace qiv {

/// Where the page prints the value.
enum class MarkupStart : std::uint8_t {
  kElement,       ///< between tags
  kDoubleQuoted,  ///< in an attribute's value; read to the end of that tag
  kSingleQuoted,
  kUnquoted,
  kRaw,  ///< where the text before turns quotes of this one into text (<noscript>, <style>): quotes divide, no more
};

/// Reads one text, which is in lower case, and which it keeps by reference.
class CMarkupReader {
 public:
  CMarkupReader(std::string_view text, const InjectionLibrary& library, XssKinds kinds)
      : text_(text), library_(library), kinds_(kinds) {}

  /// The first thing that runs, of the kinds asked for; kNone when there is none.
  XssFinding Read(MarkupStart start);
  /// Whether the last reading passed over a quoted value that holds a "<": then kRaw is worth reading.
  bool PassedOverTags() const { return passed_over_tags_; }

  /// Whether the text holds an attribute that could run ("onload =", "href="), in a tag or not. Quick.
  static bool HoldsTellingAttribute(std::string_view text, const InjectionLibrary& library);

 private:
  struct Attribute {
    std::string_view name;
    std::string_view value;
  };

  void ReadElements(bool raw);
  std::size_t ReadTag(std::size_t open, bool raw);
  std::size_t ReadAttributes(std::size_t pos, bool raw);
  std::size_t ReadName(std::size_t pos, bool raw, Attribute* attribute) const;
  std::size_t ReadValue(std::size_t pos, bool raw, Attribute* attribute);
  void Judge(const Attribute& attribute);
  void Find(XssType type, std::string_view last);

  std::string_view text_;
  const InjectionLibrary& library_;
  const XssKinds kinds_;
  CNamedTags named_{text_};
  XssFinding finding_;
  std::size_t tag_begin_ = 0;
  bool in_tag_ = false;    // not in one of the page
  bool in_image_ = false;  // the tag is one whose "data:" URLs run nothing
  bool in_event_ = false;  // an event attribute stands before this one
  bool passed_over_tags_ = false;
};

}  // namespace qiv

// One rule of the signature library and the pattern language it is written in.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace qiv {

/// In the order in which the library tries its rules.
enum class PatternKind : std::uint8_t {
  kPlain,         ///< one term
  kAllOf,         ///< "a++b": every term, in any order
  kExcluding,     ///< "a++b--c--d": every term of the first piece, none of the others; "a!!b--c": in this order
  kSequence,      ///< "a!!b": the terms in this order, at any distance
  kNearSequence,  ///< "a!b": in this order, each at most a few bytes behind the one before
};

/// What a rule is called, in GBK; one text may stand for both languages.
struct SignatureName {
  std::string english;
  std::string chinese;

  /// As a record carries it: one text, or both divided by a tab.
  std::string Text() const;
  static SignatureName FromText(std::string_view text);

  bool operator==(const SignatureName&) const = default;
};

/// Terms are lower-cased, without blanks and tabs, like the texts they are held against. Never empty.
struct SignatureRule {
  PatternKind kind = PatternKind::kPlain;
  std::vector<std::string> terms;     ///< required; a rule without any never hits
  std::vector<std::string> excluded;  ///< of kExcluding
  bool in_order = false;              ///< the terms count in their order: sequences, and exclusions from one
  SignatureName name;                 ///< empty when its library gives it none
  std::uint32_t number = 0;           ///< rule kind number: 4 PHP, 5 ASP and ASPX
  std::uint32_t size_limit = 0;       ///< bytes; longer texts are spared; 0: no limit

  bool operator==(const SignatureRule&) const = default;
};

/// Kind and terms of `pattern`; the first operator present in the order "--", "++", "!!", "!" decides. Empty pieces are
/// left out. Name and numbers stay at their defaults.
SignatureRule ParseSignaturePattern(std::string_view pattern);

/// The first "--" of `pattern` at or after `from` that divides it, or npos. The one of "<!--" belongs to its term.
std::size_t FindExclusion(std::string_view pattern, std::size_t from = 0);

/// The form in which texts are held against the library: without blanks and tabs, "A"-"Z" lower-cased; trail bytes of
/// double-byte characters are kept as they are.
std::string BlankFreeLower(std::string_view text);

/// The place in `text` of what stands as `term` in its form `copy`; the first, without length when there is none.
TextPlace PlaceInBlanks(std::string_view text, std::string_view copy, std::string_view term);

}  // namespace qiv

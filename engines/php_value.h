// What the analysis of a PHP file knows of a value without running anything.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qiv {

/// Where a value comes from; a set of bits.
enum PhpOrigin : std::uint32_t {
  kFromRequest = 1U << 0,    ///< the request has a part in it
  kWholeRequest = 1U << 1,   ///< it begins with what the request says
  kFromUpload = 1U << 2,     ///< $_FILES
  kFromNetwork = 1U << 3,    ///< fetched from another host
  kDecoded = 1U << 4,        ///< went through a decoder
  kComputed = 1U << 5,       ///< put together in a way that hides its text
  kArrayLiteral = 1U << 6,   ///< array(...) or [...]
  kScriptTarget = 1U << 7,   ///< a file handle open for a script
  kNeverAssigned = 1U << 8,  ///< a variable the file does not assign
  kClosure = 1U << 9,        ///< an anonymous function
  kTempUpload = 1U << 10,    ///< the name of an uploaded temporary file
};

/// The way in which a text was hidden; the first one that was met.
enum class HidingWay : std::uint8_t {
  kNone,
  kConcatenation,
  kCharacters,  // escapes, single characters of a string, exclusive or
  kUrl,
  kReplacement,
  kReversed,
  kCharacterCodes,
  kBase64,
  kOther,
};

struct PhpArray;

/// Copies share text and elements.
struct PhpValue {
  std::uint32_t origin = 0;
  HidingWay way = HidingWay::kNone;
  bool is_number = false;
  std::int64_t number = 0;
  std::shared_ptr<std::string> text;  ///< changed in place only where nobody else holds it
  std::shared_ptr<PhpArray> array;
  std::uint32_t function = 0;  ///< of a closure: its number + 1

  bool HasText() const { return text != nullptr; }
  bool Has(std::uint32_t origins) const { return (origin & origins) != 0; }
  std::string_view Text() const { return text ? std::string_view(*text) : std::string_view{}; }

  static PhpValue OfText(std::string value, std::uint32_t origin = 0, HidingWay way = HidingWay::kNone);
  static PhpValue OfNumber(std::int64_t value);
  /// Origins and way of another value, without its content.
  PhpValue Taint() const;
  /// Adds the other's origins (and way, if there is none yet).
  void Join(const PhpValue& other);
};

/// Whether one of the values has one of the origins.
inline bool AnyHas(std::span<const PhpValue> values, std::uint32_t origins) {
  return std::any_of(values.begin(), values.end(), [origins](const PhpValue& value) { return value.Has(origins); });
}

/// Arrays hold each other to a fixed depth: freeing one descends into those it holds.
struct PhpArray : std::vector<std::pair<std::string, PhpValue>> {
  static constexpr int kDeepest = 8;  ///< what stands deeper inside is not followed
  int depth = 1;

  /// Adds an element; of an array that would stand too deep the origins alone.
  void Add(std::string key, const PhpValue& value);
  void Set(PhpValue* element, const PhpValue& value);
};

}  // namespace qiv

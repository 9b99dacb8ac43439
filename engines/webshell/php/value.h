// What the analysis of a PHP file knows of a value without running anything.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/php/names.h"

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
  kServerList = 1U << 11,    ///< $_SERVER as a whole: what the client wrote is among its elements
  kOwnFile = 1U << 12,       ///< the path of the file itself
  kRemotePath = 1U << 13,    ///< a text that begins with the address of another host
  kEscaped = 1U << 15,       ///< letters of it were written as escapes
  kDerived = 1U << 16,       ///< some function made it of what the request says
  kHostFacts = 1U << 14,     ///< where the file lies and under which name the host is reached
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
struct PhpBytes;
void FreePhp(PhpArray* array);
void FreePhp(PhpBytes* bytes);

/// A share in something that counts its holders in `holders`. Of one scan, and so of one thread.
template <typename T>
class CPhpShare {
 public:
  CPhpShare() = default;
  explicit CPhpShare(T* made) : at_(made) { ++at_->holders; }
  CPhpShare(const CPhpShare& other) : at_(other.at_) {
    if (at_ != nullptr) ++at_->holders;
  }
  CPhpShare(CPhpShare&& other) noexcept : at_(std::exchange(other.at_, nullptr)) {}
  CPhpShare& operator=(CPhpShare other) noexcept {
    std::swap(at_, other.at_);
    return *this;
  }
  ~CPhpShare() {
    if (at_ != nullptr && --at_->holders == 0) FreePhp(at_);
  }

  explicit operator bool() const { return at_ != nullptr; }
  T* operator->() const { return at_; }
  T& operator*() const { return *at_; }
  bool IsOnly() const { return at_ != nullptr && at_->holders == 1; }

 private:
  T* at_ = nullptr;
};

struct PhpBytes {
  explicit PhpBytes(std::string text) : bytes(std::move(text)) {}

  std::string bytes;
  std::uint32_t holders = 0;
  CHeldRoom held;
};

/// A constant text: a view of the source, which costs nothing, or shared bytes.
class CPhpText {
 public:
  CPhpText() = default;
  explicit CPhpText(std::string text) : bytes_(new PhpBytes(std::move(text))) { View(bytes_->bytes); }
  /// Of bytes that stay longer than every value: the source, the program's own.
  static CPhpText Lasting(std::string_view text) {
    CPhpText lasting;
    lasting.View(text);
    return lasting;
  }

  explicit operator bool() const { return data_ != nullptr; }
  operator std::string_view() const { return {data_, size_}; }
  /// Nobody else holds these bytes: they can be added to in place.
  bool IsOnly() const { return bytes_.IsOnly(); }
  void Append(std::string_view more) {  // only when IsOnly()
    bytes_->bytes += more;
    View(bytes_->bytes);
  }
  /// Holds room for its bytes, if they are its own.
  void Hold(CFlowBudget* budget) {
    if (bytes_) bytes_->held.Set(budget, RoomFor(bytes_->bytes.capacity()));
  }
  /// What a text of its own of that many bytes takes.
  static constexpr std::size_t RoomFor(std::size_t bytes) { return sizeof(PhpBytes) + 16 + bytes; }

 private:
  void View(std::string_view text) {
    data_ = text.data() != nullptr ? text.data() : "";
    size_ = static_cast<std::uint32_t>(text.size());
  }

  const char* data_ = nullptr;
  CPhpShare<PhpBytes> bytes_;
  std::uint32_t size_ = 0;
};

/// Copies share text and elements.
struct PhpValue {
  [[no_unique_address]] CPhpText text;  // the next one fills it up
  std::uint32_t origin = 0;
  CPhpShare<PhpArray> array;
  std::int64_t number = 0;
  std::uint32_t function = 0;  ///< of a closure: its number + 1
  HidingWay way = HidingWay::kNone;
  bool is_number = false;

  bool HasText() const { return static_cast<bool>(text); }
  bool Has(std::uint32_t origins) const { return (origin & origins) != 0; }
  std::string_view Text() const { return text; }

  static PhpValue OfText(std::string value, std::uint32_t origin = 0, HidingWay way = HidingWay::kNone);
  static PhpValue OfLasting(std::string_view value);
  /// A text of one byte.
  static PhpValue OfByte(char value, std::uint32_t origin, HidingWay way);
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
struct PhpArray {
  static constexpr int kDeepest = 8;  ///< what stands deeper inside is not followed

  std::vector<std::pair<PhpName, PhpValue>> elements;
  std::uint32_t holders = 0;
  int depth = 1;
  CHeldRoom held;

  /// What an array of that many elements takes.
  static constexpr std::size_t RoomFor(std::size_t count) {
    return sizeof(PhpArray) + 16 + count * sizeof(std::pair<PhpName, PhpValue>);
  }
  void Hold(CFlowBudget* budget) { held.Set(budget, RoomFor(elements.capacity())); }

  std::size_t size() const { return elements.size(); }
  auto begin() const { return elements.begin(); }
  auto end() const { return elements.end(); }
  const std::pair<PhpName, PhpValue>& operator[](std::size_t at) const { return elements[at]; }

  /// The element of that key, or null. Looks through them.
  const PhpValue* Find(PhpName key) const;
  /// Adds an element; of an array that would stand too deep the origins alone.
  void Add(PhpName key, const PhpValue& value);
  void Set(PhpValue* element, const PhpValue& value);
};

}  // namespace qiv

// JSON values: reading (RFC 8259), looking up, building and writing.
//
// Limits and choices: nesting up to 64; of equal keys the last value counts, at the place of the first; members keep
// their order; numbers keep their literal text. Nothing here recurses on its input, destruction included, and the work
// is linear in it (n log n in the members of one object). Values are not synchronised: build, then only read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qiv {

inline constexpr std::size_t kJsonMaxDepth = 64;

enum class JsonType { kObject, kArray, kString, kNumber, kBoolean, kNull };

class JsonObject;
class JsonArray;
class JsonString;
class JsonNumber;
class JsonBoolean;

/// One value of a tree. A tree owns its values; pointers handed out live as long as the tree is not changed there.
class IJsonValue {
 public:
  virtual ~IJsonValue();
  IJsonValue(const IJsonValue&) = delete;
  IJsonValue& operator=(const IJsonValue&) = delete;

  virtual JsonType Type() const = 0;

  /// Byte position in the parsed text where the value begins; 0 for a value that was built.
  std::size_t Offset() const { return offset_; }
  void SetOffset(std::size_t offset) { offset_ = offset; }

  /// Each gives the value as its class, or null when it is of another type.
  const JsonObject* AsObject() const;
  const JsonArray* AsArray() const;
  const JsonString* AsString() const;
  const JsonNumber* AsNumber() const;
  const JsonBoolean* AsBoolean() const;

  /// A string's content, a number as it was written, "true" or "false"; empty for null, objects and arrays.
  std::string Text() const;

 protected:
  IJsonValue() = default;

 private:
  std::size_t offset_ = 0;
};

/// What objects and arrays share: destruction level by level without recursion or allocation.
class JsonContainer : public IJsonValue {
 protected:
  /// Takes every child container out of this one and puts it in front of the chain.
  virtual void DetachContainers(JsonContainer** chain) = 0;
  static void Chain(std::unique_ptr<IJsonValue>* child, JsonContainer** chain);
  static void DestroyChain(JsonContainer* chain);

 private:
  JsonContainer* next_ = nullptr;  // used during destruction only
};

class JsonObject final : public JsonContainer {
 public:
  using Member = std::pair<const std::string, std::unique_ptr<IJsonValue>>;

  ~JsonObject() override;
  JsonType Type() const override { return JsonType::kObject; }

  std::size_t Size() const { return order_.size(); }
  /// In the order of first appearance.
  const std::vector<const Member*>& Members() const { return order_; }

  /// Null when there is no such key.
  const IJsonValue* Find(std::string_view key) const;
  /// Text() of the member, empty when there is none.
  std::string GetText(std::string_view key) const;

  /// Adds a member or replaces its value; false when it replaced one.
  bool Set(std::string key, std::unique_ptr<IJsonValue> value);
  void SetText(std::string key, std::string text);

 private:
  void DetachContainers(JsonContainer** chain) override;

  std::map<std::string, std::unique_ptr<IJsonValue>, std::less<>> by_key_;
  std::vector<const Member*> order_;
};

class JsonArray final : public JsonContainer {
 public:
  ~JsonArray() override;
  JsonType Type() const override { return JsonType::kArray; }

  std::size_t Size() const { return items_.size(); }
  const std::vector<std::unique_ptr<IJsonValue>>& Items() const { return items_; }
  void Append(std::unique_ptr<IJsonValue> value) { items_.push_back(std::move(value)); }

 private:
  void DetachContainers(JsonContainer** chain) override;

  std::vector<std::unique_ptr<IJsonValue>> items_;
};

class JsonString final : public IJsonValue {
 public:
  explicit JsonString(std::string value) : value_(std::move(value)) {}
  JsonType Type() const override { return JsonType::kString; }
  /// UTF-8, with the escapes resolved; may hold zero bytes ("\u0000").
  const std::string& Value() const { return value_; }

 private:
  std::string value_;
};

class JsonNumber final : public IJsonValue {
 public:
  explicit JsonNumber(std::int64_t value);
  /// `literal` must be a number in JSON's grammar.
  explicit JsonNumber(std::string literal) : literal_(std::move(literal)) {}
  JsonType Type() const override { return JsonType::kNumber; }
  /// As it was written: "10", "1e3".
  const std::string& Literal() const { return literal_; }
  /// The value when it is a whole number that fits; nothing for 1.5 or 1e30. "1e3" and "10.0" are whole.
  std::optional<std::int64_t> ToInt64() const;
  /// The nearest double; infinite when beyond its range.
  double ToDouble() const;

 private:
  std::string literal_;
};

class JsonBoolean final : public IJsonValue {
 public:
  explicit JsonBoolean(bool value) : value_(value) {}
  JsonType Type() const override { return JsonType::kBoolean; }
  bool Value() const { return value_; }

 private:
  bool value_;
};

class JsonNull final : public IJsonValue {
 public:
  JsonType Type() const override { return JsonType::kNull; }
};

/// Why a text is no JSON: where (bytes from its start) and what, in English, as in "expected ',' or '}'".
struct JsonError {
  std::size_t offset = 0;
  std::string message;
};

/// A key that an object had already: which, and where its two values begin (bytes from the start of the text).
struct JsonDuplicate {
  std::string key;
  std::size_t first = 0;
  std::size_t second = 0;
};

/// Reads one value with nothing but white space around it (a leading UTF-8 byte order mark is skipped). Null, with
/// `error` (when given) filled in, when the text is no JSON; strings must be valid UTF-8, and an escaped surrogate must
/// come in a pair. `duplicates`, when given, gets every key that replaced another.
std::unique_ptr<IJsonValue> ParseJson(std::string_view text, JsonError* error = nullptr,
                                      std::vector<JsonDuplicate>* duplicates = nullptr);

/// Line of a byte offset, counted from 1.
std::size_t JsonLine(std::string_view text, std::size_t offset);

/// The value as JSON text, UTF-8: on one line when `indent` is 0, else one member a line, indented by that many blanks
/// a level. Without a line end at the end.
std::string WriteJson(const IJsonValue& value, std::size_t indent = 0);

/// Appends `text` as a JSON string with its quotes. Invalid UTF-8 becomes U+FFFD, one for each byte, so that the output
/// is always valid. Control bytes, U+2028 and U+2029 are escaped.
void AppendJsonString(std::string_view text, std::string* out);

}  // namespace qiv

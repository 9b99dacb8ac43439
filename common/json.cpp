#include "common/json.h"

#include <charconv>
#include <limits>
#include <system_error>

namespace qiv {
namespace {

bool IsDigitByte(char c) { return c >= '0' && c <= '9'; }

// What a number's literal comes to: digits * 10^exponent, without leading and trailing zeros in the digits.
struct Decimal {
  bool negative = false;
  std::string digits;
  std::int64_t exponent = 0;
};

Decimal ReadDecimal(std::string_view literal) {
  constexpr std::int64_t kExponentLimit = 1'000'000'000'000'000;  // beyond the length of any literal in memory
  Decimal value;
  std::size_t pos = 0;
  if (pos < literal.size() && literal[pos] == '-') {
    value.negative = true;
    ++pos;
  }
  bool fraction = false;
  for (; pos < literal.size() && (IsDigitByte(literal[pos]) || literal[pos] == '.'); ++pos) {
    if (literal[pos] == '.') {
      fraction = true;
      continue;
    }
    if (!value.digits.empty() || literal[pos] != '0') value.digits.push_back(literal[pos]);
    if (fraction) --value.exponent;
  }
  if (pos < literal.size() && (literal[pos] == 'e' || literal[pos] == 'E')) {
    ++pos;
    const bool down = pos < literal.size() && literal[pos] == '-';
    if (pos < literal.size() && (literal[pos] == '-' || literal[pos] == '+')) ++pos;
    std::int64_t exponent = 0;
    for (; pos < literal.size() && IsDigitByte(literal[pos]); ++pos) {
      if (exponent < kExponentLimit) exponent = exponent * 10 + (literal[pos] - '0');
    }
    value.exponent += down ? -exponent : exponent;
  }
  while (!value.digits.empty() && value.digits.back() == '0') {
    value.digits.pop_back();
    ++value.exponent;
  }
  return value;
}

}  // namespace

IJsonValue::~IJsonValue() = default;

const JsonObject* IJsonValue::AsObject() const {
  return Type() == JsonType::kObject ? static_cast<const JsonObject*>(this) : nullptr;
}

const JsonArray* IJsonValue::AsArray() const {
  return Type() == JsonType::kArray ? static_cast<const JsonArray*>(this) : nullptr;
}

const JsonString* IJsonValue::AsString() const {
  return Type() == JsonType::kString ? static_cast<const JsonString*>(this) : nullptr;
}

const JsonNumber* IJsonValue::AsNumber() const {
  return Type() == JsonType::kNumber ? static_cast<const JsonNumber*>(this) : nullptr;
}

const JsonBoolean* IJsonValue::AsBoolean() const {
  return Type() == JsonType::kBoolean ? static_cast<const JsonBoolean*>(this) : nullptr;
}

std::string IJsonValue::Text() const {
  switch (Type()) {
    case JsonType::kString:
      return AsString()->Value();
    case JsonType::kNumber:
      return AsNumber()->Literal();
    case JsonType::kBoolean:
      return AsBoolean()->Value() ? "true" : "false";
    default:
      return {};
  }
}

void JsonContainer::Chain(std::unique_ptr<IJsonValue>* child, JsonContainer** chain) {
  if (*child == nullptr || ((*child)->Type() != JsonType::kObject && (*child)->Type() != JsonType::kArray)) return;
  auto* container = static_cast<JsonContainer*>(child->release());
  container->next_ = *chain;
  *chain = container;
}

void JsonContainer::DestroyChain(JsonContainer* chain) {
  while (chain != nullptr) {
    const std::unique_ptr<JsonContainer> first(chain);
    chain = first->next_;
    first->DetachContainers(&chain);  // so that its destruction finds no container below it
  }
}

JsonObject::~JsonObject() {
  JsonContainer* chain = nullptr;
  JsonObject::DetachContainers(&chain);
  DestroyChain(chain);
}

const IJsonValue* JsonObject::Find(std::string_view key) const {
  const auto found = by_key_.find(key);
  return found == by_key_.end() ? nullptr : found->second.get();
}

std::string JsonObject::GetText(std::string_view key) const {
  const IJsonValue* value = Find(key);
  return value == nullptr ? std::string() : value->Text();
}

bool JsonObject::Set(std::string key, std::unique_ptr<IJsonValue> value) {
  const auto [member, added] = by_key_.try_emplace(std::move(key));
  if (added) order_.push_back(&*member);
  member->second = std::move(value);
  return added;
}

void JsonObject::SetText(std::string key, std::string text) {
  Set(std::move(key), std::make_unique<JsonString>(std::move(text)));
}

void JsonObject::DetachContainers(JsonContainer** chain) {
  for (auto& member : by_key_) Chain(&member.second, chain);
}

JsonArray::~JsonArray() {
  JsonContainer* chain = nullptr;
  JsonArray::DetachContainers(&chain);
  DestroyChain(chain);
}

void JsonArray::DetachContainers(JsonContainer** chain) {
  for (auto& item : items_) Chain(&item, chain);
}

JsonNumber::JsonNumber(std::int64_t value) : literal_(std::to_string(value)) {}

std::optional<std::int64_t> JsonNumber::ToInt64() const {
  constexpr std::size_t kMostDigits = 19;
  const Decimal value = ReadDecimal(literal_);
  if (value.digits.empty()) return 0;
  if (value.exponent < 0 || value.exponent > static_cast<std::int64_t>(kMostDigits)) return std::nullopt;
  std::string whole(value.negative ? 1 : 0, '-');
  whole.append(value.digits).append(static_cast<std::size_t>(value.exponent), '0');
  std::int64_t result = 0;
  const auto read = std::from_chars(whole.data(), whole.data() + whole.size(), result);
  if (read.ec != std::errc()) return std::nullopt;
  return result;
}

double JsonNumber::ToDouble() const {
  double result = 0;
  const auto read = std::from_chars(literal_.data(), literal_.data() + literal_.size(), result);
  if (read.ec != std::errc::result_out_of_range) return result;
  const Decimal value = ReadDecimal(literal_);
  const bool huge = value.exponent + static_cast<std::int64_t>(value.digits.size()) > 0;
  const double magnitude = huge ? std::numeric_limits<double>::infinity() : 0.0;
  return value.negative ? -magnitude : magnitude;
}

std::size_t JsonLine(std::string_view text, std::size_t offset) {
  std::size_t line = 1;
  for (const char c : text.substr(0, offset)) line += c == '\n';
  return line;
}

}  // namespace qiv

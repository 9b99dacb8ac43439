#include "engines/webshell/php/value.h"

#include <array>
#include <memory>

namespace qiv {

void FreePhp(PhpArray* array) { delete array; }
void FreePhp(PhpBytes* bytes) { delete bytes; }

PhpValue PhpValue::OfText(std::string value, std::uint32_t origin, HidingWay way) {
  PhpValue result;
  result.origin = origin;
  result.way = way;
  result.text = CPhpText(std::move(value));
  return result;
}

PhpValue PhpValue::OfLasting(std::string_view value) {
  PhpValue result;
  result.text = CPhpText::Lasting(value);
  return result;
}

PhpValue PhpValue::OfByte(char value, std::uint32_t origin, HidingWay way) {
  static const std::array<char, 256> kBytes = [] {
    std::array<char, 256> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
    return bytes;
  }();
  PhpValue result = OfLasting({&kBytes[static_cast<unsigned char>(value)], 1});
  result.origin = origin;
  result.way = way;
  return result;
}

PhpValue PhpValue::OfNumber(std::int64_t value) {
  PhpValue result;
  result.is_number = true;
  result.number = value;
  return result;
}

PhpValue PhpValue::Taint() const {
  PhpValue result;
  result.origin = origin;
  result.way = way;
  return result;
}

void PhpValue::Join(const PhpValue& other) {
  origin |= other.origin;
  if (way == HidingWay::kNone) way = other.way;
}

const PhpValue* PhpArray::Find(PhpName key) const {
  const auto found = std::find_if(elements.begin(), elements.end(), [key](const auto& e) { return e.first == key; });
  return found == elements.end() ? nullptr : &found->second;
}

void PhpArray::Set(PhpValue* element, const PhpValue& value) {
  const int below = value.array ? value.array->depth : 0;
  *element = below < kDeepest ? value : value.Taint();
  if (below < kDeepest) depth = std::max(depth, below + 1);
}

void PhpArray::Add(PhpName key, const PhpValue& value) { Set(&elements.emplace_back(key, PhpValue()).second, value); }

}  // namespace qiv

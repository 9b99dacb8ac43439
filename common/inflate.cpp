#include "common/inflate.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace qiv {
namespace {

constexpr int kMaxBits = 15;
constexpr int kLengthCodes = 288;
constexpr int kDistanceCodes = 30;
// RFC 1951, 3.2.5.
constexpr std::array<std::uint16_t, 29> kLengthBase = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                                       31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<std::uint8_t, 29> kLengthExtra = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                       2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<std::uint16_t, 30> kDistanceBase = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                                         33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                                         1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr std::array<std::uint8_t, 30> kDistanceExtra = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                                         6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
constexpr std::array<std::uint8_t, 19> kCodeOrder = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

// Canonical code: how many codes of each length, and the symbols in order of their codes.
struct Huffman {
  std::array<std::uint16_t, kMaxBits + 1> count{};
  std::array<std::uint16_t, kLengthCodes> symbol{};

  void Build(const std::uint8_t* lengths, int size) {
    count.fill(0);
    for (int i = 0; i < size; ++i) ++count[lengths[i]];
    count[0] = 0;
    std::array<std::uint16_t, kMaxBits + 2> offset{};
    for (int bits = 1; bits <= kMaxBits; ++bits)
      offset[bits + 1] = static_cast<std::uint16_t>(offset[bits] + count[bits]);
    for (int i = 0; i < size; ++i) {
      if (lengths[i] != 0) symbol[offset[lengths[i]]++] = static_cast<std::uint16_t>(i);
    }
  }
};

class CInflater {
 public:
  CInflater(std::string_view data, std::size_t limit) : data_(data), limit_(limit) {}

  std::string Run() {
    bool last = false;
    while (!last && good_ && output_.size() < limit_) {
      last = Bits(1) != 0;
      switch (Bits(2)) {
        case 0:
          Stored();
          break;
        case 1:
          Fixed();
          break;
        case 2:
          Dynamic();
          break;
        default:
          good_ = false;
      }
    }
    return std::move(output_);
  }

 private:
  std::uint32_t Bits(int count) {
    while (bit_count_ < count) {
      if (at_ == data_.size()) {
        good_ = false;
        return 0;
      }
      bits_ |= static_cast<std::uint32_t>(static_cast<unsigned char>(data_[at_++])) << bit_count_;
      bit_count_ += 8;
    }
    const std::uint32_t value = bits_ & ((1U << count) - 1);
    bits_ >>= count;
    bit_count_ -= count;
    return value;
  }

  int Symbol(const Huffman& code) {
    int value = 0;
    int first = 0;
    int index = 0;
    for (int bits = 1; bits <= kMaxBits; ++bits) {
      value |= static_cast<int>(Bits(1));
      if (!good_) return -1;
      const int count = code.count[bits];
      if (value - count < first) return code.symbol[index + (value - first)];
      index += count;
      first = (first + count) << 1;
      value <<= 1;
    }
    good_ = false;
    return -1;
  }

  void Stored() {
    bits_ = 0;
    bit_count_ = 0;
    if (data_.size() - at_ < 4) {
      good_ = false;
      return;
    }
    const std::size_t length = static_cast<unsigned char>(data_[at_]) |
                               static_cast<std::size_t>(static_cast<unsigned char>(data_[at_ + 1])) << 8;
    at_ += 4;
    const std::string_view piece = data_.substr(at_, std::min(length, limit_ - output_.size()));
    output_.append(piece);
    at_ += piece.size();
    good_ = piece.size() == length;
  }

  void Fixed() {
    std::array<std::uint8_t, kLengthCodes> lengths{};
    for (int i = 0; i < kLengthCodes; ++i) lengths[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
    length_.Build(lengths.data(), kLengthCodes);
    lengths.fill(5);
    distance_.Build(lengths.data(), kDistanceCodes);
    Codes();
  }

  void Dynamic() {
    const int lengths_used = static_cast<int>(Bits(5)) + 257;
    const int distances_used = static_cast<int>(Bits(5)) + 1;
    const int codes_used = static_cast<int>(Bits(4)) + 4;
    std::array<std::uint8_t, 320> lengths{};
    for (int i = 0; i < codes_used; ++i) lengths[kCodeOrder[i]] = static_cast<std::uint8_t>(Bits(3));
    length_.Build(lengths.data(), static_cast<int>(kCodeOrder.size()));
    lengths.fill(0);
    const int total = lengths_used + distances_used;
    for (int i = 0; i < total && good_;) {
      const int symbol = Symbol(length_);
      int repeat = 1;
      std::uint8_t value = 0;
      if (symbol < 16) {
        value = static_cast<std::uint8_t>(std::max(symbol, 0));
      } else if (symbol == 16) {
        good_ &= i > 0;
        value = i > 0 ? lengths[i - 1] : 0;
        repeat = 3 + static_cast<int>(Bits(2));
      } else {
        repeat = symbol == 17 ? 3 + static_cast<int>(Bits(3)) : 11 + static_cast<int>(Bits(7));
      }
      good_ &= i + repeat <= total;
      for (; repeat > 0 && good_; --repeat) lengths[i++] = value;
    }
    if (!good_ || lengths_used > kLengthCodes) {
      good_ = false;
      return;
    }
    length_.Build(lengths.data(), lengths_used);
    distance_.Build(lengths.data() + lengths_used, distances_used);
    Codes();
  }

  void Codes() {
    while (good_ && output_.size() < limit_) {
      const int symbol = Symbol(length_);
      if (symbol < 0 || symbol == 256) return;
      if (symbol < 256) {
        output_ += static_cast<char>(symbol);
        continue;
      }
      Copy(symbol - 257);
    }
  }

  void Copy(int code) {
    if (code >= static_cast<int>(kLengthBase.size())) {
      good_ = false;
      return;
    }
    std::size_t length = kLengthBase[code] + Bits(kLengthExtra[code]);
    const int distance_code = Symbol(distance_);
    if (distance_code < 0 || distance_code >= kDistanceCodes) {
      good_ = false;
      return;
    }
    const std::size_t distance = kDistanceBase[distance_code] + Bits(kDistanceExtra[distance_code]);
    if (!good_ || distance > output_.size()) {
      good_ = false;
      return;
    }
    for (; length > 0 && output_.size() < limit_; --length) output_ += output_[output_.size() - distance];
  }

  std::string_view data_;
  std::size_t limit_;
  std::size_t at_ = 0;
  std::uint32_t bits_ = 0;
  int bit_count_ = 0;
  bool good_ = true;
  std::string output_;
  Huffman length_;
  Huffman distance_;
};

// Bytes of the gzip header (RFC 1952), or npos.
std::size_t GzipHeader(std::string_view data) {
  if (data.size() < 10 || data[0] != '\x1f' || data[1] != '\x8b') return std::string_view::npos;
  const auto flags = static_cast<unsigned char>(data[3]);
  std::size_t at = 10;
  if ((flags & 4) != 0) {
    if (data.size() < at + 2) return std::string_view::npos;
    at += 2 + static_cast<unsigned char>(data[at]) + std::size_t{static_cast<unsigned char>(data[at + 1])} * 256;
  }
  for (const int flag : {8, 16}) {  // name, comment
    if ((flags & flag) == 0) continue;
    at = at < data.size() ? data.find('\0', at) : std::string_view::npos;
    if (at == std::string_view::npos) return at;
    ++at;
  }
  if ((flags & 2) != 0) at += 2;
  return at < data.size() ? at : std::string_view::npos;
}

}  // namespace

std::string Inflate(std::string_view data, DeflateWrap wrap, std::size_t limit) {
  std::size_t header = 0;
  if (wrap == DeflateWrap::kZlib) {
    header = data.size() > 2 ? 2 : std::string_view::npos;
  } else if (wrap == DeflateWrap::kGzip) {
    header = GzipHeader(data);
  }
  if (header == std::string_view::npos) return {};
  return CInflater(data.substr(header), limit).Run();
}

}  // namespace qiv

#include "common/aes.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

#include "base/hex.h"

namespace qiv {
namespace {

// Tables of FIPS-197, computed by the compiler. kEncryptTable[0] holds for each byte its S-box value times the first
// column of MixColumns (2 1 1 3), the other three the same rotated, so that a round is four look-ups a column;
// kDecryptTable likewise for the inverse cipher (14 9 13 11).
using ByteTable = std::array<std::uint8_t, 256>;
using WordTables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr std::uint8_t Times2(std::uint8_t x) {
  return static_cast<std::uint8_t>(x << 1 ^ ((x & 0x80) != 0 ? 0x1B : 0));
}

constexpr std::uint8_t Multiply(std::uint8_t a, std::uint8_t b) {
  std::uint8_t product = 0;
  for (; b != 0; b = static_cast<std::uint8_t>(b >> 1), a = Times2(a)) {
    if ((b & 1) != 0) product ^= a;
  }
  return product;
}

consteval ByteTable MakeSbox() {
  ByteTable sbox{};
  std::uint8_t p = 1;  // runs through all powers of 3, q through their inverses
  std::uint8_t q = 1;
  do {
    p = static_cast<std::uint8_t>(p ^ Times2(p));
    q = static_cast<std::uint8_t>(q ^ q << 1);
    q = static_cast<std::uint8_t>(q ^ q << 2);
    q = static_cast<std::uint8_t>(q ^ q << 4);
    if ((q & 0x80) != 0) q ^= 0x09;
    std::uint8_t affine = 0x63;
    for (int shift = 0; shift < 5; ++shift) affine ^= static_cast<std::uint8_t>(q << shift | q >> (8 - shift));
    sbox[p] = affine;
  } while (p != 1);
  sbox[0] = 0x63;
  return sbox;
}

consteval ByteTable Inverse(const ByteTable& table) {
  ByteTable inverse{};
  for (std::size_t i = 0; i < 256; ++i) inverse[table[i]] = static_cast<std::uint8_t>(i);
  return inverse;
}

consteval WordTables MakeWordTables(const ByteTable& box, const std::array<std::uint8_t, 4>& column) {
  WordTables tables{};
  for (std::size_t i = 0; i < 256; ++i) {
    std::uint32_t word = 0;
    for (const std::uint8_t factor : column) word = word << 8 | Multiply(box[i], factor);
    for (auto& table : tables) {
      table[i] = word;
      word = word >> 8 | word << 24;
    }
  }
  return tables;
}

constexpr ByteTable kSbox = MakeSbox();
constexpr ByteTable kInverseSbox = Inverse(kSbox);
constexpr WordTables kEncryptTable = MakeWordTables(kSbox, {2, 1, 1, 3});
constexpr WordTables kDecryptTable = MakeWordTables(kInverseSbox, {14, 9, 13, 11});
constexpr std::array<std::uint8_t, 10> kRoundConstants = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1B, 0x36};
constexpr std::size_t kRounds = 10;

// What encrypt_text and decrypt_text use without a key; the firewall service holds the same.
constexpr std::string_view kBuiltInKey = "q7#Vx2!mRz9@Lw4$";
static_assert(kBuiltInKey.size() == CAES::kBlockSize);

using State = std::array<std::uint32_t, 4>;

constexpr std::size_t ByteOf(std::uint32_t word, int index) { return word >> (24 - 8 * index) & 0xFF; }

State LoadState(const std::uint8_t* block, const std::uint32_t* key) {
  State state;
  for (std::size_t c = 0; c < 4; ++c) {
    const std::uint8_t* b = block + 4 * c;
    state[c] = (static_cast<std::uint32_t>(b[0]) << 24 | static_cast<std::uint32_t>(b[1]) << 16 |
                static_cast<std::uint32_t>(b[2]) << 8 | b[3]) ^
               key[c];
  }
  return state;
}

// One direction of the cipher. `shift` is 1 when row r of a column comes from r columns further (ShiftRows), 3 for the
// inverse. Columns are template arguments so that the compiler keeps the state in registers.
template <std::size_t shift, std::size_t c>
std::uint32_t MixedColumn(const State& state, const WordTables& tables) {
  return tables[0][ByteOf(state[c], 0)] ^ tables[1][ByteOf(state[(c + shift) % 4], 1)] ^
         tables[2][ByteOf(state[(c + 2) % 4], 2)] ^ tables[3][ByteOf(state[(c + 3 * shift) % 4], 3)];
}

template <std::size_t shift, std::size_t c>
void StoreLastColumn(const State& state, const ByteTable& box, std::uint32_t key, std::uint8_t* block) {
  block[4 * c] = static_cast<std::uint8_t>(box[ByteOf(state[c], 0)] ^ ByteOf(key, 0));
  block[4 * c + 1] = static_cast<std::uint8_t>(box[ByteOf(state[(c + shift) % 4], 1)] ^ ByteOf(key, 1));
  block[4 * c + 2] = static_cast<std::uint8_t>(box[ByteOf(state[(c + 2) % 4], 2)] ^ ByteOf(key, 2));
  block[4 * c + 3] = static_cast<std::uint8_t>(box[ByteOf(state[(c + 3 * shift) % 4], 3)] ^ ByteOf(key, 3));
}

template <std::size_t shift>
void RunRounds(std::uint8_t* block, const std::uint32_t* keys, const WordTables& tables, const ByteTable& box) {
  State state = LoadState(block, keys);
  const std::uint32_t* key = keys + 4;
  for (std::size_t round = 1; round < kRounds; ++round, key += 4) {
    state = {MixedColumn<shift, 0>(state, tables) ^ key[0], MixedColumn<shift, 1>(state, tables) ^ key[1],
             MixedColumn<shift, 2>(state, tables) ^ key[2], MixedColumn<shift, 3>(state, tables) ^ key[3]};
  }
  StoreLastColumn<shift, 0>(state, box, key[0], block);
  StoreLastColumn<shift, 1>(state, box, key[1], block);
  StoreLastColumn<shift, 2>(state, box, key[2], block);
  StoreLastColumn<shift, 3>(state, box, key[3], block);
}

const CAES& BuiltInCipher() {
  static const CAES cipher(kBuiltInKey);
  return cipher;
}

constexpr unsigned kNoDigit = 255;

consteval std::array<std::uint8_t, 256> MakeDigitValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (unsigned i = 0; i < values.size(); ++i) {
    if (const int value = HexValue(static_cast<char>(i)); value >= 0) values[i] = static_cast<std::uint8_t>(value);
  }
  return values;
}

constexpr std::array<std::uint8_t, 256> kDigitValues = MakeDigitValues();

std::string EncryptWith(const CAES& cipher, std::string_view plain) {
  std::string hex;
  hex.reserve((plain.size() + CAES::kBlockSize - 1) / CAES::kBlockSize * CAES::kBlockSize * 2);
  for (std::size_t pos = 0; pos < plain.size(); pos += CAES::kBlockSize) {
    std::uint8_t block[CAES::kBlockSize] = {};
    std::memcpy(block, plain.data() + pos, std::min(CAES::kBlockSize, plain.size() - pos));
    cipher.EncryptBlock(block);
    char digits[2 * CAES::kBlockSize];
    for (std::size_t i = 0; i < CAES::kBlockSize; ++i) {
      digits[2 * i] = kHexDigits[block[i] >> 4];
      digits[2 * i + 1] = kHexDigits[block[i] & 0x0F];
    }
    hex.append(digits, sizeof(digits));
  }
  return hex;
}

std::string DecryptWith(const CAES& cipher, std::string_view hex) {
  const std::size_t bytes = hex.size() / 2;
  std::string plain;
  plain.reserve((bytes + CAES::kBlockSize - 1) / CAES::kBlockSize * CAES::kBlockSize);
  for (std::size_t pos = 0; pos < bytes; pos += CAES::kBlockSize) {
    std::uint8_t block[CAES::kBlockSize] = {};
    const std::size_t count = std::min(CAES::kBlockSize, bytes - pos);
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned high = kDigitValues[static_cast<unsigned char>(hex[2 * (pos + i)])];
      const unsigned low = kDigitValues[static_cast<unsigned char>(hex[2 * (pos + i) + 1])];
      block[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    cipher.DecryptBlock(block);
    const auto length = static_cast<std::size_t>(std::find(block, block + CAES::kBlockSize, 0) - block);
    plain.append(reinterpret_cast<const char*>(block), length);
    if (length != CAES::kBlockSize) break;
  }
  return plain;
}

}  // namespace

CAES::CAES(const char* key) {
  if (key == nullptr) throw std::invalid_argument("Key cannot be null");
  ExpandKey(key);
}

CAES::CAES(std::string_view key) { ExpandKey(key); }

CAES::~CAES() = default;

void CAES::ExpandKey(std::string_view key) {
  if (key.empty()) throw std::invalid_argument("Key cannot be empty");
  std::uint8_t first[kBlockSize] = {};
  std::memcpy(first, key.data(), std::min(key.size(), kBlockSize));
  const std::uint32_t zero[4] = {};
  const State words = LoadState(first, zero);
  std::copy(words.begin(), words.end(), encrypt_keys_.begin());
  const auto substitute = [](std::uint32_t word) {
    std::uint32_t result = 0;
    for (int i = 0; i < 4; ++i) result = result << 8 | kSbox[ByteOf(word, i)];
    return result;
  };
  for (std::size_t i = 4; i < kKeyWords; ++i) {
    std::uint32_t word = encrypt_keys_[i - 1];
    if (i % 4 == 0) {
      word = substitute(word << 8 | word >> 24) ^ static_cast<std::uint32_t>(kRoundConstants[i / 4 - 1]) << 24;
    }
    encrypt_keys_[i] = encrypt_keys_[i - 4] ^ word;
  }
  for (std::size_t round = 0; round <= kRounds; ++round) {
    for (std::size_t c = 0; c < 4; ++c) {
      std::uint32_t word = encrypt_keys_[4 * (kRounds - round) + c];
      if (round != 0 && round != kRounds) {
        // The decryption table applied to S-box values multiplies by the inverse column alone.
        word = kDecryptTable[0][kSbox[ByteOf(word, 0)]] ^ kDecryptTable[1][kSbox[ByteOf(word, 1)]] ^
               kDecryptTable[2][kSbox[ByteOf(word, 2)]] ^ kDecryptTable[3][kSbox[ByteOf(word, 3)]];
      }
      decrypt_keys_[4 * round + c] = word;
    }
  }
}

void CAES::EncryptBlock(std::uint8_t* block) const { RunRounds<1>(block, encrypt_keys_.data(), kEncryptTable, kSbox); }

void CAES::DecryptBlock(std::uint8_t* block) const {
  RunRounds<3>(block, decrypt_keys_.data(), kDecryptTable, kInverseSbox);
}

std::string encrypt_text(std::string_view key, std::string_view plain) {
  try {
    return key.empty() ? EncryptWith(BuiltInCipher(), plain) : EncryptWith(CAES(key), plain);
  } catch (const std::bad_alloc&) {
    return {};
  } catch (const std::length_error&) {
    return {};
  }
}

std::string DecryptOrThrow(std::string_view key, std::string_view hex) {
  return key.empty() ? DecryptWith(BuiltInCipher(), hex) : DecryptWith(CAES(key), hex);
}

std::string decrypt_text(std::string_view key, std::string_view hex) {
  try {
    return DecryptOrThrow(key, hex);
  } catch (const std::bad_alloc&) {
    return {};
  } catch (const std::length_error&) {
    return {};
  }
}

}  // namespace qiv

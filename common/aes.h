// AES-128 and the enciphered form of the configuration and exchange files.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiv {

/// One AES block cipher (FIPS-197) with a 128-bit key: 10 rounds, 11 round keys, expanded once. After construction it
/// is only read, so one object serves all threads.
class CAES {
 public:
  static constexpr std::size_t kBlockSize = 16;

  /// Key: the first 16 bytes of `key`, zero-filled when shorter. Throws std::invalid_argument "Key cannot be null" for
  /// a null pointer and "Key cannot be empty" for an empty text.
  explicit CAES(const char* key);
  /// The same for a key that may hold zero bytes ("Key cannot be empty" when its length is 0).
  explicit CAES(std::string_view key);
  virtual ~CAES();

  /// In place, 16 bytes.
  void EncryptBlock(std::uint8_t* block) const;
  void DecryptBlock(std::uint8_t* block) const;

 private:
  static constexpr std::size_t kKeyWords = 11 * kBlockSize / 4;

  void ExpandKey(std::string_view key);

  std::array<std::uint32_t, kKeyWords> encrypt_keys_;  // big-endian words
  std::array<std::uint32_t, kKeyWords> decrypt_keys_;  // the same in the inverse cipher's order, columns mixed back
};

/// Enciphers block by block (ECB, zero padding to a multiple of 16) and writes uppercase hexadecimal digits. `key`
/// empty selects the built-in key that the firewall service shares. A text that holds a zero byte ends there when it
/// is deciphered.
std::string encrypt_text(std::string_view key, std::string_view plain);

/// The reverse: hexadecimal digits of either case; the result ends at the first zero byte. A character that is no digit
/// counts as 255 in its nibble and yields wrong text, never a failure; a last digit without its pair is dropped.
///
/// Both are linear in the text; when memory does not suffice the result is empty.
std::string decrypt_text(std::string_view key, std::string_view hex);

/// The same, but std::bad_alloc is thrown when memory does not suffice: for who must tell that from an empty text.
std::string DecryptOrThrow(std::string_view key, std::string_view hex);

}  // namespace qiv

#include "checks/visitor_proof.h"

#include <algorithm>
#include <random>

#include "base/hex.h"
#include "common/text.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr std::size_t kKeyBytes = CAES::kBlockSize;
constexpr std::size_t kTimeDigits = 10;  // to the year 36812
constexpr std::size_t kNonceDigits = 16;
constexpr std::size_t kTagDigits = 2 * CAES::kBlockSize;

std::string HexText(std::uint64_t value, std::size_t digits) {
  std::string text(digits, '0');
  for (std::size_t i = digits; i-- > 0; value >>= 4) text[i] = kLowerHexDigits[value & 15];
  return text;
}

std::optional<std::int64_t> TimeOf(std::string_view digits) {
  std::int64_t value = 0;
  for (const char c : digits) {
    const int digit = HexValue(c);
    if (digit < 0) return std::nullopt;
    value = value * 16 + digit;
  }
  return value;
}

std::string KeyOf(std::string_view text) {
  std::string key;
  for (std::size_t i = 0; i + 1 < text.size() && key.size() < kKeyBytes; i += 2) {
    const int byte = HexNumber(text, i, 2);
    if (byte < 0) return {};
    key += static_cast<char>(byte);
  }
  return key.size() == kKeyBytes ? key : std::string();
}

std::string ReadKey(const std::string& path) {
  std::string text;
  if (ReadWholeFile(path, 4 * kKeyBytes, &text) != ReadFileResult::kOk) return {};
  return KeyOf(Trim(text));
}

std::string DrawnKey() {
  std::random_device source;  // the system's generator on every platform that we build for
  std::string key;
  while (key.size() < kKeyBytes) key += static_cast<char>(source());
  return key;
}

/// The key that the file holds, or that it holds now; empty when that cannot be had at the moment.
std::string LoadKey(const std::string& path) {
  if (std::string key = ReadKey(path); !key.empty()) return key;
  // Who holds the lock writes; the others find what was written the next time.
  const CFileLock lock(path + ".lock");
  if (!lock.Held()) return {};
  if (std::string key = ReadKey(path); !key.empty()) return key;
  return ReplaceFile(path, NewVisitorKey()) ? ReadKey(path) : std::string();
}

}  // namespace

std::string NewVisitorKey() {
  std::string text;
  for (const char byte : DrawnKey()) AppendHexByte(byte, &text);
  return text + "\n";
}

std::string CVisitorProofs::TagOf(std::string_view purpose, const CIpAddress& client, std::string_view text) const {
  std::string message(purpose);
  AppendAll(&message, {"|", ClientNetwork(client).Text(), "|", text});
  return TagText(cmac_.Of(message));
}

std::string CVisitorProofs::Make(ProofKind kind, const CIpAddress& client, std::int64_t end,
                                 std::string_view secret) const {
  const std::string time = HexText(static_cast<std::uint64_t>(end), kTimeDigits);
  return time + "." + TagOf(static_cast<char>(kind) + std::string(secret), client, time);
}

std::optional<std::int64_t> CVisitorProofs::Read(ProofKind kind, const CIpAddress& client, std::int64_t now,
                                                 std::string_view text, std::string_view secret) const {
  if (text.size() != kTimeDigits + 1 + kTagDigits || text[kTimeDigits] != '.') return std::nullopt;
  const std::string purpose = static_cast<char>(kind) + std::string(secret);
  const std::string_view time = text.substr(0, kTimeDigits);
  if (!EqualInConstantTime(text.substr(kTimeDigits + 1), TagOf(purpose, client, time))) return std::nullopt;
  const std::optional<std::int64_t> end = TimeOf(time);
  return end && *end > now ? end : std::nullopt;
}

std::string CVisitorProofs::MakePage(std::uint32_t page, const CIpAddress& client, std::int64_t now,
                                     std::uint64_t nonce) const {
  const std::string text = HexText(static_cast<std::uint64_t>(now), kTimeDigits) + HexText(nonce, kNonceDigits);
  return text + "." + TagOf("page" + std::to_string(page), client, text);
}

std::optional<PageToken> CVisitorProofs::ReadPage(std::uint32_t page, const CIpAddress& client, std::int64_t now,
                                                  std::string_view text) const {
  constexpr std::size_t kTextDigits = kTimeDigits + kNonceDigits;
  if (text.size() != kTextDigits + 1 + kTagDigits || text[kTextDigits] != '.') return std::nullopt;
  const std::string_view signed_part = text.substr(0, kTextDigits);
  const std::string purpose = "page" + std::to_string(page);
  if (!EqualInConstantTime(text.substr(kTextDigits + 1), TagOf(purpose, client, signed_part))) return std::nullopt;
  const std::optional<std::int64_t> issued = TimeOf(signed_part.substr(0, kTimeDigits));
  if (!issued || *issued > now || now - *issued > kPageLifetime) return std::nullopt;
  const int first = HexNumber(TagOf("answer" + std::to_string(page), client, signed_part), 0, 6);
  return PageToken{*issued, static_cast<std::uint32_t>(first) % kAnswers};
}

std::shared_ptr<const CVisitorProofs> CProofSource::At(std::int64_t now) {
  constexpr std::int64_t kPause = 2;  // seconds between two looks at a file that could not be used
  const CAutoLock lock(lock_);
  const bool due = now >= next_try_ || next_try_ - now > kPause;  // the latter: the clock was set back
  if (proofs_ != nullptr && (shared_ || !due)) return proofs_;
  next_try_ = now + kPause;
  if (const std::string key = path_.empty() ? std::string() : LoadKey(path_); !key.empty()) {
    shared_ = true;
    proofs_ = std::make_shared<const CVisitorProofs>(key);
  } else if (proofs_ == nullptr) {
    proofs_ = std::make_shared<const CVisitorProofs>(DrawnKey());
  }
  return proofs_;
}

bool CProofSource::IsShared() const {
  const CAutoLock lock(lock_);
  return shared_;
}

std::string_view CookieValue(std::string_view header, std::string_view name) {
  while (!header.empty()) {
    const std::size_t end = std::min(header.find(';'), header.size());
    const std::string_view piece = Trim(header.substr(0, end));
    if (piece.size() > name.size() && piece.starts_with(name) && piece[name.size()] == '=') {
      return piece.substr(name.size() + 1);
    }
    header.remove_prefix(std::min(end + 1, header.size()));
  }
  return {};
}

}  // namespace qiv

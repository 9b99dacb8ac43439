// What a client shows to prove that it passed a verification page or knows the authorization password, and the tokens
// of the pages themselves. All are texts of ASCII letters, digits and "." that carry an expiry and a keyed tag over it,
// over the client's network (an IPv6 client is its /64) and over what they are for: none works for another client,
// after its expiry, or in place of another kind.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/cmac.h"
#include "common/ip_address.h"
#include "port/critical_section.h"

namespace qiv {

/// What a proof stands for; its letter is part of what the tag covers.
enum class ProofKind : char {
  kVerified = 'v',    ///< passed a verification page
  kAuthorized = 'a',  ///< gave the authorization password
};

/// A verification page that a client was shown.
struct PageToken {
  std::int64_t issued;   ///< seconds since 1970
  std::uint32_t answer;  ///< 0 to kAnswers - 1: where the right picture stands; follows from the key, not from the text
};

/// Makes and reads them. Immutable after construction; thread safe. Reading takes any text.
class CVisitorProofs {
 public:
  static constexpr std::uint32_t kAnswers = 6;            ///< pictures on a page
  static constexpr std::int64_t kPageLifetime = 10 * 60;  ///< seconds that a page may be answered

  /// `key`: 16 random bytes, the same in all worker processes.
  explicit CVisitorProofs(std::string_view key) : cmac_(key) {}

  /// `secret`: what was known, where something had to be: a proof is worth nothing once it has changed.
  std::string Make(ProofKind kind, const CIpAddress& client, std::int64_t end, std::string_view secret = {}) const;
  /// The end of a proof that is genuine and in force at `now`.
  std::optional<std::int64_t> Read(ProofKind kind, const CIpAddress& client, std::int64_t now, std::string_view text,
                                   std::string_view secret = {}) const;

  /// `page`: the number of the kind of page. A page's token differs from the one before by `nonce`.
  std::string MakePage(std::uint32_t page, const CIpAddress& client, std::int64_t now, std::uint64_t nonce) const;
  std::optional<PageToken> ReadPage(std::uint32_t page, const CIpAddress& client, std::int64_t now,
                                    std::string_view text) const;

  /// Whether two texts are equal, in a time that says nothing of where they differ or how long they are.
  bool AreEqual(std::string_view a, std::string_view b) const { return cmac_.Of(a) == cmac_.Of(b); }

 private:
  std::string TagOf(std::string_view purpose, const CIpAddress& client, std::string_view text) const;

  const CCmac cmac_;
};

/// What a key file holds: a key that was just drawn.
std::string NewVisitorKey();

/// The proofs of an installation. Its key lies in a file: read from there, or drawn and written when there is none,
/// with the rights of a secret. Processes that start at the same time agree. While the file can be neither read nor
/// written the key is this process's own, and the file is tried again every other second. Thread safe.
class CProofSource {
 public:
  /// `path` empty: a key of this process's own. Nothing is read before the first use.
  explicit CProofSource(std::string path) : path_(std::move(path)) {}

  std::shared_ptr<const CVisitorProofs> At(std::int64_t now);
  /// Whether the key in use is the file's; false before the first use.
  bool IsShared() const;

 private:
  const std::string path_;
  mutable CCriticalSection lock_;
  std::shared_ptr<const CVisitorProofs> proofs_ QIV_GUARDED_BY(lock_);
  bool shared_ QIV_GUARDED_BY(lock_) = false;
  std::int64_t next_try_ QIV_GUARDED_BY(lock_) = 0;  ///< seconds since 1970
};

/// The value of a cookie in a Cookie header, empty when it is not there. The first of several.
std::string_view CookieValue(std::string_view header, std::string_view name);

}  // namespace qiv

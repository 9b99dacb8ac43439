#include "config/address_libraries.h"

#include <utility>

#include "config/exchange_lines.h"

namespace qiv {

std::string DecipherPieces(std::string_view file_text) {
  std::string plain;
  while (!file_text.empty()) {
    const std::string_view piece = TakeLine(&file_text);
    if (piece.empty()) continue;
    plain += DecipherPiece(piece);
    plain += '\n';
  }
  return plain;
}

CAddressLibraries::CAddressLibraries(Paths paths, CStateRecorder* states)
    : states_(states != nullptr ? *states : silent_),
      ipv4_areas_(std::make_shared<CAreaLibrary>(true)),
      ipv6_areas_(std::make_shared<CAreaLibrary>(false)),
      bad_ips_(std::make_shared<CIpRanges>()),
      ipv4_file_(std::move(paths.ipv4_areas), AreaFormat::kMaxFileBytes),
      ipv6_file_(std::move(paths.ipv6_areas), AreaFormat::kMaxFileBytes),
      bad_ips_file_(std::move(paths.bad_ips), kBadIpsMaxBytes) {}

bool CAddressLibraries::ReloadChanged() {
  const CAutoLock lock(files_lock_);
  const Reload ipv4 =
      ReloadFile(&ipv4_file_, &states_, [this](const std::string* file) { return TakeAreas(true, file); });
  const Reload ipv6 =
      ReloadFile(&ipv6_file_, &states_, [this](const std::string* file) { return TakeAreas(false, file); });
  const Reload bad_ips =
      ReloadFile(&bad_ips_file_, &states_, [this](const std::string* file) { return TakeBadIps(file); });
  return ipv4 == Reload::kReplaced || ipv6 == Reload::kReplaced || bad_ips == Reload::kReplaced;
}

bool CAddressLibraries::TakeAreas(bool ipv4, const std::string* file) {
  AreaLoad result = AreaLoad::kOk;
  std::shared_ptr<const CAreaLibrary> library =
      file == nullptr ? std::make_shared<CAreaLibrary>(ipv4) : CAreaLibrary::Parse(*file, ipv4, &result);
  if (!library) return false;
  (ipv4 ? ipv4_areas_ : ipv6_areas_).Store(std::move(library));
  return true;
}

/// Refused is a file with entries of which none is an address: it is damaged, or enciphered with another key.
bool CAddressLibraries::TakeBadIps(const std::string* file) {
  auto ranges = std::make_shared<CIpRanges>();
  if (file != nullptr && ranges->Add(DecipherPieces(*file)) != 0 && ranges->Empty()) return false;
  bad_ips_.Store(std::move(ranges));
  return true;
}

}  // namespace qiv

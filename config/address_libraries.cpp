#include "config/address_libraries.h"

#include <utility>

#include "config/exchange_lines.h"
#include "port/file.h"

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

CAddressLibraries::CAddressLibraries(Paths paths)
    : paths_(std::move(paths)),
      ipv4_areas_(std::make_shared<CAreaLibrary>(true)),
      ipv6_areas_(std::make_shared<CAreaLibrary>(false)),
      bad_ips_(std::make_shared<CIpRanges>()) {}

bool CAddressLibraries::ReloadChanged() {
  const CAutoLock lock(files_lock_);
  const bool ipv4 = ReloadAreas(true);
  const bool ipv6 = ReloadAreas(false);
  return ReloadBadIps() || ipv4 || ipv6;
}

bool CAddressLibraries::ReloadAreas(bool ipv4) {
  const std::string& path = ipv4 ? paths_.ipv4_areas : paths_.ipv6_areas;
  std::uint64_t& loaded_time = ipv4 ? ipv4_time_ : ipv6_time_;
  // Taken before the content: a file written meanwhile is read again.
  const std::uint64_t time = FileModificationTime(path);
  if (time == loaded_time) return false;
  AreaLoad result = AreaLoad::kOk;
  std::shared_ptr<const CAreaLibrary> library = CAreaLibrary::Load(path, ipv4, &result);
  if (result == AreaLoad::kUnreadable) return false;
  loaded_time = result == AreaLoad::kMissing ? 0 : time;
  if (result == AreaLoad::kMissing) library = std::make_shared<CAreaLibrary>(ipv4);
  if (!library) return false;
  (ipv4 ? ipv4_areas_ : ipv6_areas_).Store(std::move(library));
  return true;
}

bool CAddressLibraries::ReloadBadIps() {
  const std::uint64_t time = FileModificationTime(paths_.bad_ips);
  if (time == bad_ips_time_) return false;
  std::string text;
  switch (ReadWholeFile(paths_.bad_ips, kBadIpsMaxBytes, &text)) {
    case ReadFileResult::kUnreadable:
      if (time != 0) return false;
      break;
    case ReadFileResult::kTooLarge:
      bad_ips_time_ = time;
      return false;
    case ReadFileResult::kOk:
      break;
  }
  auto ranges = std::make_shared<CIpRanges>();
  ranges->Add(DecipherPieces(text));
  bad_ips_.Store(std::move(ranges));
  bad_ips_time_ = time;
  return true;
}

}  // namespace qiv

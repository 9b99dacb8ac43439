#include "common/area_library.h"

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr std::uint32_t kCrcPolynomial = 0xEDB88320;  // IEEE 802.3, reflected

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1) != 0 ? value >> 1 ^ kCrcPolynomial : value >> 1;
    table[byte] = value;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

std::uint32_t UpdateCrc(std::uint32_t crc, std::string_view bytes) {
  for (const char c : bytes) crc = kCrcTable[(crc ^ static_cast<unsigned char>(c)) & 0xFF] ^ crc >> 8;
  return crc;
}

std::uint32_t Number(std::string_view bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return value;
}

/// ASCII letters only, byte by byte: UTF-8 has no letter within a longer sequence.
void LowerUtf8(std::string* text) {
  for (char& c : *text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
}

}  // namespace

std::uint32_t AreaFormat::Checksum(std::string_view file) {
  const std::uint32_t head = UpdateCrc(0xFFFFFFFF, file.substr(0, kChecksumOffset));
  return ~UpdateCrc(head, file.substr(kHeaderBytes));
}

std::string_view AreaLoadText(AreaLoad result) {
  switch (result) {
    case AreaLoad::kOk:
      return "loaded";
    case AreaLoad::kMissing:
      return "there is no such file";
    case AreaLoad::kUnreadable:
      return "the file cannot be read";
    case AreaLoad::kNotOurs:
      return "the file is no area library, or one of another version";
    case AreaLoad::kWrongFamily:
      return "the file is for the other address family";
    case AreaLoad::kDamaged:
      break;
  }
  return "the file is damaged";
}

std::shared_ptr<const CAreaLibrary> CAreaLibrary::Load(const std::string& path, bool ipv4, AreaLoad* result) {
  std::string file;
  switch (ReadWholeFile(path, AreaFormat::kMaxFileBytes, &file)) {
    case ReadFileResult::kUnreadable:
      *result = FileModificationTime(path) == 0 ? AreaLoad::kMissing : AreaLoad::kUnreadable;
      return nullptr;
    case ReadFileResult::kTooLarge:
      *result = AreaLoad::kNotOurs;
      return nullptr;
    case ReadFileResult::kOk:
      break;
  }
  return Parse(file, ipv4, result);
}

std::shared_ptr<const CAreaLibrary> CAreaLibrary::Parse(std::string_view file, bool ipv4, AreaLoad* result) {
  *result = AreaLoad::kNotOurs;
  if (file.size() < AreaFormat::kHeaderBytes || !file.starts_with(AreaFormat::kMagic)) return nullptr;
  if (Number(file, 8, 4) != AreaFormat::kVersion) return nullptr;
  *result = AreaLoad::kWrongFamily;
  if (Number(file, 12, 4) != (ipv4 ? 4U : 6U)) return nullptr;

  *result = AreaLoad::kDamaged;
  const Header header{Number(file, 16, 4), Number(file, 20, 4), Number(file, 24, 4)};
  const std::size_t start_bytes = ipv4 ? 4 : 16;
  if (header.areas > AreaFormat::kMaxAreas || header.starts > AreaFormat::kMaxStarts) return nullptr;
  const std::size_t area_table = header.areas * AreaFormat::kAreaBytes;
  const std::size_t expected =
      AreaFormat::kHeaderBytes + area_table + std::size_t{header.text_bytes} + header.starts * (start_bytes + 2);
  if (file.size() != expected || Number(file, AreaFormat::kChecksumOffset, 4) != AreaFormat::Checksum(file)) {
    return nullptr;
  }
  std::string_view left = file.substr(AreaFormat::kHeaderBytes);
  const auto take = [&left](std::size_t size) {
    const std::string_view part = left.substr(0, size);
    left.remove_prefix(size);
    return part;
  };
  const std::string_view areas = take(area_table);
  const std::string_view text = take(header.text_bytes);
  const std::string_view starts = take(header.starts * start_bytes);
  const auto library = std::make_shared<CAreaLibrary>(ipv4);
  if (!library->ReadAreas(areas, text, header) || !library->ReadStarts(starts, left, header)) return nullptr;
  *result = AreaLoad::kOk;
  return library;
}

bool CAreaLibrary::ReadAreas(std::string_view table, std::string_view text, const Header& header) {
  text_ = text;
  key_text_ = text;
  LowerUtf8(&key_text_);
  areas_.reserve(header.areas);
  for (std::size_t at = 0; at < table.size(); at += AreaFormat::kAreaBytes) {
    const std::size_t offset = Number(table, at, 4);
    const std::size_t code = Number(table, at + 4, 2);
    const std::size_t name = Number(table, at + 6, 2);
    if (offset + code + name > text_.size()) return false;
    const auto part = [](const std::string& from, std::size_t begin, std::size_t size) {
      return std::string_view(from).substr(begin, size);
    };
    areas_.push_back({part(text_, offset, code), part(text_, offset + code, name), part(key_text_, offset, code),
                      part(key_text_, offset + code, name)});
  }
  return true;
}

bool CAreaLibrary::ReadStarts(std::string_view starts, std::string_view areas, const Header& header) {
  area_at_.reserve(header.starts);
  for (std::size_t i = 0; i < header.starts; ++i) {
    area_at_.push_back(static_cast<std::uint16_t>(Number(areas, 2 * i, 2)));
    if (area_at_.back() > header.areas) return false;
  }
  if (ipv4_) {
    ipv4_starts_.reserve(header.starts);
    for (std::size_t i = 0; i < header.starts; ++i) ipv4_starts_.push_back(Number(starts, 4 * i, 4));
    return std::adjacent_find(ipv4_starts_.begin(), ipv4_starts_.end(), std::greater_equal<>()) == ipv4_starts_.end();
  }
  ipv6_starts_.reserve(header.starts);
  for (std::size_t i = 0; i < header.starts; ++i) {
    std::array<std::uint8_t, 16> bytes;
    std::copy_n(starts.begin() + static_cast<std::ptrdiff_t>(16 * i), bytes.size(), bytes.begin());
    ipv6_starts_.push_back(CIpAddress::FromIpv6(bytes));
    if (ipv6_starts_.back().IsIpv4()) return false;
  }
  return std::adjacent_find(ipv6_starts_.begin(), ipv6_starts_.end(), std::greater_equal<>()) == ipv6_starts_.end();
}

const Area* CAreaLibrary::Find(const CIpAddress& address) const {
  if (address.IsIpv4() != ipv4_) return nullptr;
  const auto index_after = [](const auto& starts, const auto& key) {
    return static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), key) - starts.begin());
  };
  const std::size_t after = ipv4_ ? index_after(ipv4_starts_, address.Ipv4()) : index_after(ipv6_starts_, address);
  if (after == 0 || area_at_[after - 1] == 0) return nullptr;
  return &areas_[area_at_[after - 1] - 1U];
}

std::size_t CAreaLibrary::MemoryBytes() const {
  return sizeof(*this) + text_.capacity() + key_text_.capacity() + areas_.capacity() * sizeof(Area) +
         ipv4_starts_.capacity() * sizeof(std::uint32_t) + ipv6_starts_.capacity() * sizeof(CIpAddress) +
         area_at_.capacity() * sizeof(std::uint16_t);
}

CAreaNames::CAreaNames(std::string_view list) {
  for (const std::string_view item : Split(list, '|')) {
    std::string name = CCharSet::LocalToUtf8(Trim(item));
    LowerUtf8(&name);
    if (!name.empty()) names_.push_back(std::move(name));
  }
  std::sort(names_.begin(), names_.end());
}

bool CAreaNames::Contains(const Area& area) const {
  if (names_.empty()) return false;
  return Has(area.code_key) || Has(area.name_key) || Has(area.code_key.substr(0, area.code_key.find('-')));
}

bool CAreaNames::Has(std::string_view name) const {
  return !name.empty() && std::binary_search(names_.begin(), names_.end(), name);
}

}  // namespace qiv

#include "config/client_table.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace qiv {
namespace {

constexpr std::size_t kDetailMaxBytes = 0xFFFF;
constexpr std::uint32_t kNoDetail = std::numeric_limits<std::uint32_t>::max();

// Ordered by address; of equal addresses the one that ends last stays.
template <typename Client>
void SortAndUnite(std::vector<Client>* clients) {
  std::sort(clients->begin(), clients->end(), [](const Client& a, const Client& b) {
    return a.address != b.address ? a.address < b.address : a.end > b.end;
  });
  const auto last = std::unique(clients->begin(), clients->end(),
                                [](const Client& a, const Client& b) { return a.address == b.address; });
  clients->erase(last, clients->end());
  clients->shrink_to_fit();
}

template <typename Client, typename Address>
const Client* Search(const std::vector<Client>& clients, const Address& address) {
  const auto found = std::lower_bound(clients.begin(), clients.end(), address,
                                      [](const Client& client, const Address& a) { return client.address < a; });
  return found != clients.end() && found->address == address ? &*found : nullptr;
}

}  // namespace

std::optional<CClientTable::Entry> CClientTable::Find(const CIpAddress& client) const {
  if (client.IsIpv4()) {
    const Ipv4Client* const found = Search(ipv4_, client.Ipv4());
    return found ? std::optional(MakeEntry(found->end, found->detail)) : std::nullopt;
  }
  const Ipv6Client* const found = Search(ipv6_, client);
  return found ? std::optional(MakeEntry(found->end, found->detail)) : std::nullopt;
}

CClientTable::Entry CClientTable::MakeEntry(std::int64_t end, std::uint32_t detail) const {
  if (detail == kNoDetail) return {end, {}};
  const auto byte = [&](std::size_t at) { return static_cast<std::size_t>(static_cast<unsigned char>(details_[at])); };
  return {end, std::string_view(details_).substr(detail + 2U, byte(detail) << 8 | byte(detail + 1U))};
}

void CClientTable::CBuilder::Add(const CIpAddress& client, std::int64_t end, std::string_view detail) {
  detail = detail.substr(0, kDetailMaxBytes);
  std::uint32_t at = kNoDetail;
  std::string& details = table_->details_;
  if (!detail.empty() && details.size() < kNoDetail - kDetailMaxBytes) {
    at = static_cast<std::uint32_t>(details.size());
    details += static_cast<char>(detail.size() >> 8);
    details += static_cast<char>(detail.size() & 0xFF);
    details += detail;
  }
  if (client.IsIpv4()) {
    table_->ipv4_.push_back({client.Ipv4(), at, end});
  } else {
    table_->ipv6_.push_back({client, end, at});
  }
}

std::shared_ptr<const CClientTable> CClientTable::CBuilder::Build() {
  SortAndUnite(&table_->ipv4_);
  SortAndUnite(&table_->ipv6_);
  table_->details_.shrink_to_fit();
  return std::exchange(table_, std::make_shared<CClientTable>());
}

std::shared_ptr<const CClientTable> CClientTableSlot::Get() const {
  const CAutoLock lock(table_lock_);
  return table_;
}

void CClientTableSlot::Set(std::shared_ptr<const CClientTable> table) {
  {
    const CAutoLock lock(table_lock_);
    table_.swap(table);
  }
  // The table before ends here, outside the lock.
}

}  // namespace qiv

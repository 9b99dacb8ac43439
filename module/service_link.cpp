#include "module/service_link.h"

#include <exception>

#include "port/clock.h"

namespace qiv {
namespace {

/// Runs one piece of the tick's work. Out of memory is its own affair: the next tick tries again, and the request that
/// carries this one goes on to its checks.
template <typename Work>
bool Guarded(Work&& work) noexcept {
  try {
    return work();
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

CServiceLink::CServiceLink(CQivConfig& config, bool may_write)
    : config_(config),
      exchange_(config.Paths().in_file, may_write ? config.Paths().out_log : std::string(), config.States()),
      libraries_({config.Paths().ipv4_areas, config.Paths().ipv6_areas, config.Paths().bad_ips}, config.States()),
      checks_(exchange_, &libraries_, &UnixSeconds, may_write ? config.Paths().visitor_key : std::string(),
              config.States()) {
  config_.SetTickClient(this);
}

CServiceLink::~CServiceLink() { config_.SetTickClient(nullptr); }

bool CServiceLink::OnServiceTick(std::int64_t now) {
  const bool reloaded = Guarded([&] { return libraries_.ReloadChanged(); });
  Guarded([&] { return exchange_.LookAtLists(now); });
  Guarded([&] {
    exchange_.FlushIfDue(now);
    checks_.ReportFlood();
    return true;
  });
  return reloaded;
}

void CServiceLink::OnReloaded(std::int64_t) { checks_.OnConfigLoaded(*config_.Current()); }

void CServiceLink::ReadLists() noexcept {
  Guarded([&] { return exchange_.ReadLists(UnixSeconds()); });
}

void CServiceLink::AfterRequest() noexcept {
  Guarded([&] { return exchange_.ContinueReading(UnixSeconds()); });
}

void CServiceLink::Finish() noexcept {
  Guarded([&] {
    if (IsEnabled()) exchange_.Flush();
    return true;
  });
}

}  // namespace qiv

#include "bench/addresses.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/area_library.h"
#include "config/exchange_files.h"
#include "port/clock.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"
#include "tools/area_builder.h"

namespace qiv::bench {
namespace {

constexpr std::int64_t kNow = 1'000'000;
constexpr std::size_t kClients = 4096;  // looked up in turn, half of them on the list

CIpAddress Address(std::uint64_t number, bool ipv4) {
  if (ipv4) return CIpAddress::FromIpv4(static_cast<std::uint32_t>(number));
  std::array<std::uint8_t, 16> bytes{0x20, 0x01};
  for (std::size_t i = 0; i < 6; ++i) bytes[2 + i] = static_cast<std::uint8_t>(number >> 8 * (5 - i));
  return CIpAddress::FromIpv6(bytes);
}

std::string AreaFile(std::uint64_t ranges, bool ipv4) {
  CAreaBuilder builder(ipv4);
  const std::uint64_t step = (std::uint64_t{1} << 32) / ranges;
  for (std::uint64_t i = 0; i < ranges; ++i) {
    const IpRange range{Address(i * step, ipv4), Address(i * step + step / 2, ipv4)};
    builder.Add(range, "C" + std::to_string(i % 250), "Country");
  }
  return builder.Build().content;
}

std::vector<CIpAddress> RandomAddresses(bool ipv4) {
  std::mt19937 random(5);
  std::vector<CIpAddress> addresses;
  for (std::size_t i = 0; i < kClients; ++i) addresses.push_back(Address(random(), ipv4));
  return addresses;
}

void AreaLookup(benchmark::State& state, bool ipv4) {
  AreaLoad result = AreaLoad::kOk;
  const auto library = CAreaLibrary::Parse(AreaFile(static_cast<std::uint64_t>(state.range(0)), ipv4), ipv4, &result);
  const std::vector<CIpAddress> addresses = RandomAddresses(ipv4);
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(library->Find(addresses[i++ % kClients]));
  state.counters["bytes"] = static_cast<double>(library->MemoryBytes());
}

void AreaLoadTime(benchmark::State& state, bool ipv4) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("iplib.db");
  ReplaceFile(path, AreaFile(static_cast<std::uint64_t>(state.range(0)), ipv4));
  AreaLoad result = AreaLoad::kOk;
  for (auto _ : state) benchmark::DoNotOptimize(CAreaLibrary::Load(path, ipv4, &result));
}

std::string DenyFile(std::int64_t clients) {
  std::string text;
  for (std::int64_t i = 0; i < clients; ++i) {
    const auto number = static_cast<std::uint64_t>(i) * 2654435761U;  // spread over all addresses
    text += EncipherLine("denylist\tadd\tIIS\t" + Address(number, i % 4 != 0).Text() + "\t1\t2000000\tattacks");
  }
  return text;
}

void DenyLookup(benchmark::State& state) {
  const CTemporaryDirectory directory;
  ReplaceFile(directory.Path("_in.db"), DenyFile(state.range(0)));
  CExchangeFiles files(directory.Path("_in.db"), "");
  files.ReadLists(kNow);
  const std::vector<CIpAddress> addresses = RandomAddresses(true);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(files.IsListed(ClientList::kDeny, addresses[i++ % kClients], kNow));
  }
  state.counters["clients"] = static_cast<double>(files.deny_table().Get()->Size());
}

void DenyRead(benchmark::State& state) {
  const CTemporaryDirectory directory;
  ReplaceFile(directory.Path("_in.db"), DenyFile(state.range(0)));
  for (auto _ : state) {
    CExchangeFiles files(directory.Path("_in.db"), "");
    benchmark::DoNotOptimize(files.ReadLists(kNow));
  }
}

/// Requests that come while the list changes: how long the longest of them waits, and the longest piece of the work
/// that requests do after they were answered. `in_request`: the list is read by the request that finds it changed.
void DenyReload(benchmark::State& state, bool in_request) {
  const CTemporaryDirectory directory;
  const std::string path = directory.Path("_in.db");
  const std::string text = DenyFile(state.range(0));
  CExchangeFiles files(path, "");
  const CIpAddress client = Address(1, true);
  std::int64_t now = kNow;
  std::int64_t longest_request = 0;
  std::int64_t longest_slice = 0;
  double requests = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ReplaceFile(path, text);
    now += 2;
    state.ResumeTiming();
    bool replaced = false;
    while (!replaced) {
      const std::int64_t begin = MonotonicMicroseconds();
      replaced = in_request ? files.ReadLists(now) : files.LookAtLists(now);
      benchmark::DoNotOptimize(files.IsListed(ClientList::kDeny, client, kNow));
      const std::int64_t answered = MonotonicMicroseconds();
      replaced |= files.ContinueReading(now);
      longest_request = std::max(longest_request, answered - begin);
      longest_slice = std::max(longest_slice, MonotonicMicroseconds() - answered);
      ++requests;
    }
  }
  state.counters["longest_request_us"] = static_cast<double>(longest_request);
  state.counters["longest_slice_us"] = static_cast<double>(longest_slice);
  state.counters["requests"] = benchmark::Counter(requests, benchmark::Counter::kAvgIterations);
}

}  // namespace

void RegisterAddressBenchmarks() {
  constexpr std::int64_t kRanges = 500'000;
  constexpr std::int64_t kMany = 1'000'000;
  for (const bool ipv4 : {true, false}) {
    const std::string family = ipv4 ? "ipv4" : "ipv6";
    benchmark::RegisterBenchmark(("area_lookup/" + family).c_str(), AreaLookup, ipv4)->Arg(kRanges);
    benchmark::RegisterBenchmark(("area_load/" + family).c_str(), AreaLoadTime, ipv4)
        ->Arg(kRanges)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("deny_list_lookup", DenyLookup)->Arg(10)->Arg(1000)->Arg(kMany);
  benchmark::RegisterBenchmark("deny_list_read", DenyRead)->Arg(1000)->Arg(kMany)->Unit(benchmark::kMillisecond);
  for (const bool in_request : {true, false}) {
    benchmark::RegisterBenchmark(in_request ? "deny_list_reload/in_request" : "deny_list_reload/in_slices", DenyReload,
                                 in_request)
        ->Arg(1000)
        ->Arg(kMany)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qiv::bench

// dearest: searches for the inputs that cost the protection most, in processor time and memory, by the byte.
//
// Mixes of one to eight tokens are made at random, and the dearest found so far are changed a little, those of earlier
// searches among them (known.inc). Each is measured once at 8 KiB; one that is promising then at 64 KiB, and one that
// may be dearer than the dearest known of its kind at 512 KiB as well, several times over; cookies at the sizes that a
// head may have. Every kind gets the same processor time. What is found is printed at once, and a table at the end.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/dearest/costs.h"
#include "bench/dearest/mixes.h"
#include "command_line/command.h"
#include "port/clock.h"
#include "port/console.h"

namespace qiv::bench {
namespace {

// Bytes of an input: what tells whether it is worth a longer look, and what is measured.
struct Sizes {
  std::size_t first;
  std::size_t small;
  std::size_t large;
};
constexpr Sizes kSizes = {8 << 10, 64 << 10, 512 << 10};
constexpr Sizes kHeadSizes = {4 << 10, 8 << 10, 28 << 10};  // of cookies: longer ones are refused unread

constexpr int kRounds = 3;           // the least of so many counts: machines are shared
constexpr std::size_t kKept = 12;    // of each kind, to be changed
constexpr double kMemoryWorth = 25;  // ns/byte that once the input's size in memory is worth, to order by
constexpr double kFirstShare = 0.8;  // of the least price kept, at the first size: dearer is measured in full
constexpr double kNoise = 1.1;       // dearer by less may be chance

const Sizes& SizesOf(const Mix& mix) { return KindNames()[mix.kind] == "cookie" ? kHeadSizes : kSizes; }

struct Options {
  double seconds = 60;
  std::uint64_t seed = 1;
  std::vector<std::string> kinds;
  std::vector<std::string> replay;
  std::string write;
  std::string rules = QIV_BENCH_RULES;
  std::string profile = "default";
};

// Of earlier searches, by their names.
constexpr std::string_view kKnown[] = {
#include "bench/dearest/known.inc"
};

struct Found {
  Mix mix;
  Cost first;
  Cost small;
  Cost large;
};

double Price(const Cost& cost) { return std::max(cost.ns_per_byte, cost.memory * kMemoryWorth); }

// The dearest of one kind.
struct Search {
  std::size_t kind = 0;
  std::vector<Found> pool;  // dearest first
  Found slowest;            // by time and by memory, at either size
  Found largest;
  std::uint64_t tried = 0;
  double seconds = 0;  // of processor time
};

double Slowness(const Found& found) { return std::max(found.small.ns_per_byte, found.large.ns_per_byte); }
double Largeness(const Found& found) { return std::max(found.small.memory, found.large.memory); }

void Print(const char* why, const Found& found) {
  std::printf("%-8s %6.0f %6.0f ns/byte  %5.1f %5.1f x size  %s%s  %s\n", why, found.small.ns_per_byte,
              found.large.ns_per_byte, found.small.memory, found.large.memory, found.mix.Name().c_str(),
              found.large.blocked ? " (refused)" : "", found.mix.Shown().c_str());
  std::fflush(stdout);
}

bool IsKept(const Search& search, const Mix& mix) {
  return std::any_of(search.pool.begin(), search.pool.end(),
                     [&](const Found& other) { return other.mix.Shown() == mix.Shown(); });
}

// The pool changes slowly, so what is least in it is looked up anew each time.
double LeastFirst(const Search& search) {
  double least = Price(search.pool.front().first);
  for (const Found& kept : search.pool) least = std::min(least, Price(kept.first));
  return least;
}

void Try(CCosts& costs, const Mix& mix, Search* search) {
  ++search->tried;
  if (IsKept(*search, mix)) return;
  const bool full = search->pool.size() == kKept;
  const Sizes& sizes = SizesOf(mix);
  Found found{mix, costs.Measure(mix, sizes.first, 1), {}, {}};
  if (full && Price(found.first) < LeastFirst(*search) * kFirstShare) return;
  found.small = costs.Measure(mix, sizes.small, 1);
  if (full && Price(found.small) <= Price(search->pool.back().small)) return;
  found.small = costs.Measure(mix, sizes.small, kRounds);
  const auto place = std::find_if(search->pool.begin(), search->pool.end(),
                                  [&](const Found& other) { return Price(other.small) < Price(found.small); });
  if (place == search->pool.end() && full) return;
  const bool may_lead = place == search->pool.begin() || Slowness(found) > Slowness(search->slowest) ||
                        Largeness(found) > Largeness(search->largest);
  if (may_lead) found.large = costs.Measure(mix, sizes.large, 2);
  search->pool.insert(place, found);
  if (search->pool.size() > kKept) search->pool.pop_back();
  if (Slowness(found) > Slowness(search->slowest) * kNoise) {
    search->slowest = found;
    Print("slowest", found);
  }
  if (Largeness(found) > Largeness(search->largest) * kNoise) {
    search->largest = found;
    Print("largest", found);
  }
}

int Replay(CCosts& costs, Options options) {
  const auto known = std::find(options.replay.begin(), options.replay.end(), "known");
  if (known != options.replay.end())
    options.replay.insert(options.replay.erase(known), std::begin(kKnown), std::end(kKnown));
  for (const std::string& name : options.replay) {
    const std::optional<Mix> mix = ParseMix(name);
    if (!mix) {
      std::cerr << "dearest: no mix: " << name << "\n";
      return 2;
    }
    const Sizes& sizes = SizesOf(*mix);
    Print("replay", {*mix, {}, costs.Measure(*mix, sizes.small, kRounds), costs.Measure(*mix, sizes.large, kRounds)});
    if (options.write.empty()) continue;
    std::FILE* const file = std::fopen(options.write.c_str(), "wb");
    if (file == nullptr) return 2;
    const std::string text = TextOf(*mix, sizes.small);
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
  }
  return 0;
}

int Run(CCosts& costs, const Options& options) {
  std::vector<Search> searches;
  const std::vector<std::string_view> names = KindNames();
  for (std::size_t kind = 0; kind < names.size(); ++kind) {
    if (options.kinds.empty() ||
        std::find(options.kinds.begin(), options.kinds.end(), names[kind]) != options.kinds.end())
      searches.push_back({kind, {}, {}, {}, 0, 0});
  }
  if (searches.empty()) {
    std::cerr << "dearest: no such kind\n";
    return 2;
  }
  std::mt19937_64 random(options.seed);
  const std::int64_t end = MonotonicMicroseconds() + static_cast<std::int64_t>(options.seconds * 1e6);
  for (Search& search : searches) {
    for (const std::string_view name : kKnown) {
      const std::optional<Mix> mix = ParseMix(name);
      if (mix && mix->kind == search.kind) Try(costs, *mix, &search);
    }
  }
  while (MonotonicMicroseconds() < end) {
    Search& search = *std::min_element(searches.begin(), searches.end(),
                                       [](const Search& a, const Search& b) { return a.seconds < b.seconds; });
    const bool anew = search.pool.empty() || random() % 2 == 0;
    const Mix mix =
        anew ? RandomMix(search.kind, &random) : Changed(search.pool[random() % search.pool.size()].mix, &random);
    const double begin = ThreadSeconds();
    Try(costs, mix, &search);
    search.seconds += ThreadSeconds() - begin;
  }
  std::printf("\nDearest of each kind (at %zu and %zu KiB; cookies at %zu and %zu), seed %llu:\n", kSizes.small >> 10U,
              kSizes.large >> 10U, kHeadSizes.small >> 10U, kHeadSizes.large >> 10U,
              static_cast<unsigned long long>(options.seed));
  for (const Search& search : searches) {
    std::printf("%s, %llu tried\n", std::string(names[search.kind]).c_str(),
                static_cast<unsigned long long>(search.tried));
    Print("  time", search.slowest);
    Print("  memory", search.largest);
  }
  return 0;
}

int Begin(const Options& options) {
  CCosts costs(options.rules, options.profile);
  if (!costs.Ready()) {
    std::cerr << "dearest: the configuration did not load\n";
    return 2;
  }
  return options.replay.empty() ? Run(costs, options) : Replay(costs, options);
}

}  // namespace
}  // namespace qiv::bench

int main(int argc, char** argv) {
  try {
    qiv::bench::Options options;
    qiv::CProgram program("dearest", "Searches for the inputs that cost most processor time and memory by the byte.");
    program.AddOption("--seconds", &options.seconds, "how long to search");
    program.AddOption("--seed", &options.seed, "of the random numbers; another one searches elsewhere");
    program.AddOption("--kinds", &options.kinds, "kinds of input, all by default").Divided(',');
    program.AddOption(
        "--replay", &options.replay,
        "measure these mixes, as the search printed them (\"known\": those of earlier searches), no more");
    program.AddOption("--write", &options.write, "with --replay: write 64 KiB of the mix to this file");
    program.AddOption("--rules", &options.rules, "folder of rule data");
    program.AddOption("--profile", &options.profile, "a file of its settings folder");
    program.OnRun([&] { return Begin(options); });
    return program.ParseAndRun(qiv::CommandLineArguments(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "dearest: " << error.what() << "\n";
    return 2;
  }
}

// Texts of any length for the benchmarks: an ordinary one, and ones that make a careless detector slow.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace qiv::bench {

struct TextKind {
  const char* name;
  /// What is repeated up to the length asked for.
  std::string (*unit)();
};

/// The ordinary text first.
std::span<const TextKind> TextKinds();

/// `unit` repeated and cut to exactly `bytes` bytes.
std::string Repeat(const std::string& unit, std::size_t bytes);

/// "name=value&name=value..." of ordinary words, exactly `bytes` bytes, no attack.
std::string OrdinaryForm(std::size_t bytes);

/// An array of flat objects, exactly `bytes` bytes (padded inside the last string).
std::string OrdinaryJson(std::size_t bytes);

}  // namespace qiv::bench

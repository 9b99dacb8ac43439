// Texts of any length for the webshell detectors: ordinary ones, and ones that make a careless detector slow.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "engines/webshell/signatures/signature_library.h"

namespace qiv::bench {

struct WebshellText {
  const char* name;
  /// Exactly `bytes` bytes. Those against the signatures are made of the library's own terms.
  std::string (*make)(const CSignatureLibrary& library, std::size_t bytes);
};

/// The ordinary texts first.
std::span<const WebshellText> WebshellTexts();

}  // namespace qiv::bench

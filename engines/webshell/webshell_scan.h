// The entry of the webshell detectors: every check of a file's content calls it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "engines/webshell/flow/budget.h"
#include "engines/webshell/signatures/signature_library.h"
#include "engines/webshell/webshell_result.h"

namespace qiv {

/// The libraries that all requests share. Immutable once built and replaced whole on reload; one object serves any
/// number of threads.
class CQivLibs {
 public:
  /// Longer texts are not scanned.
  static constexpr std::size_t kLongestText = 2 * 1024 * 1024;

  /// The built-in rules alone.
  CQivLibs();

  /// `library_text`: the deciphered library file (tags <trojan_rules>, <trojan_free>, <trojan_removal>,
  /// <trojan_wholeword>; may be empty), whose rules come before the built-in ones. `user_rules` and `free_code` are a
  /// site's own signatures and exempt code, in the form of those lists (signature_text.h).
  CQivLibs(std::string_view library_text, std::string_view user_rules, std::string_view free_code);

  /// Whether the content of a file or of a request is a webshell; on a hit, and only then, `*result` is filled (but for
  /// known_good and partial, which are always set). At most 2 MiB of text; a scan takes a few copies of it and, of a
  /// script, at most some nine times its bytes more, or half a mebibyte where that is less; for a text without "<?",
  /// "<%" or
  /// "<script runat" nothing but one copy.
  bool WebshellScan(std::string_view text, WebshellResult* result) const;

  enum class Depth : std::uint8_t {
    kSignatures,  ///< held against the library, no more
    kWhole,
  };
  /// The same for one of the texts that share `walks`, so that many small ones cost no more than a large one.
  bool WebshellScan(std::string_view text, Depth depth, CWalkBudget* walks, WebshellResult* result) const;

  /// The same; a text that holds known-good code is cleared.
  bool WebshellScan(std::string* text, WebshellResult* result) const;

  const CSignatureLibrary& Library() const { return library_; }

 private:
  CSignatureLibrary library_;
};

}  // namespace qiv

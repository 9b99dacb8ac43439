// A page as the judgements of ASP and of ASPX see it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engines/webshell/flow/file_facts.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/page/script.h"

namespace qiv {

// What a page is or holds. The bits below are those of PageReach: what following it found.
inline constexpr std::uint64_t kPageIsAspx = std::uint64_t{1} << 33;  ///< it says that it is ASPX
inline constexpr std::uint64_t kPageIsPart =
    std::uint64_t{1} << 34;  ///< of an application: includes others, or its class lies elsewhere
inline constexpr std::uint64_t kPageSession = std::uint64_t{1} << 35;
inline constexpr std::uint64_t kPageTakesFiles = std::uint64_t{1} << 36;   ///< uploads
inline constexpr std::uint64_t kPageChecksFiles = std::uint64_t{1} << 37;  ///< looks at an upload's name or type
inline constexpr std::uint64_t kPageBasic = std::uint64_t{1} << 38;        ///< has code in VBScript or VB.NET
inline constexpr std::uint64_t kPageBraces = std::uint64_t{1} << 39;       ///< has code in JScript or C#
inline constexpr std::uint64_t kPageJscript = std::uint64_t{1} << 40;
/// A directive that names the language first.
inline constexpr std::uint64_t kPageOnlyLanguage = std::uint64_t{1} << 41;

/// Built once; lives as long as the text.
class CPage {
 public:
  /// `plain`: see PlainPage.
  CPage(std::string_view text, std::string_view plain);

  std::string_view Text() const { return text_; }
  std::string_view Plain() const { return plain_; }
  const PageCode& Code() const { return code_; }
  CFileFacts& Facts() { return facts_; }
  /// Follows it; what was found is among its facts.
  const PageFlow& Follow(PageKind kind, CWalkBudget* walks);
  /// Whether limits kept something from being followed.
  bool IsPartial() const { return partial_; }

 private:
  bool HasFact(std::uint64_t fact) const;
  bool IsAspx() const;
  bool IsPart() const;

  std::string_view text_;
  std::string_view plain_;
  PageCode code_;
  CFileFacts facts_;
  std::optional<PageFlow> flow_;  // as the kind followed last
  bool partial_ = false;
};

/// A page's text lower-cased, encoded pieces decoded, full-width letters narrow.
std::string PlainPage(std::string_view text);

inline constexpr std::string_view kPageInclude = "<!--#include";

}  // namespace qiv

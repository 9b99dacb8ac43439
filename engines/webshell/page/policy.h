// Policy for pages: what is reported of which pages, and under what name. The limits of the judgement, as against those
// of the walk, stand here and in policy.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/messages.h"
#include "engines/webshell/page/page.h"

namespace qiv {

inline constexpr std::size_t kPageVariant = 2048;          ///< bytes: only shorter files are called variants
inline constexpr std::size_t kPageSmall = 4096;            ///< bytes: does little but one thing
inline constexpr std::size_t kPageLargestScript = 105472;  ///< bytes: a longer file with a database's signature is one
inline constexpr std::size_t kPageLargeOrdinary = 102400;  ///< bytes: longer ones that begin like an application's

// Scores of risk words, with what the walk found, from which on a page is reported.
inline constexpr std::int32_t kAspSilentLimit = 120;   ///< where the request was not seen to name anything
inline constexpr std::int32_t kAspxSilentLimit = 110;  ///< the same
/// Of the code alone of an ASPX page whose class lies nowhere else. Ordinary ones hold next to none: most score below
/// 40.
inline constexpr std::int32_t kOwnPageLimit = 65;

/// Which of a page's judgements a row belongs to, in their order.
enum class PageStage : std::uint8_t {
  kRuns,     ///< of ASPX: code or commands of the request are run
  kFiles,    ///< files, and databases
  kUploads,  ///< of ASPX: what is weak, behind the words
};

struct PagePolicy {
  PageStage stage;
  MessageId name;
  FileCondition condition;
  std::string_view detail = {};  ///< empty: the flow's
  bool suspicious = false;       ///< a weak finding
};

/// The first row that the page meets, or null.
const PagePolicy* FindPagePolicy(PageStage stage, CPage* page);

/// What the walk found, as a score beside that of risk words; `*strong`: the request was seen to name something.
std::int32_t PageReachScore(std::uint32_t reach, bool* strong);

}  // namespace qiv

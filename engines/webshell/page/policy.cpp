#include "engines/webshell/page/policy.h"

#include <algorithm>
#include <iterator>

namespace qiv {
namespace {

using Id = MessageId;

constexpr std::size_t kReader = 2048;   // bytes: does nothing but show any file of the disk
constexpr std::size_t kWriter = 16384;  // bytes: does little but write files, anywhere on the disk

// A session may be a shell's own; below the site's root, applications write files for those who are signed in.
constexpr PagePolicy kPolicies[] = {
    {PageStage::kRuns, Id::kAspxVariant, {.any = kReachesCode | kReachesCommand | kHiddenCode | kHiddenObject}},
    // JScript pages evaluate text with the page's rights; ordinary ones hardly ever do.
    {PageStage::kRuns,
     Id::kAspxVariant,
     {.all = kEvaluates | kPageBraces | kPageJscript | kPageIsAspx, .none = kPageOnlyLanguage},
     "eval"},
    {PageStage::kRuns,
     Id::kAspxVariant,
     {.all = kEvaluates | kPageBraces | kPageJscript, .none = kPageOnlyLanguage | kPageBasic},
     "eval"},

    // The request names a file and says what is written to it, in a page that does little else.
    {PageStage::kFiles, Id::kSuspectedFiles, {.all = kWritesItself | kContentRequested, .none = kPageIsPart}},
    {PageStage::kFiles,
     Id::kSuspectedFiles,
     {.most_bytes = kWriter, .all = kWritesItself | kPageTakesFiles, .none = kPageIsPart}},
    {PageStage::kFiles,
     Id::kSuspectedFiles,
     {.most_bytes = kWriter, .all = kContentRequested | kPathRequested, .none = kPageIsPart}},
    {PageStage::kFiles,
     Id::kSuspectedFiles,
     {.most_bytes = kReader, .all = kContentRequested | kPathBelow, .none = kPageIsPart | kPageSession}},
    {PageStage::kFiles,
     Id::kSuspectedFiles,
     {.most_bytes = kPageSmall, .all = kContentRequested | kPathMapped, .none = kPageIsPart | kPageSession}},
    // Shows any file.
    {PageStage::kFiles, Id::kSuspectedFiles, {.most_bytes = kReader, .all = kReadsRequested, .none = kPageIsPart}},
    // The request names a database server and says what it is to run, or where its tables are written to.
    {PageStage::kFiles,
     Id::kSuspectedFiles,
     {.all = kConnects, .any = kRunsSql | kPathMapped | kPathRequested, .none = kPageIsPart}},

    // Examples in books do so as well.
    {PageStage::kUploads,
     Id::kSuspectedFiles,
     {.most_bytes = kReader, .all = kUploadsToRoot, .none = kPageIsPart | kPageChecksFiles},
     {},
     true},
};

constexpr std::uint32_t kStrong = kPathRequested | kReadsRequested | kUsesShell | kRunsText | kHiddenFiles | kConnects;

constexpr struct {
  std::uint32_t reach;
  std::int32_t weight;
} kWeights[] = {{kHiddenFiles, 40}, {kReadsRequested, 20},   {kPathRequested, 15},
                {kPathMapped, 5},   {kContentRequested, 10}, {kRunsText, 15}};

}  // namespace

const PagePolicy* FindPagePolicy(PageStage stage, CPage* page) {
  const auto found = std::find_if(std::begin(kPolicies), std::end(kPolicies), [&](const PagePolicy& row) {
    return row.stage == stage && page->Facts().Meet(row.condition);
  });
  return found == std::end(kPolicies) ? nullptr : found;
}

std::int32_t PageReachScore(std::uint32_t reach, bool* strong) {
  *strong = (reach & kStrong) != 0;
  std::int32_t sum = 0;
  for (const auto& row : kWeights) sum += (reach & row.reach) != 0 ? row.weight : 0;
  return sum;
}

}  // namespace qiv

// What following a page found.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "engines/webshell/page/flow.h"

namespace qiv {

class CPageFindings {
 public:
  /// Before each pass.
  void Restart() { changed_ = false; }

  /// What is walked now.
  void At(const PageCodePlace& place) { at_ = place; }
  const PageCodePlace& Place() const { return at_; }

  /// Sinks that `word` is the name of; the first that decides stays the detail.
  void Reach(std::uint32_t reach, std::string_view word) {
    constexpr std::uint32_t kDecides = kReachesCode | kReachesCommand | kHiddenCode;
    if ((flow_.reach & kDecides) == 0) {
      flow_.detail = word;
      flow_.place = at_;
    }
    flow_.reach |= reach;
  }
  /// The same without a word.
  void Note(std::uint32_t reach) { flow_.reach |= reach; }

  /// Whether the pass learned something that the next one can use.
  bool Changed() const { return changed_; }
  void SetChanged(bool changed = true) { changed_ = changed_ || changed; }

  /// The page's kind decided something.
  void DependOnKind() { flow_.depends_on_kind = true; }

  PageFlow Take() { return std::move(flow_); }

 private:
  PageFlow flow_;
  PageCodePlace at_;
  bool changed_ = false;
};

}  // namespace qiv

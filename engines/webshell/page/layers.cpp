#include "engines/webshell/page/layers.h"

#include <algorithm>

namespace qiv {

CPageLayers::CPageLayers(const PageCode& code, std::size_t room, CPageFindings* findings)
    : room_(room), findings_(*findings) {
  if (!code.basic.empty()) parts_.push_back({code.basic, ScriptSyntax::kBasic});
  if (!code.braces.empty()) parts_.push_back({code.braces, ScriptSyntax::kBraces});
}

CPageLayers::Part CPageLayers::Enter(std::size_t number) {
  basic_ = parts_[number].syntax == ScriptSyntax::kBasic;
  return parts_[number];
}

void CPageLayers::Follow(const PageValue& value) {
  constexpr std::size_t kShortestLayer = 6;  // bytes: a shorter text calls nothing with anything
  constexpr std::size_t kLayerBytes = 160;   // what a layer takes beside its text
  if (value.text.size() < kShortestLayer || value.text.find_first_of(" (\n") == std::string::npos) return;
  if (followed_.contains(value.text)) return;
  if (value.text.size() + kLayerBytes > room_) return findings_.Note(kIncomplete);
  room_ -= value.text.size() + kLayerBytes;
  const std::string_view text = texts_.emplace_back(value.text);
  followed_.insert(text);
  parts_.push_back({text, basic_ ? ScriptSyntax::kBasic : ScriptSyntax::kBraces, findings_.Place()});
  parts_.back().evaluated.inner = true;
  findings_.SetChanged();
}

bool CPageLayers::AnyHolds(std::string_view text) const {
  return std::any_of(parts_.begin(), parts_.end(), [text](const Part& part) { return Holds(part.code, text); });
}

}  // namespace qiv

// The detectors for the ways of hiding are the evaluation of values itself (builtins, operators): each
// records on a value the first disguise it went through. Here the way gets its name.
#include "engines/webshell/php/hiding_analysis.h"

#include "common/messages.h"

namespace qiv {
namespace {

MessageId NameOf(HidingWay way) {
  switch (way) {
    case HidingWay::kConcatenation:
      return MessageId::kHiddenByConcatenation;
    case HidingWay::kCharacters:
      return MessageId::kHiddenByCharacters;
    case HidingWay::kUrl:
      return MessageId::kHiddenByUrl;
    case HidingWay::kReplacement:
      return MessageId::kHiddenByReplacement;
    case HidingWay::kReversed:
      return MessageId::kHiddenByReversal;
    case HidingWay::kCharacterCodes:
      return MessageId::kHiddenByCodes;
    case HidingWay::kBase64:
      return MessageId::kHiddenByBase64;
    case HidingWay::kNone:
    case HidingWay::kOther:
      break;
  }
  return MessageId::kHiddenFeatures;
}

}  // namespace

void ReportHiding(PhpFindingKind kind, HidingWay way, WebshellResult* result) {
  result->category = MessageId::kHide;
  result->label = std::nullopt;
  if (kind == PhpFindingKind::kRequestCall) {
    result->finding = MessageId::kVariantBackdoor;
    return;
  }
  result->finding = NameOf(way);
  if (way != HidingWay::kCharacterCodes) return;
  result->label = MessageId::kLabelFunction;
  result->detail = "CHR()";
}

}  // namespace qiv

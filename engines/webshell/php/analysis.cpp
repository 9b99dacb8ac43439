// Two judges: what values reach (php_flow), and which words the file speaks (risk_words). Code that the file runs or
// decodes is judged the same way, layer by layer; layers and their bytes are bounded.
#include "engines/webshell/php/analysis.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/hiding_analysis.h"
#include "engines/webshell/php/policy.h"
#include "engines/webshell/php/spelling.h"
#include "engines/webshell/risk_words.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {
namespace {

class CPhpJudge {
 public:
  CPhpJudge(std::string_view text, CWalkBudget* walks, WebshellResult* result)
      : text_(text),
        walks_(*walks),
        result_(*result),
        facts_(text.size(), [this](std::uint64_t fact) { return HasPhpFact(text_, Copy(), fact); }) {}

  bool Run() {
    struct Layer {
      std::string code;
      TextPlace place;  // of what opens the outermost, in the file
      int depth;
    };
    std::vector<Layer> layers;
    std::size_t bytes = 0;
    const std::size_t most_bytes = kPhpLayerBytesAnyway + text_.size() * kPhpLayerBytesPerByte;
    const auto add = [&](PhpFlowResult& flow, int depth) {
      for (PhpInnerCode& inner : flow.nested) {
        if (depth > kPhpDeepestLayer || layers.size() >= kPhpMostLayers || bytes + inner.code.size() > most_bytes)
          return;
        bytes += inner.code.size();
        layers.push_back({std::move(inner.code), depth == 1 ? inner.place : place_, depth});
      }
    };
    const std::size_t most_room = PhpRoom(text_.size());
    PhpFlowResult flow = FollowPhp(text_, false, most_room, &walks_);
    facts_.Set(kPhpStandalone, flow.standalone);
    for (const bool weak : {false, true}) {
      for (const PhpFinding& finding : flow.findings) {
        place_ = finding.place;
        if (IsWeakPhpFinding(finding.kind) == weak && Accept(finding)) return true;
      }
    }
    if (Encoded(flow)) return true;
    add(flow, 1);
    flow = {};
    view_ = TextView::kInner;
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const std::string code = std::move(layers[i].code);
      place_ = layers[i].place;
      if (!walks_.Spend(code.size() / kPhpLayerBytesPerStep)) break;
      PhpFlowResult inner =
          FollowPhp(code, true, std::max(kPhpLayerRoom, most_room - std::min(most_room, bytes)), &walks_);
      for (const PhpFinding& finding : inner.findings) {
        if (finding.kind == PhpFindingKind::kUpload) return Fill(MessageId::kFileUploader, finding.detail);
        if (finding.kind != PhpFindingKind::kUnknownSource && Accept(finding)) return true;
      }
      if (ScoreRiskWords(code, RiskLanguage::kPhp).score >= kPhpLayerRisk) return Fill(MessageId::kSuspectedRisk, "");
      add(inner, layers[i].depth + 1);
    }
    view_ = TextView::kSent;
    place_ = {};
    return Features();
  }

 private:
  bool Fill(MessageId finding, std::string_view detail, bool suspicious = false) {
    result_ = {};
    result_.finding = finding;
    result_.detail = LocalDetail(detail);
    result_.place = place_;
    result_.view = view_;
    result_.kind = kPhpRuleKind;
    result_.suspicious = suspicious;
    return true;
  }
  bool Fill(MessageId finding, const std::optional<PhpLabels>& labels, std::string_view detail,
            bool suspicious = false) {
    Fill(finding, detail, suspicious);
    if (!labels) return true;
    result_.label = labels->label;
    result_.category = labels->category;
    return true;
  }

  // A detail is a piece of the file, in the file's encoding, and may be cut inside a character.
  std::string LocalDetail(std::string_view detail) const {
    constexpr std::size_t kLongestTail = 3;  // bytes of a character of UTF-8 that may be left
    if (CCharSet::IsAscii(detail)) return std::string(detail);
    if (CCharSet::IsValidUtf8(text_)) {
      for (std::size_t cut = 0; cut <= std::min(kLongestTail, detail.size()); ++cut) {
        const std::string_view whole = detail.substr(0, detail.size() - cut);
        if (CCharSet::IsValidUtf8(whole)) return CCharSet::Utf8ToLocal(whole);
      }
    }
    std::size_t end = 0;
    for (std::size_t next = 0; next < detail.size(); next += CCharSet::CharacterLength(detail, next)) end = next;
    if (CCharSet::CharacterLength(detail, end) == 2 || !CCharSet::IsLeadByte(static_cast<unsigned char>(detail[end])))
      end = detail.size();
    return std::string(detail.substr(0, end));
  }

  bool Accept(const PhpFinding& finding) {
    const PhpPolicy* const policy = FindPhpPolicy(finding, &facts_);
    if (policy == nullptr) return false;
    Fill(policy->name, policy->labels, finding.detail, policy->suspicious);
    if (finding.kind == PhpFindingKind::kHidden || finding.kind == PhpFindingKind::kRequestCall) {
      ReportHiding(finding.kind, finding.way, &result_);
    }
    return true;
  }
  bool AcceptWords(bool encoders) {
    const PhpWordPolicy* const policy = FindPhpWordPolicy(encoders, &facts_);
    if (policy != nullptr) SetPlace(FindNoCase(text_, CCharSet::LowerAscii(policy->detail)), policy->detail.size());
    return policy != nullptr && Fill(policy->name, policy->labels, policy->detail, policy->suspicious);
  }

  // Long constant texts that are code once they are decoded.
  bool Encoded(const PhpFlowResult& flow) {
    view_ = TextView::kInner;
    for (const auto& [text, place] : flow.encoded) {
      place_ = place;
      if (text.starts_with("<?") && !text.starts_with("<?xml")) return Fill(MessageId::kEncoding, "base64");
      const RiskScore risk = ScoreRiskWords(text, RiskLanguage::kPhp);
      if (risk.score >= kPhpLayerRisk) return Fill(MessageId::kEncoding, risk.heaviest);
    }
    return false;
  }

  const std::string& Copy() {
    if (copy_.empty()) copy_ = BlankFreeLower(text_);
    return copy_;
  }

  // What the file's words and its spelling tell.
  bool Features() {
    if (AcceptWords(true)) return true;
    const RiskScore risk = ScoreRiskWords(text_, RiskLanguage::kPhp);
    if (risk.score >= kPhpRiskLimit) {
      SetPlace(risk.begin, risk.heaviest.size());
      const bool called = Copy().find(std::string(risk.heaviest) + "(") != std::string::npos;
      return called ? Fill(MessageId::kRiskCharacteristics, PhpLabels{MessageId::kDoubtful, MessageId::kLabelFunction},
                           risk.heaviest)
                    : Fill(MessageId::kDoubtful, Risk(MessageId::kLabelCharacter), risk.heaviest);
    }
    return Spelling() || AcceptWords(false);
  }

  bool Spelling() {
    switch (SpellingOfPhp(text_)) {
      case PhpSpelling::kBlankNames:
        return Fill(MessageId::kSuspiciousVariable, "$_");
      case PhpSpelling::kLookAlikes:
        return Fill(MessageId::kSuspiciousVariable, Risk(MessageId::kLabelVariable), "$O0");
      case PhpSpelling::kForeign:
        return Fill(MessageId::kSuspiciousVariable, Risk(MessageId::kLabelVariable), "$");
      case PhpSpelling::kScrambled:
        if (!facts_.Has(kPhpNamespace)) return Fill(MessageId::kSuspiciousComputation, "goto");
        break;
      case PhpSpelling::kOrdinary:
        break;
    }
    return HasComputedAlphabet(text_) && Fill(MessageId::kSuspiciousCharacter, Risk(MessageId::kLabelCharacter), "^");
  }
  static PhpLabels Risk(MessageId label) { return {MessageId::kRiskCharacteristics, label}; }

  void SetPlace(std::size_t begin, std::size_t size) {
    place_ = begin == std::string_view::npos ? TextPlace{} : TextPlace{begin, size};
  }

  std::string_view text_;
  TextPlace place_;  // of what is judged
  TextView view_ = TextView::kSent;
  CWalkBudget& walks_;
  WebshellResult& result_;
  std::string copy_;
  CFileFacts facts_;
};

}  // namespace

bool AnalysePhp(std::string_view text, CWalkBudget* walks, WebshellResult* result) {
  return CPhpJudge(text, walks, result).Run();
}

}  // namespace qiv

// Two judges: what values reach (php_flow), and which words the file speaks (risk_words). Code that the file runs or
// decodes is judged the same way, layer by layer; layers and their bytes are bounded.
#include "engines/webshell/php/analysis.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/hiding_analysis.h"
#include "engines/webshell/php/tokens.h"
#include "engines/webshell/risk_words.h"
#include "engines/webshell/signatures/builtin_signatures.h"
#include "engines/webshell/signatures/signature_rule.h"

namespace qiv {
namespace {

constexpr int kDeepestLayer = 10;              // samples wrap themselves up to some ten times
constexpr std::size_t kMostLayers = 64;        // texts judged for one file
constexpr std::size_t kLayerBytesPerByte = 4;  // compressed code grows three- to fourfold
constexpr std::size_t kLayerBytesAnyway = 1 << 18;
constexpr std::size_t kLayerBytesPerStep = 8;           // to look into one at all; its tokens are paid besides
constexpr std::size_t kLayerRoom = kPhpRoomAnyway / 2;  // for a layer, whatever those that wait for theirs hold
constexpr std::size_t kLargestUploader = 16384;    // bytes: an upload form and what stores it; more is an application
constexpr std::size_t kLargestStandalone = 32768;  // bytes: a file whose variables come from nowhere
constexpr std::size_t kLargestPrinter = 4096;      // bytes: shows another host's pages, and nothing else
constexpr std::size_t kSmallProgram = 10240;       // bytes: a class of a framework seldom fits
constexpr std::size_t kLargestTool = 65536;        // bytes: a tool in one file, not an application's script
constexpr std::int32_t kLayerRisk = 60;            // the limit for code that was hidden: being hidden says the rest

class CPhpJudge {
 public:
  CPhpJudge(std::string_view text, Language language, CWalkBudget* walks, WebshellResult* result)
      : text_(text), language_(language), walks_(*walks), result_(*result) {}

  bool Run() {
    struct Layer {
      std::string code;
      int depth;
    };
    std::vector<Layer> layers;
    std::size_t bytes = 0;
    const std::size_t most_bytes = kLayerBytesAnyway + text_.size() * kLayerBytesPerByte;
    const auto add = [&](PhpFlowResult& flow, int depth) {
      for (std::string& code : flow.nested) {
        if (depth > kDeepestLayer || layers.size() >= kMostLayers || bytes + code.size() > most_bytes) return;
        bytes += code.size();
        layers.push_back({std::move(code), depth});
      }
    };
    const std::size_t most_room = PhpRoom(text_.size());
    PhpFlowResult flow = FollowPhp(text_, false, most_room, &walks_);
    standalone_ = flow.standalone;
    for (const bool weak : {false, true}) {
      for (const PhpFinding& finding : flow.findings) {
        if (IsWeak(finding.kind) == weak && Accept(finding)) return true;
      }
    }
    if (Encoded(flow)) return true;
    add(flow, 1);
    flow = {};
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const std::string code = std::move(layers[i].code);
      if (!walks_.Spend(code.size() / kLayerBytesPerStep)) break;
      PhpFlowResult inner =
          FollowPhp(code, true, std::max(kLayerRoom, most_room - std::min(most_room, bytes)), &walks_);
      for (const PhpFinding& finding : inner.findings) {
        if (finding.kind == PhpFindingKind::kUpload) return Fill(MessageId::kFileUploader, finding.detail);
        if (finding.kind != PhpFindingKind::kUnknownSource && Accept(finding)) return true;
      }
      if (ScoreRiskWords(code, RiskLanguage::kPhp).score >= kLayerRisk) return Fill(MessageId::kSuspectedRisk, "");
      add(inner, layers[i].depth + 1);
    }
    return Features();
  }

 private:
  bool Fill(MessageId name, std::string_view detail, bool suspicious = false) {
    result_ = {};
    result_.name = Message(language_, name);
    result_.detail = LocalDetail(detail);
    result_.kind = kPhpRuleKind;
    result_.suspicious = suspicious;
    return true;
  }
  bool Fill(MessageId name, MessageId category, MessageId label, std::string_view detail, bool suspicious = false) {
    Fill(name, detail, suspicious);
    result_.detail = LabelledDetail(language_, label, result_.detail);
    result_.category = Message(language_, category);
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

  // Findings that say less than the others come last.
  static bool IsWeak(PhpFindingKind kind) { return kind >= PhpFindingKind::kTool || kind == PhpFindingKind::kUpload; }

  bool Accept(const PhpFinding& finding) {
    switch (finding.kind) {
      case PhpFindingKind::kBackdoor:
        return Fill(MessageId::kBackdoor, finding.detail);
      case PhpFindingKind::kHidden:
      case PhpFindingKind::kRequestCall:
        // Frameworks keep factories in variables.
        if (finding.detail == "$" && text_.size() > kSmallProgram && Has("namespace")) return false;
        // An unknown function that is given the request: in a program of several files it may be anything.
        if (finding.detail.empty() && !standalone_) return false;
        Fill(MessageId::kBackdoor, finding.detail);
        ReportHiding(finding.kind, finding.way, language_, &result_);
        return true;
      case PhpFindingKind::kInclude:
        return Fill(MessageId::kSuspiciousReference, MessageId::kRiskCharacteristics, MessageId::kLabelFile,
                    finding.detail);
      case PhpFindingKind::kFileWrite:
        return Fill(MessageId::kSuspiciousBackdoor, MessageId::kRiskCharacteristics, MessageId::kLabelInput,
                    finding.detail);
      case PhpFindingKind::kNetworkCode:
        return Fill(MessageId::kSuspiciousBackdoor, finding.detail);
      case PhpFindingKind::kDownload:
        return Fill(MessageId::kCopyUnknownFile, finding.detail);
      case PhpFindingKind::kTunnel:
        return !Has("namespace") && Fill(MessageId::kSuspiciousBackdoor, finding.detail);
      case PhpFindingKind::kBuiltIn:
        return Fill(MessageId::kBuiltInType, MessageId::kRiskCharacteristics, MessageId::kLabelFunction,
                    finding.detail);
      case PhpFindingKind::kTool:
        return standalone_ && text_.size() <= kLargestTool && !Has("defined(") && !Has("@package") &&
               Fill(MessageId::kFileDetector, MessageId::kRiskCharacteristics, MessageId::kLabelParameter,
                    finding.detail) &&
               (result_.suspicious = true);
      case PhpFindingKind::kRemoteText:
        return standalone_ && text_.size() <= kLargestPrinter && !Has("<form") &&
               Fill(MessageId::kSuspiciousBackdoor, MessageId::kRiskCharacteristics, MessageId::kLabelInput,
                    finding.detail) &&
               (result_.suspicious = true);
      case PhpFindingKind::kSensitive:
        return Fill(MessageId::kInformationLeakage, finding.detail);
      case PhpFindingKind::kMail:
        return standalone_ && Fill(MessageId::kSuspiciousBackdoor, finding.detail, true);
      case PhpFindingKind::kUpload:
        return IsUploader() && Fill(MessageId::kFileUploader, finding.detail, true);
      case PhpFindingKind::kUnknownSource:
        return standalone_ && text_.size() <= kLargestStandalone &&
               Fill(MessageId::kExecuteVariables, finding.detail, true);
    }
    return false;
  }

  // Long constant texts that are code once they are decoded.
  bool Encoded(const PhpFlowResult& flow) {
    for (const std::string& text : flow.encoded) {
      if (text.starts_with("<?") && !text.starts_with("<?xml")) return Fill(MessageId::kEncoding, "base64");
      const RiskScore risk = ScoreRiskWords(text, RiskLanguage::kPhp);
      if (risk.score >= kLayerRisk) return Fill(MessageId::kEncoding, risk.heaviest);
    }
    return false;
  }

  const std::string& Copy() {
    if (copy_.empty()) copy_ = BlankFreeLower(text_);
    return copy_;
  }
  bool Has(std::string_view literal) { return Copy().find(literal) != std::string::npos; }

  // A form that posts a file to the page itself, which stores it under the name it came with.
  bool IsUploader() {
    if (text_.size() > kLargestUploader || Has("namespace") || Has("@package") || Has("defined(")) return false;
    return Has("<form") ||
           (standalone_ && (Has("_files[") || Has("move_uploaded_file(")) && text_.size() < kLargestUploader / 8);
  }

  bool Features() {
    if (Has("@include(\"") && Has("e_d(") && !Has("define(")) return Fill(MessageId::kPhpShield, "E_D(");
    const RiskScore risk = ScoreRiskWords(text_, RiskLanguage::kPhp);
    if (risk.score >= kPhpRiskLimit) {
      return Has(std::string(risk.heaviest) + "(")
                 ? Fill(MessageId::kRiskCharacteristics, MessageId::kDoubtful, MessageId::kLabelFunction, risk.heaviest)
                 : Fill(MessageId::kDoubtful, MessageId::kRiskCharacteristics, MessageId::kLabelCharacter,
                        risk.heaviest);
    }
    return Spelling() || Characters() || Small() || Page();
  }

  // A script by itself: neither part of a program nor a definition that others use.
  bool IsScript() {
    for (const std::string_view part : {"require", "include", "namespace", "define(", "@package"}) {
      if (Has(part)) return false;
    }
    return text_.find("class ") == std::string_view::npos && text_.find("interface ") == std::string_view::npos;
  }

  // What small pages do, told by their words alone.
  bool Page() {
    if (text_.size() > kLargestPage || !IsScript()) return false;
    if ((Has("copy(\"http") || Has("copy('http")) && Has(".php")) return Fill(MessageId::kCopyUnknownFile, "copy");
    const bool stores = Has("copy(") || Has("move_uploaded_file(") || Has("file_put_contents(");
    if (Has("_files[") && stores && Has("<form") && Has("submit") && !Has("function") && !Has("exit")) {
      return Fill(MessageId::kFileUploader, MessageId::kRiskCharacteristics, MessageId::kLabelFile, "_FILES", true);
    }
    if (Has("@ord($") && Has("array") && (Has("isset") || Has("elseif") || Has("else"))) {
      return Fill(MessageId::kSuspiciousComputation, MessageId::kRiskCharacteristics, MessageId::kLabelFunction, "ord",
                  true);
    }
    if (Has("rot13") && (Has("_get[") || Has("_post[") || Has("_request[") || Has("_server[")) && Has("str_rot13(")) {
      return Fill(MessageId::kEncoding, MessageId::kRiskCharacteristics, MessageId::kLabelFunction, "str_rot13", true);
    }
    return false;
  }
  static constexpr std::size_t kLargestPage = 4096;  // bytes

  // Nothing but operators, brackets and names without letters: the alphabet is computed.
  bool Characters() {
    if (text_.size() > kLargestAlphabet) return false;
    std::size_t operators = 0;
    std::size_t words = 0;
    std::size_t blank_names = 0;
    CPhpLexer lexer(text_, false);
    for (PhpToken token; lexer.Next(&token);) {
      const std::string_view name = token.Text(text_);
      const bool letters = std::count_if(name.begin(), name.end(), IsLetter) > 1;
      if (token.kind == PhpTokenKind::kOperator) {
        operators += token.Is("$") || token.Is("==") || token.Is("^") || token.Is("|") || token.Is("~") ||
                     token.Is("+") || token.Is("++") || token.Is("!") || token.Is(".");
      } else if (token.kind == PhpTokenKind::kVariable || token.kind == PhpTokenKind::kName) {
        words += letters;
        blank_names += !letters && token.kind == PhpTokenKind::kVariable;
      }
    }
    return operators >= kMostAlphabetOperators && words <= operators / kMostAlphabetOperators &&
           blank_names >= kMostAlphabetOperators / 2 &&
           Fill(MessageId::kSuspiciousCharacter, MessageId::kRiskCharacteristics, MessageId::kLabelCharacter, "^");
  }
  static constexpr std::size_t kLargestAlphabet = 65536;    // bytes: such files are short
  static constexpr std::size_t kMostAlphabetOperators = 6;  // to every word; programs have more words than these

  // Names of nothing but "_", counted up letter by letter; labels and jumps that scramble the order of statements.
  bool Spelling() {
    std::size_t blank_names = 0;
    std::size_t increments = 0;
    std::size_t jumps = 0;
    std::size_t escapes = 0;
    std::size_t foreign_names = 0;
    std::size_t look_alikes = 0;
    const std::string_view text = text_;
    for (std::size_t i = 0; i + 4 < text.size(); ++i) {
      const char c = text[i];
      if (c == '$') {
        foreign_names += static_cast<unsigned char>(text[i + 1]) >= 0x80;
        const std::size_t end = std::min(text.find_first_not_of("O0_", i + 1), text.size());
        const std::size_t other = std::min(text.find_first_not_of("Il1_", i + 1), text.size());
        const std::size_t length = std::max(end, other) - i - 1;
        if (length >= kLookAlike && !IsWordByte(text[std::min(i + 1 + length, text.size() - 1)]) && text[i + 1] != '_')
          ++look_alikes;
      }
      if (c == '$' && text[i + 1] == '_') {
        std::size_t end = i + 1;
        while (end < text.size() && text[end] == '_') ++end;
        if (end == text.size() || !IsWordByte(text[end])) {
          ++blank_names;
          increments += text.substr(end).starts_with("++");
        }
      } else if (c == '\\' && (text[i + 1] == 'x' || IsDigit(text[i + 1]))) {
        ++escapes;
      } else if (c == 'g' && text.substr(i).starts_with("goto ")) {
        ++jumps;
      }
    }
    if (blank_names >= kMostBlankNames && increments >= kMostBlankNames / 2)
      return Fill(MessageId::kSuspiciousVariable, "$_");
    if (look_alikes >= kMostLookAlikes || (foreign_names >= kMostForeignNames && HasForeignNames())) {
      return Fill(MessageId::kSuspiciousVariable, MessageId::kRiskCharacteristics, MessageId::kLabelVariable,
                  look_alikes >= kMostLookAlikes ? "$O0" : "$");
    }
    if (jumps >= kMostJumps && escapes >= kMostEscapes && !Has("namespace"))
      return Fill(MessageId::kSuspiciousComputation, "goto");
    return false;
  }
  static constexpr std::size_t kMostBlankNames = 20;  // programs use "$_" now and then, not as their alphabet
  // Variables named in bytes that are no text: not dollar signs in binary strings.
  bool HasForeignNames() const {
    if (CCharSet::IsValidUtf8(text_)) return false;
    std::size_t count = 0;
    CPhpLexer lexer(text_, false);
    for (PhpToken token; lexer.Next(&token);) {
      count += token.kind == PhpTokenKind::kVariable && static_cast<unsigned char>(token.Text(text_)[0]) >= 0x80;
    }
    return count >= kMostForeignNames;
  }
  static constexpr std::size_t kMostJumps = 20;
  static constexpr std::size_t kLookAlike = 4;          // letters of a name that are hard to tell apart
  static constexpr std::size_t kMostLookAlikes = 10;    // encoders name everything so
  static constexpr std::size_t kMostForeignNames = 10;  // names in no encoding that people write in
  static constexpr std::size_t kMostEscapes = 40;

  bool Small() {
    constexpr std::size_t kSmall = 1024;
    if (text_.size() > kSmall) return false;
    if (standalone_ && Has("$_session[") && (Has("]=base64_decode($_") || Has("]=hex2bin($_"))) {
      return Fill(MessageId::kSuspiciousVariable, MessageId::kRiskCharacteristics, MessageId::kLabelVariable,
                  "$_SESSION");
    }
    if (Copy().size() <= kPhpinfo && (Has("phpinfo();") || Has("phpinfo()"))) {
      return Fill(MessageId::kInformationLeakage, "phpinfo()", true);
    }
    if (Has("readdir") && Has("is_writable") && (Has("_get") || Has("_post") || Has("_request") || Has("table")) &&
        !Has("define(")) {
      return Fill(MessageId::kFileDetector, "readdir", true);
    }
    if (Has("pcntl_fork") && Has("while") && Has("exec(")) return Fill(MessageId::kProcessCreation, "pcntl_fork", true);
    return false;
  }
  static constexpr std::size_t kPhpinfo = 32;  // bytes: the call and its tags, nothing else

  std::string_view text_;
  Language language_;
  CWalkBudget& walks_;
  WebshellResult& result_;
  bool standalone_ = true;
  std::string copy_;
};

}  // namespace

bool AnalysePhp(std::string_view text, Language language, CWalkBudget* walks, WebshellResult* result) {
  return CPhpJudge(text, language, walks, result).Run();
}

}  // namespace qiv

#include "engines/webshell/php/findings.h"

#include <algorithm>

#include "common/inflate.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"

namespace qiv {
namespace {

constexpr std::size_t kProgram = 64;  // bytes: shorter texts are compared with the start of files

// Code and markup, not a picture.
bool IsMostlyText(std::string_view text) {
  const std::string_view head = text.substr(0, 512);
  const auto plain = std::count_if(head.begin(), head.end(), [](char c) {
    return static_cast<unsigned char>(c) >= 0x20 || c == '\n' || c == '\r' || c == '\t';
  });
  return !head.empty() && head.find('\0') == std::string_view::npos &&
         static_cast<std::size_t>(plain) * 50 >= head.size() * 49;
}

}  // namespace

void CPhpFindings::Report(PhpFindingKind kind, std::string_view detail, HidingWay way) {
  constexpr std::size_t kLongestDetail = 64;
  std::vector<PhpFinding>& findings = result_.findings;
  if (findings.size() >= kMostFindings) return;
  const auto same = [&](const PhpFinding& f) { return f.kind == kind && f.detail == detail.substr(0, kLongestDetail); };
  if (std::none_of(findings.begin(), findings.end(), same)) {
    findings.push_back({kind, way, std::string(detail.substr(0, kLongestDetail)), Place()});
  }
}

void CPhpFindings::Add(std::vector<PhpInnerCode>* texts, std::string_view text) {
  constexpr std::size_t kNestedRoom = 160;  // beside the bytes
  if (pass_ == 0 || texts->size() >= kMostNested || text.size() > room_ || text.size() < 4) return;
  if (!budget_.HasRoom(text.size() + kNestedRoom) || !budget_.Spend(text.size())) return;
  const auto same = [text](const PhpInnerCode& inner) { return inner.code == text; };
  if (std::any_of(texts->begin(), texts->end(), same)) return;
  room_ -= text.size();
  budget_.Hold(text.size() + kNestedRoom);
  texts->push_back({std::string(text), Place()});
}

void CPhpFindings::AddLiteral(std::string_view text) {
  if (pass_ != 1) return;
  if (text.size() < kProgram) {
    if (text.find("<?") != std::string_view::npos && text.find("$_") != std::string_view::npos)
      AddNested("?>" + std::string(text));
    return;
  }
  if (text.starts_with("\x7F"
                       "ELF"))
    return Report(PhpFindingKind::kHidden, "ELF", HidingWay::kCharacters);
  if (text.find("<?") != std::string_view::npos) return AddNested("?>" + std::string(text));
  AddEncoded(text);
}

// Base64 of code, which may be compressed.
void CPhpFindings::AddEncoded(std::string_view text) {
  constexpr std::size_t kEncoded = 128;  // bytes: shorter ones are keys and the like
  constexpr std::size_t kLookedAt = 64;  // bytes that tell whether a text is base64
  constexpr std::size_t kGrowth = 8;     // compressed code grows three- to fourfold
  const std::string_view head = text.substr(0, kLookedAt);
  if (text.size() < kEncoded || !std::all_of(head.begin(), head.end(), [](char c) {
        return IsLetter(c) || IsDigit(c) || c == '+' || c == '/';
      })) {
    return;
  }
  std::size_t limit = std::min({room_, text.size() * kGrowth, budget_.Room() / 2, budget_.Work()});
  if (!budget_.HasRoom(text.size()) || !budget_.Spend(text.size())) return;
  std::string decoded = DecodeBase64(text);
  for (int layer = 0; layer < 2 && !decoded.empty(); ++layer) {
    if (decoded.starts_with("\x7F"
                            "ELF"))
      return Report(PhpFindingKind::kHidden, "ELF", HidingWay::kBase64);
    const auto first = static_cast<unsigned char>(decoded[0]);
    std::string inflated;
    if (first == 0x78) {
      inflated = Inflate(decoded, DeflateWrap::kZlib, limit);
    } else if (first == 0x1F) {
      inflated = Inflate(decoded, DeflateWrap::kGzip, limit);
    } else if (!IsSpace(decoded[0]) && first != '<' && first != '$' && first != '?' && !IsLetter(decoded[0])) {
      inflated = Inflate(decoded, DeflateWrap::kRaw, limit);
    }
    if (inflated.size() < kProgram || !budget_.Spend(inflated.size())) break;
    decoded = std::move(inflated);
  }
  if (IsMostlyText(decoded)) Add(&result_.encoded, decoded);
}

}  // namespace qiv

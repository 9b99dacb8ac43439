// Code inside a file's texts.
#include <algorithm>

#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/decoding/inflate.h"
#include "engines/webshell/php/machine.h"

namespace qiv {
namespace {

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

bool CPhpMachine::IsAdded(std::vector<std::string>* texts, std::string_view text) {
  constexpr std::size_t kNestedRoom = 128;  // beside the bytes
  if (pass_ == 0 || texts->size() >= kMostNested || text.size() > nested_left_ || text.size() < 4) return false;
  if (!budget_.HasRoom(text.size() + kNestedRoom) || !Spend(text.size())) return false;
  if (std::find(texts->begin(), texts->end(), text) != texts->end()) return false;
  nested_left_ -= text.size();
  budget_.Hold(text.size() + kNestedRoom);
  texts->emplace_back(text);
  return true;
}

void CPhpMachine::AddNested(std::string_view text) { IsAdded(&result_.nested, text); }

// A long constant text that is code, or a program, once it is decoded.
void CPhpMachine::Literal(std::string_view text) {
  constexpr std::size_t kProgram = 64;   // bytes: shorter ones are compared with the start of files
  constexpr std::size_t kEncoded = 128;  // bytes: shorter ones are keys and the like
  constexpr std::size_t kLookedAt = 64;  // bytes that tell whether a text is base64
  constexpr std::size_t kGrowth = 8;     // compressed code grows three- to fourfold
  if (text.size() < kProgram) {
    if (text.find("<?") != std::string_view::npos && text.find("$_") != std::string_view::npos)
      AddNested("?>" + std::string(text));
    return;
  }
  if (text.starts_with("\x7F"
                       "ELF"))
    return Report(PhpFindingKind::kHidden, "ELF", HidingWay::kCharacters);
  if (text.find("<?") != std::string_view::npos) return AddNested("?>" + std::string(text));
  const std::string_view head = text.substr(0, kLookedAt);
  if (text.size() < kEncoded || !std::all_of(head.begin(), head.end(), [](char c) {
        return IsLetter(c) || IsDigit(c) || c == '+' || c == '/';
      })) {
    return;
  }
  std::size_t limit = std::min({nested_left_, text.size() * kGrowth, budget_.Room() / 2, budget_.Work()});
  if (!budget_.HasRoom(text.size()) || !Spend(text.size())) return;
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
    if (inflated.size() < kProgram || !Spend(inflated.size())) break;
    decoded = std::move(inflated);
  }
  if (IsMostlyText(decoded)) IsAdded(&result_.encoded, decoded);
}

// A function of create_function is called: its body is judged with what it is given.
PhpValue CPhpMachine::CallMade(std::string_view name, std::span<const PhpValue> arguments) {
  const auto number = static_cast<std::size_t>(ToNumber(name.substr(kMadeFunction.size())));
  const bool decoded = AnyHas(arguments, kDecoded);
  if (number >= made_.size() || !(decoded || AnyHas(arguments, kFromRequest | kServerList))) return {};
  if (made_[number].body.empty()) {  // nobody knows what it does
    Report(PhpFindingKind::kHidden, "create_function", HidingWay::kOther);
    return {};
  }
  std::string code;
  for (const std::string_view parameter : Split(std::string_view(made_[number].parameters), ',')) {
    const std::size_t begin = parameter.find('$');
    if (begin == std::string_view::npos) continue;
    std::size_t end = begin + 1;
    while (end < parameter.size() && IsWordByte(parameter[end])) ++end;
    code.append(parameter.substr(begin, end - begin)).append(decoded ? "=base64_decode($0);" : "=$_REQUEST[0];");
  }
  AddNested(code + made_[number].body);
  return {};
}

}  // namespace qiv

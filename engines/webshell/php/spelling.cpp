#include "engines/webshell/php/spelling.h"

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/php/tokens.h"

namespace qiv {
namespace {

constexpr std::size_t kLargestAlphabet = 65536;    // bytes: such files are short
constexpr std::size_t kMostAlphabetOperators = 6;  // to every word; programs have more words than these
constexpr std::size_t kMostBlankNames = 20;        // programs use "$_" now and then, not as their alphabet
constexpr std::size_t kMostJumps = 20;
constexpr std::size_t kLookAlike = 4;          // letters of a name that are hard to tell apart
constexpr std::size_t kMostLookAlikes = 10;    // encoders name everything so
constexpr std::size_t kMostForeignNames = 10;  // names in no encoding that people write in
constexpr std::size_t kMostEscapes = 40;

// Variables named in bytes that are no text: not dollar signs in binary strings.
bool HasForeignNames(std::string_view text) {
  if (CCharSet::IsValidUtf8(text)) return false;
  std::size_t count = 0;
  CPhpLexer lexer(text, false);
  for (PhpToken token; lexer.Next(&token);) {
    count += token.kind == PhpTokenKind::kVariable && static_cast<unsigned char>(token.Text(text)[0]) >= 0x80;
  }
  return count >= kMostForeignNames;
}

}  // namespace

PhpSpelling SpellingOfPhp(std::string_view text) {
  std::size_t blank_names = 0;
  std::size_t increments = 0;
  std::size_t jumps = 0;
  std::size_t escapes = 0;
  std::size_t foreign_names = 0;
  std::size_t look_alikes = 0;
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
  if (blank_names >= kMostBlankNames && increments >= kMostBlankNames / 2) return PhpSpelling::kBlankNames;
  if (look_alikes >= kMostLookAlikes) return PhpSpelling::kLookAlikes;
  if (foreign_names >= kMostForeignNames && HasForeignNames(text)) return PhpSpelling::kForeign;
  return jumps >= kMostJumps && escapes >= kMostEscapes ? PhpSpelling::kScrambled : PhpSpelling::kOrdinary;
}

bool HasComputedAlphabet(std::string_view text) {
  if (text.size() > kLargestAlphabet) return false;
  std::size_t operators = 0;
  std::size_t words = 0;
  std::size_t blank_names = 0;
  CPhpLexer lexer(text, false);
  for (PhpToken token; lexer.Next(&token);) {
    const std::string_view name = token.Text(text);
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
         blank_names >= kMostAlphabetOperators / 2;
}

}  // namespace qiv

#include "engines/webshell/signatures/signature_library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "common/text.h"
#include "engines/webshell/signatures/signature_text.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

// The library taken literally: kind by kind, rule by rule, searching again from a later first occurrence.
class CSlowLibrary {
 public:
  CSlowLibrary(std::vector<SignatureRule> rules, bool whole_word) : rules_(std::move(rules)), whole_word_(whole_word) {}

  int Find(std::string_view text, std::size_t size) const {
    for (const PatternKind kind : {PatternKind::kPlain, PatternKind::kAllOf, PatternKind::kExcluding,
                                   PatternKind::kSequence, PatternKind::kNearSequence}) {
      for (std::size_t r = 0; r < rules_.size(); ++r) {
        const SignatureRule& rule = rules_[r];
        if (rule.kind != kind || rule.terms.empty() || (rule.size_limit != 0 && rule.size_limit < size)) continue;
        if (Hits(rule, text)) return static_cast<int>(r);
      }
    }
    return -1;
  }

 private:
  std::size_t Search(std::string_view text, std::string_view term, std::size_t from) const {
    for (std::size_t p = text.find(term, from); p != std::string_view::npos; p = text.find(term, p + 1)) {
      const std::size_t end = p + term.size();
      if (!whole_word_ || ((p == 0 || !IsWordByte(text[p - 1])) && (end == text.size() || !IsWordByte(text[end]))))
        return p;
    }
    return std::string_view::npos;
  }

  bool Hits(const SignatureRule& rule, std::string_view text) const {
    for (const std::string& term : rule.excluded) {
      if (Search(text, term, 0) != std::string_view::npos) return false;
    }
    if (!rule.in_order) {
      return std::all_of(rule.terms.begin(), rule.terms.end(),
                         [&](const std::string& term) { return Search(text, term, 0) != std::string_view::npos; });
    }
    const std::size_t gap = rule.kind != PatternKind::kNearSequence ? text.size() : whole_word_ ? 20 : 10;
    for (std::size_t first = Search(text, rule.terms[0], 0); first != std::string_view::npos;
         first = Search(text, rule.terms[0], first + 1)) {
      std::size_t end = first + rule.terms[0].size();
      std::size_t placed = 1;
      for (; placed < rule.terms.size(); ++placed) {
        const std::size_t p = Search(text, rule.terms[placed], end);
        if (p == std::string_view::npos || p - end > gap) break;
        end = p + rule.terms[placed].size();
      }
      if (placed == rule.terms.size()) return true;
    }
    return false;
  }

  std::vector<SignatureRule> rules_;
  bool whole_word_;
};

std::vector<SignatureRule> Rules(const std::vector<std::string>& patterns) {
  std::vector<SignatureRule> rules;
  for (const std::string& pattern : patterns) rules.push_back(ParseSignaturePattern(pattern));
  return rules;
}

void Compare(const std::vector<std::string>& patterns, const Tokens& tokens, std::size_t longest) {
  for (const bool whole_word : {false, true}) {
    const CSignatureLibrary fast({Rules(patterns), {}, {}, whole_word});
    const CSlowLibrary slow(Rules(patterns), whole_word);
    const auto compare = [&](std::string_view text) {
      const SignatureRule* const rule = fast.Find(text, text.size()).rule;
      ASSERT_EQ(rule == nullptr ? -1 : rule - fast.Rules().data(), slow.Find(text, text.size()))
          << patterns[0] << (whole_word ? " whole: " : ": ") << testing::PrintToString(std::string(text));
    };
    ForEachSequence(tokens, longest, compare);
    ForRandomSequences(tokens, 40, 3000, compare);
  }
}

TEST(SignatureLibrary, FindsWhatTheSearchWithRestartsFinds) {
  Compare({"a!b!c"}, {"a", "b", "c", "."}, 7);
  Compare({"a!b!c"}, {"a", "b", "c", ".....", "......"}, 6);
  Compare({"aa!ab!ba"}, {"a", "b", ".....", "."}, 8);  // terms that overlap each other
  Compare({"a!a!a", "a!!b!!a"}, {"a", "b", ".........", "."}, 6);
  Compare({"aba!ba", "ab!!ba!!ab"}, {"a", "b", "...."}, 8);
  Compare({"a-!b", "b!a!!a"}, {"a", "b", "-", "_", " "}, 6);
  Compare({"a!!b!!a--c", "c!!b--a--", "b++a--..--c"}, {"a", "b", "c", "."}, 6);
  Compare({"c", "a++b", "a++b--c", "a!!b", "b!a"}, {"a", "b", "c", "."}, 6);  // the order of kinds
  Compare({"b!a", "a!!b", "b++a--c", "--a", "a++++b", ""}, {"a", "b", "c"}, 6);
  Compare({"a!!b!!......", "b!a!......"}, {"a", "b", "aa", "bb", "ab", "ba", "......"}, 3);  // the longest comes late
}

TEST(SignatureLibrary, ReadsThePatternLanguage) {
  const SignatureRule excluding = ParseSignaturePattern("Gzuncompress++base64_decode--name space--defined(");
  EXPECT_EQ(excluding.kind, PatternKind::kExcluding);
  EXPECT_EQ(excluding.terms, (std::vector<std::string>{"gzuncompress", "base64_decode"}));
  EXPECT_EQ(excluding.excluded, (std::vector<std::string>{"namespace", "defined("}));
  EXPECT_EQ(ParseSignaturePattern("a--<!--#include--b").excluded, (std::vector<std::string>{"<!--#include", "b"}));
  EXPECT_EQ(ParseSignaturePattern("a!!b++c!d").kind, PatternKind::kAllOf);
  EXPECT_EQ(ParseSignaturePattern("a!!b!c").terms, (std::vector<std::string>{"a", "b!c"}));
  EXPECT_EQ(ParseSignaturePattern("a!b").kind, PatternKind::kNearSequence);
  EXPECT_EQ(ParseSignaturePattern("x++>y++").terms, (std::vector<std::string>{"x", ">y"}));
}

TEST(SignatureLibrary, ReadsRecordsOfSevenAndEightFields) {
  const std::vector<SignatureRule> rules = ParseSignatureRules(
      "ab{*}0{*}Name{*}0{*}0{*}4{*}300{#}\r\ncd{*}0{*}{*}0{*}0{*}0{*}5{*}0{#}ef{*}0{*}En\tZh{#}{*}0{*}x{#}");
  ASSERT_EQ(rules.size(), 3U);
  EXPECT_EQ(rules[0].name, (SignatureName{"Name", ""}));
  EXPECT_EQ(rules[0].size_limit, 300U);
  EXPECT_EQ(rules[1].number, 5U);
  EXPECT_EQ(rules[1].size_limit, 0U);
  EXPECT_EQ(rules[1].name, SignatureName());
  EXPECT_EQ(rules[2].number, 4U);
  EXPECT_EQ(rules[2].name, (SignatureName{"En", "Zh"}));
}

TEST(SignatureLibrary, ExtraTermsAddOrSpare) {
  std::string text;
  const std::string_view extra[] = {"Eval(", "--defined(", "system("};
  AddSignatureRule(&text, "A!!Rray--Namespace", "++", "n", extra, 7, 4);
  EXPECT_EQ(text,
            "a++rray++eval(--namespace--defined({*}0{*}n{*}0{*}0{*}4{*}7{#}"
            "a++rray++system(--namespace--defined({*}0{*}n{*}0{*}0{*}4{*}7{#}");
  text.clear();
  AddSignatureRule(&text, "a!!b--c", "++", "n", std::span(extra).subspan(1, 1), 7, 4);
  EXPECT_EQ(text, "a!!b--c--defined({*}0{*}n{*}0{*}0{*}4{*}7{#}");
}

}  // namespace
}  // namespace qiv

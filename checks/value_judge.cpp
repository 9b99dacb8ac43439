#include "checks/value_judge.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "checks/value_forms.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/injection/sql_squeeze.h"

namespace qiv {
namespace {

// JSON in a parameter, and JSON in a string of that, are looked into.
constexpr int kMostNested = 2;

/// Bytes in which everything stands by accident: text in UTF-16, or in a body that is no form a share of control bytes
/// that no text has. The rules judge such values all the same.
bool IsBinary(const RequestValue& value, std::string_view text) {
  constexpr std::size_t kShortest = 32;
  constexpr std::size_t kSample = 4096;
  constexpr std::size_t kNulShare = 4;  // one NUL in so many bytes
  constexpr std::size_t kControlShare = 16;
  if (text.size() < kShortest) return false;
  const std::string_view sample = text.substr(0, kSample);
  const auto is_odd = [](char c) { return static_cast<unsigned char>(c) < 0x20 && !IsSpace(c); };
  const auto nul = static_cast<std::size_t>(std::count(sample.begin(), sample.end(), '\0'));
  if (nul * kNulShare > sample.size()) return true;
  if (value.encoding != RequestValue::kPlain || !value.name.empty()) return false;
  const auto odd = static_cast<std::size_t>(std::count_if(sample.begin(), sample.end(), is_odd));
  return odd * kControlShare > sample.size();
}

/// What a value may hold without being SQL by its form, in one look at each byte: most values are let go by it. None is
/// found that begins with a letter and holds nothing but single blanks and signs that join words, numbers and
/// addresses; none that begins otherwise and has no blank besides.
class CPlainValue {
 public:
  static bool Is(std::string_view text) {
    unsigned seen = 0;
    unsigned before = 0;
    for (const char c : text) {
      const unsigned kind = kKinds[static_cast<unsigned char>(c)];
      seen |= kind | (kind & before & kBlank) << 1U;
      before = kind;
    }
    if (seen & kTelling) return false;
    return (seen & kBlank) == 0 || IsLetter(text.front()) || static_cast<unsigned char>(text.front()) >= 0x80;
  }

 private:
  static constexpr unsigned kBlank = 1;
  static constexpr unsigned kTelling = 2;  // twice kBlank: a run of blanks
  static constexpr auto kKinds = [] {
    std::array<std::uint8_t, 256> kinds{};
    for (std::size_t c = 0; c < 0x20; ++c) kinds[c] = kTelling;
    for (const char c : {'\'', '"', '`', '(', '=', '<', '>', '|', '&', ';', '*', '[', '{', '\x7F', '\xA0'})
      kinds[static_cast<unsigned char>(c)] = kTelling;
    kinds[' '] = kBlank;
    return kinds;
  }();
};

}  // namespace

bool CValueJudge::Judge(const RequestValue& value) {
  return !ForEachForm(value, [&](const ValueForm& form) { return !JudgeForm(value, form.text, form.is_sent); });
}

bool CValueJudge::JudgeForm(const RequestValue& value, std::string_view text, bool is_sent) {
  if (text.empty()) return false;
  if (CPlainValue::Is(text)) return !is_sent && JudgeByRules(value, text, false);
  if (switches_.detector && !IsBinary(value, text)) {
    if (const auto found = FindSqlExpression(text)) {
      const std::size_t begin = Keep(value, text);
      hit_.sql = {SqlFindingId::kExpression,
                  nullptr,
                  found->kind,
                  true,
                  {0, hit_.name_length},
                  {begin, text.size()},
                  {begin + found->begin, found->end - found->begin}};
      return true;
    }
  }
  if (!is_sent && JudgeByRules(value, text, false)) return true;
  if (switches_.sql && JudgeByRules(value, text, true)) return true;
  return JudgeNested(value, text);
}

bool CValueJudge::JudgeByRules(const RequestValue& value, std::string_view text, bool squeeze) {
  // As it would stand in a form: rules know what is before a value and behind it.
  lowered_.assign(1, '=');
  if (squeeze) {
    if (!SqueezeSql(text, &lowered_)) return false;
  } else {
    lowered_ += text;
  }
  lowered_ += '&';
  const std::string exact = lowered_;
  lowered_ = CCharSet::LowerBytes(exact);
  const JudgedText judged(lowered_, exact);
  const JudgedText alone = judged.Part({1, lowered_.size() - 2});
  if (switches_.detector && !squeeze && SqlInjectionDetector::Check(alone, &settings_, library_, &hit_.sql, false)) {
    const std::size_t begin = Keep(value, text);
    hit_.sql.is_parameter = true;
    hit_.sql.name = {0, hit_.name_length};
    hit_.sql.value = {begin, text.size()};
    hit_.sql.word.offset += begin;
    return true;
  }
  if (switches_.sql) {
    hit_.keyword = rules_.FindFirst(judged);
    if (hit_.keyword) {
      Keep(value, text);
      return true;
    }
  }
  if (switches_.xss && !squeeze) {
    hit_.xss = XssDetector::CheckText(judged, settings_, library_, &hit_.fragment, false);
    if (hit_.xss != XssType::kNone) {
      hit_.fragment.offset += Keep(value, text) - 1;
      return true;
    }
  }
  return false;
}

bool CValueJudge::JudgeNested(const RequestValue& value, std::string_view text) {
  constexpr std::size_t kShortest = 5;  // {"":}
  if (depth_ >= kMostNested || text.size() < kShortest || !LooksLikeJson(text)) return false;
  ++depth_;
  const bool all = ForEachJsonValue(text, [&](const RequestValue& nested) {
    return !Judge({nested.name.empty() ? value.name : nested.name, nested.raw, nested.encoding});
  });
  --depth_;
  return !all;
}

std::size_t CValueJudge::Keep(const RequestValue& value, std::string_view text) {
  std::string room;
  hit_.text = RequestValue{{}, value.name, value.encoding}.Decoded(&room);
  hit_.name_length = hit_.text.size();
  hit_.text.append("=").append(text);
  return hit_.name_length + 1;
}

}  // namespace qiv

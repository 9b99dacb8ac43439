#include "checks/value_judge.h"

#include "checks/binary_text.h"
#include "checks/plain_value.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/injection/sql_squeeze.h"

namespace qiv {
namespace {

/// A value without what InForm puts around it.
JudgedText Alone(const JudgedText& in_form) { return in_form.Part({1, in_form.lowered.size() - 2}); }

}  // namespace

bool IsBinary(const RequestValue& value, std::string_view text) {
  constexpr std::size_t kShortest = 32;
  constexpr std::size_t kNulShare = 4;  // one NUL in so many bytes
  if (text.size() < kShortest) return false;
  const std::string_view sample = text.substr(0, kBinarySample);
  const auto nul = static_cast<std::size_t>(std::count(sample.begin(), sample.end(), '\0'));
  if (nul * kNulShare > sample.size()) return true;
  if (value.encoding != RequestValue::kPlain || !value.name.empty()) return false;
  return HoldsControlBytes(text);
}

bool CValueJudge::Judge(const RequestValue& value) {
  if (IsPlainValue(value)) return false;
  return !ForEachForm(value, &rooms_[depth_],
                      [&](const ValueForm& form) { return !JudgeForm(value, form.text, form.is_sent); });
}

bool CValueJudge::JudgeForm(const RequestValue& value, std::string_view text, bool is_sent) {
  if (text.empty()) return false;
  const bool plain = IsPlainText(text);
  if (!plain && FindExpression(value, text)) return true;
  if (!is_sent) {
    if (JudgeByRules(value, text)) return true;
  } else if (!plain && switches_.xss_forms && FindScript(value, text, Alone(InForm(text)), true)) {
    return true;
  }
  if (plain) return false;
  return JudgeSqueezed(value, text) || JudgeNested(value, text);
}

bool CValueJudge::FindExpression(const RequestValue& value, std::string_view text) {
  if (!switches_.detector || IsBinary(value, text)) return false;
  const auto found = FindSqlExpression(text);
  if (!found) return false;
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

JudgedText CValueJudge::InForm(std::string_view text) {
  exact_.assign(1, '=').append(text) += '&';
  lowered_.resize(exact_.size());
  CCharSet::LowerBytes(exact_, lowered_.data());
  return {lowered_, exact_};
}

bool CValueJudge::JudgeByRules(const RequestValue& value, std::string_view text) {
  const JudgedText judged = InForm(text);
  const JudgedText alone = Alone(judged);
  if (switches_.detector && SqlInjectionDetector::Check(alone, &settings_, library_, &hit_.sql, false)) {
    const std::size_t begin = Keep(value, text);
    hit_.sql.is_parameter = true;
    hit_.sql.name = {0, hit_.name_length};
    hit_.sql.value = {begin, text.size()};
    hit_.sql.word.offset += begin;
    return true;
  }
  if (switches_.sql) {
    hit_.keyword = rules_.FindFirst(judged, &rules_room_);
    if (hit_.keyword) {
      Keep(value, text);
      return true;
    }
  }
  return switches_.xss && FindScript(value, text, alone, false);
}

bool CValueJudge::JudgeSqueezed(const RequestValue& value, std::string_view text) {
  if (!switches_.sql) return false;
  squeezed_.clear();
  if (!SqueezeSql(text, &squeezed_)) return false;
  hit_.keyword = rules_.FindFirst(InForm(squeezed_), &rules_room_);
  if (hit_.keyword) Keep(value, text);
  return hit_.keyword != nullptr;
}

bool CValueJudge::FindScript(const RequestValue& value, std::string_view text, const JudgedText& alone,
                             bool forms_only) {
  hit_.xss = forms_only ? XssDetector::FormCheck(alone.lowered, settings_, library_, &hit_.fragment)
                        : XssDetector::CheckText(alone, settings_, library_, &hit_.fragment, false);
  if (hit_.xss == XssType::kNone) return false;
  hit_.fragment.offset += Keep(value, text);
  return true;
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

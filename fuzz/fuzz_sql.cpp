// The SQL injection detector over any bytes, and against the slow one where the text is short.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "engines/injection/sql_injection_detector.h"
#include "tests/engines/injection/slow_detectors.h"

namespace {

constexpr std::size_t kShort = 300;

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const qiv::InjectionLibrary library(
      qiv::slow::OneWordRules({"select", "sleep", "from", "a", "_b"}),
      qiv::slow::OneWordRules({"and", "or", "union", "order by", "(", ")", "||", "|", "select", "=", "an", "a a"}), {});
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (size <= kShort) {
    Require(qiv::SqlCommentStripper(text) == qiv::slow::SqlCommentStripper(text));
    Require(qiv::SqlInjectionDetector::MatchUnit(text, library) ==
            qiv::slow::MatchUnit(text, library.Rules(), library.Keys()));
  }
  const qiv::InjectionSettings settings;
  qiv::SqlFinding finding;
  for (const bool per_parameter : {false, true}) {
    const bool hit = qiv::SqlInjectionDetector::Check(text, &settings, library, &finding, per_parameter);
    Require(!hit || (finding.rule->words.at(0).size() <= finding.word.In(text).size() &&
                     finding.value.offset + finding.value.length <= size));
  }
  return 0;
}

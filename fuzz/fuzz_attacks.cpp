// The rules for attacks: any text as a library, and any text searched with the shipped rules and with those of the
// input. What is found stands in a reading of the text, and is found again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "engines/attacks/attack_library.h"
#include "engines/attacks/text_shape.h"
#include "tools/badcode_files.h"
#include "tools/files.h"
#include "tools/plain_library.h"

namespace {

constexpr unsigned kAll = qiv::kLocalFiles | qiv::kRemoteFiles | qiv::kBadCode;

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Load(std::string_view text, qiv::CAttackRules* rules) {
  qiv::AttackLibraryText library;
  qiv::AttackFault fault;
  return qiv::ReadAttackLibrary(text, &library, &fault) && rules->Set(library.rules, library.lists, &fault);
}

void Search(const qiv::CAttackRules& rules, std::string_view text) {
  qiv::CAttackScan scan(rules);
  const qiv::AttackHit first = scan.Find(text, qiv::kInQuery, kAll);
  const qiv::AttackHit again = scan.Find(text, qiv::kInQuery, kAll);
  Require(first.rule == again.rule && first.found == again.found);
  Require(first.rule == nullptr || !first.found.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const qiv::CAttackRules shipped = [] {
    qiv::CAttackRules rules;
    int exit_code = 0;
    const std::string stored =
        qiv::PackBadcodeFiles(qiv::FindRulesDirectory("") + "/badcode", qiv::Language::kEnglish, &exit_code);
    Require(Load(qiv::DecipheredLibrary(stored), &rules));
    return rules;
  }();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Search(shipped, text);
  // A library, and behind it a text to search.
  constexpr std::string_view kEndOfRules = "</badcode_rules>";
  const std::size_t end = text.find(kEndOfRules);
  qiv::CAttackRules own;
  if (end == std::string_view::npos || !Load(text.substr(0, end + kEndOfRules.size()), &own)) return 0;
  Search(own, text.substr(end + kEndOfRules.size()));
  return 0;
}

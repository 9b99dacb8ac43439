// Attacks of all kinds but injection into databases and pages: commands, code of scripts and templates, serialised
// objects, XML entities, inner addresses, header splitting and what else the families of rules/badcode name.
//
// File inclusion is looked for by the same rules and the same walk over the request's values, so who wants both pays
// once: what the walk of one check found for the other is kept in the decision record.
#pragma once

#include <string>
#include <string_view>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "common/messages.h"
#include "engines/attacks/attack_rules.h"

namespace qiv {

struct AttackFinding {
  AttackHit hit;
  std::string_view place;  ///< "GET", "Path", "POST", "Header"; static storage
  std::string name;        ///< of the parameter or header, in the local code page
};

/// What one walk found, and for whom it was made.
struct AttackFindings {
  const RequestFacts* facts = nullptr;
  const CAttackRules* rules = nullptr;
  unsigned groups = 0;  ///< AttackGroup bits it looked for
  AttackFinding file;
  AttackFinding badcode;
};

/// Whether the site wants file inclusion, and of which kinds; malicious code.
unsigned FileGroups(const WebsiteConfig& site);
unsigned BadcodeGroups(const WebsiteConfig& site);

/// Walks over the values of query, path, body and headers until what `groups` say is known. Linear in the request.
AttackFindings FindAttacks(const RequestFacts& facts, const CheckContext& context, unsigned groups);

/// The texts of a block; "GET" is the place, "q" the name.
///   item    "Malicious Code Protection(GET)"
///   reason  "Deny malicious code(GET),Type:Command injection"
///   detail  "Deny malicious code(GET[q]),Type:Command injection,Keywords:;cat /etc"
struct AttackTexts {
  MessageId category;
  MessageId item;
  MessageId reason;
  CheckKind kind;
  std::string_view statistics;
};
void BlockAttack(const AttackTexts& texts, const AttackFinding& finding, const RequestFacts& facts,
                 const CheckContext& context, CheckResult& result);

/// Leaves status alone or sets it to 2. Reads context.config, context.attacks and the raw texts of the request.
void BadcodeCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv

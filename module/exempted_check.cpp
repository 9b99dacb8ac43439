#include "module/exempted_check.h"

#include <algorithm>
#include <utility>

#include "checks/body_text.h"
#include "checks/request_values.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/exemptions.h"
#include "engines/injection/rule_text.h"

namespace qiv {
namespace {

// Each costs one more run of the check; who exempts more at one place has other means.
constexpr int kMostRuns = 16;
// Rule lists take some megabytes each; sites exempt a few rules.
constexpr std::size_t kMostKept = 8;

/// The rule of an event, or its check where no rule is named.
std::string_view FindingOf(const CheckRow& row, const CheckResult& result) {
  return result.rule.empty() ? std::string_view(row.name) : std::string_view(result.rule);
}

/// The text without the values of parameters with this name. Views of values must lie in it.
class CValueCutter {
 public:
  CValueCutter(std::string_view text, std::string_view name) : text_(text), name_(name) {}

  bool Visit(const RequestValue& value) {
    if (value.name.empty() || value.raw.empty()) return true;
    std::string room;
    const std::string_view name = RequestValue{{}, value.name, value.encoding}.Decoded(&room);
    if (CCharSet::ToLocal(std::string(name)) != name_) return true;
    const auto begin = static_cast<std::size_t>(value.raw.data() - text_.data());
    if (begin < kept_until_) return true;  // a reading of the same part once more
    rest_ += text_.substr(kept_until_, begin - kept_until_);
    kept_until_ = begin + value.raw.size();
    cut_ = true;
    return true;
  }
  bool HasCut() const { return cut_; }
  std::string Rest() const { return rest_ + std::string(text_.substr(kept_until_)); }

 private:
  const std::string_view text_;
  const std::string_view name_;
  std::string rest_;
  std::size_t kept_until_ = 0;
  bool cut_ = false;
};

/// Takes the parameter's values out of query and body. False when it has none there.
bool CutParameter(std::string_view name, bool without_files, RequestFacts* facts) {
  CValueCutter query(facts->raw_url, name);
  ForEachQueryValue(*facts, [&query](const RequestValue& value) { return query.Visit(value); });
  CValueCutter body(facts->raw_body, name);
  ForEachBodyValue(facts->content_type, facts->raw_body,
                   [&body](const RequestValue& value) { return body.Visit(value); });
  if (query.HasCut()) {
    facts->raw_url = query.Rest();
    const std::size_t mark = facts->raw_url.find('?');
    facts->query = Trim(NormalizeText(std::string(Trim(std::string_view(facts->raw_url).substr(mark + 1)))));
  }
  if (body.HasCut()) {
    facts->unpacked_body = std::make_shared<const std::string>(body.Rest());
    facts->raw_body = *facts->unpacked_body;
    SetBodyText(without_files, facts);
  }
  return query.HasCut() || body.HasCut();
}

std::vector<InjectionRule> RulesWithout(std::vector<InjectionRule> rules, const std::set<std::string>& without) {
  std::erase_if(rules, [&without](const InjectionRule& rule) { return without.contains(rule.identifier); });
  return rules;
}

}  // namespace

std::shared_ptr<const CExemptedCheck::ShortLists> CExemptedCheck::Without(const std::set<std::string>& rules,
                                                                          const RequestRecord& record) {
  {
    const CAutoLock hold(lock_);
    for (const auto& kept : kept_) {
      if (kept->without == rules && kept->IsOf(record)) return kept;
    }
  }
  auto lists = std::make_shared<ShortLists>();
  lists->without = rules;
  lists->of_config = record.config;
  lists->of_library = record.library;
  lists->of_attacks = record.attacks;
  const auto config = std::make_shared<WebsiteConfig>(*record.config);
  for (CKeywordRules* const list : {&config->get_rules, &config->post_rules, &config->header_rules}) {
    *list = CKeywordRules(RulesWithout(list->Rules(), rules));
  }
  lists->config = config;
  lists->library =
      std::make_shared<InjectionLibrary>(RulesWithout(record.library->Rules(), rules), record.library->Keys(),
                                         RulesWithout(record.library->Events(), rules));
  lists->attacks = std::make_shared<CAttackRules>(record.attacks->Without(rules));
  lists->leaks = std::make_shared<CAttackRules>(record.leaks->Without(rules));
  const CAutoLock hold(lock_);
  // Those of a configuration that is gone go first.
  std::erase_if(kept_, [&record](const auto& kept) { return !kept->IsOf(record); });
  if (kept_.size() == kMostKept) kept_.erase(kept_.begin());
  kept_.push_back(lists);
  return lists;
}

bool CExemptedCheck::IsExempt(const CheckRow& row, const RequestRecord& record, const CheckContext& context,
                              const CheckResult& before, CheckResult* blocked) {
  const CExemptions& exemptions = *record.exemptions;
  if (exemptions.Find(FindingOf(row, *blocked), record.facts.path).empty()) return false;
  CNoRecorder nobody;
  const auto run = [&](const RequestFacts& facts, const std::set<std::string>& without) {
    CheckResult result = before;
    const auto lists = without.empty() ? nullptr : Without(without, record);
    const CheckContext silent{lists ? *lists->config : context.config,
                              lists ? *lists->library : context.library,
                              context.webshells,
                              lists ? lists->attacks.get() : context.attacks,
                              context.state,
                              nobody,
                              context.phase,
                              context.response,
                              true,
                              lists ? lists->leaks.get() : context.leaks};
    row.run(facts, silent, result);
    return result;
  };

  const bool files = record.config->extended.body;
  RequestFacts facts = record.facts;     // ever less of it
  std::set<std::string> without;         // rules that are exempt wherever they are found
  std::set<std::string> cut_parameters;  // what is missing in `facts`
  std::set<std::string> cut_rules;       // and for which rules
  CheckResult result = *blocked;
  const auto stays = [blocked](CheckResult& finding) {
    *blocked = std::move(finding);
    return false;
  };
  int runs = 0;
  for (; result.status == kBlocked; result = run(facts, without)) {
    if (++runs > kMostRuns) return false;
    const std::string finding(FindingOf(row, result));
    const auto found = exemptions.Find(finding, facts.path);
    if (std::any_of(found.begin(), found.end(), [](const auto* e) { return e->parameter.empty(); })) {
      if (!without.insert(finding).second) break;  // of no list: nothing more can be told
      continue;
    }
    const auto cut = std::find_if(found.begin(), found.end(),
                                  [&](const auto* e) { return CutParameter(e->parameter, files, &facts); });
    if (cut == found.end()) return stays(result);
    cut_parameters.insert((*cut)->parameter);
    cut_rules.insert(finding);
  }
  if (cut_parameters.empty()) return true;

  // What was cut off has to pass by the rules that are not exempt in it.
  without.insert(cut_rules.begin(), cut_rules.end());
  for (result = run(record.facts, without); result.status == kBlocked; result = run(record.facts, without)) {
    if (++runs > kMostRuns) return false;
    const std::string finding(FindingOf(row, result));
    const auto found = exemptions.Find(finding, facts.path);
    const bool exempt = std::any_of(found.begin(), found.end(), [&cut_parameters](const auto* e) {
      return e->parameter.empty() || cut_parameters.contains(e->parameter);
    });
    if (!exempt) return stays(result);
    if (!without.insert(finding).second) return true;  // of no list
  }
  return true;
}

}  // namespace qiv

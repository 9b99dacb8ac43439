// What a check asks, for programs that call one without a module around it: no lists, no areas, a recorder if wanted.
#pragma once

#include "checks/check_context.h"
#include "config/exchange_files.h"
#include "config/website_config.h"
#include "engines/attacks/attack_rules.h"
#include "engines/injection/injection_library.h"

namespace qiv {

class CLoneContext {
 public:
  /// `config`, `webshells` and `recorder` must outlive the contexts made.
  explicit CLoneContext(const WebsiteConfig& config, const CQivLibs* webshells = nullptr,
                        IEventRecorder* recorder = nullptr, const CAttackRules* attacks = nullptr)
      : config_(config),
        webshells_(webshells),
        attacks_(attacks ? *attacks : no_attacks_),
        recorder_(recorder ? *recorder : nobody_) {}

  CheckContext With(const InjectionLibrary& library) {
    return {config_, library, webshells_, &attacks_, state_, recorder_};
  }
  CheckContext Context() { return With(library_); }

 private:
  const WebsiteConfig& config_;
  const CQivLibs* const webshells_;
  const CAttackRules no_attacks_;
  const CAttackRules& attacks_;
  CNoRecorder nobody_;
  IEventRecorder& recorder_;
  const InjectionLibrary library_;
  CExchangeFiles exchange_{"", ""};
  CheckState state_{exchange_};
};

}  // namespace qiv

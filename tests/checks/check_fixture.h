// A request and the state of checks with exchange files in a directory of their own.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "common/aes.h"
#include "common/char_set.h"
#include "config/exchange_lines.h"
#include "config/website_config.h"
#include "engines/attacks/attack_rules.h"
#include "engines/injection/injection_library.h"
#include "engines/webshell/webshell_scan.h"
#include "port/file.h"
#include "tests/port/temporary_directory.h"

namespace qiv {

inline std::atomic<std::int64_t> fixture_now{1'000'000};

class CCheckFixture : public testing::Test, public IEventRecorder {
 protected:
  CCheckFixture() {
    fixture_now = 1'000'000;
    site_->library_enabled = true;
    SetClient("192.0.2.7");
  }

  void RecordBlock(const RequestFacts&, const CheckContext&, const CheckResult&) override {}
  void RecordNote(const RequestFacts&, const CheckContext&, const CheckResult& note) override {
    partial_.push_back(note.check);
  }
  void RecordStatistics(std::string_view category, std::string_view client, std::string_view rule) override {
    statistics_.push_back(std::string(category) + " " + std::string(client) + " " + std::string(rule));
  }

  void SetClient(const std::string& text) {
    const CIpAddress address = CIpAddress::Parse(text).value();
    facts_.is_ipv4 = address.IsIpv4();
    facts_.client_ipv4 = address.Ipv4();
    facts_.ipv6 = address.Bytes();
    facts_.client_ip = text;
  }

  /// Has the state take over the configuration being written.
  void UseSite() { state_.OnConfigLoaded(*site_); }

  CheckContext Context() {
    ResponseText response;
    response.text = response_;
    return {*site_, library_, webshells_.get(), attacks_.get(), state_, *this, phase_, response};
  }

  /// The lines of _out.log in UTF-8, tabs written as "|".
  std::vector<std::string> OutLines() const {
    std::string text;
    ReadWholeFile(out_log_, 1U << 20, &text);
    std::vector<std::string> lines;
    std::string_view left = text;
    while (!left.empty()) {
      std::string line = CCharSet::LocalToUtf8(decrypt_text("", TakeLine(&left)));
      for (char& c : line) c = c == '\t' ? '|' : c;
      lines.push_back(std::move(line));
    }
    return lines;
  }

  CTemporaryDirectory directory_;
  const std::string in_file_ = directory_.Path("_in.db");
  const std::string out_log_ = directory_.Path("_out.log");
  CExchangeFiles exchange_{in_file_, out_log_};
  CAddressLibraries libraries_{
      {directory_.Path("iplib.db"), directory_.Path("iplibv6.db"), directory_.Path("_badip.db")}};
  CheckState state_{exchange_, &libraries_, [] { return fixture_now.load(); }};
  std::shared_ptr<WebsiteConfig> site_ = std::make_shared<WebsiteConfig>();
  InjectionLibrary library_;
  std::shared_ptr<const CQivLibs> webshells_;
  std::shared_ptr<const CAttackRules> attacks_;
  Phase phase_ = kPhaseBegin;
  std::string response_;
  RequestFacts facts_;
  std::vector<std::string> statistics_;
  std::vector<std::string> partial_;  // checks that did not examine everything
};

}  // namespace qiv

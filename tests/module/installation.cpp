#include "tests/module/installation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>

#include "common/aes.h"
#include "common/text.h"
#include "config/exchange_lines.h"
#include "module/module_state.h"
#include "port/clock.h"
#include "port/file.h"

namespace qiv::test {
namespace {

constexpr char kLibrary[] =
    "<sql_rules>union{*}*{*}union query{*}r1{#}</sql_rules><sql_keys>'{*}*{*}quote{*}k1{#}</sql_keys>"
    "<xss_events>onload{*}*{*}event{*}e1{#}</xss_events><separator>*</separator>";

/// The old content or the new, never a part, whoever reads meanwhile. Every file has a modification time of its own,
/// however fast one follows another.
void WriteFile(const std::string& path, const std::string& content) {
  static const auto start = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  static std::atomic<int> writes{0};
  ASSERT_TRUE(ReplaceFile(path, content)) << path;
  std::filesystem::last_write_time(path, start + std::chrono::seconds(++writes));
}

}  // namespace

CInstallation::CInstallation() { MakeDirectory(directory_ + "config"); }

void CInstallation::Write(const Site& site) const {
  std::string settings =
      "<language>" + site.language + "</language><enable_ipv6prot>" + (site.ipv6 ? "1" : "0") +
      "</enable_ipv6prot><sys_is_qiv>" + (site.linked ? "1" : "0") + "</sys_is_qiv><extend_functions>" + site.extend +
      "</extend_functions><website_other><sys_log_ex>" + site.log_ex + "</sys_log_ex></website_other>";
  std::map<std::string, std::string> sections = site.sections;
  sections["website_base"];
  for (const auto& [name, members] : sections) {
    settings += "<" + name + ">";
    if (name == "website_base") settings += "<website_on_servers>1</website_on_servers>";
    settings += "{\"x\":\"\"" + (members.empty() ? "" : "," + members) + "}</" + name + ">";
  }
  WriteRaw("<qivips_websiteconfigpart>" + encrypt_text("", settings) + "</qivips_websiteconfigpart>");
  WriteFile(directory_ + "config/_sql.db", encrypt_text("", kLibrary));
}

void CInstallation::Start(const Site& site, bool may_write) const {
  Write(site);
  InitialiseModule(directory_, may_write);
  State().config.RefreshTick();
}

void CInstallation::WriteRaw(const std::string& content) const { WriteFile(directory_ + "config/_config.db", content); }

void CInstallation::Deny(const std::string& address) const {
  const std::int64_t now = UnixSeconds();
  WriteFile(directory_ + "config/_in.db",
            EncipherLine("denylist\tadd\tservice\t" + address + "\t" + std::to_string(now - 10) + "\t" +
                         std::to_string(now + 3600) + "\treason"));
}

std::string CInstallation::Log(const char* name) const { return Content(directory_ + "debug/" + name); }

std::vector<std::string> CInstallation::Out() const {
  std::vector<std::string> lines;
  ForEachLine(Content(directory_ + "config/_out.log"), [&lines](std::string_view line) {
    std::string text;
    for (const std::string_view field : Split(line, '\t')) {
      if (!text.empty()) text += ' ';
      text += DigitsToNumber(field) > 1000000 ? std::string_view("T") : field;
    }
    lines.push_back(text);
  });
  return lines;
}

std::string CInstallation::AllOut() const {
  State().service.Exchange().Flush();
  std::string all;
  for (const std::string& line : Out()) all += line + "\n";
  return all;
}

Site InjectionSite() {
  Site site;
  site.sections["website_sql"] =
      R"("get":"1","get_super_mode":"1","post":"1","post_super_mode":"1","header":"1","header_super_mode":"1")";
  return site;
}

}  // namespace qiv::test

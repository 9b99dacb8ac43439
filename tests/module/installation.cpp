#include "tests/module/installation.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/aes.h"
#include "port/clock.h"
#include "port/module_path.h"

namespace qiv::test {
namespace {

constexpr char kLibrary[] =
    "<sql_rules>union{*}*{*}union query{*}r1{#}</sql_rules><sql_keys>'{*}*{*}quote{*}k1{#}</sql_keys>"
    "<xss_events>onload{*}*{*}event{*}e1{#}</xss_events><separator>*</separator>";

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace

CInstallation::CInstallation() {
  static std::atomic<int> number{0};
  const auto name = "qiv-module-" + std::to_string(UnixMicroseconds()) + "-" + std::to_string(++number);
  const auto path = std::filesystem::temp_directory_path() / name;
  std::filesystem::create_directories(path / "config");
  directory_ = path.string() + kPathSeparator;
}

CInstallation::~CInstallation() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void CInstallation::Write(const Site& site) const {
  std::string settings =
      "<language>" + site.language + "</language><enable_ipv6prot>" + (site.ipv6 ? "1" : "0") + "</enable_ipv6prot>";
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

void CInstallation::WriteRaw(const std::string& content) const { WriteFile(directory_ + "config/_config.db", content); }

std::string CInstallation::Log() const {
  std::ostringstream text;
  text << std::ifstream(directory_ + "debug/_log.log", std::ios::binary).rdbuf();
  return text.str();
}

Site InjectionSite() {
  Site site;
  site.sections["website_sql"] =
      R"("get":"1","get_super_mode":"1","post":"1","post_super_mode":"1","header":"1","header_super_mode":"1")";
  return site;
}

}  // namespace qiv::test

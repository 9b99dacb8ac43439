// A raw request through the host's parser and the module's notifications: facts, checks, page and the body's way back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "common/aes.h"
#include "common/char_set.h"
#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"

namespace {

/// Everything that reads a request is on; pages show all they can.
constexpr char kSettings[] =
    "<website_base><website_on_servers>1</website_on_servers>{\"hide\":\"1\"}</website_base>"
    "<enable_ipv6prot>1</enable_ipv6prot>"
    "<website_request>{\"cookie\":\"1\",\"xss_mode\":\"1\",\"xframe\":\"1\",\"xframe_type\":\"DENY\"}</website_request>"
    "<website_sql>{\"get\":\"1\",\"post\":\"1\",\"header\":\"1\",\"xss\":\"1\",\"xss_get\":\"1\",\"xss_post\":\"1\","
    "\"xss_header\":\"1\",\"xss_html_action\":\"1\",\"xss_script_block\":\"1\",\"xss_script_load\":\"1\","
    "\"get_super_mode\":\"1\",\"post_super_mode\":\"1\",\"header_super_mode\":\"1\"}</website_sql>"
    "<website_response>{\"ret_type\":\"2\",\"cdn\":\"1\",\"passwd\":\"1\",\"passwd_key\":\"k\"}</website_response>";
constexpr char kLibrary[] =
    "<sql_rules>union{*}*{*}union{*}1{#}</sql_rules><sql_keys>'{*}*{*}quote{*}2{#}</sql_keys>"
    "<xss_events>onload{*}*{*}event{*}3{#}</xss_events><separator>*</separator>";

class CProtectedHost {
 public:
  CProtectedHost() {
    const auto path = std::filesystem::temp_directory_path() / "qiv-fuzz-request-facts";
    std::filesystem::create_directories(path / "config");
    std::ofstream(path / "config" / "_config.db")
        << "<qivips_websiteconfigpart>" << qiv::encrypt_text("", kSettings) << "</qivips_websiteconfigpart>";
    std::ofstream(path / "config" / "_sql.db") << qiv::encrypt_text("", kLibrary);
    qiv::InitialiseModule(path.string(), false);
    if (iis::Failed(host.Register(&RegisterModule)) || !qiv::State().config.IsConfigValid()) std::abort();
  }
  qiv::host::CModuleHost host;
};

std::ptrdiff_t MarkupBytes(std::string_view page) {
  return std::count_if(page.begin(), page.end(), [](char c) { return c == '<' || c == '>' || c == '"' || c == '\''; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static CProtectedHost server;
  static std::ptrdiff_t page_markup = 0;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  int status = 0;
  std::string error;
  const auto request = qiv::host::ParseRawRequest(text, server.host.options(), &status, &error);
  if (!request || request->method == "HEAD") return 0;
  const qiv::host::InProcessResponse response = qiv::host::RunInProcess(server.host, *request);
  if (response.refused) return 0;
  if (!response.finished) {
    if (!response.handler_ran || response.handler_body != request->body) __builtin_trap();
    return 0;
  }
  // Whatever the request says, the page has its own markup and no more.
  const bool gbk = response.Header("Content-Type") == "text/html; charset=gbk";
  const std::string page = gbk ? qiv::CCharSet::LocalToUtf8(response.body) : response.body;
  if (response.status != 403 || !qiv::CCharSet::IsValidUtf8(page)) __builtin_trap();
  if (page_markup == 0) page_markup = MarkupBytes(page);
  if (MarkupBytes(page) != page_markup || page.find("{{") != std::string::npos) __builtin_trap();
  return 0;
}

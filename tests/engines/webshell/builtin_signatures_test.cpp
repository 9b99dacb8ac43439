#include "engines/webshell/signatures/builtin_signatures.h"
#include "checks/webshell_finding.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/signatures/signature_text.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

// Rows, words and marks that are fixed, in the order of the tables, in both languages. What a row adds to its pattern
// is open; so is a Chinese name or a limit that is left out.
constexpr std::uint32_t kOpen = 1;

struct Row {
  std::string pattern;
  std::string_view english;
  std::string_view chinese = "";
  std::uint32_t limit = kOpen;
};
struct Tables {
  std::vector<Row> rows;
  std::size_t asp;  // its first row
  std::size_t aspx;
};

Tables FixedRows() {
  const std::string alone = "--require_once--require--include--include_once";
  std::vector<Row> rows = {
      {"uasort++array", "uasort Backdoor", "", 300},
      {"uksort++array", "uksort Backdoor", "", 300},
      {"register_shutdown_function", "register_shutdown_function", "", 600},
      {"ReflectionFunction", "ReflectionFunction", "", 600},
      {"ReflectionClass++>getDocComment++", "ReflectionClass execution risk", "ReflectionClass执行风险", 1000},
      {"invoke", "Invoke execution", "invoke执行", 1024},
      {">createFunction(++>execute(", "CreateFunction function", "createFunction函数", 2048},
      {"eval!!gzuncompress!!base64_decode", "Eval execution", "eval执行", 10240},
      {"curl_exec++foreach++base64_decode" + alone, "Web backdoor", "", 6500},
      {"range!!foreach!!as!!is_dir" + alone, "Web backdoor", "", 6535},
      {"require_once--define(--php", "Suspicious reference", "可疑引用"},
      {"require--define(--php", "Suspicious reference"},
      {"include_once--define(--php", "Suspicious reference"},
      {"include--define(--php", "Suspicious reference"},
      {"array--namespace", "Suspicious backdoor"},
      {"new memcache", "Memcache"},
      {"preg_replace_callback!!create_function", "Backdoor exploitation"},
      {"rmdir(++is_file(++mkdir(--defined(" + alone, "File management"},
      {"readdir(++fread(--defined(" + alone, "File management"},
      {"curl_exec++fwrite++wp--class", "WordPress webshell injection", "WordPress挂马"},
      {"while++mail(", "Batch send emails"},
      {"mail(", "Send email"},
      {"mysql_num_rows++mysql_web_admin_username++drop table", "MySQL management backdoor", "MySQL管理后门"},
      {"preg_replace++chr(101)", "Preg_replace execution", "preg_replace执行"},
      {"preg_replace++/e", "Preg_replace execution"},
      {"new!com!shell.users", "Webshell for system account operations"},
      {"new!com!iis://localhost/w3svc", "Webshell for IIS management"},
      {"function_exists++apache_request_headers++function++session_start", "Apache-targeted backdoor"},
      {"startfile++readdir++.zip", "ZIP compression and packaging", "ZIP压缩打包"},
      {"eval!gzuncompress", "Hidden backdoor"},
      {"gzuncompress++base64_decode--namespace--defined(", "Hidden backdoor"},
      {"base!(32*2)", "Hidden variants"},
      {"str_rot13++gzinflate++base64_decode", "Hidden variants"},
      {"mysql_connect++mysql_select_db++mysql_query++gzopen++base64_encode++mail", "MySQL"},
      {"declare!!register_tick_function", "register_tick_function"},
      {"globals!net!user", "Hidden system account backdoor"},
      {"auto_prepend_file!=", "Auto-load file backdoor"}};
  const auto add = [&](std::string_view list, std::string_view english, std::string_view chinese) {
    for (const std::string_view word : Split(list, ",")) rows.push_back({std::string(word), english, chinese});
  };
  const auto add_words = [&](std::string_view list) { add(list, "Known backdoor", "已知后门"); };
  constexpr std::string_view kPageWords =
      "shell,webshell,aspspyder,hacker,hacked by,attacker,worm,hackerdz,gif89a1,c99madshell,aspshell,crack8,backdoor,"
      "hacking";
  add_words(
      "shell,webshell,phpspy,hacker,hacked by,iconv,attacker,namespace,worm,hackerdz,gif89a1,c99madshell,phpshell,"
      "crack8,backdoor");
  const std::size_t asp = rows.size();
  add("request,eval,execute,executeglobal,scripting.filesystemobject,<!--#include++,server.createobject,"
      "microsoft.xmlhttp,adodb.stream,server.mappath",
      "", "");
  add_words(kPageWords);
  rows.push_back({"Scripting.FileSystemObject++asp++responseBody++http:/--<!--#include", "", "", 1024});
  rows.push_back({"adodb.stream++responseBody++http:/--<!--#include", "", "", 2048});
  const std::size_t aspx = rows.size();
  add("request,eval,execute,executeglobal,scripting.filesystemobject", "", "");
  add_words(kPageWords);
  return {rows, asp, aspx};
}

TEST(BuiltinSignatures, KeepsItsTables) {
  const auto [rows, asp, aspx] = FixedRows();
  const std::string text = ReadBuiltinSignatures().rules;
  const std::vector<SignatureRule> rules = ParseSignatureRules(text);
  const auto begins = [](const std::vector<std::string>& terms, const std::vector<std::string>& first) {
    return terms.size() >= first.size() && std::equal(first.begin(), first.end(), terms.begin());
  };
  std::size_t r = 0;
  std::size_t aspx_records = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    const SignatureRule wanted = ParseSignaturePattern(row.pattern);
    const std::uint32_t kind = i < asp ? kPhpRuleKind : kAspRuleKind;
    const auto fits = [&](const SignatureRule& rule) {
      return rule.number == kind && begins(rule.terms, wanted.terms) && begins(rule.excluded, wanted.excluded) &&
             (row.english.empty() || rule.name.english == row.english);
    };
    while (r < rules.size() && !fits(rules[r])) ++r;
    ASSERT_LT(r, rules.size()) << row.pattern;
    if (wanted.in_order) {
      EXPECT_EQ(rules[r].kind, wanted.kind) << row.pattern;
      EXPECT_TRUE(rules[r].in_order) << row.pattern;
    }
    if (row.limit != kOpen) {
      EXPECT_EQ(rules[r].size_limit, row.limit) << row.pattern;
    }
    if (!row.chinese.empty()) {
      EXPECT_EQ(rules[r].name.chinese, CCharSet::Utf8ToLocal(row.chinese)) << row.pattern;
    }
    if (i == aspx) aspx_records = rules.size() - r;
    ++r;
  }
  const std::vector<std::string_view> records = Split(text, "{#}");
  EXPECT_EQ(static_cast<std::size_t>(std::count_if(
                records.begin(), records.end(),
                [](std::string_view record) { return record.find("{*}0{*}0{*}0{*}5{*}") != std::string_view::npos; })),
            aspx_records);

  for (const SignatureRule& rule : rules) {  // none that cannot hit
    for (const std::string& term : rule.terms) {
      EXPECT_EQ(term.find("!!"), std::string::npos) << term;
      for (const std::string& excluded : rule.excluded) EXPECT_EQ(term.find(excluded), std::string::npos) << term;
    }
    EXPECT_FALSE(rule.name.english.empty());
  }
}

TEST(BuiltinSignatures, SparesKnownFrameworks) {
  const CQivLibs libs;
  const auto finding = [&](std::string_view mark) {
    WebshellResult result;
    libs.WebshellScan("curl_exec foreach base64_decode " + std::string(mark), &result);
    return result.rule_name.english;
  };
  constexpr std::string_view kFrameworks =
      "defined('in_phpcms')|::load_config(|defined('in_admin')|defined('in_discuz')|require(dedeinc.|"
      "require(dirname(__file__).|defined('dedeinc'))|header('location:|define('discuz_root',|include_once "
      "discuz_root.|"
      "defined('p_w')|defined('w_p')|defined ( 'p_w' )|defined('pw_upload')|require_once ('global.php');|"
      "wp_reset_vars( array(|interface requests|define('norobot'|function_exists('adminmsg')|defined('a_p')|"
      "defined('m_p')|&& exit('forbidden');|use phpmyadmin|namespace phpmyadmin|defined('phpmyadmin')|$zbp->load();|"
      ".class.php|.tpl.php|.inc.php|.lang.php|.core.php|@package wordpress|dedecms.|thinkphp|phpexcel|[ucenter]|"
      "zend_server|package phpmyadmin|rainbowsoft studio";
  for (const std::string_view mark : Split(kFrameworks, "|")) {
    EXPECT_EQ(finding(mark), "") << mark;
  }
  EXPECT_EQ(finding(""), "Web backdoor");
}

}  // namespace
}  // namespace qiv

#include "engines/webshell/signatures/builtin_signatures.h"
#include "checks/webshell_finding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/text.h"
#include "engines/webshell/signatures/signature_text.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

TEST(BuiltinSignatures, CanAllHit) {
  const std::vector<SignatureRule> rules = ParseSignatureRules(ReadBuiltinSignatures().rules);
  ASSERT_GT(rules.size(), 100U);
  for (const SignatureRule& rule : rules) {
    EXPECT_FALSE(rule.name.english.empty());
    std::string text;
    for (const std::string& term : rule.terms) {
      EXPECT_EQ(term.find("!!"), std::string::npos) << term;
      text += term;
    }
    EXPECT_NE(CSignatureLibrary({{rule}, {}, {}, false}).Find(text, rule.size_limit).rule, nullptr) << text;
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

#include "engines/webshell/webshell_scan.h"
#include "checks/webshell_finding.h"

#include <gtest/gtest.h>

#include "common/char_set.h"
#include "common/inflate.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/decoding/script_encoding.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/tokens.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

const CQivLibs& Libs() {
  static const CQivLibs libs;
  return libs;
}

std::string Finding(std::string_view text) {
  WebshellResult result;
  std::string name;
  WithExactCopy(text, [&](std::string_view copy) {
    if (Libs().WebshellScan(copy, &result)) name = WordsOf(result, Language::kEnglish).name;
  });
  return name;
}

struct Case {
  std::string_view text;
  std::string_view name;
};

TEST(WebshellScan, GivesDetailsInTheLocalCodePage) {
  const auto detail = [](std::string_view text) {
    WebshellResult result;
    EXPECT_TRUE(Libs().WebshellScan(text, &result)) << text;
    return CCharSet::LocalToUtf8(WordsOf(result, Language::kChinese).detail);
  };
  const std::string name = "include \"data:,后门\"; // ";
  EXPECT_EQ(detail("<?php " + name), "data:,后门");
  EXPECT_EQ(detail("<?php " + CCharSet::Utf8ToLocal(name)), "data:,后门");
  std::string many = "data:,x";
  for (int i = 0; i < 40; ++i) many += "后";
  // 64 bytes of the file, and no half character at their end, whatever the encoding.
  EXPECT_EQ(detail("<?php include '" + many + "';"), many.substr(0, 7 + 19 * 3));
  EXPECT_EQ(detail("<?php include '" + CCharSet::Utf8ToLocal(many) + "';"), many.substr(0, 7 + 28 * 3));
  EXPECT_EQ(detail("<?php $db->sqliteCreateFunction('f', 'system', 1);"), "函数：system");
  EXPECT_EQ(detail("<?php $f=chr(97).chr(115).chr(115).'ert'; $f($_POST['x']);"), "函数：CHR()");
}

TEST(WebshellScan, SparesTextsWithoutMarks) {
  for (const std::string_view text : {"eval($_POST[1]); // no marker, no signature", ""}) EXPECT_EQ(Finding(text), "");
}

TEST(WebshellScan, KeepsItsLimits) {
  std::string text = "<?php eval($_POST[1]);";
  text.resize(CQivLibs::kLongestText, ' ');
  EXPECT_EQ(Finding(text), "Backdoor");
  EXPECT_EQ(Finding(text + " "), "");
  std::string nested = "<?php ";
  for (int i = 0; i < 200000; ++i) nested += "$a=[$a];";  // as deep as the text is long
  EXPECT_EQ(Finding(nested + "eval($_POST[1]);"), "Backdoor");
  std::string rule = "eval for more than ten gzuncompress y base64_decode";
  rule.resize(10240, '.');
  EXPECT_EQ(Finding(rule), "Hidden backdoor");  // before the sequence rules
  EXPECT_EQ(Finding("eval ( gzuncompress"), "Hidden backdoor");
  EXPECT_EQ(Finding("gzuncompress base64_decode namespace"), "");
  rule += " namespace";
  rule.erase(60, 10);
  EXPECT_EQ(Finding(rule), "Eval execution");
  EXPECT_EQ(Finding(rule + "."), "");
  EXPECT_EQ(Finding("uasort array" + std::string(288, '.')), "uasort Backdoor");
  EXPECT_EQ(Finding("uasort array" + std::string(289, '.')), "");
  EXPECT_EQ(Finding("adodb.stream responseBody http:/ <!-- -->"), "Suspected dangerous files");
  EXPECT_EQ(Finding("adodb.stream responseBody http:/ <!--#include"), "");
  EXPECT_EQ(Finding("<% standard jet db @codepage=65000" + std::string(105472, ' ')), "");
  EXPECT_EQ(Finding("<%x<!--#include file=\"a\"--> \nx=request(\"a\")\nexecute x\n" + std::string(102400, ' ')), "");
}

// More names than can be kept are no way past: the words of the language stay known, and what is not followed counts as
// what the request says.
TEST(WebshellScan, ThousandsOfNamesHideNothing) {
  for (const char* const piece : {"$v%=1;", "f%();", "$a['k%']=1;", "function f%(){}"}) {
    std::string padding = "<?php ";
    for (int i = 0; i < 8000; ++i)
      padding += std::string(piece).replace(std::string(piece).find('%'), 1, std::to_string(i));
    EXPECT_NE(Finding(padding + "eval($_POST[1]);"), "") << piece;
    EXPECT_NE(Finding(padding + "$z=$_REQUEST['q'];$y='as'.'sert';$y($z);"), "") << piece;
    EXPECT_NE(Finding(padding + "SYSTEM($_GET[1]);"), "") << piece;
    EXPECT_EQ(Finding(padding + "echo strlen('a');"), "") << piece;
  }
}

TEST(WebshellScan, KnownGoodCodeClearsTheText) {
  const CQivLibs libs("<trojan_rules>my!mark{*}0{*}Mine{*}0{*}0{*}4{*}0{#}</trojan_rules>", "own mark{#}",
                      "Known  Good{#}");
  WebshellResult result;
  std::string good = "<?php eval($_POST[1]); // known good";
  EXPECT_FALSE(libs.WebshellScan(&good, &result));
  EXPECT_TRUE(result.known_good);
  EXPECT_TRUE(good.empty());
  EXPECT_TRUE(libs.WebshellScan(std::string_view("OWN mark"), &result));
  EXPECT_TRUE(libs.WebshellScan(std::string_view("my.mark"), &result));
  EXPECT_EQ(WordsOf(result, Language::kChinese).name, "Mine");
  const auto name = [&libs](std::string_view text, Language language) {
    WebshellResult found;
    EXPECT_TRUE(libs.WebshellScan(text, &found)) << text;
    return CCharSet::LocalToUtf8(WordsOf(found, language).name);
  };
  EXPECT_EQ(name("own mark", Language::kEnglish), "User-defined signature");
  EXPECT_EQ(name("while mail( _get[", Language::kEnglish), "Batch send emails");
  EXPECT_EQ(name("while mail( _get[", Language::kChinese), "批量发送邮件");
}

TEST(WebshellScan, NeverReadsBehindItsText) {
  Tokens tokens;
  for (const std::string_view token :
       Split("<?php |$a|=|$_POST[1]|(|)|{|}|[|]|eval|function f|\"$a[|${|'|<<<X\n|base64_decode|;|.|\\|?>|<%|"
             "%>|request|foreach| as |=>|->|`|execute |chr(|&|\n|with |&h6|new object[]|\\u0065|@\"|/*|"
             "function g(|end function|\xA3\xE5|#@~^|^#~@|mid(|replace(|1",
             '|')) {
    tokens.emplace_back(token);
  }
  ForRandomSequences(tokens, 30, 4000, [](std::string_view text) {
    WebshellResult result;
    Libs().WebshellScan(text, &result);
    FollowPhp(text, true);
    CWalkBudget walks(text.size());
    for (const PageKind kind : {PageKind::kAsp, PageKind::kAspx}) FollowPage(ServerCode(text), kind, &walks);
    DecodeEncodedScript(text);
  });
}

TEST(Inflate, DecodesStoredFixedAndDynamicAndBoundsTheRest) {
  EXPECT_EQ(Inflate(DecodeHex("4b4c4a4e494d4b442201"), DeflateWrap::kRaw, 100), "abcdefabcdefabcdef");
  EXPECT_EQ(Inflate(std::string_view("\x01\x03\x00\xfc\xff"
                                     "abc",
                                     8),
                    DeflateWrap::kRaw, 2),
            "ab");
  EXPECT_EQ(Inflate(DecodeHex("0dcbc90900310800c056f2f0a1550541414156f0e87ff31ea63d9015ad0fe27a3badf237a5860b7b3d721c8f"
                              "41016d408bda2779ac921139185c0b2067568cfa35ce3950e62312be7b69930cbac0a84441741fdd08fb01"),
                    DeflateWrap::kRaw, 1000),
            "sil(ae(hs ((uisi)ueantreh(u$u_iloti( h$r$)ul$sdehndo hroa((ala$ier$$ottudh)streaot "
            "$rhitddliuu_)uo)h$sr$h)rde$deuitd_llh");
  ForRandomSequences({"\x05", "\xff", "\xe4", "K", std::string(1, '\0'), "\x4b\x4c", "\xed\xc1"}, 40, 4000,
                     [](std::string_view data) { EXPECT_LE(Inflate(data, DeflateWrap::kRaw, 500).size(), 500U); });
}

}  // namespace
}  // namespace qiv

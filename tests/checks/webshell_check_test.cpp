#include "checks/webshell_check.h"

#include <gtest/gtest.h>

#include <random>

#include "common/text.h"
#include "engines/webshell/request_code.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

// One line of text, as the log would tell it.
struct Case {
  std::string_view text;
  std::string_view finding;  // name of the finding; empty: none in any place
};

class WebshellCheckTest : public CCheckFixture {
 protected:
  WebshellCheckTest() {
    site_->base.trojan = site_->base.trojan_get = site_->base.trojan_header = 1;
    site_->base.trojan_post = true;
    UseLibrary("", "");
  }
  void UseLibrary(std::string_view file, std::string_view free_code) {
    webshells_ = std::make_shared<CQivLibs>(file, "", free_code);
    UseSite();
  }

  void Query(const std::string& raw) {
    facts_.raw_url = "/a.php?" + raw;
    facts_.query = NormalizeText(raw);
  }
  void Body(const std::string& type, std::string raw) {
    raw_ = std::move(raw);
    facts_.content_type = type;
    facts_.raw_body = raw_;
    std::string decoded = PercentDecode(raw_);
    CCharSet::LowerAscii(&decoded);
    facts_.body = decoded;
  }
  void Header(std::int32_t number, std::string_view name, const std::string& value) {
    facts_.headers = {{number, std::string(name), value}};
  }
  std::string Run() {
    result_ = {};
    WebshellCheck(facts_, Context(), result_);
    return result_.status == kBlocked ? result_.detail : "";
  }

  static std::string Encoded(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string encoded;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (IsWordByte(c)) {
        encoded += c;
      } else if (c == ' ') {
        encoded += '+';
      } else {
        encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
      }
    }
    return encoded;
  }
  static std::string Json(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
      if (c == '"' || c == '\\') escaped += '\\';
      escaped += c;
    }
    return "{\"id\":7,\"data\":{\"q\":\"" + escaped + "\"}}";
  }

  /// The details of every place in turn that blocks the text; "" for one that does not.
  std::vector<std::pair<std::string, std::string>> Everywhere(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> details;
    const auto add = [&](const char* place) {
      details.emplace_back(place, Run());
      facts_.raw_url = "/";
      facts_.query.clear();
      facts_.raw_body = {};
      facts_.body.clear();
      facts_.headers.clear();
    };
    Query("id=1&q=" + Encoded(text));
    add("query");
    Body("application/x-www-form-urlencoded", "id=1&q=" + Encoded(text) + "&x=2");
    add("form");
    Body("application/json; charset=utf-8", Json(text));
    add("json");
    Body("multipart/form-data; boundary=b",
         "--b\r\nContent-Disposition: form-data; name=\"q\"\r\n\r\n" + std::string(text) + "\r\n--b--\r\n");
    add("multipart");
    Header(25, "Cookie", "a=b; q=" + Encoded(text));
    add("cookie");
    return details;
  }

  std::string raw_;
  CheckResult result_;
};

TEST_F(WebshellCheckTest, FindsWhatIsPlantedAndWhatClientsSendInEveryPlace) {
  const Case cases[] = {
      {"<?php @eval($_POST['a']);?>", "Code for a webshell"},
      {"<?=`$_GET[1]`;", "Backdoor"},
      {"<% eval request(\"a\") %>", "ASP backdoor"},
      {"@eval(base64_decode($_POST[z0]));", "Code for a webshell"},
      {"eval/**/ ( @str_rot13 ( 'riny' ) );", "Code for a webshell"},
      {"eVAl(cHr(64).ChR(105).cHr(110))", "Code for a webshell"},
      {"system($_REQUEST['cmd']);", "Code for a webshell"},
      {"assert(strrev('(lave'));", "Code for a webshell"},
      {"@ini_set(\"display_errors\", \"0\");@set_time_limit(0);echo 1;", "Code for a webshell"},
      {"echo(\"->|\");echo 1;echo(\"|<-\");", "Code for a webshell"},
      {"Execute(\"On Error Resume Next:Response.Write 1\")", "Code for a webshell"},
      {"eval(System.Text.Encoding.GetEncoding(936).GetString(System.Convert.FromBase64String(Request.Item[\"z\"])))",
       "Code for a webshell"},
      {"${@print(md5(1))}", "Code for a webshell"},
      {"$a='ass'.'ert';$a($_POST[1]);", "String concatenation"},
      {"array_map('assert',array($_POST[1]));", "Backdoor"},
      // base64 of: @ini_set("display_errors","0");@set_time_limit(0);echo 1;
      {"QGluaV9zZXQoImRpc3BsYXlfZXJyb3JzIiwiMCIpO0BzZXRfdGltZV9saW1pdCgwKTtlY2hvIDE7", "Code for a webshell"},
      // base64 of: <?php system($_GET['command']); echo 'done'; ?>
      {"PD9waHAgc3lzdGVtKCRfR0VUWydjb21tYW5kJ10pOyBlY2hvICdkb25lJzsgPz4=", "Backdoor"},
  };
  for (const Case& c : cases) {
    for (const auto& [place, detail] : Everywhere(c.text)) {
      EXPECT_NE(detail.find("Type:" + std::string(c.finding)), std::string::npos) << place << " " << c.text << detail;
    }
  }
}

TEST_F(WebshellCheckTest, SparesOrdinaryTextsEvenWhenStrict) {
  const std::string_view texts[] = {
      "Please evaluate (carefully) the assertion (see system (3)) and execute the plan (today)",
      "The eval (JavaScript) is evil; $db->exec($_POST['sql']); Foo::assert($_GET['x']); page.eval(data)",
      "<?xml version=\"1.0\"?><a><?mso-application progid=\"x\"?>system</a>",
      "$st-&gt;execute(&#91;'id' =&gt; $_GET&#91;'id'&#93;&#93;); $q-&amp;gt;exec($_POST['a']);",
      "Write-Host $_.Name ; Invoke-Command -ComputerName $m -ScriptBlock { $_.Status }",
      "price < 10% and > 5% (net)",
      "-> | arrows |<- and $_ variables",
      "VGhpcyBpcyBhbiBvcmRpbmFyeSB0ZXh0IGluIGJhc2U2NCB0aGF0IHNheXMgbm90aGluZy4=",
      "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEy",
      "\xB6\xD4\xB2\xBB\xC6\xF0(\xCF\xB5\xCD\xB3)",
      "ini_set('display_errors', 0); @ini_set('log_errors', 0);",
      "",
  };
  for (const std::int32_t strict : {0, 1}) {
    site_->base.trojan_strict_mode = strict;
    for (const std::string_view text : texts) {
      for (const auto& [place, detail] : Everywhere(text)) EXPECT_EQ(detail, "") << place << " " << text;
    }
  }
}

TEST_F(WebshellCheckTest, WeakFindingsCountInStrictModeOrWhereNobodyEditsPages) {
  const std::string_view commands = "<?php system('id');?>";
  const auto places = [this](std::string_view text) {
    std::string blocked;
    for (const auto& [place, detail] : Everywhere(text)) blocked += detail.empty() ? "" : place + " ";
    return blocked;
  };
  EXPECT_EQ(places(commands), "query cookie ");
  EXPECT_EQ(places("system('id');"), "");
  EXPECT_EQ(places("phpinfo();"), "");
  Body("text/plain", std::string(commands));
  EXPECT_NE(Run(), "");
  Body("application/x-www-form-urlencoded", std::string(commands));
  EXPECT_NE(Run(), "") << "a body that begins like a script is no form";
  site_->base.trojan_strict_mode = 1;
  EXPECT_EQ(places(commands), "query form json multipart cookie ");
  EXPECT_EQ(places("system('id');"), "query form json multipart cookie ");
  EXPECT_EQ(places("phpinfo();"), "query form json multipart cookie ");
  EXPECT_EQ(places("used;eval() and exec( ) are not"), "") << "they run nothing";
}

TEST_F(WebshellCheckTest, LooksOnlyWhereItIsSwitchedOn) {
  const std::string_view shell = "@eval($_POST[1]);";
  const auto places = [&] {
    std::string blocked;
    for (const auto& [place, detail] : Everywhere(shell)) blocked += detail.empty() ? "" : place + " ";
    return blocked;
  };
  site_->base.trojan_get = 0;
  EXPECT_EQ(places(), "form json multipart cookie ");
  site_->base.trojan_post = false;
  EXPECT_EQ(places(), "cookie ");
  site_->base.trojan_header = 0;
  EXPECT_EQ(places(), "");
  site_->base.trojan_get = site_->base.trojan_header = 1;
  site_->base.trojan = 0;
  EXPECT_EQ(places(), "");
  site_->base.trojan = 1;
  webshells_ = nullptr;
  EXPECT_EQ(places(), "") << "nothing to look with";
}

TEST_F(WebshellCheckTest, MarksStandInPackedBytesByChance) {
  std::mt19937 random(1);
  site_->base.trojan_strict_mode = 1;
  for (int round = 0; round < 20; ++round) {
    std::string bytes(round % 2 == 0 ? 100'000 : 60'000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    bytes.replace(5000, 2, round % 3 == 0 ? "<%" : "<?");
    bytes.replace(9000, 2, "$_");
    bytes.replace(9100, 9, ";system(\x01");
    Body("application/octet-stream", bytes);
    EXPECT_EQ(Run(), "");
  }
  const std::string part = "--b\r\nContent-Disposition: form-data; name=\"f\"\r\n\r\n";
  const std::string begin = std::string("\0\0PK", 4) + "<?echo trim($title, 1, 2, 3, 4);";
  Body("multipart/form-data; boundary=b", part + begin + "\x01\x02 $f=$_GET[1];\x03 $f($_GET[2]);\x04\r\n--b--\r\n");
  EXPECT_EQ(Run(), "") << "no server runs it";
  Body("multipart/form-data; boundary=b", part + begin + "$f=$_GET[1]; $f($_GET[2]); ?>\x04\r\n--b--\r\n");
  EXPECT_NE(Run(), "");
}

TEST_F(WebshellCheckTest, FilesAreTheUploadChecks) {
  Body("multipart/form-data; boundary=b",
       "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.php\"\r\n\r\n<?php "
       "eval($_POST[1]);\r\n--b--\r\n");
  EXPECT_EQ(Run(), "");
}

TEST_F(WebshellCheckTest, KnownGoodCodePasses) {
  EXPECT_NE(Everywhere("our_editor();@eval($_POST[1]);")[1].second, "");
  UseLibrary("", "our_editor(){#}");
  EXPECT_EQ(Everywhere("our_editor();@eval($_POST[1]);")[1].second, "");
  EXPECT_NE(Everywhere("@eval($_POST[1]);")[1].second, "");
}

TEST_F(WebshellCheckTest, HidesNowhere) {
  Query("%2540eval%2528$_POST[1]%2529;");
  EXPECT_EQ(Run(), "Deny webshell(GET),Type:Code for a webshell,Keywords:eval($_POST[1]);");
  Query("%40eval($_POST[1])=1&b=2");
  EXPECT_NE(Run(), "") << "in a name";
  Query("");
  Body("application/json", "{\"q\":\"\\u0065val\\u0028$_POST[1])\"}");
  EXPECT_NE(Run(), "");
  Body("application/json", "{\"q\":\"cut off @eval($_POST[1]);");
  EXPECT_NE(Run(), "");
  Body("application/octet-stream", "a=1&b=@eval($_POST[1]);");
  EXPECT_NE(Run(), "");
  Body("text/plain", "<?php $f='ass'.'ert'; $f($_POST['pass']);");
  EXPECT_EQ(Run(), "Deny webshell(POST),Type:String concatenation(Hide),Keywords:assert,Connective:$f($_POST['pass'])");
  Body("", "");
  Header(40, "User-Agent", "Mozilla <?php%20passthru($_GET[1]);?>");
  EXPECT_EQ(Run(), "Deny webshell(Header[User-Agent]),Type:Code for a webshell,Keywords:passthru($_GET[1]);?>");
}

TEST_F(WebshellCheckTest, WritesTheTextsOfABlock) {
  site_->language = Language::kChinese;
  UseLibrary("", "");
  Query("cmd=@eval($_POST[1]);");
  Run();
  const auto utf8 = [](const std::string& text) { return CCharSet::LocalToUtf8(text); };
  EXPECT_EQ(utf8(result_.item), "网页木马防护（GET）");
  EXPECT_EQ(utf8(result_.reason), "拦截网页木马（GET），类型：网页木马代码");
  EXPECT_EQ(utf8(result_.detail), "拦截网页木马（GET[cmd]），类型：网页木马代码，关键词：eval($_POST[1]);");
  EXPECT_EQ(utf8(result_.category), "网页木马");
  EXPECT_EQ(result_.kind, kKindWebshell);
  EXPECT_EQ(result_.plain_block, 1);
  EXPECT_TRUE(result_.request.attack);
  EXPECT_EQ(statistics_, std::vector<std::string>{"trojan 192.0.2.7 -"});
}

TEST_F(WebshellCheckTest, TellsWhatItDidNotReach) {
  Body("application/octet-stream", "<% x %>");
  EXPECT_EQ(Run(), "");
  EXPECT_TRUE(partial_.empty());
  Body("application/octet-stream", "<% x %>" + std::string(CQivLibs::kLongestText, ' ') + "<%execute request(1)%>");
  EXPECT_EQ(Run(), "");
  EXPECT_EQ(partial_, std::vector<std::string>{"webshell"});
}

// A request has room for so many scans; what is left out is told, and never the script that names the request.
TEST_F(WebshellCheckTest, NoMassOfScriptsHidesOne) {
  const auto mass = [](std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text.append("a").append(std::to_string(i)).append("=").append(piece).append("&");
    return text;
  };
  const std::string real = "z=<?php $f=$_GET[1]; $f($_GET[2]);";
  for (const auto& [piece, count] : {std::pair{"<?php echo 1;?>", 20000}, {"<?php echo md5($_GET[1]);?>", 200}}) {
    Body("application/x-www-form-urlencoded", mass(piece, count) + real);
    EXPECT_NE(Run(), "") << piece;
  }
  Body("application/x-www-form-urlencoded", mass("<?php $a=1;?>", 300) + "z=<?php $f='_'.'GET'; $g=$$f; $g[1]($g[2]);");
  EXPECT_NE(Run(), "");
  EXPECT_TRUE(partial_.empty());
  Body("application/x-www-form-urlencoded", mass("<?php echo 1;?>", 20000));
  EXPECT_EQ(Run(), "");
  EXPECT_EQ(partial_, std::vector<std::string>{"webshell"});
  // Signatures are looked for in each of them.
  UseLibrary("<trojan_rules>our_mark{#}</trojan_rules>", "");
  Body("application/x-www-form-urlencoded", mass("<?php echo 1;?>", 20000) + "z=<?php our_mark ?>");
  EXPECT_NE(Run(), "");
}

// What makes a careless search slow, or read behind the end.
TEST_F(WebshellCheckTest, StaysBounded) {
  for (const std::string_view piece :
       {"eval(", "<?", "<%", "q=<?php f(", "${@", "\"\\", "&&==", "@ini_set(0);", "/**/("}) {
    std::string text;
    while (text.size() < (1U << 18)) text += piece;
    for (const char* type : {"application/x-www-form-urlencoded", "application/json", "text/plain"}) {
      Body(type, std::string(text.data(), text.size()));
      Run();
    }
  }
}

}  // namespace
}  // namespace qiv

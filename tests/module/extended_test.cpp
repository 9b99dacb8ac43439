// What the names in extend_functions switch on, over the in-process host: more of a request is examined, or what would
// be blocked is only logged.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "port/file.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

using host::CModuleHost;
using host::InProcessRequest;
using host::InProcessResponse;

constexpr const char* kAttack = "id=1' union select 1";
const std::string kGzip(
    "\037\213\010\000\000\000\000\000\002\003\313\114\261\065\124\127\050\315\313\314\317\123\050\116\315\111\115\056"
    "\121\060\004\000\076\020\305\314\024\000\000\000",
    40);
const std::string kDeflate(
    "\170\234\313\114\261\065\124\127\050\315\313\314\317\123\050\116\315\111\115\056\121\060\004\000\104\335\006\235",
    28);
const std::string kRawDeflate(
    "\313\114\261\065\124\127\050\315\313\314\317\123\050\116\315\111\115\056\121\060\004\000", 22);
constexpr const char* kPanel =
    "<html><title>r57shell</title>uname: Linux kernel 5<br>safe mode: off<form method=post><input name=cmd>"
    "<input type=file> back connect, bind port, chmod, rename, execute command</form></html>";

class Extended : public testing::Test {
 protected:
  std::unique_ptr<CModuleHost> Start(const test::Site& site) {
    installation_.Start(site);
    auto server = std::make_unique<CModuleHost>();
    EXPECT_EQ(server->Register(&RegisterModule), 0);
    EXPECT_TRUE(State().config.IsConfigValid());
    return server;
  }
  test::CInstallation installation_;
};

test::Site FullSite(std::string extend) {
  test::Site site = test::InjectionSite();
  site.sections["website_base"] =
      R"("trojan":"1","trojan_get":"1","trojan_webout":"1","upload":"1","upload_file":"1","upload_types":"!php")";
  site.extend = std::move(extend);
  return site;
}

std::size_t Count(const std::string& text, std::string_view piece) {
  std::size_t count = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

InProcessRequest Request(const char* method, std::vector<host::HeaderField> headers, std::string body,
                         const char* url = "/a.asp") {
  InProcessRequest request;
  request.method = method;
  request.raw_url = url;
  request.headers = std::move(headers);
  request.body = std::move(body);
  return request;
}

InProcessRequest Chunked(InProcessRequest request) {
  request.chunked = true;
  return request;
}

TEST_F(Extended, ExaminesWhatIsAskedForAndLosesNoByte) {
  const host::HeaderField form = {"Content-Type", "application/x-www-form-urlencoded"};
  struct {
    const char* name;
    const char* extend;
    InProcessRequest request;
    bool blocked;  // with the name; without it none is, but those that need none
    bool always = false;
  } const cases[] = {
      {"POST, as ever", "website_body", Request("POST", {form}, kAttack), true, true},
      {"POST without type", "website_body", Request("POST", {}, kAttack), true},
      {"POST in chunks", "website_body", Chunked(Request("POST", {form}, kAttack)), true},
      {"PUT", "website_body", Request("PUT", {form}, kAttack), true},
      {"DELETE in chunks", "website_body", Chunked(Request("DELETE", {}, kAttack)), true},
      {"GET without body", "website_body", Request("GET", {}, ""), false},
      {"gzip", "website_body", Request("POST", {form, {"Content-Encoding", "gzip"}}, kGzip), true},
      {"deflate", "website_body", Request("POST", {form, {"Content-Encoding", "identity, Deflate"}}, kDeflate), true},
      {"raw deflate", "website_body", Request("PATCH", {{"Content-Encoding", "deflate"}}, kRawDeflate), true},
      {"encoding unknown", "website_body", Request("POST", {form, {"Content-Encoding", "br"}}, "xyz"), false},
      {"tunnel of mail", "website_body", Chunked(Request("RPC_IN_DATA", {}, kAttack)), false},
      {"tunnel of desktops", "website_body", Request("RDG_OUT_DATA", {}, kAttack), false},
      {"stream of calls", "website_body",
       Chunked(Request("POST", {{"Content-Type", "application/grpc+proto"}}, kAttack)), false},
      {"PUT of a script", "website_body", Request("PUT", {}, "<?php phpinfo();", "/dir/x.php?y"), true},
      {"PUT of data to a script", "website_body",
       Request("PUT", {{"Content-Type", "application/json"}}, "{\"a\":1}", "/api.php"), false},
      {"PUT of a picture", "website_body", Request("PUT", {{"Content-Type", "image/gif"}}, "GIF89a", "/a.gif"), false},
      {"header of any name", "website_headers", Request("GET", {{"X-Id", "1' union select 1"}}, ""), true},
      {"forwarded address", "website_headers", Request("GET", {{"X-Forwarded-For", "1' union select 1"}}, ""), true},
      {"headers of browsers", "website_headers",
       Request("GET",
               {{"sec-ch-ua", "\"Not/A)Brand\";v=\"8\", \"Chromium\";v=\"126\""},
                {"sec-ch-ua-platform", "\"Windows\""},
                {"X-Requested-With", "XMLHttpRequest"},
                {"SOAPAction", "\"urn:Get#Union\""}},
               ""),
       false},
      {"segment", "website_path", Request("GET", {}, "", "/news/1%27%20union%20select%201/x"), true},
      {"path info with code", "website_path", Request("GET", {}, "", "/a.php/eval($_POST[1]);"), true},
      {"ordinary path", "website_path", Request("GET", {}, "", "/trade-union/select/from/it%27s.html"), false},
  };
  for (const auto& c : cases) {
    for (const bool with_name : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (with_name ? "" : " without the name"));
      const auto server = Start(FullSite(with_name ? c.extend : ""));
      const InProcessResponse response = RunInProcess(*server, c.request);
      EXPECT_EQ(response.finished, c.always || (with_name && c.blocked));
      if (response.handler_ran) {
        EXPECT_TRUE(response.handler_body == c.request.body);
      }
    }
  }
  EXPECT_EQ(Count(installation_.Log(), "A body was not examined whole"), 1u) << "of the unknown encoding";
}

TEST_F(Extended, ExemptsWhatIsSaidAndNothingElse) {
  test::Site site = FullSite("");
  site.sections["website_sql"] +=
      R"(,"get_keys":"union select==union*select{*}*{*}two{*}k2{#}","post_keys":"drop table==drop*table{*}*{*}d{*}p1{#}")";
  site.linked = true;
  site.sections["website_request"] =
      R"("ill_block":"1","ill_block_get":"1","ill_block_keys":"verboten","ill_record":"1","ill_record_get":"1","ill_record_keys":"darn")";
  const std::string json = "application/json";
  const auto post = [](std::string type, std::string body) {
    return Request("POST", {{"Content-Type", std::move(type)}}, std::move(body), "/shop/Save.asp");
  };
  const char* const form = "application/x-www-form-urlencoded";
  struct {
    const char* line;
    InProcessRequest request;
    bool blocked;
  } const cases[] = {
      {"p1\t/shop/save.asp\ttext\t-\t-", post(form, "text=drop+table"), false},
      {"p1\t/shop/save.asp\ttext\t2026-11-22\twhy", post(json, R"({"text":"drop table"})"), false},
      {"p1\t/shop/save.asp\ttext\t-\t-",
       post("multipart/form-data; boundary=b",
            "--b\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\ndrop table\r\n--b--\r\n"),
       false},
      {"p1\t-\t-\t-\t-", post(form, "other=drop+table"), false},
      {"p1\t/shop/save.asp\t-\t-\t-", post(form, "other=drop+table"), false},
      // Another parameter, path, rule.
      {"p1\t/shop/save.asp\ttext\t-\t-", post(form, "text=drop+table&other=drop+table"), true},
      {"p1\t/shop\t-\t-\t-", post(form, "text=drop+table"), true},
      {"p1\t/shop/save.asp\ttext\t-\t-", post(form, "text=drop+table&id=1'+union+select"), true},
      {"p1\t/shop/save.asp\ttext\t-\t-", post(form, "text=drop+table+1'+union+select"), true},
      {"p1\t/shop/save.asp\t-\t-\t-", post(form, "text=drop+table+1'+union+select"), true},
      {"k2\t-\t-\t-\t-", post(form, "text=drop+table"), true},
      // Two rules find the same, and so does judging by form.
      {"r1\t-\t-\t-\t-", Request("GET", {}, "", "/?id=1%27%20union%20select"), true},
      {"r1\t-\t-\t-\t-\nk2\t-\tid\t-\t-\n13002\t-\t-\t-\t-", Request("GET", {}, "", "/?id=1%27%20union%20select"),
       false},
      {"r1\t-\tid\t-\t-\nk2\t/\tid\t-\t-\n13002\t-\tid\t-\t-", Request("GET", {}, "", "/?id=1%27%20union%20select"),
       false},
      // A detector without a list of rules, by the name of its check.
      {"webshell\t/a.php\tc\t-\t-", Request("GET", {}, "", "/a.php?c=eval($_POST[1]);"), false},
      {"webshell\t/a.php\tc\t-\t-", Request("GET", {}, "", "/a.php?c=eval($_POST[1]);&d=eval($_POST[1]);"), true},
      // Words: what is exempt is not counted, what else they do is done, once.
      {"words\t-\t-\t-\t-", Request("GET", {}, "", "/?c=verboten+darn"), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.line) + " " + c.request.body + c.request.raw_url);
    ASSERT_TRUE(
        ReplaceFile(installation_.Directory() + "config/_exempt.db", "# rules\r\n" + std::string(c.line) + "\r\n"));
    const auto server = Start(site);
    EXPECT_EQ(RunInProcess(*server, c.request).finished, c.blocked);
  }
  EXPECT_NE(installation_.Log().find(R"("rule":"k2")"), std::string::npos) << "the event names what is left to exempt";
  EXPECT_EQ(Count(installation_.Log(), "Keywords:darn"), 1U);
  const std::string out = installation_.AllOut();
  EXPECT_EQ(Count(out, "tongji feifa "), 0U) << out;
  EXPECT_EQ(Count(out, "tongji feifa_record"), 1U) << out;
  ASSERT_TRUE(ReplaceFile(installation_.Directory() + "config/_exempt.db", "p1 without tabs"));
  Start(site);
  EXPECT_TRUE(State().config.Exemptions()->Empty());
  EXPECT_NE(installation_.Log().find("_exempt.db"), std::string::npos) << "a refused file is told";
}

TEST_F(Extended, OnlyLogsWhatItIsToldOnlyToLog) {
  struct {
    const char* extend;
    bool injection, panel, denied;  // what is still blocked
  } const cases[] = {{"", true, true, true},
                     {"website_log_only", false, false, false},
                     {"website_log_only:injection", false, true, true},
                     {"website_log_only:webshell_output, website_log_only:lists", true, false, false}};
  for (const auto& c : cases) {
    for (const char* language : {"en-US", "zh-CN"}) {
      SCOPED_TRACE(std::string(c.extend) + language);
      const test::CInstallation installation;
      test::Site site = FullSite(c.extend);
      site.language = language;
      site.linked = true;
      site.sections["website_sql"] += R"(,"get_mode":"1")";  // a hit locks at once
      site.sections["website_attack"] = R"("e404":"1")";
      installation.Deny("203.0.113.66");
      installation.Start(site);
      CModuleHost server;
      ASSERT_EQ(server.Register(&RegisterModule), 0);

      const InProcessResponse attacked =
          RunInProcess(server, Request("GET", {}, "", "/?pass=hush%27%20union%20select"));
      EXPECT_EQ(attacked.status, c.injection ? 403 : 200);
      EXPECT_EQ(attacked.handler_ran, !c.injection);
      for (const char* const text : {kPanel, "<html><form>chmod, kernel, back connect</form></html>"}) {
        const bool replaced = text == kPanel && c.panel;  // and nothing of it is left
        const InProcessResponse shown =
            RunInProcess(server, Request("GET", {}, ""), host::AnswerWith(200, text, {{"Content-Type", "text/html"}}));
        EXPECT_EQ(shown.status, replaced ? 403 : 200);
        EXPECT_EQ(shown.body.find(text) == 0, !replaced);
        EXPECT_EQ(shown.body.find("uname: ") != std::string::npos, text == kPanel && !replaced);
      }
      InProcessRequest from_denied = Request("GET", {}, "");
      from_denied.remote_address = "203.0.113.66";
      EXPECT_EQ(RunInProcess(server, from_denied).finished, c.denied);

      const std::string log = installation.Log();
      const std::size_t logged = std::size_t{!c.injection} + !c.panel + !c.denied;
      EXPECT_EQ(Count(log, "\"action\":\"would block\""), logged) << log;
      EXPECT_EQ(Count(log, "\"action\":\"block\""), 3 - logged);
      const bool english = std::string(language) == "en-US";
      EXPECT_EQ(Count(log, english ? "only logged" : "仅记录"), logged);
      EXPECT_EQ(Count(log, "website_log_only"), logged != 0) << "protection that is off is told";
      const std::string lines = installation.AllOut();
      EXPECT_EQ(Count(lines, "denylist"), c.injection) << lines;
      EXPECT_EQ(Count(log + lines, "hush"), 0u) << log << lines;
      EXPECT_EQ(Count(lines, "would block"), logged) << lines;
      EXPECT_EQ(Count(lines, "tongji log_only_sql_act"), !c.injection) << lines;
      EXPECT_EQ(Count(lines, "tongji trojanhtml"), c.panel) << lines;
    }
  }
}

}  // namespace
}  // namespace qiv

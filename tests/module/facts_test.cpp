#include "module/facts_collector.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "config/website_config.h"
#include "module/client_address.h"
#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;

bool Collect(CFakeContext& context, RequestFacts& facts, bool cdn = false) {
  WebsiteConfig config;
  config.response.cdn = cdn;
  return CollectFacts(context, config, facts);
}

bool ReadHeaders(CFakeContext& context, RequestFacts& facts) { return ReadHeadersAndBody(context, {}, true, facts); }

TEST(ForwardedFor, IsCleanedAndRead) {
  struct {
    const char* sent;
    const char* cleaned;
    const char* address;  // of the forwarded fields; the socket's when the header names none
  } const cases[] = {
      {" 1.2.3.4, ", "1.2.3.4", "1.2.3.4"},
      {"unknown", "unknown", "203.0.113.7"},
      {"unknown, 1.2.3.4", "1.2.3.4", "1.2.3.4"},
      {"1.2.\t3.4\v", "1.2.3.4", "1.2.3.4"},
      {"9.9.9.9, 8.8.8.8, 1.2.3.4", "9.9.9.9, 8.8.8.8, 1.2.3.4", "1.2.3.4"},
      {"1.2.3.4:8080", "1.2.3.4:8080", "1.2.3.4"},
      {"2001:DB8:0::1", "2001:DB8:0::1", "2001:db8::1"},
      {"[2001:db8::1]:443", "[2001:db8::1]:443", "2001:db8::1"},
      {"[2001:db8::1", "[2001:db8::1", "203.0.113.7"},
      {"::ffff:1.2.3.4", "::ffff:1.2.3.4", "1.2.3.4"},
      {"%31.2.3.4", "1.2.3.4", "1.2.3.4"},
      {"<script>", "<script>", "203.0.113.7"},
      {"1.2.3.4.5", "1.2.3.4.5", "203.0.113.7"},
      {"", "", "203.0.113.7"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sent);
    CFakeContext context;
    context.request.unknown["x-forwarded-for"] = c.sent;
    RequestFacts facts;
    ASSERT_TRUE(Collect(context, facts));
    EXPECT_EQ(facts.forwarded_for, c.cleaned);
    EXPECT_EQ(facts.forwarded_ip, c.address);
    EXPECT_EQ(facts.client_ip, "203.0.113.7") << "without the CDN switch the socket counts";
    EXPECT_EQ(facts.client_ipv4, 0xCB007107u);
    EXPECT_TRUE(facts.is_ipv4);
    EXPECT_EQ(facts.proxy_seen, c.sent[0] != '\0');

    RequestFacts behind_cdn;
    ASSERT_TRUE(Collect(context, behind_cdn, true));
    EXPECT_EQ(behind_cdn.client_ip, c.address);
    EXPECT_EQ(behind_cdn.is_ipv4, std::string(c.address).find(':') == std::string::npos);
    EXPECT_EQ(behind_cdn.is_ipv4, behind_cdn.client_ipv4 != 0);
  }
}

TEST(ForwardedFor, NamesNoClientByTheZeroAddress) {
  CFakeContext context;
  context.request.unknown["X-Forwarded-For"] = "0.0.0.0";
  RequestFacts facts;
  ASSERT_TRUE(Collect(context, facts, true));
  EXPECT_EQ(facts.client_ip, "203.0.113.7");
  EXPECT_EQ(facts.local_address.Text(), "203.0.113.7");
  EXPECT_EQ(facts.local_port, 4660);
}

TEST(ClientAddress, IsTakenFromWhatTheServerHas) {
  struct {
    const char* name;
    void (*change)(CFakeContext&);
    const char* address;  // null: the request is not looked at
  } const cases[] = {
      {"IPv6", [](CFakeContext& c) { c.variables["REMOTE_ADDR"] = "2001:db8::7"; }, "2001:db8::7"},
      {"with scope", [](CFakeContext& c) { c.variables["REMOTE_ADDR"] = "fe80::1%12"; }, "fe80::1"},
      {"mapped", [](CFakeContext& c) { c.variables["REMOTE_ADDR"] = "::ffff:10.0.0.1"; }, "10.0.0.1"},
      {"variable set but empty", [](CFakeContext& c) { c.variables["REMOTE_ADDR"] = ""; }, "::1"},
      {"forwarded instead", [](CFakeContext& c) { c.variables["HTTP_X_FORWARDED_FOR"] = "2001:db8::9"; },
       "2001:db8::9"},
      {"forwarded nonsense", [](CFakeContext& c) { c.variables["HTTP_X_FORWARDED_FOR"] = "<b>"; }, "::1"},
      {"length counts the terminator",
       [](CFakeContext& c) { c.variables["REMOTE_ADDR"] = std::string("2001:db8::7\0", 12); }, "2001:db8::7"},
      {"no variable", [](CFakeContext&) {}, "::1"},
      {"the IPv6 number of another system", [](CFakeContext& c) { c.request.SetFamily(10); }, nullptr},
      {"no address", [](CFakeContext& c) { c.request.has_address = false; }, nullptr},
      {"no request", [](CFakeContext& c) { c.has_request = false; }, nullptr},
      {"no raw request", [](CFakeContext& c) { c.request.has_raw = false; }, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CFakeContext context;
    context.request.SetFamily(iis::kFamilyIpv6);
    c.change(context);
    RequestFacts facts;
    ASSERT_EQ(Collect(context, facts), c.address != nullptr);
    EXPECT_EQ(facts.client_ip, c.address ? c.address : "");
  }
}

TEST(ProxySeen, AlsoByServerVariables) {
  for (const char* name : {"VIA", "USER_AGENT_VIA"}) {
    CFakeContext context;
    context.variables[name] = "1.1 proxy";
    RequestFacts facts;
    ASSERT_TRUE(Collect(context, facts));
    EXPECT_TRUE(facts.proxy_seen);
    context.variables[name] = "";
    facts = {};
    ASSERT_TRUE(Collect(context, facts));
    EXPECT_FALSE(facts.proxy_seen);
  }
}

TEST(Url, IsPreparedInEveryForm) {
  struct {
    const char* raw;
    const char16_t* cooked_host;
    bool secured;
    const char* path;
    const char* query;
    const char* full;
  } const cases[] = {
      {"/a%20b.asp?x=%27+1", u"h:80", false, "/a b.asp", "x=' 1", "http://h/a b.asp?x=' 1"},
      {"/a", u"h:8080", false, "/a", "", "http://h:8080/a"},
      {"/a?", u"h:443", true, "/a", "", "https://h/a"},
      {"/a?b?c", u"h:80", true, "/a", "b?c", "https://h:80/a?b?c"},
      {"/?%252527", u"h", false, "/", "%27", "http://h/?%27"},
      {"/?&LT;B", u"h", false, "/", "<b", "http://h/?<b"},
      {"/", u"[2001:DB8:0:0::1]:80", false, "/", "", "http://[2001:db8::1]/"},
      {"http://other/admin/x?q", u"h", false, "/admin/x", "q", "http://h/admin/x?q"},
      {"http://other", u"h", false, "/", "", "http://h/"},
      {"*", u"h", false, "*", "", "http://h*"},
      {"/%E4%B8%AD", u"h", false, "/\xD6\xD0", "", "http://h/\xD6\xD0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.raw);
    CFakeContext context;
    context.request.SetUrl(c.raw, c.cooked_host);
    if (c.secured) context.request.raw.pSslInfo = reinterpret_cast<iis::HTTP_SSL_INFO*>(8);
    RequestFacts facts;
    ASSERT_TRUE(Collect(context, facts));
    EXPECT_EQ(facts.raw_url, c.raw);
    EXPECT_EQ(facts.path, c.path);
    EXPECT_EQ(facts.query, c.query);
    EXPECT_EQ(facts.full_url, c.full);
  }
}

TEST(Url, SurvivesWarmUpRequests) {
  for (const bool null_pointer : {true, false}) {
    CFakeContext context;
    iis::HTTP_REQUEST& raw = context.request.raw;
    raw.pRawUrl = null_pointer ? nullptr : "/";
    raw.RawUrlLength = null_pointer ? 5 : 2;  // a length without a text; or one that counts the terminator
    raw.CookedUrl = {};
    raw.CookedUrl.pAbsPath = u"/app";
    raw.CookedUrl.AbsPathLength = 8;
    raw.CookedUrl.HostLength = 20;
    RequestFacts facts;
    ASSERT_TRUE(Collect(context, facts));
    EXPECT_EQ(facts.raw_url, null_pointer ? "/app" : "/");
    EXPECT_EQ(facts.host, "");
  }
}

TEST(Headers, FillTheirFields) {
  CFakeContext context;
  context.request.known = {{iis::HttpHeaderContentLength, "12"},  {iis::HttpHeaderContentType, "text/plain"},
                           {iis::HttpHeaderCookie, "c=1"},        {iis::HttpHeaderHost, "Other:80"},
                           {iis::HttpHeaderReferer, "http://r/"}, {iis::HttpHeaderUserAgent, ""}};
  context.request.unknown["X-Other"] = "no known header";
  RequestFacts facts;
  ASSERT_TRUE(Collect(context, facts) && ReadHeaders(context, facts));
  EXPECT_EQ(facts.host, "Other:80");
  EXPECT_EQ(facts.all_headers, "12text/plainc=1Other:80http://r/");
  EXPECT_EQ(facts.header_bytes, facts.all_headers.size());
  ASSERT_EQ(facts.headers.size(), 6u) << "an empty header is there";
  EXPECT_EQ(facts.headers[2].number, 25);
  EXPECT_EQ(facts.headers[2].name, "Cookie");
  EXPECT_EQ(facts.headers[5].name, "User-Agent");
  EXPECT_EQ(facts.cookie + facts.referer + facts.content_type, "c=1http://r/text/plain");
  EXPECT_EQ(facts.content_length, 12u);
  EXPECT_EQ(facts.site_id, 7u);
}

TEST(Headers, DecideOnTheEncodingOfPages) {
  struct {
    const char* type;
    const char* language;
    bool gbk;
  } const cases[] = {
      {"text/html; charset=GBK", "zh", true},
      {"text/html; charset=gb2312", "zh, utf-8", false},
      {"text/html; charset=utf-8", "zh", false},
      {"text/html", "gbk", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    CFakeContext context;
    context.request.known = {{iis::HttpHeaderContentType, c.type}, {iis::HttpHeaderAcceptLanguage, c.language}};
    RequestFacts facts;
    ASSERT_TRUE(ReadHeaders(context, facts));
    EXPECT_EQ(facts.gbk_page, c.gbk);
  }
}

}  // namespace
}  // namespace qiv

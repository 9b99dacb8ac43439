#include "checks/url_shape.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "config/path_list.h"
#include "config/path_readings.h"

namespace qiv {
namespace {

constexpr UrlSwitches kAll{.short_names = true, .bad_names = true, .script_parsing = true};

struct Case {
  UrlFault fault;
  std::string_view path;
};

// What people and programs try, each in the encodings that some server undoes.
constexpr Case kTricks[] = {
    {UrlFault::kControlByte, "/x.jpg%00.php"},
    {UrlFault::kControlByte, "/x.jpg%2500.php"},
    {UrlFault::kControlByte, "/a%0d%0aSet-Cookie:x"},
    {UrlFault::kControlByte, "/a%7f"},
    {UrlFault::kTraversal, "/../etc/passwd"},
    {UrlFault::kTraversal, "/a/../../etc/passwd"},
    {UrlFault::kTraversal, "/..%2f..%2fetc/passwd"},
    {UrlFault::kTraversal, "/a/..%2fb"},
    {UrlFault::kTraversal, "/a/%2e%2e/b"},
    {UrlFault::kTraversal, "/a/.%2e/b"},
    {UrlFault::kTraversal, "/a/%252e%252e/b"},
    {UrlFault::kTraversal, "/a/%25252e%25252e/b"},
    {UrlFault::kTraversal, "/a/%%32%65%%32%65/b"},
    {UrlFault::kTraversal, "/a/..%5cb"},
    {UrlFault::kTraversal, "/a\\..\\b"},
    {UrlFault::kTraversal, "/a/..%255cb"},
    {UrlFault::kTraversal, "/a/..%c0%afb"},
    {UrlFault::kTraversal, "/scripts/..%c1%9c../winnt"},
    {UrlFault::kTraversal, "/a/%c0%ae%c0%ae/b"},
    {UrlFault::kTraversal, "/a/..%e0%80%afb"},
    {UrlFault::kTraversal, "/a/..%f0%80%80%afb"},
    {UrlFault::kTraversal, "/a/..%u2215b"},
    {UrlFault::kTraversal, "/a/..%u2216b"},
    {UrlFault::kTraversal, "/a/%u002e%u002e/b"},
    {UrlFault::kTraversal, "/a/%uff0e%uff0e%uff0fb"},
    {UrlFault::kTraversal, "/a/%ef%bc%8e%ef%bc%8e/b"},
    {UrlFault::kTraversal, "/a/..;/b"},
    {UrlFault::kTraversal, "/a/..;x=1/manager"},
    {UrlFault::kTraversal, "/a/....//....//b"},
    {UrlFault::kTraversal, "/a/.../b"},
    {UrlFault::kTraversal, "/a/..%20/b"},
    {UrlFault::kOverlong, "/a%c0%80.php%ff"},
    {UrlFault::kScriptParsing, "/up/x.asp;.jpg"},
    {UrlFault::kScriptParsing, "/up/x.asp;1.jpg"},
    {UrlFault::kScriptParsing, "/up/x.cer;a.gif"},
    {UrlFault::kScriptParsing, "/up/x.php;.jpg"},
    {UrlFault::kScriptParsing, "/up/x.asp%3b.jpg"},
    {UrlFault::kScriptParsing, "/up/x.asp/y.jpg"},
    {UrlFault::kScriptParsing, "/up/x.asa/y.txt"},
    {UrlFault::kScriptParsing, "/up/x.jpg/y.php"},
    {UrlFault::kScriptParsing, "/up/x.jpg/.php"},
    {UrlFault::kScriptParsing, "/up/x.jpg%2fy.php"},
    {UrlFault::kShortName, "/secret~1"},
    {UrlFault::kShortName, "/WEB~1.CON"},
    {UrlFault::kShortName, "/*~1*/.aspx"},
    {UrlFault::kShortName, "/a%7e1/"},
    {UrlFault::kBadName, "/x.asp."},
    {UrlFault::kBadName, "/x.php%20"},
    {UrlFault::kBadName, "/x.asp::$DATA"},
    {UrlFault::kBadName, "/x.asp%3a%3a$data"},
    {UrlFault::kBadName, "/a:$i30:$INDEX_ALLOCATION/x"},
    {UrlFault::kBadName, "/con"},
    {UrlFault::kBadName, "/aux.txt"},
    {UrlFault::kBadName, "/com1.aspx"},
    {UrlFault::kBadName, "/c:/boot.ini"},
    {UrlFault::kSensitiveFile, "/.git/config"},
    {UrlFault::kSensitiveFile, "/.%67it/HEAD"},
    {UrlFault::kSensitiveFile, "/shop/.svn/entries"},
    {UrlFault::kSensitiveFile, "/.env"},
    {UrlFault::kSensitiveFile, "/.env.production"},
    {UrlFault::kSensitiveFile, "/web.config"},
    {UrlFault::kSensitiveFile, "/WEB.CONFIG.bak"},
    {UrlFault::kSensitiveFile, "/index.php.bak"},
    {UrlFault::kSensitiveFile, "/index.php~"},
    {UrlFault::kSensitiveFile, "/login.aspx.old"},
    {UrlFault::kSensitiveFile, "/.index.php.swp"},
    {UrlFault::kSensitiveFile, "/data/site.mdb"},
    {UrlFault::kSensitiveFile, "/dump.sql.gz"},
    {UrlFault::kSensitiveFile, "/App_Data/x.xml"},
    {UrlFault::kSensitiveFile, "/bin/site.dll"},
    {UrlFault::kSensitiveFile, "/id_rsa"},
};

// Their neighbours in real sites.
constexpr std::string_view kOrdinary[] = {"/",
                                          "/index.html",
                                          "/a/b/../c.html",
                                          "/docs/./x",
                                          "/~user/",
                                          "/~user/index.php",
                                          "/v/1.2.3/notes",
                                          "/files/report..final.pdf",
                                          "/a...b/c",
                                          "/index.php/archives/2020/photo.jpg",
                                          "/index.php/wp-json/v2/posts",
                                          "/Service.asmx/GetData",
                                          "/page.aspx/Method",
                                          "/cart.jsp;jsessionid=0A1B.node1",
                                          "/map;v=1.2/x",
                                          "/store/item;color=red",
                                          "/(S(abc123))/default.aspx",
                                          "/wiki/Apple_Inc.",
                                          "/wiki/Special:Search",
                                          "/Talk:C%2B%2B",
                                          "/.well-known/acme-challenge/x-y_z",
                                          "/assets/jquery-3.6.0.min.js",
                                          "/fonts/a.woff2?x",
                                          "/concert/aux-cables.html",
                                          "/conference",
                                          "/com10/x",
                                          "/lpt",
                                          "/nulls.html",
                                          "/con-text",
                                          "/environment",
                                          "/.environment/x",
                                          "/gitignore",
                                          "/git/book",
                                          "/svn.html",
                                          "/bin/index.html",
                                          "/cabin/lib.dll.html",
                                          "/%E4%B8%AD%E6%96%87/%E9%A1%B5.html",
                                          "/%D6%D0%CE%C4/%D2%B3.html",
                                          "/%C0%BA%C7%F2.html",
                                          "/%C0%AF%D6%F2/x",
                                          "/100%25/sale",
                                          "/a%20b/c%20d.html",
                                          "/blog/backup-your-data",
                                          "/blog/web.configuration",
                                          "/sql/tutorial.html",
                                          "/error/log",
                                          "/catalog.html",
                                          "/download/tool.zip",
                                          "/php.html",
                                          "/asp/",
                                          "/x.asp",
                                          "/news.asp/2020",
                                          "/a.b.c.d/e",
                                          "/photo~large.jpg",
                                          "/file~12345.txt",
                                          "/a~b",
                                          "/@user/status/1",
                                          "/x,y;z/(1)",
                                          "/search/!q=1",
                                          "/a=b&c=d",
                                          "/.hidden/x.css",
                                          "/%EF%BC%81/x",
                                          "/price:100/x",
                                          "/archive.tar.gz",
                                          "/old/index.html",
                                          "/bak/x.html"};

TEST(UrlShape, TricksAreFoundInEveryEncoding) {
  for (const Case& c : kTricks) {
    const UrlJudgement judgement = JudgeUrlPath(c.path, kAll);
    EXPECT_EQ(static_cast<int>(judgement.fault), static_cast<int>(c.fault)) << c.path << " " << judgement.name;
  }
}

TEST(UrlShape, OrdinaryPathsPass) {
  for (const std::string_view path : kOrdinary) {
    const UrlJudgement judgement = JudgeUrlPath(path, kAll);
    EXPECT_EQ(static_cast<int>(judgement.fault), 0) << path << " " << judgement.name;
  }
}

TEST(UrlShape, SwitchesTurnOffTheirFaultsAlone) {
  for (const Case& c : kTricks) {
    const bool always = c.fault <= UrlFault::kTraversal;
    EXPECT_EQ(JudgeUrlPath(c.path, {}).fault != UrlFault::kNone, always) << c.path;
  }
}

TEST(UrlShape, ForwardedLists) {
  for (const std::string_view text : {"", "1.2.3.4", " 1.2.3.4 , 10.0.0.1", "1.2.3.4:5678", "2001:db8::1",
                                      "[2001:db8::1]:443", "unknown", "1.2.3.4, unknown", "_proxy1", "\"[::1]:80\""}) {
    EXPECT_TRUE(IsForwardedList(text)) << text;
  }
  for (const std::string_view text : {"x", "1.2.3", "1.2.3.4' or 1=1", "<script>", "1.2.3.4;1.2.3.5",
                                      "${jndi:ldap://x}", "1.2.3.4:99999999", "localhost"}) {
    EXPECT_FALSE(IsForwardedList(text)) << text;
  }
}

TEST(PathList, GuardsEverySpellingAndExceptsNone) {
  const CPathList guarded("/admin/|/Manage|login.asp|/shop/*/edit");
  for (const std::string_view url :
       {"/admin/", "/admin", "/ADMIN/x.asp", "/%61dmin/x", "//admin/x", "/./admin/x", "/a/../admin/x", "\\admin\\x",
        "/admin;x=1/y", "/admin./x", "/manage?x=1", "http://host/admin/x", "/a/b/Login.asp", "/login%2easp/x",
        "/shop/12/edit", "/%2561dmin/"}) {
    EXPECT_TRUE(guarded.HoldsAny(PathReadings(PathOfUrl(url)))) << url;
  }
  for (const std::string_view url :
       {"/", "/administrator", "/x/admin/", "/managed", "/xlogin.asp", "/shop/edit", "/?x=/admin/"}) {
    EXPECT_FALSE(guarded.HoldsAny(PathReadings(PathOfUrl(url)))) << url;
  }
  const CPathList excepted("/admin/public/");
  EXPECT_TRUE(excepted.HoldsAll(PathReadings("/admin/public/x.css")));
  for (const std::string_view path : {"/admin/public/../x", "/admin/public%2f..%2fx", "/admin/public/..;/x"}) {
    EXPECT_FALSE(excepted.HoldsAll(PathReadings(path))) << path;
  }
}

}  // namespace
}  // namespace qiv

#include "checks/url_shape.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "config/path_list.h"
#include "config/path_readings.h"
#include "port/file.h"

namespace qiv {
namespace {

constexpr UrlSwitches kAll{.short_names = true, .bad_names = true, .script_parsing = true};

struct Case {
  UrlFault fault;
  std::string url;
};

/// url_cases.txt: lines of a kind, a tab and the URL as sent.
std::vector<Case> Cases() {
  static constexpr std::string_view kKinds[] = {"none",    "control", "overlong", "traversal",
                                                "parsing", "short",   "bad-name", "sensitive"};
  std::string text;
  EXPECT_EQ(ReadWholeFile(QIV_TEST_DATA "/url_cases.txt", 1U << 20, &text), ReadFileResult::kOk);
  std::vector<Case> cases;
  for (const std::string_view line : Split(text, "\n")) {
    if (line.empty() || line.starts_with('#')) continue;
    const std::size_t tab = std::min(line.find('\t'), line.size());
    const auto* const kind = std::find(std::begin(kKinds), std::end(kKinds), line.substr(0, tab));
    EXPECT_TRUE(kind != std::end(kKinds) && tab + 1 < line.size()) << line;
    if (tab + 1 < line.size())
      cases.push_back({static_cast<UrlFault>(kind - std::begin(kKinds)), std::string(line.substr(tab + 1))});
  }
  EXPECT_GT(cases.size(), 600U);
  return cases;
}

TEST(UrlShape, TricksAreFoundInEveryEncodingAndTheirNeighboursPass) {
  for (const Case& c : Cases()) {
    const UrlJudgement judgement = JudgeUrlPath(PathOfUrl(c.url), kAll);
    EXPECT_EQ(static_cast<int>(judgement.fault), static_cast<int>(c.fault)) << c.url << " " << judgement.name;
    // The first three are always looked for, the others by their switches.
    const bool always = c.fault != UrlFault::kNone && c.fault <= UrlFault::kTraversal;
    EXPECT_EQ(JudgeUrlPath(PathOfUrl(c.url), {}).fault != UrlFault::kNone, always) << c.url;
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

TEST(PathReadings, PlainPathsReadAsTheirOtherSpelling) {
  constexpr std::string_view kLetters = "/.a ";
  for (std::uint32_t number = 0; number < 1U << 14; ++number) {
    std::string path = "/";
    for (std::uint32_t left = number; left != 0; left >>= 2) path += kLetters[left & 3];
    EXPECT_EQ(PathReadings(path), PathReadings(ReplaceAll(path, "a", "%61"))) << path;
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

#include "config/url_exemptions.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "config/path_readings.h"
#include "config/url_black_list.h"

namespace qiv {
namespace {

struct Case {
  const char* setting;
  const char* raw_url;
  const char* path;
  bool exempt;
};

const Case kCases[] = {
    {"/admin", "/admin/x", "/admin/x", true},
    {"/admin", "/Admin/x", "/Admin/x", false},
    {"/a|/b", "/x/b", "/x/b", true},
    {"", "/", "/", false},
    {"|", "/", "/", false},
    {"||/a|", "/b", "/b", false},
    // A page and parameter names.
    {"/p.asp?id", "/p.asp?x=1&id=2", "/p.asp", true},
    {"/p.asp?id", "/sub/p.asp?x=1&id=2", "/sub/p.asp", true},
    {"/p.asp?id", "/p.asp?x=1", "/p.asp", false},
    {"/p.asp?id", "/q.asp?x=1&id=2", "/q.asp", false},
    {"/p.asp?id", "/p.asp/id", "/p.asp/id", false},
    {"/p.asp?id&name", "/p.asp?x=1&name=2", "/p.asp", true},
    {"?id", "/any?x=1&id=2", "/any", true},
    {"?id", "/any", "/any", false},
    {"/p.asp?", "/p.asp?x", "/p.asp", true},    // the item itself occurs
    {"/p.asp?", "/p.asp/?x", "/p.asp", false},  // and has no name
    {"/p?a&&", "/p?b", "/p", false},
    {"/p?a?b", "/p?x=a?b", "/p", true},
    // The second "?" of a URL belongs to its query.
    {"/p?id", "/p?u=/q?id", "/p", true},
    // Percent escapes and both encodings.
    {"%2Fx", "/x/y", "/x/y", true},
    {"/\xC4\xE3", "/\xC4\xE3", "/", true},
    {"/\xC4\xE3", "/\xE4\xBD\xA0", "/", true},
    {"/%E4%BD%A0", "/\xC4\xE3", "/", true},
    {"/%E4%BD%A0", "/\xE4\xBD\xA0", "/", true},
    {"/%C4%E3?\xC4\xE3", "/\xE4\xBD\xA0?z=1&\xE4\xBD\xA0", "/\xE4\xBD\xA0", true},
    // A trail byte "|" divides no item.
    {"/\x81\x7C"
     "a",
     "a", "a", false},
    {"/\x81\x7C"
     "a|b",
     "b", "b", true},
};

TEST(UrlExemptions, MatchesItems) {
  for (const Case& c : kCases) {
    EXPECT_EQ(CUrlExemptions(c.setting).Matches(c.raw_url, c.path), c.exempt) << c.setting << " " << c.raw_url;
  }
  EXPECT_TRUE(CUrlExemptions("||").Empty());
  EXPECT_FALSE(CUrlExemptions("a").Empty());
}

TEST(UrlBlackList, SeesThroughSpellings) {
  struct BlackCase {
    const char* setting;
    const char* raw_url;
    bool listed;
  };
  const BlackCase cases[] = {
      {"/secret", "/%73ecret", true},
      {"/secret", "/SECRET/", true},
      {"/Secret", "/sEcret.txt", true},
      {"/%73ecret", "/Secret", true},
      {"/secret", "/%2573ecret", true},
      {"/secret", "/%25252573ecret", true},
      {"/a/secret", "/a/%2e%2e/a/.//x/..\\secret", true},
      {"/a/secret", "/a%5csecret?x", true},
      {"/a/secret", "/a;v=1/secret", true},
      {"/a/secret", "/A./secret", true},
      {"/a/secret", "/a%20/secret", true},
      {"/secret/", "/SECRET/%252e%252e/x", true},  // whoever decodes once serves it from there
      {"/secret/", "/SECRET/%2e%2e/x", false},
      {"/secret", "/secre", false},
      {"/secret", "/x?y=/SECRET", false},  // as sent it would match, but other spellings count in the path alone
      {"/secret", "/x?y=/secret", true},
      {"/%2e%2e/", "/a/b", false},
      {"//", "/a/b", false},
      {"\\", "/a/b", false},
      {";", "/a/b;x", true},
      // Pages with parameters.
      {"/p.asp?cmd", "/P.asp?x=1&%63MD=2", true},
      {"/p.asp?cmd", "/q/../%50.asp?cmd=2", true},
      {"/p.asp?cmd", "/P.asp?x=1", false},
      {"/p.asp?cmd", "/P.aspx?cmd=1", false},
      {"?cmd", "/any?CMD", true},
      // Chinese, in either encoding on either side, with a letter as a trail byte.
      {"/\xC4\xE3", "/%E4%BD%A0", true},
      {"/\xC4\xE3", "/%c4%e3", true},
      {"/%E4%BD%A0", "/A/%25C4%25E3", true},
      {"/%C4%E3", "/%E4%BD%A0/%FF", true},
      {"/\x81\x41", "/%81%61", false},
      {"/\x81\x5C", "/x/../%81%5C", true},
      {"/\x81\x5C/b", "/%E4%B9%97/B", true},
  };
  for (const BlackCase& c : cases) {
    const std::string_view path = std::string_view(c.raw_url).substr(0, std::string_view(c.raw_url).find('?'));
    EXPECT_EQ(CUrlBlackList(c.setting).Matches(c.raw_url, path, PathReadings(path)), c.listed)
        << c.setting << " " << c.raw_url;
  }
}

/// The rule as it is told: item by item, piece by piece. For ASCII settings without escapes.
bool SlowMatches(std::string_view setting, std::string_view raw_url, std::string_view path) {
  for (const std::string_view item : Split(setting, '|')) {
    if (item.empty()) continue;
    if (raw_url.find(item) != std::string_view::npos) return true;
    const std::size_t question = item.find('?');
    const std::size_t query = raw_url.find('?');
    if (question == std::string_view::npos || query == std::string_view::npos) continue;
    const std::string_view page = item.substr(0, question);
    if (!page.empty() && !path.ends_with(page)) continue;
    for (const std::string_view piece : Split(raw_url.substr(query + 1), '&')) {
      for (const std::string_view name : Split(item.substr(question + 1), '&')) {
        if (!name.empty() && piece.find(name) != std::string_view::npos) return true;
      }
    }
  }
  return false;
}

TEST(UrlExemptions, AgreesWithTheSlowVersion) {
  std::mt19937 random(20240601);
  const auto text = [&random](std::string_view alphabet, std::size_t longest) {
    std::string result;
    for (std::size_t n = random() % (longest + 1); n != 0; --n) result += alphabet[random() % alphabet.size()];
    return result;
  };
  int exempt = 0;
  constexpr int kRounds = 40000;
  for (int i = 0; i < kRounds; ++i) {
    const std::string setting = text("ab?&|", 10);
    const std::string path = text("ab", 4);
    const std::string url = path + text("ab?&", 8);
    const bool expected = SlowMatches(setting, url, path);
    exempt += expected ? 1 : 0;
    ASSERT_EQ(CUrlExemptions(setting).Matches(url, path), expected) << setting << " " << url << " " << path;
  }
  EXPECT_GT(exempt, kRounds / 10);  // both answers were put to the test
  EXPECT_LT(exempt, kRounds * 9 / 10);
}

}  // namespace
}  // namespace qiv

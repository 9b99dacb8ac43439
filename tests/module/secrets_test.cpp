#include "module/secrets.h"

#include <gtest/gtest.h>

#include <string>

namespace qiv {
namespace {

TEST(Secrets, ValuesBehindPasswordNamesAreHidden) {
  const struct {
    const char* text;
    const char* expected;
  } cases[] = {
      {"", ""},
      {"/login?user=ann&password=hunter2&x=1", "/login?user=ann&password=***&x=1"},
      {"a=1&Pwd=x y&PASSWD=z", "a=1&Pwd=***&PASSWD=***"},
      {"user_pass=a=b&b=2", "user_pass=***&b=2"},
      {R"({"id":1,"password" : "a b","x":"pass"})", R"({"id":1,"password" : "***","x":"pass"})"},
      {"name=\"password\"\r\n\r\nhunter2\r\n--b", "name=\"password\"\r\n\r\n***\r\n--b"},
      {"secretrkey127.0.0.1=abc", "secretrkey127.0.0.1=***"},
      {"(Header[Authorization]=Basic YTpi)", "(Header[Authorization]=***"},
      {"Header[Authorization]: Basic YTpi\r\nx", "Header[Authorization]: ***\r\nx"},
      {"the password is wrong, compass=north", "the password is wrong, compass=***"},
      {"password=", "password="},
      {"password=&pass", "password=&pass"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(WithoutSecrets(text), expected) << text;
}

TEST(Secrets, LongTextsOfNamesAreReadOnce) {
  std::string text;
  for (int i = 0; i < 200'000; ++i) text += "pass=pwd:pass ";
  EXPECT_EQ(WithoutSecrets(text), "pass=***");
}

}  // namespace
}  // namespace qiv

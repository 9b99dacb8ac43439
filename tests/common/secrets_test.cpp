#include "common/secrets.h"

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
      {R"({"pwd":"a\"b&c\\","x":1})", R"({"pwd":"***","x":1})"},
      {R"({"pwd":1234,"x":"y"})", R"({"pwd":***"x":"y"})"},
      {R"({"s":"{\"pwd\":\"a\\\"b\",\"x\":1}"})", R"({"s":"{\"pwd\":\"***\",\"x\":1}"})"},
      {"<user><password>a & b</password><x>1</x>", "<user><password>***</password><x>1</x>"},
      {"/?user%5Bpassword%5D=a&x=1", "/?user%5Bpassword%5D=***&x=1"},
      {"/?q=%7B%22password%22%3A%22a%22%7D&x=1", "/?q=%7B%22password%22%3A%22***&x=1"},
      {"psw=' or \"1\"=\"1&x=1", "psw=***&x=1"},
      {"Authorization: Digest username=\"ann\", response=\"a\"\r\nX: 1", "Authorization: ***\r\nX: 1"},
      {"(Detail:pwd=***),Connective:id=1", "(Detail:pwd=***),Connective:id=1"},
      {"pwd=\xD6\xD0|&x=\xD6\xD0", "pwd=***&x=\xD6\xD0"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(WithoutSecrets(text), expected) << text;
    EXPECT_EQ(WithoutSecrets(expected), expected) << "applied again";
  }
}

TEST(Secrets, LongTextsOfNamesAreReadOnce) {
  std::string text;
  for (int i = 0; i < 200'000; ++i) text += "pass=pwd:pass ";
  EXPECT_EQ(WithoutSecrets(text), "pass=***");
}

}  // namespace
}  // namespace qiv

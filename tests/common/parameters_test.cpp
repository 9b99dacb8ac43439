#include <gtest/gtest.h>

#include "common/text.h"

namespace qiv {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs Parameters(std::string_view text) {
  Pairs pairs;
  for (const Parameter& parameter : SplitParameters(text)) {
    pairs.emplace_back(parameter.name, parameter.value);
    EXPECT_EQ(parameter.is_file_name, parameter.name == "filename");
  }
  return pairs;
}

TEST(Parameters, FormsAndJson) {
  const std::pair<std::string_view, Pairs> cases[] = {
      {"", {}},
      {" \r\n", {}},
      {"a=1&b=2", {{"a", "1"}, {"b", "2"}}},
      {"a==1=&=x&b=&c", {{"a", "=1="}, {"", "x"}, {"b", ""}, {"", "c"}}},
      {"&&a&", {{"", "a"}}},
      {"\xD6=\xD0&\xC1\x26", {{"\xD6", "\xD0"}, {"", "\xC1"}}},  // "=" and "&" are no trail bytes
      {" {\"a\":\"1&b=2\"}", {{"", " {\"a\":\"1&b=2\"}"}}},
      {"[1&2]", {{"", "[1&2]"}}},
      {"--x&y=1", {{"", "--x"}, {"y", "1"}}},
      {"--x\r\ny&z=1", {{"", "--x\r\ny"}, {"z", "1"}}},
  };
  for (const auto& [text, parameters] : cases) EXPECT_EQ(Parameters(text), parameters) << text;
}

TEST(Parameters, Multipart) {
  const std::string_view kHead = "Content-Disposition: form-data; ";
  const std::pair<std::string, Pairs> cases[] = {
      // A browser's body; content that begins like a boundary; an empty content.
      {"--b\r\nH name=\"a\"\r\n\r\n1\r\n--b\r\nH name=\"c\"\r\n\r\n--bx\r\n--b \r\nH name=\"d\"\r\n\r\n\r\n--b--\r\n",
       {{"a", "1"}, {"c", "--bx"}}},
      // Line feeds alone, a part without a byte, no quotes, lower case, no last boundary.
      {"--b\ncontent-disposition:form-data;name=a\n\n1&x=y\n--b\n--b\ncontent-disposition: form-data; name = 'c'\n\n2",
       {{"a", "1&x=y"}, {"c", "2"}}},
      {"--b\r\nContent-Type: text/plain\r\nH name=\"a\"; filename=\"x;y.php\"\r\n\r\n<?\r\n--b--",
       {{"filename", "x;y.php"}, {"a", "<?"}}},
      {"--b\r\nH filename=\"n\"; \r\n name=\"a\r\n\r\n1\r\n--b--",
       {{"filename", "n"}, {"a", "1"}}},  // folded, no end quote
      {"--b\r\nH name=\"\xC1\\\"; filename=\"a\\\"b\"\r\n\r\n1",
       {{"filename", "a\\\"b"}, {"filename", "a\\"}, {"\xC1\\", "1"}}},
      // What surrounds the parts is looked at as well.
      {"p=1&q=2\r\n--b\r\nH name=a\r\n\r\n1\r\n--b--\r\nr=3&s=4",
       {{"p", "1"}, {"q", "2\r\n"}, {"a", "1"}, {"r", "3"}, {"s", "4"}}},
      {"--b\r\nH name=a&id=1\r\n\r\n1\r\n--b--t=5",
       {{"Content-Disposition: form-data; name", "a"}, {"id", "1"}, {"a&id=1", "1"}, {"t", "5"}}},
      {"--b\r\nH name=a\r\nno end of headers\r\n--b\r\n\r\nno headers",
       {{"a", "Content-Disposition: form-data; name=a\r\nno end of headers"}, {"", "no headers"}}},
      {"--b\r\nContent-", {{"", "Content-"}}},
  };
  for (const auto& [text, parameters] : cases) {
    const std::string body = ReplaceAll(text, "H ", kHead);
    EXPECT_EQ(Parameters(body), parameters) << body;
  }
}

}  // namespace
}  // namespace qiv

#include "common/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace qiv {
namespace {

using namespace std::string_literals;

std::string Repeat(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

// The text written again on one line, or the error with its place.
std::string Rewritten(std::string_view text) {
  // An exact-size copy, so that the address sanitizer sees one byte too far.
  const std::vector<char> copy(text.begin(), text.end());
  JsonError error;
  const auto value = ParseJson(std::string_view(copy.data(), copy.size()), &error);
  return value != nullptr ? WriteJson(*value) : error.message + " @" + std::to_string(error.offset);
}

TEST(Json, Accepted) {
  const struct {
    std::string text;
    std::string written;
  } cases[] = {
      {"0", "0"},
      {" \t\r\n null \n", "null"},
      {"\xEF\xBB\xBF[true]", "[true]"},
      {"[ ]", "[]"},
      {"{ }", "{}"},
      {"[[],{},[{}]]", "[[],{},[{}]]"},
      {R"({"a" : 1 , "b":[ false,null ] })", R"({"a":1,"b":[false,null]})"},
      {R"({"z":1,"a":2,"z":{"x":3}})", R"({"z":{"x":3},"a":2})"},  // the last of equal keys, at the first's place
      {R"({"":0})", R"({"":0})"},
      {"-0", "-0"},
      {"1.50", "1.50"},
      {"-1.5e+10", "-1.5e+10"},
      {"1E-7", "1E-7"},
      {"123456789012345678901234567890.123456789e999", "123456789012345678901234567890.123456789e999"},
      {R"("\"\\\/\b\f\n\r\t")", R"("\"\\/\b\f\n\r\t")"},
      {R"("\u4e2D\u0000\u001f\u007F\ud83D\uDE00")", "\"中\\u0000\\u001f\\u007f😀\""},
      {R"("\u2028\u2029")", R"("\u2028\u2029")"},
      {"\"中文 é 😀\"", "\"中文 é 😀\""},
      {Repeat("[", 64) + Repeat("]", 64), Repeat("[", 64) + Repeat("]", 64)},
      {Repeat("{\"k\":", 63) + "{}" + Repeat("}", 63), Repeat("{\"k\":", 63) + "{}" + Repeat("}", 63)},
  };
  for (const auto& c : cases) EXPECT_EQ(Rewritten(c.text), c.written) << c.text;
}

TEST(Json, Refused) {
  // Each text has "^" where the fault is told to be.
  const struct {
    std::string error;
    std::vector<std::string> texts;
  } cases[] = {
      {"unexpected end of text, expected a value", {"^", "  ^", "\xEF\xBB\xBF^", "[^"}},
      {"expected a value", {"[1,^]", "[^,1]", "^]", "{\"a\":^}", "^True", "^nul", "^NaN", "^+1", "^.5", "^// c\n1"}},
      {"expected ',' or ']'", {"[1 ^2]", "[1^}", "[1^"}},
      {"expected ',' or '}'", {"{\"a\":1^", "{\"a\":1 ^\"b\":2}"}},
      {"expected a key in quotes", {"{\"a\":1,^}", "{^a:1}", "{^'a':1}", "{^"}},
      {"expected ':' after the key", {"{\"a\"^}"}},
      {"unexpected text after the value", {"1 ^1", "null^,", "0^x10", "[1]^\0"s}},
      {"leading zero", {"^01", "^-01"}},
      {"expected a digit", {"-^", "1.^", "1e^", "1e+^"}},
      {"string without its closing quote", {"^\"a", "\"a^\\"}},
      {"control byte in a string", {"\"a^\nb\"", "\"^\0\""s}},
      {"unknown escape", {R"("^\x41")"}},
      {"\\u needs four hexadecimal digits", {R"("^\u12")", R"("^\u12G4")"}},
      {"lone surrogate", {R"("ab^\ud800")", R"("^\udc00")", R"("^\ud800\u0041")", R"("^\ud800\ud800")"}},
      {"invalid UTF-8 in a string", {"\"^\xD6\xD0\"", "\"a^\xED\xA0\x80\"", "\"^\xE4\xB8"}},
      {"nested deeper than 64 levels",
       {Repeat("[", 64) + "^[", Repeat("{\"k\":", 64) + "^{}", Repeat("[", 64) + "^" + Repeat("[", 1'000'000)}},
  };
  for (const auto& [error, texts] : cases) {
    for (std::string text : texts) {
      const std::size_t place = text.find('^');
      text.erase(place, 1);
      EXPECT_EQ(Rewritten(text), error + " @" + std::to_string(place)) << text.substr(0, 80);
    }
  }
}

TEST(Json, Numbers) {
  const auto none = std::optional<std::int64_t>();
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    const char* literal;
    std::optional<std::int64_t> whole;
    double real;
  } cases[] = {
      {"0", 0, 0},
      {"-0", 0, -0.0},
      {"10", 10, 10},
      {"10.0", 10, 10},
      {"1e3", 1000, 1000},
      {"1200e-2", 12, 12},
      {"0.5e1", 5, 5},
      {"1.5", none, 1.5},
      {"1e-1", none, 0.1},
      {"9223372036854775807", 9223372036854775807, 9223372036854775807.0},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min(), -9223372036854775808.0},
      {"9223372036854775808", none, 9223372036854775808.0},
      {"-9223372036854775809", none, -9223372036854775809.0},
      {"1e19", none, 1e19},
      {"0e999999999999999999999", 0, 0},
      {"1e400", none, infinity},
      {"-1e99999999999999999999", none, -infinity},
      {"1e-99999999999999999999", none, 0},
      {"0.00000000000000000000000000001e29", 1, 1},
  };
  for (const auto& c : cases) {
    const JsonNumber number{std::string(c.literal)};
    EXPECT_EQ(number.ToInt64(), c.whole) << c.literal;
    EXPECT_DOUBLE_EQ(number.ToDouble(), c.real) << c.literal;
  }
  EXPECT_EQ(WriteJson(JsonNumber(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
}

TEST(Json, LookUp) {
  const std::string text = R"({"text":"a\u00e9","number":10,"real":1.50,"yes":true,"no":false,"null":null,
  "list":[1],"object":{"inner":1}, "text2" : "x"})";
  const auto value = ParseJson(text);
  ASSERT_NE(value, nullptr);
  const JsonObject* object = value->AsObject();
  ASSERT_NE(object, nullptr);
  const struct {
    const char* key;
    const char* text;
  } cases[] = {{"text", "aé"}, {"number", "10"}, {"real", "1.50"}, {"yes", "true"}, {"no", "false"}, {"null", ""},
               {"list", ""},   {"object", ""},   {"inner", ""},    {"missing", ""}, {"text2", "x"},  {"", ""}};
  for (const auto& c : cases) EXPECT_EQ(object->GetText(c.key), c.text) << c.key;
  EXPECT_EQ(object->Find("missing"), nullptr);
  EXPECT_EQ(object->Find("list")->AsObject(), nullptr);
  EXPECT_EQ(object->Find("list")->AsArray()->Items()[0]->Text(), "1");
  EXPECT_EQ(object->Find("text2")->Offset(), text.find("\"x\""));
  EXPECT_EQ(JsonLine(text, object->Find("yes")->Offset()), 1U);
  EXPECT_EQ(JsonLine(text, object->Find("object")->Offset()), 2U);
  EXPECT_EQ(JsonLine(text, text.size() + 10), 2U);
}

TEST(Json, BuiltAndIndented) {
  JsonObject root;
  root.SetText("quote\"", "line\nend");
  EXPECT_TRUE(root.Set("list", std::make_unique<JsonArray>()));
  auto list = std::make_unique<JsonArray>();
  list->Append(std::make_unique<JsonNumber>(std::int64_t{-7}));
  list->Append(std::make_unique<JsonObject>());
  list->Append(std::make_unique<JsonBoolean>(true));
  EXPECT_FALSE(root.Set("list", std::move(list))) << "replaces";
  root.Set("none", nullptr);
  const std::string pretty =
      "{\n  \"quote\\\"\": \"line\\nend\",\n  \"list\": [\n    -7,\n    {},\n    true\n  ],\n  \"none\": null\n}";
  EXPECT_EQ(WriteJson(root, 2), pretty);
  const auto again = ParseJson(pretty);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(WriteJson(*again), WriteJson(root));
}

TEST(Json, StringsFromAnyBytes) {
  const std::string r = "\xEF\xBF\xBD";
  const struct {
    std::string bytes;
    std::string written;
  } cases[] = {
      {"", "\"\""},
      {"\xD6\xD0'<\xFF", "\"" + r + r + "'<" + r + "\""},
      {"\xE4\xB8", "\"" + r + r + "\""},
      {"\0\x1B\x7F\"\\/"s, "\"\\u0000\\u001b\\u007f\\\"\\\\/\""},
      {"中\xE2\x80\xA8", "\"中\\u2028\""},
      {"\xC2\x80\xC2\x9B[2J\xC2\x9F\xC2\xA0", "\"\\u0080\\u009b[2J\\u009f\xC2\xA0\""},  // terminals obey C1 controls
  };
  for (const auto& c : cases) {
    std::string out = "x";
    AppendJsonString(c.bytes, &out);
    EXPECT_EQ(out, "x" + c.written);
    EXPECT_NE(ParseJson(c.written), nullptr) << c.written;
  }
}

// A tree that was built may be deeper than one that is read; neither writing nor destroying it recurses.
TEST(Json, DeepTreesAreWrittenAndDestroyed) {
  constexpr std::size_t kDepth = 200'000;
  std::unique_ptr<IJsonValue> value = std::make_unique<JsonObject>();
  for (std::size_t i = 0; i < kDepth; ++i) {
    if (i % 2 == 0) {
      auto array = std::make_unique<JsonArray>();
      array->Append(std::move(value));
      value = std::move(array);
    } else {
      auto object = std::make_unique<JsonObject>();
      object->Set("k", std::move(value));
      value = std::move(object);
    }
  }
  EXPECT_EQ(WriteJson(*value).size(), kDepth / 2 * (2 + 6) + 2);
}

}  // namespace
}  // namespace qiv

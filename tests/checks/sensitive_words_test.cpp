#include <gtest/gtest.h>

#include "checks/script_insertion_check.h"
#include "checks/sensitive_words_check.h"
#include "checks/sensitive_words_output_check.h"
#include "common/text.h"
#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

// GBK of words whose bytes hold others across characters: B0A1 B2C3 holds A1B2; "\xD5\x41" has a trail byte "A".
constexpr char kChinese[] = "\xE4\xB8\xAD\xE6\x96\x87";  // "zhong wen" in UTF-8, D6D0 CEC4 in GBK

class SensitiveWordsTest : public CCheckFixture {
 protected:
  SensitiveWordsTest() {
    RequestSettings& request = site_->request;
    request.ill_block = request.ill_block_get = request.ill_block_header = request.ill_block_webout = 1;
    request.ill_replace = request.ill_replace_get = request.ill_replace_header = request.ill_replace_webout = 1;
    request.ill_record = request.ill_record_get = 1;
    request.ill_block_post = request.ill_replace_post = true;
    request.ill_block_log = 1;
    site_->words.words = CSensitiveWords("badword|\xD6\xD0\xCE\xC4|\xA1\xB2|\xD5\x41", "darn|\xD3\xA2\xB9\xFA", "note");
    site_->words.new_word = site_->words.new_word_utf8 = "**";
    site_->words.block_white_urls = CUrlExemptions("/free/");
    UseSite();
  }

  std::string Decide() {
    result_ = {};
    SensitiveWordsCheck(facts_, Context(), result_);
    return result_.status == kBlocked ? result_.detail : "";
  }
  std::string Query(const std::string& query) {
    facts_.raw_url = "/a?" + query;
    const std::string detail = Decide();
    return detail.empty() && result_.request.edits ? Edited(facts_.raw_url, result_.request.edits->url) : detail;
  }
  std::string Body(const std::string& type, const std::string& body) {
    facts_.raw_url = "/a";
    facts_.content_type = type;
    facts_.raw_body = body;
    const std::string detail = Decide();
    return detail.empty() && result_.request.edits ? Edited(body, result_.request.edits->body) : detail;
  }
  std::string Answer(const std::string& type, const std::string& text) {
    result_ = {};
    response_ = text;
    CheckContext context = Context();
    context.response.type = type;
    context.response.may_change = true;
    SensitiveWordsOutputCheck(facts_, context, result_);
    if (result_.status == kBlocked) return "blocked";
    ScriptInsertionCheck(facts_, context, result_);
    return result_.request.edits ? Edited(text, result_.request.edits->response) : "";
  }

  CheckResult result_;
};

TEST_F(SensitiveWordsTest, FindsWordsInEveryFormAndPlace) {
  constexpr char kFound[] = "Deny sensitive words(GET[q]),Keywords:badword";
  for (const char* query : {"q=a+BadWord", "q=x%62adword", "q=%2562adword", "q=bad%word", "q=%ff%ffbadword",
                            "q=\xEF\xBD\x82\xEF\xBD\x81\xEF\xBD\x84word", "badword=1", "q[badword"}) {
    EXPECT_NE(Query(query).find("badword"), std::string::npos) << query;
    EXPECT_EQ(result_.status, kBlocked) << query;
  }
  EXPECT_EQ(Query("q=xbadwordx"), kFound);
  EXPECT_EQ(result_.item, "Sensitive Word Protection(GET)");
  EXPECT_EQ(statistics_.back(), "feifa 192.0.2.7 -");
  for (const char* query : {"q=%E4%B8%AD%E6%96%87", "q=%D6%D0%CE%C4", "q=x%u4E2D%u6587", "q=%26%2320013;%26%2325991;",
                            "q=a\xE4\xB8\xAD%E6%96%87%FF"}) {
    EXPECT_NE(Query(query).find("Keywords:\xD6\xD0\xCE\xC4"), std::string::npos) << query;
  }
  EXPECT_NE(Body("application/json", R"({"a":["\u4e2d\u6587"]})"), "");
  EXPECT_NE(Body("text/xml", "<a>&#x4e2d;&#25991;</a>"), "");
  EXPECT_NE(Body("text/plain; charset=utf-16", std::string("\x2D\x4E\x87\x65", 4)), "");
  EXPECT_NE(Body("text/plain; charset=utf-16", "\xFF\xFE a badword"), "") << "to a page that reads bytes";
  facts_.raw_body = {};
  facts_.headers = {{25, "Cookie", "c=badword"}};
  EXPECT_EQ(Decide(), "Deny sensitive words(Header[c]),Keywords:badword");
  facts_.headers.clear();
  for (const char* query : {"q=bad+word", "q=%B0%A1%B2%C3", "q=%D5%61", "q=%D2%D6%D0%CE%C4"}) {
    EXPECT_EQ(Query(query), "") << query << ": no whole characters of a word";
  }
  facts_.raw_url = "/free/?q=badword";
  EXPECT_EQ(Decide(), "");
  EXPECT_EQ(Query("q=note"), "");
  EXPECT_EQ(partial_, std::vector<std::string>{"words"});
  EXPECT_EQ(statistics_.back(), "feifa_record 192.0.2.7 -");
}

TEST_F(SensitiveWordsTest, ReplacesWordsWhereTheyStand) {
  site_->words.new_word_utf8 = "a\"&<";
  site_->words.new_word = "a\"&<";
  EXPECT_EQ(Query("a=%20d%61rn%2B&b=1+%D3%A2%B9%FA;&darn"), "/a?a=%20a%22%26%3C%2B&b=1+a%22%26%3C;&a%22%26%3C");
  EXPECT_EQ(statistics_.back(), "feifa_replace 192.0.2.7 -");
  constexpr char kForm[] = "application/x-www-form-urlencoded";
  EXPECT_EQ(Body(kForm, "a=%E8%8B%B1%E5%9B%BD"), "a=a%22%26%3C");
  EXPECT_EQ(Body("application/json", R"({"a":"\ud83d\ude00 \u0064arn\n","n":[1]})"),
            R"({"a":"\ud83d\ude00 a\"&<\n","n":[1]})");
  EXPECT_EQ(Body("text/xml", "<a b='&#100;arn'>&amp;</a>"), "<a b='a&quot;&amp;&lt;'>&amp;</a>");
  EXPECT_EQ(Body("multipart/form-data; boundary=b",
                 "--b\r\nContent-Disposition: form-data; name=\"t\"\r\n\r\ndarn\r\n"
                 "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f\"\r\n\r\ndarn\r\n--b--\r\n"),
            "--b\r\nContent-Disposition: form-data; name=\"t\"\r\n\r\na\"&<\r\n"
            "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f\"\r\n\r\ndarn\r\n--b--\r\n")
      << "files stay as they are";
  facts_.headers = {{40, "User-Agent", "x darn"}, {25, "Cookie", "a=darn; b=%64arn"}};
  EXPECT_EQ(Body(kForm, "a=1"), "a=1");
  const auto& headers = result_.request.edits->headers;
  ASSERT_EQ(headers.size(), 2U);
  EXPECT_EQ(Edited(facts_.headers[0].value, headers[0].second), "x a\"&<");
  EXPECT_EQ(Edited(facts_.headers[1].value, headers[1].second), "a=a%22%26%3C; b=a%22%26%3C");
}

TEST_F(SensitiveWordsTest, ReadsResponsesInTheirCharset) {
  const std::string gbk = "\xD6\xD0\xCE\xC4";
  struct Row {
    std::string type, text, answer;
  };
  const std::string wide(
      "\xFF\xFE"
      "d\0a\0r\0n\0!\0",
      12);
  for (const Row& row : {Row{"text/html", "a badword", "blocked"},
                         {"text/html; charset=utf-8", kChinese, "blocked"},
                         {"text/html; charset=gbk", gbk, "blocked"},
                         {"text/html; charset=gbk", "\xD2" + gbk, ""},
                         {"text/html", "<meta charset='gb2312'>" + gbk, "blocked"},
                         {"text/html", gbk, "blocked"},
                         {"text/html; charset=big5", gbk + "badword", ""},
                         {"text/html; charset=windows-1252", gbk + "darn", gbk + "**"},
                         {"text/html; charset=utf-8", gbk, ""},
                         {"text/html; charset=utf-16be", std::string("x\0d\0a\0r\0ny", 10), ""},
                         {"text/html", "darn \xE8\x8B\xB1\xE5\x9B\xBD dARn", "** ** **"},
                         {"", wide,
                          std::string("\xFF\xFE"
                                      "*\0*\0!\0",
                                      8)}}) {
    EXPECT_EQ(Answer(row.type, row.text), row.answer) << row.type << " " << row.text;
  }
  site_->words.new_word_utf8 = "\"<\xE2\x82\xAC";
  EXPECT_EQ(Answer("application/json", "\"darn\""), "\"\\\"<\xE2\x82\xAC\"");
  EXPECT_EQ(Answer("text/html; charset=utf-8", "darn"), "&quot;&lt;\xE2\x82\xAC");
  EXPECT_EQ(Answer("text/html; charset=windows-1252", "darn"), "***");
}

TEST_F(SensitiveWordsTest, InsertsTheScriptBehindWhatItReplaces) {
  site_->script.code = "<script>/*\xE4\xB8\xAD*/</script>";
  site_->script.urls = CUrlExemptions("/shop");
  site_->script.free_urls = CUrlExemptions("/shop/api");
  facts_.raw_url = "/shop/a";
  EXPECT_EQ(Answer("text/html; charset=utf-8", "</body> darn </BODY></html>"),
            "</body> ** <script>/*\xE4\xB8\xAD*/</script></BODY></html>");
  EXPECT_EQ(Answer("text/html; charset=gbk", "<p></body >"), "<p><script>/*\xD6\xD0*/</script></body >");
  EXPECT_EQ(Answer("text/html; charset=gbk", "<script>/*\xD6\xD0*/</script></body>"), "") << "once";
  EXPECT_EQ(Answer("text/html; charset=koi8-r", "</body>"), "") << "cannot be written there";
  EXPECT_EQ(Answer("text/plain", "</body>"), "");
  EXPECT_EQ(Answer("text/html", "</bodyx>"), "");
  for (const char* url : {"/other", "/shop/api/1"}) {
    facts_.raw_url = url;
    EXPECT_EQ(Answer("text/html", "</body>"), "") << url;
  }
}

}  // namespace
}  // namespace qiv

#include <gtest/gtest.h>

#include "checks/script_insertion_check.h"
#include "checks/sensitive_words_check.h"
#include "checks/sensitive_words_output_check.h"
#include "common/text.h"
#include "tests/checks/check_fixture.h"
#include "tests/checks/edited_text.h"

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
    site_->words.new_word = CReplacement("**");
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
    return detail.empty() && result_.request.edits ? result_.request.edits->query.value_or("") : detail;
  }
  std::string Body(const std::string& type, const std::string& body) {
    facts_.raw_url = "/a";
    facts_.content_type = type;
    facts_.raw_body = body;
    const std::string detail = Decide();
    return detail.empty() && result_.request.edits ? result_.request.edits->body.value_or("") : detail;
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
                            "q=a\xE4\xB8\xAD%E6%96%87%FF", "q=%E4%B8%AD%u6587", "q=%E4%B8%AD%26%2325991;",
                            "q=%D6%D0%CE%C4%E7%9A%84%E7%9A%84%E7%9A%84%E7%9A%84%E7%9A%84%E7%9A%84", "q=%D6%D0%u6587"}) {
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
  site_->words.new_word = CReplacement("a\"&<");
  EXPECT_EQ(Query("a=%20d%61rn%2B&b=1+%D3%A2%B9%FA;&darn"), "a=%20a%22%26%3C%2B&b=1+a%22%26%3C;&a%22%26%3C");
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
  EXPECT_EQ(Body(kForm, "a=1"), "");
  const auto& headers = result_.request.edits->headers;
  ASSERT_EQ(headers.size(), 2U);
  EXPECT_EQ(headers[0].second, "x a\"&<");
  EXPECT_EQ(headers[1].second, "a=a%22%26%3C; b=a%22%26%3C");
}

TEST_F(SensitiveWordsTest, WritesTheNewWordAsThePlaceIsWritten) {
  site_->words.new_word = CReplacement("\xE5\x92\x8C");  // BACD in GBK, U+548C
  const std::string type = "application/x-www-form-urlencoded";
  const std::string run = "aB3" + std::string(29, 'x');
  struct Row {
    std::string type, body, edited;
  };
  for (const Row& row : {Row{type, "a=%D3%A2%B9%FA", "a=%BA%CD"},
                         {type, "a=%E8%8B%B1%E5%9B%BD", "a=%E5%92%8C"},
                         {type, "a=darn&b=%BA%CD", "a=%BA%CD&b=%BA%CD"},
                         {type + "; charset=gbk", "a=darn", "a=%BA%CD"},
                         {type, "a=%E8%8B%B1%u56fd&b=%u82F1%u56fd", "a=%E5%92%8C&b=%E5%92%8C"},
                         {type, "a=%26%2333521;%E5%9B%BD.", "a=%E5%92%8C."},
                         {"text/xml", "<a>&#33521;&#22269;&#x000000000064;arn</a>", "<a>&#21644;&#21644;</a>"},
                         {"application/json", R"(["\u82f1\u56fd"])", R"(["\u548C"])"},
                         {type, "darn=1&" + run + "=darn", "darn=1&" + run + "=%E5%92%8C"},
                         {type, "a=" + run + "darn", ""},
                         {type, "a=" + run.substr(1) + "+darn", "a=" + run.substr(1) + "+%E5%92%8C"},
                         {"application/octet-stream", "darn", ""},
                         {"", "<darn>" + std::string(40, '\1'), ""},
                         {"text/plain", "darn", "\xE5\x92\x8C"}}) {
    EXPECT_EQ(Body(row.type, row.body), row.edited) << row.body;
  }
  facts_.headers = {{11, "Content-Length", "darn"},
                    {24, "Authorization", "darn"},
                    {28, "Host", "darn"},
                    {kUnknownHeader, "Origin", "darn"},
                    {kUnknownHeader, "X-Note", "darn"}};
  facts_.raw_body = {};
  EXPECT_EQ(Decide(), "");
  ASSERT_EQ(result_.request.edits->headers.size(), 1U);
  EXPECT_EQ(result_.request.edits->headers[0].first, 4U);

  // What would grow too long is left out, and somebody told; a blocked request has nothing replaced.
  partial_.clear();
  site_->request.ill_replace_log = 0;
  site_->words.new_word = CReplacement(std::string(60000, 'y'));
  facts_.headers = {{40, "User-Agent", "darn darn."}};
  EXPECT_EQ(Decide(), "");
  EXPECT_EQ(result_.request.edits->headers[0].second, std::string(60000, 'y') + " .");
  EXPECT_EQ(partial_, std::vector<std::string>{"words"});
  site_->request.ill_replace_log = 1;
  partial_.clear();
  statistics_.clear();
  EXPECT_NE(Query("a=darn&b=badword"), "");
  EXPECT_TRUE(partial_.empty() && statistics_ == std::vector<std::string>{"feifa 192.0.2.7 -"} &&
              !result_.request.edits);
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
                         {"text/html", "<meta name=d content='charset=big5'><meta charset=gbk>" + gbk, "blocked"},
                         {"text/html", "<meta http-equiv=Content-Type content='text/html;charset=big5'>badword", ""},
                         {"text/html; xcharset=big5; charset=utf-8", "badword", "blocked"},
                         {"text/html", gbk, "blocked"},
                         {"text/html; charset=big5", gbk + "badword", ""},
                         {"text/html; charset=windows-1252", gbk + "darn", gbk + "**"},
                         {"text/html; charset=utf-8", gbk, ""},
                         {"text/plain", "charset=big5 <meta charset=big5>" + gbk, "blocked"},
                         {"text/html", "<p>charset=big5</p><!-- <meta charset=big5> -->" + gbk, "blocked"},
                         {"text/html", "<META name=x><meta http-equiv=a content='b; charset=utf-8'>" + gbk, ""},
                         {"application/xml", "<?xml version='1.0' encoding='gbk'?><a>" + gbk, "blocked"},
                         {"text/html; charset=nobody-knows", gbk, "blocked"},
                         {"text/html; charset=ks_c_5601-1987", "badword", ""},
                         {"text/html; charset=csShiftJIS", "badword", ""},
                         {"text/html; charset=unicode", std::string("d\0a\0r\0n\0", 8), std::string("*\0*\0", 4)},
                         {"application/json", R"({"a":"\u4e2d\u6587"})", "blocked"},
                         {"application/json", R"({"a":"\u82f1\u56fd\n"})", R"({"a":"**\n"})"},
                         {"text/html", "<p>&#x82F1;&#22269; &amp; d&#97;rn", "<p>** &amp; **"},
                         {"text/html; charset=utf-16be", std::string("x\0d\0a\0r\0ny", 10), ""},
                         {"text/html", "darn \xE8\x8B\xB1\xE5\x9B\xBD dARn", "** ** **"},
                         {"", wide,
                          std::string("\xFF\xFE"
                                      "*\0*\0!\0",
                                      8)}}) {
    EXPECT_EQ(Answer(row.type, row.text), row.answer) << row.type << " " << row.text;
  }
  site_->words.new_word = CReplacement("\"<\xE2\x82\xAC");
  EXPECT_EQ(Answer("application/json", "\"darn\""), "\"\\\"<\\u20AC\"");
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
  EXPECT_NE(Answer("text/html", "\xEF\xBB\xBF <p></body><!-- > --> </HTML> "), "");
  for (const char* page : {"{\"a\":\"<p></body>\"}", "<script>s='</body>'</script>", "<p></body><p>", "text</body>"}) {
    EXPECT_EQ(Answer("text/html", page), "") << page;
  }
  for (const char* url : {"/other", "/shop/api/1"}) {
    facts_.raw_url = url;
    EXPECT_EQ(Answer("text/html", "</body>"), "") << url;
  }
}

}  // namespace
}  // namespace qiv

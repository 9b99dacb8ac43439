#include "config/page_settings.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "config/config_keys.h"

namespace qiv {
namespace {

TEST(PageSettings, StatusAndRedirect) {
  struct Case {
    const char* ret_status;
    const char* ret_url;
    int status;
    const char* redirect;
  };
  const Case cases[] = {
      {"503", "", 403, ""},
      {"302", "  ", 403, ""},
      {"302", "www.a.com/x", 302, "http://www.a.com/x"},
      {"302", " https://a ", 302, "https://a"},
      {"200", "HTTP://a", 200, "HTTP://a"},
      {"200", "ftp://a", 200, "http://ftp://a"},
      {"302", "http://a\r\nSet-Cookie: x", 302, "http://aSet-Cookie: x"},
  };
  for (const Case& c : cases) {
    ResponseSettings response;
    response.ret_status = ReadChoice(c.ret_status, FindConfigKey("website_response", "ret_status")->values);
    response.ret_url = c.ret_url;
    const PageSettings page = MakePageSettings(response);
    EXPECT_EQ(page.status, c.status) << c.ret_status << " " << c.ret_url;
    EXPECT_EQ(page.redirect_url, c.redirect) << c.ret_url;
  }
}

TEST(PageSettings, CustomContent) {
  struct Case {
    std::string ret_content;
    std::string content;
    bool complete_page;
    bool plain_title;
    bool content_charset;
  };
  const std::string page = "<head><title>t</title></head>\n<body>b</body>";
  const std::string unordered = "<body><title><head>";
  const Case cases[] = {
      {"Go away", "Go away", false, false, true},
      {"Go\r\naway\nnow", "Go<br>away<br>now", false, true, true},
      {std::string(64, 'x'), std::string(64, 'x'), false, false, true},
      {std::string(65, 'x'), std::string(65, 'x'), false, true, true},
      {page, page, true, true, true},
      {unordered, unordered, false, true, true},
      {"<HTML lang='en'>\n", "<HTML lang='en'>\n", true, true, true},
      {"<html><meta charset=\"GBK\">", "<html><meta charset=\"GBK\">", true, true, false},
      {"<html><meta content='text/html; charset=gb2312'>", "<html><meta content='text/html; charset=gb2312'>", true,
       true, false},
      {"<html><meta charset=utf-8>gbk", "<html><meta charset=utf-8>gbk", true, true, true},
      {"<html><meta charset=gbk18>", "<html><meta charset=gbk18>", true, true, true},
  };
  for (const Case& c : cases) {
    ResponseSettings response;
    response.ret_type = PageSettings::kCustom;
    response.ret_content = c.ret_content;
    const PageSettings settings = MakePageSettings(response);
    EXPECT_EQ(settings.content, c.content);
    EXPECT_EQ(settings.complete_page, c.complete_page) << c.ret_content;
    EXPECT_EQ(settings.plain_title, c.plain_title) << c.ret_content;
    EXPECT_EQ(settings.content_charset, c.content_charset) << c.ret_content;
    response.ret_type = PageSettings::kDetailed;  // the content is read for its own type only
    EXPECT_EQ(MakePageSettings(response).content, "");
  }
}

}  // namespace
}  // namespace qiv

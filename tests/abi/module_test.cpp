// The real module file, loaded as the server loads it and taken through requests by a host of the MSVC ABI.
// QIV_INSTALLATION holds the module file with a configuration (English, default protection) beside it.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/abi/fake_server.h"

namespace {

using Headers = std::vector<proof::Header>;

const Headers& OrdinaryHeaders() {
  static const Headers headers = {{"Host", "localhost"},
                                  {"User-Agent", "Mozilla/5.0 (X11; Linux x86_64) Firefox/120.0"},
                                  {"Accept", "text/html"},
                                  {"X-Trace", "a1b2"}};
  return headers;
}

proof::ScriptedRequest Get(const char* url, const Headers& headers = OrdinaryHeaders()) {
  return {"GET", url, headers.data(), static_cast<int>(headers.size()), nullptr, 0, 0};
}

proof::ScriptedRequest Post(const std::string& body, bool chunked) {
  // Kept for the life of the program: a request only points to its headers.
  static std::deque<std::string> lengths;
  static std::deque<Headers> kept;
  Headers headers = {{"Host", "localhost"}, {"Content-Type", "application/x-www-form-urlencoded"}};
  if (!chunked) headers.push_back({"Content-Length", lengths.emplace_back(std::to_string(body.size())).c_str()});
  const Headers& lasting = kept.emplace_back(std::move(headers));
  return {"POST",
          "/form.asp",
          lasting.data(),
          static_cast<int>(lasting.size()),
          reinterpret_cast<const unsigned char*>(body.data()),
          static_cast<unsigned>(body.size()),
          chunked ? 1 : 0};
}

class ModuleFile : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    library = LoadLibraryA(QIV_INSTALLATION "/QivIpsIIs.dll");
    ASSERT_NE(library, nullptr) << "LoadLibrary: " << GetLastError();
    auto register_module = reinterpret_cast<void (*)()>(GetProcAddress(library, "RegisterModule"));
    ASSERT_NE(register_module, nullptr);
    ASSERT_STREQ(ServerStart(register_module), nullptr);
  }
  // The file stays loaded: a server unloads it with the process only.
  static void TearDownTestSuite() { EXPECT_STREQ(ServerStop(), nullptr); }

  /// Runs one request and checks what holds for all of them.
  static std::unique_ptr<proof::Outcome> Run(const proof::ScriptedRequest& request) {
    auto outcome = std::make_unique<proof::Outcome>();
    ServerRequest(&request, outcome.get());
    for (unsigned i = 0; i < outcome->faults && i < proof::kMaxNotes; ++i) ADD_FAILURE() << outcome->fault[i];
    EXPECT_EQ(outcome->send, 0);
    EXPECT_EQ(outcome->contexts_set, outcome->context_cleaned);
    if (request.body != nullptr && outcome->reads != 0) {
      EXPECT_EQ(outcome->insertions, 1u) << "a body that was read goes back once";
      EXPECT_EQ(outcome->inserted_size, request.body_size);
      EXPECT_EQ(std::memcmp(outcome->inserted, request.body, request.body_size), 0);
    } else {
      EXPECT_EQ(outcome->insertions, 0u);
    }
    return outcome;
  }

  static HMODULE library;
};

HMODULE ModuleFile::library = nullptr;

TEST_F(ModuleFile, HoldsTheTextsOfItsEvents) {
  struct Row {
    DWORD number;
    const char* english;
    const char* chinese;
  };
  constexpr Row kRows[] = {
#define QIV_SYSTEM_EVENT(name, number, type, english, chinese) {number, english, chinese},
#include "port/system_events.def"
#undef QIV_SYSTEM_EVENT
  };
  for (const Row& row : kRows) {
    for (const bool is_chinese : {false, true}) {
      wchar_t text[512];
      const wchar_t* particulars[] = {L"x%1"};
      ASSERT_NE(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, library, row.number,
                               is_chinese ? 0x804 : 0x409, text, 512,
                               reinterpret_cast<va_list*>(const_cast<wchar_t**>(particulars))),
                0u)
          << row.number << ": " << GetLastError();
      char utf8[1024] = {};
      WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, sizeof utf8, nullptr, nullptr);
      std::string wanted = is_chinese ? row.chinese : row.english;
      wanted.replace(wanted.find("%1"), 2, "x%1");
      EXPECT_EQ(std::string(utf8), wanted + "\r\n");
    }
  }
}

std::string Page(const proof::Outcome& outcome) {
  return std::string(reinterpret_cast<const char*>(outcome.page), outcome.page_size);
}

void ExpectPassed(const proof::Outcome& outcome) {
  EXPECT_EQ(outcome.begin, 0);
  EXPECT_EQ(outcome.post_execute, 0);
  EXPECT_EQ(outcome.status, 200);
  EXPECT_EQ(Page(outcome), "<html><body>application</body></html>");
  EXPECT_EQ(outcome.set_cookies, 3u) << "no cookie of the application is lost";
}

void ExpectBlocked(const proof::Outcome& outcome) {
  EXPECT_EQ(outcome.begin, 2) << "the request is finished";
  EXPECT_EQ(outcome.post_execute, -1);
  EXPECT_EQ(outcome.skip_custom_errors, 1) << "or the server puts its own page in place of ours";
  EXPECT_GE(outcome.status, 400);
  EXPECT_NE(Page(outcome).find("</html>"), std::string::npos) << Page(outcome).substr(0, 400);
  EXPECT_NE(Page(outcome).find("<code>"), std::string::npos) << "the incident number is on the page";
  EXPECT_EQ(Page(outcome).find("application</body>"), std::string::npos);
  EXPECT_EQ(std::string(outcome.content_type).rfind("text/html", 0), 0u) << outcome.content_type;
}

TEST_F(ModuleFile, OrdinaryRequestsPass) {
  for (const char* url : {"/", "/index.html", "/shop.asp?category=sea&id=2", "/a.php?q=select+a+book"}) {
    SCOPED_TRACE(url);
    const auto outcome = Run(Get(url));
    ExpectPassed(*outcome);
    EXPECT_EQ(outcome->contexts_set, 1);
    EXPECT_GE(outcome->contexts_found, 1) << "what was collected at the beginning serves the later notifications";
  }
}

TEST_F(ModuleFile, AttacksAreAnsweredWithAPage) {
  const Headers attacking_agent = {{"Host", "localhost"}, {"User-Agent", "x' union select 1,2 from users-- "}};
  const Headers attacking_cookie = {{"Host", "localhost"}, {"Cookie", "id=1 union select 1,2 from users"}};
  for (const proof::ScriptedRequest& request : {Get("/a.asp?id=1%27%20union%20select%20name,password%20from%20users--"),
                                                Get("/a.asp?q=%3Cscript%3Ealert(document.cookie)%3C/script%3E"),
                                                Get("/a.asp", attacking_agent), Get("/a.asp", attacking_cookie)}) {
    SCOPED_TRACE(request.raw_url);
    ExpectBlocked(*Run(request));
  }
}

TEST_F(ModuleFile, BodiesAreReadInPiecesAndHandedBack) {
  std::string plain = "name=Ann&text=";
  while (plain.size() < 30'000) plain += "an ordinary line of text with nothing in it. ";
  const std::string attack = plain + "&id=1' union select name,password from users--";
  const auto passed = Run(Post(plain, false));
  ExpectPassed(*passed);
  EXPECT_GT(passed->reads, 30u) << "reads may give less than was asked for";
  ExpectBlocked(*Run(Post(attack, false)));

  // One of unannounced length likewise, to its end.
  const auto without_length = Run(Post(plain, true));
  ExpectPassed(*without_length);
  EXPECT_GT(without_length->reads, 30u);
  ExpectBlocked(*Run(Post(attack, true)));
}

}  // namespace

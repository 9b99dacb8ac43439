// The request half of the interface: body stream, headers, URL, server variables.
#include <gtest/gtest.h>

#include <cstring>

#include "host/cooked_url.h"
#include "host/request_input.h"
#include "port/code_page.h"
#include "tests/host/scripted_module.h"

namespace qiv::host {
namespace {

using iis::RQ_NOTIFICATION_CONTINUE;

/// Runs a step as OnBeginRequest.
InProcessResponse RunWith(const HostOptions& options, const InProcessRequest& request,
                          std::function<void(iis::IHttpContext&)> step) {
  CModuleHost host(options);
  ModuleScript script;
  script.main = iis::RQ_BEGIN_REQUEST;
  script.steps["OnBeginRequest"] = [&](iis::IHttpContext& context) {
    step(context);
    return RQ_NOTIFICATION_CONTINUE;
  };
  RegisterScript(host, script);
  return RunInProcess(host, request);
}

InProcessRequest Post(std::string body, bool chunked) {
  InProcessRequest request;
  request.method = "POST";
  request.body = std::move(body);
  request.chunked = chunked;
  return request;
}

std::string Pattern(std::size_t size) {
  std::string text(size, 0);
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 256);
  return text;
}

TEST(RequestBody, ReadToTheEndAndInsertedAgainReachesTheHandlerWhole) {
  for (const bool chunked : {false, true}) {
    for (const std::uint64_t seed : {0, 1, 2}) {
      for (const bool unknown_after : {false, true}) {
        for (const std::size_t size : {1u, 4095u, 4096u, 4097u, 100000u}) {
          SCOPED_TRACE(testing::Message() << chunked << seed << unknown_after << " " << size);
          HostOptions options;
          options.short_read_seed = seed;
          options.unknown_remaining_after_end = options.unknown_remaining_after_insert = unknown_after;
          const std::string body = Pattern(size);
          const InProcessResponse response = RunWith(options, Post(body, chunked), [&](iis::IHttpContext& context) {
            iis::IHttpRequest* request = context.GetRequest();
            EXPECT_EQ(request->GetRemainingEntityBytes(), chunked ? iis::kUnknownEntityLength : size);
            auto* copy = static_cast<char*>(context.AllocateRequestMemory(static_cast<iis::DWORD>(size)));
            std::size_t total = 0;
            iis::HRESULT result = 0;
            while (request->GetRemainingEntityBytes() != 0) {
              char piece[4096];
              iis::DWORD got = 0;
              result = request->ReadEntityBody(piece, sizeof piece, 0, &got, nullptr);
              if (iis::Failed(result)) {
                EXPECT_GT(got, sizeof piece) << "the count of a failed read must look wrong";
                break;
              }
              ASSERT_GT(got, 0u);
              ASSERT_LE(total + got, size);
              std::memcpy(copy + total, piece, got);
              total += got;
            }
            EXPECT_TRUE(result == 0 || result == iis::kHandleEof);
            EXPECT_EQ(total, size);
            EXPECT_EQ(request->InsertEntityBody(copy, static_cast<iis::DWORD>(total)), 0);
            EXPECT_EQ(request->GetRemainingEntityBytes(),
                      chunked && unknown_after ? iis::kUnknownEntityLength : static_cast<iis::DWORD>(size));
          });
          EXPECT_EQ(response.handler_body, body);
          EXPECT_EQ(response.handler_read_result, iis::kHandleEof);
        }
      }
    }
  }
}

TEST(RequestBody, InsertedDataStandsInFrontOfUnreadDataAndIsNotCopied) {
  static char inserted[] = "NEW";
  const InProcessResponse response = RunWith({}, Post("0123456789", false), [&](iis::IHttpContext& context) {
    char piece[4];
    iis::DWORD got = 0;
    EXPECT_EQ(context.GetRequest()->ReadEntityBody(piece, 4, 0, &got, nullptr), 0);
    EXPECT_EQ(got, 4u);
    EXPECT_EQ(context.GetRequest()->InsertEntityBody(inserted, 3), 0);
    EXPECT_EQ(context.GetRequest()->GetRemainingEntityBytes(), 9u);
    inserted[0] = 'n';  // what the handler reads is this very memory
  });
  EXPECT_EQ(response.handler_body, "nEW456789");
}

TEST(RequestBody, UnusualBodies) {
  // No body at all.
  RunWith({}, {}, [](iis::IHttpContext& context) {
    char piece[8];
    iis::DWORD got = 0;
    EXPECT_EQ(context.GetRequest()->GetRemainingEntityBytes(), 0u);
    EXPECT_EQ(context.GetRequest()->ReadEntityBody(piece, 8, 0, &got, nullptr), iis::kHandleEof);
    EXPECT_GT(got, 8u);
    EXPECT_LT(context.GetRequest()->ReadEntityBody(piece, 0, 0, &got, nullptr), 0);
  });
  // A client that goes away after half of it.
  InProcessRequest cut = Post("half", false);
  cut.headers = {{"Content-Length", "8"}};
  InProcessResponse response = RunWith({}, cut, [](iis::IHttpContext&) {});
  EXPECT_EQ(response.handler_body, "half");
  EXPECT_EQ(response.handler_read_result, iis::kNetnameDeleted);
  // More than 32 bits can say.
  cut.headers = {{"Content-Length", "5000000000"}};
  RunWith({}, cut, [](iis::IHttpContext& context) {
    EXPECT_EQ(context.GetRequest()->GetRemainingEntityBytes(), iis::kUnknownEntityLength);
  });
}

TEST(RequestBody, EveryReadIsNotified) {
  CModuleHost host;
  ModuleScript script;
  script.main = iis::RQ_READ_ENTITY;
  script.steps["OnReadEntity"] = [&](iis::IHttpContext& context) {
    char byte = 0;
    iis::DWORD got = 0;
    context.GetRequest()->ReadEntityBody(&byte, 1, 0, &got, nullptr);  // not notified again
    script.journal += byte;
    return RQ_NOTIFICATION_CONTINUE;
  };
  RegisterScript(host, script);
  const InProcessResponse response = RunInProcess(host, Post("ab", false));
  EXPECT_EQ(script.journal.substr(0, 1), "a");
  EXPECT_EQ(response.handler_body, "b");
}

TEST(RequestHeaders, KnownUnknownRepeatedAndChanged) {
  InProcessRequest request;
  request.headers = {{"Host", "a.example"}, {"X-Forwarded-For", "1.2.3.4"}, {"cookie", "a=1"},
                     {"Accept", ""},        {"x-forwarded-for", "5.6.7.8"}, {"Cookie", "b=2"},
                     {"X-Empty", ""}};
  const InProcessResponse response = RunWith({}, request, [](iis::IHttpContext& context) {
    iis::IHttpRequest* r = context.GetRequest();
    const iis::HTTP_REQUEST_HEADERS& raw = r->GetRawHttpRequest()->Headers;
    iis::USHORT length = 99;
    EXPECT_STREQ(r->GetHeader(iis::HttpHeaderCookie, &length), "a=1; b=2");
    EXPECT_EQ(length, 8);
    EXPECT_STREQ(r->GetHeader("X-FORWARDED-FOR", &length), "1.2.3.4, 5.6.7.8");
    EXPECT_EQ(raw.UnknownHeaderCount, 2);
    EXPECT_STREQ(r->GetHeader(iis::HttpHeaderAccept, &length), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(r->GetHeader(iis::HttpHeaderReferer, &length), nullptr);
    EXPECT_STREQ(r->GetHeader("X-Empty", &length), "");
    EXPECT_EQ(raw.pUnknownHeaders[1].pRawValue, nullptr) << "an empty unknown value has no text";
    EXPECT_EQ(r->GetHeader(static_cast<iis::HTTP_HEADER_ID>(41), &length), nullptr);

    EXPECT_EQ(r->SetHeader(iis::HttpHeaderAcceptEncoding, " ", 1, 1), 0);
    EXPECT_EQ(r->SetHeader("X-New", "value-and-more", 5, 1), 0);
    EXPECT_EQ(r->SetHeader("X-New", "b", 1, 0), 0);
    EXPECT_LT(r->SetHeader("X-New", "b\r\nX: y", 7, 1), 0);
    EXPECT_LT(r->SetHeader("X New", "b", 1, 1), 0);
    EXPECT_EQ(r->DeleteHeader("Cookie"), 0);
    EXPECT_EQ(r->DeleteHeader("Cookie"), 0) << "success though nothing was there";
    EXPECT_EQ(raw.KnownHeaders[iis::HttpHeaderCookie].pRawValue, nullptr);
    EXPECT_STREQ(r->GetHeader("X-New", nullptr), "value,b");
  });
  EXPECT_TRUE(response.handler_ran);
}

TEST(RequestHeaders, ManyHeadersAreMergedLikeFew) {
  for (const int count : {10, 4000}) {
    InProcessRequest request;
    std::string expected;
    for (int i = 0; i < count; ++i) {
      request.headers.push_back({i % 2 == 0 ? "X-Same" : "x-same", std::to_string(i)});
      request.headers.push_back({"Y-" + std::to_string(i), ""});
      expected += (i == 0 ? "" : ", ") + std::to_string(i);
    }
    RunWith({}, request, [&](iis::IHttpContext& context) {
      EXPECT_EQ(context.GetRequest()->GetHeader("X-SAME", nullptr), expected);
      EXPECT_EQ(context.GetRequest()->GetRawHttpRequest()->Headers.UnknownHeaderCount, count + 1);
    });
  }
}

TEST(RequestHeaders, EveryVerbHasAText) {
  for (const char* method : {"GET", "POST", "PATCH", "PROPFIND", "get", "X-1!"}) {
    InProcessRequest request;
    request.method = method;
    RunWith({}, request, [&](iis::IHttpContext& context) {
      const iis::HTTP_REQUEST* raw = context.GetRequest()->GetRawHttpRequest();
      EXPECT_STREQ(context.GetRequest()->GetHttpMethod(), method);
      EXPECT_EQ(raw->Verb == iis::HttpVerbUnknown, raw->pUnknownVerb != nullptr);
      EXPECT_EQ(raw->UnknownVerbLength, raw->pUnknownVerb != nullptr ? std::strlen(method) : 0);
    });
  }
}

TEST(CookedUrl, DecodedOnceAndCanonical) {
  struct Case {
    const char* raw;
    const char* path;
    const char* query;
  };
  const Case cases[] = {
      {"/", "/", ""},
      {"/a/b?x=1?y", "/a/b", "?x=1?y"},
      {"/a?", "/a", "?"},
      {"/%61%2Fb%5Cc\\d", "/a/b/c/d", ""},
      {"//a///b", "/a/b", ""},
      {"/a/./b/../c/.", "/a/c/", ""},
      {"/a/b/..", "/a/", ""},
      {"/%2525", "/%25", ""},
      {"/%E4%BD%A0", "/\xE4\xBD\xA0", ""},
      {"/\xE4\xBD\xA0", "/\xE4\xBD\xA0", ""},
      {"/%u4F60", "/\xE4\xBD\xA0", ""},
      {"/%FFx", "/\xC3\xBFx", ""},
      {"/%F0%9F%98%80", "/\xF0\x9F\x98\x80", ""},
      {"/x?%00%zz\xE4", "/x", "?%00%zz\xC3\xA4"},  // the query is not decoded: one unit a byte
      {"http://other:81/p?q", "/p", "?q"},
      {"HTTP://other", "/", ""},
      {"http://other?q", "/", "?q"},
      {"*", "/*", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.raw);
    CookedUrl cooked;
    const char* reason = "";
    ASSERT_TRUE(CookUrl(c.raw, "h:80", false, &cooked, &reason));
    EXPECT_EQ(Utf16ToUtf8(cooked.Path()), c.path);
    EXPECT_EQ(Utf16ToUtf8(cooked.Query()), c.query);
  }
  CookedUrl cooked;
  const char* reason = "";
  for (const char* const refused : {"/..%2fetc", "/a/../..", "/%2e%2e/x", "/a/%2e%2e%5c..", "/%00", "/%1f", "/%7f",
                                    "/%u0000", "/%C2%85", "/%", "/%4", "/%zz", "/%u12", "ftp:"}) {
    EXPECT_FALSE(CookUrl(refused, "h:80", false, &cooked, &reason)) << refused;
  }
  EXPECT_TRUE(CookUrl("/" + std::string(kMaxSegmentChars, 'a'), "h", false, &cooked, &reason));
  EXPECT_FALSE(CookUrl("/" + std::string(kMaxSegmentChars + 1, 'a'), "h", false, &cooked, &reason));
}

TEST(CookedUrl, RawStructureAndHost) {
  struct Case {
    const char* host;
    bool secure;
    const char* full;
    const char* shown_host;
  };
  const Case cases[] = {
      {"a.example", false, "http://a.example:80/p?q", "a.example:80"},
      {"a.example", true, "https://a.example:443/p?q", "a.example:443"},
      {"a.example:8080", false, "http://a.example:8080/p?q", "a.example:8080"},
      {"[::1]", false, "http://[::1]:80/p?q", "[::1]:80"},
      {"[::1]:81", false, "http://[::1]:81/p?q", "[::1]:81"},
      {"", false, "http://192.0.2.1:80/p?q", "192.0.2.1:80"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.host);
    InProcessRequest request;
    request.raw_url = "/p?q";
    request.headers = {{"Host", c.host}};
    request.secure = c.secure;
    RunWith({}, request, [&](iis::IHttpContext& context) {
      const iis::HTTP_REQUEST* raw = context.GetRequest()->GetRawHttpRequest();
      EXPECT_EQ(Utf16ToUtf8(std::u16string(raw->CookedUrl.pFullUrl)), c.full);
      EXPECT_EQ(Utf16ToUtf8({raw->CookedUrl.pHost, raw->CookedUrl.HostLength / 2u}), c.shown_host);
      EXPECT_EQ(std::string(raw->pRawUrl, raw->RawUrlLength), "/p?q");
      EXPECT_EQ(raw->pSslInfo != nullptr, c.secure);
    });
  }
}

TEST(ServerVariables, ValuesAndMissingOnes) {
  InProcessRequest request;
  request.raw_url = "/%41/x.asp?a=%41";
  request.headers = {{"Host", "h.example"}, {"User-Agent", "probe"}, {"X-My-Header", "mine"}};
  request.remote_address = "2001:db8:0:0:1::5";
  struct Case {
    const char* name;
    const char* value;  ///< null: kInvalidIndex
  };
  const Case cases[] = {
      {"REMOTE_ADDR", "2001:db8::1:0:0:5"},
      {"URL", "/A/x.asp"},
      {"HTTP_URL", "/%41/x.asp?a=%41"},
      {"QUERY_STRING", "a=%41"},
      {"HTTPS", "OFF"},
      {"SERVER_NAME", "h.example"},
      {"HTTP_USER_AGENT", "probe"},
      {"HTTP_X_MY_HEADER", "mine"},
      {"REMOTE_USER", ""},
      {"INSTANCE_ID", "7"},
      {"HTTP_X_FORWARDED_FOR", nullptr},
      {"VIA", nullptr},
      {"NO_SUCH", nullptr},
  };
  HostOptions options;
  options.site_id = 7;
  RunWith(options, request, [&](iis::IHttpContext& context) {
    EXPECT_EQ(context.GetRequest()->GetSiteId(), 7u);
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      iis::PCSTR value = nullptr;
      iis::PCWSTR wide = nullptr;
      iis::DWORD length = 99;
      const iis::HRESULT result = context.GetServerVariable(c.name, &value, &length);
      EXPECT_EQ(context.GetServerVariable(c.name, &wide, nullptr), result);
      ASSERT_EQ(result, c.value == nullptr ? iis::kInvalidIndex : 0);
      if (c.value == nullptr) continue;
      EXPECT_STREQ(value, c.value);
      EXPECT_EQ(length, std::strlen(c.value));
      EXPECT_EQ(Utf16ToUtf8(std::u16string(wide)), c.value);
    }
    iis::PCSTR value = nullptr;
    iis::DWORD length = 0;
    EXPECT_EQ(Utf16ToUtf8(std::u16string(context.GetScriptName(&length))), "/A/x.asp");
    EXPECT_EQ(length, 8u) << "characters";
    EXPECT_EQ(Utf16ToUtf8(std::u16string(context.GetPhysicalPath(&length))), "C:\\inetpub\\wwwroot\\A\\x.asp");
    iis::WCHAR path[64];
    length = 4;
    EXPECT_EQ(context.MapPath(u"/b/c", path, &length), iis::kInsufficientBuffer);
    EXPECT_EQ(length, 46u) << "bytes, with the terminator";
    EXPECT_EQ(context.MapPath(u"/b/c", path, &length), 0);
    EXPECT_EQ(Utf16ToUtf8(std::u16string(path)), "C:\\inetpub\\wwwroot\\b\\c");
    EXPECT_EQ(context.SetServerVariable("Via", u"proxy"), 0);
    EXPECT_EQ(context.GetServerVariable("VIA", &value, &length), 0);
    EXPECT_STREQ(value, "proxy");
    EXPECT_LT(context.SetServerVariable("REMOTE_USER", u"root"), 0);
  });
  options.missing_header_variable_is_empty = true;
  options.https_lower_case = true;
  request.secure = true;
  RunWith(options, request, [](iis::IHttpContext& context) {
    iis::PCSTR value = nullptr;
    iis::DWORD length = 99;
    EXPECT_EQ(context.GetServerVariable("HTTP_X_FORWARDED_FOR", &value, &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(context.GetServerVariable("HTTPS", &value, &length), 0);
    EXPECT_STREQ(value, "on");
  });
}

TEST(Addresses, TextToStructureAndBack) {
  struct Case {
    const char* text;
    iis::USHORT family;  ///< 0: refused
    const char* shown;
  };
  const Case cases[] = {
      {"255.255.255.255", 2, "255.255.255.255"},
      {"1.2.3.256", 0, ""},
      {"[::1]", 23, "::1"},
      {"1:0:0:2:0:0:0:3", 23, "1:0:0:2::3"},
      {"::ffff:1.2.3.4", 23, "::ffff:102:304"},
      {"1:2:3:4:5:6:7", 0, ""},
      {"1::2::3", 0, ""},
      {"1:2:3:4:5:6:7:1.2.3.4", 0, ""},
      {"", 0, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    HostAddress address;
    ASSERT_EQ(ParseAddress(c.text, 0x1234, &address), c.family != 0);
    if (c.family == 0) continue;
    EXPECT_EQ(address.any.sa_family, c.family);
    EXPECT_EQ(AddressText(address), c.shown);
    EXPECT_EQ(AddressPort(address), 0x1234);
  }
}

}  // namespace
}  // namespace qiv::host

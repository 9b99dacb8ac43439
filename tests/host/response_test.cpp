// The response half of the interface, and what goes over the wire.
#include <gtest/gtest.h>

#include "host/results.h"
#include "tests/host/scripted_module.h"

namespace qiv::host {
namespace {

using iis::RQ_NOTIFICATION_CONTINUE;
using Values = std::vector<std::string>;

iis::HRESULT Set(iis::IHttpResponse* response, const char* name, std::string_view value, bool replace) {
  return response->SetHeader(name, value.data(), static_cast<iis::USHORT>(value.size()), replace);
}

TEST(Response, CustomErrorsReplaceBodiesOfFailures) {
  struct Case {
    ExistingResponse existing;
    int status;
    bool skip;
    bool body;
    bool replaced;
  };
  const Case cases[] = {
      {ExistingResponse::kAuto, 403, false, true, true},
      {ExistingResponse::kAuto, 403, true, true, false},
      {ExistingResponse::kAuto, 403, true, false, true},
      {ExistingResponse::kAuto, 302, false, true, false},
      {ExistingResponse::kReplace, 500, true, true, true},
      {ExistingResponse::kPassThrough, 500, false, true, false},
      {ExistingResponse::kPassThrough, 404, false, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(c.existing) << c.status << c.skip << c.body);
    HostOptions options;
    options.existing_response = c.existing;
    CModuleHost host(options);
    const InProcessResponse response = RunInProcess(host, {}, [&](iis::IHttpContext& context) {
      context.GetResponse()->SetStatus(static_cast<iis::USHORT>(c.status), "Why", 0, kOk, nullptr, c.skip);
      if (c.body) WriteText(context, "own page");
    });
    EXPECT_EQ(response.status, c.status);
    EXPECT_EQ(response.reason, "Why");
    EXPECT_EQ(response.body.find("own page") == std::string::npos, c.replaced || !c.body);
    EXPECT_FALSE(response.body.empty());
    EXPECT_EQ(response.Header("Content-Length"), std::to_string(response.body.size()));
    EXPECT_EQ(response.error_body, c.replaced && c.body ? "own page" : "");
  }
}

TEST(Response, ServerHeader) {
  struct Case {
    const char* name;
    std::function<void(iis::IHttpResponse*)> change;
    Values expected;
  };
  const Case cases[] = {
      {"untouched", [](auto*) {}, {"qivhost"}},
      {"deleted by name", [](auto* r) { r->DeleteHeader("server"); }, {}},
      {"replaced by name", [](auto* r) { Set(r, "Server", "x", true); }, {"x"}},
      {"by number it is appended to", [](auto* r) { r->SetHeader(iis::HttpHeaderServer, "x", 1, 1); }, {"qivhost,x"}},
      {"comes back with Clear",
       [](auto* r) {
         r->DeleteHeader("Server");
         r->Clear();
       },
       {"qivhost"}},
      {"the lowest layer adds its own when even the slot is empty",
       [](auto* r) {
         r->DeleteHeader("Server");
         r->GetRawHttpResponse()->Headers.KnownHeaders[iis::HttpHeaderServer].pRawValue = nullptr;
       },
       {"qivhost-http"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CModuleHost host;
    ModuleScript script;
    script.main = iis::RQ_SEND_RESPONSE;
    script.send_response = [&](iis::IHttpContext& context, iis::ISendResponseProvider&) {
      iis::USHORT length = 9;
      EXPECT_STREQ(context.GetResponse()->GetHeader(iis::HttpHeaderServer, &length), "");
      EXPECT_EQ(length, 0);
      c.change(context.GetResponse());
    };
    RegisterScript(host, script);
    EXPECT_EQ(RunInProcess(host, {}).Headers("Server"), c.expected);
  }
}

TEST(Response, CookiesAreUnknownHeadersOfTheirOwn) {
  for (const ManyValues many : {ManyValues::kFirst, ManyValues::kLast, ManyValues::kJoined}) {
    HostOptions options;
    options.many_values = many;
    CModuleHost host(options);
    const InProcessResponse response = RunInProcess(host, {}, [&](iis::IHttpContext& context) {
      iis::IHttpResponse* r = context.GetResponse();
      Set(r, "Set-Cookie", "a=1", false);
      Set(r, "Set-Cookie", "b=2", false);
      EXPECT_EQ(r->GetRawHttpResponse()->Headers.KnownHeaders[iis::HttpHeaderSetCookie].pRawValue, nullptr);
      EXPECT_EQ(r->GetHeader(iis::HttpHeaderSetCookie, nullptr), nullptr);
      const char* expected = many == ManyValues::kFirst ? "a=1" : many == ManyValues::kLast ? "b=2" : "a=1,b=2";
      EXPECT_STREQ(r->GetHeader("set-cookie", nullptr), expected);
      Set(r, "X-List", "1", false);
      Set(r, "X-List", "2", false);
      Set(r, "Vary", "Accept", false);
      Set(r, "vary", "Cookie", false);
    });
    EXPECT_EQ(response.Headers("Set-Cookie"), (Values{"a=1", "b=2"}));
    EXPECT_EQ(response.Headers("X-List"), Values{"1,2"});
    EXPECT_EQ(response.Headers("Vary"), Values{"Accept,Cookie"});
  }
  CModuleHost host;
  const InProcessResponse replaced = RunInProcess(host, {}, [](iis::IHttpContext& context) {
    Set(context.GetResponse(), "Set-Cookie", "a=1", false);
    Set(context.GetResponse(), "Set-Cookie", "b=2", false);
    Set(context.GetResponse(), "Set-Cookie", "c=3", true);  // replacing loses the others
    EXPECT_LT(Set(context.GetResponse(), "X-A", "1\r\nX-B: 2", true), 0);
  });
  EXPECT_EQ(replaced.Headers("Set-Cookie"), Values{"c=3"});
  EXPECT_FALSE(replaced.Header("X-B"));
}

TEST(Response, ModuleMayWorkOnTheRawStructure) {
  CModuleHost host;
  ModuleScript script;
  script.post = iis::RQ_EXECUTE_REQUEST_HANDLER;
  script.main = iis::RQ_SEND_RESPONSE;
  static iis::HTTP_UNKNOWN_HEADER own[1] = {{5, 1, "X-Own", "1"}};
  script.steps["OnPostExecuteRequestHandler"] = [](iis::IHttpContext& context) {
    iis::HTTP_RESPONSE* raw = context.GetResponse()->GetRawHttpResponse();
    EXPECT_EQ(raw->EntityChunkCount, 1);
    raw->EntityChunkCount = 0;
    static char text[] = "replaced";
    iis::HTTP_DATA_CHUNK chunk{};
    chunk.FromMemory.pBuffer = text;
    chunk.FromMemory.BufferLength = 8;
    EXPECT_EQ(context.GetResponse()->WriteEntityChunkByReference(&chunk, -1), 0);
    chunk.FromMemory.BufferLength = 2;
    EXPECT_EQ(context.GetResponse()->WriteEntityChunkByReference(&chunk, 0), 0);
    raw->Headers.pUnknownHeaders = own;  // an array of the module's own
    raw->Headers.UnknownHeaderCount = 1;
    Set(context.GetResponse(), "X-Next", "2", true);
    return RQ_NOTIFICATION_CONTINUE;
  };
  RegisterScript(host, script);
  const InProcessResponse response =
      RunInProcess(host, {}, AnswerWith(200, "original", {{"Content-Length", "8"}, {"X-Lost", "1"}}));
  EXPECT_EQ(response.body, "rereplaced");
  EXPECT_TRUE(response.length_mismatch) << "the old Content-Length was left standing";
  EXPECT_EQ(response.Header("Content-Length"), "10");
  EXPECT_EQ(response.Header("X-Own"), "1");
  EXPECT_EQ(response.Header("X-Next"), "2");
  EXPECT_FALSE(response.Header("X-Lost"));
}

TEST(Response, RepeatedSends) {
  for (const bool other_thread : {false, true}) {
    HostOptions options;
    options.send_response_on_other_thread = other_thread;
    CModuleHost host(options);
    ModuleScript script;
    script.main = iis::RQ_SEND_RESPONSE;
    script.send_response = [&](iis::IHttpContext& context, iis::ISendResponseProvider& provider) {
      const iis::HTTP_RESPONSE* raw = context.GetResponse()->GetRawHttpResponse();
      script.journal += provider.GetHeadersBeingSent() ? "H" : "-";
      script.journal += (provider.GetFlags() & iis::HTTP_SEND_RESPONSE_FLAG_MORE_DATA) != 0 ? "M" : "E";
      script.journal += context.GetResponseHeadersSent() ? "s" : "u";
      script.journal += std::to_string(raw->EntityChunkCount) + " ";
      WriteText(context, "!");  // joins the send under way, causes no other
    };
    RegisterScript(host, script);
    const InProcessResponse response = RunInProcess(host, {}, [](iis::IHttpContext& context) {
      iis::DWORD sent = 0;
      WriteText(context, "one");
      EXPECT_EQ(context.GetResponse()->Flush(0, 1, &sent, nullptr), 0);
      EXPECT_EQ(sent, 4u);
      context.GetResponse()->DisableBuffering();
      WriteText(context, "two");
      WriteText(context, "three");
      Set(context.GetResponse(), "X-Late", "1", true);  // too late, without effect
    });
    EXPECT_EQ(script.journal, "HMu1 -Ms1 -Ms1 -Es0 ");
    EXPECT_EQ(response.body, "one!two!three!!");
    EXPECT_EQ(response.sends, 4);
    EXPECT_EQ(response.Header("Transfer-Encoding"), "chunked");
    EXPECT_FALSE(response.Header("Content-Length"));
    EXPECT_FALSE(response.Header("X-Late"));
    EXPECT_FALSE(response.closed);
  }
}

TEST(Response, BufferLimitFlushes) {
  HostOptions options;
  options.response_buffer_limit = 1000;
  CModuleHost host(options);
  const InProcessResponse response = RunInProcess(host, {}, [](iis::IHttpContext& context) {
    for (int i = 0; i < 25; ++i) WriteText(context, std::string(100, 'x'));
  });
  EXPECT_EQ(response.body.size(), 2500u);
  EXPECT_EQ(response.sends, 3);
}

TEST(Response, FramingFollowsTheRequest) {
  struct Case {
    const char* name;
    const char* method;
    int minor_version;
    std::function<void(iis::IHttpContext&)> handler;
    Values length, coding, connection;
    std::string body;
  };
  const auto plain = [](iis::IHttpContext& context) { WriteText(context, "body"); };
  const auto flushed = [](iis::IHttpContext& context) {
    WriteText(context, "bo");
    context.GetResponse()->Flush(0, 1, nullptr, nullptr);
    WriteText(context, "dy");
  };
  const auto announced = [&](const char* length) {
    return [=](iis::IHttpContext& context) {
      Set(context.GetResponse(), "Content-Length", length, true);
      flushed(context);
    };
  };
  const auto status = [](int number, std::string_view length) {
    return [=](iis::IHttpContext& context) {
      if (!length.empty()) Set(context.GetResponse(), "Content-Length", length, true);
      context.GetResponse()->SetStatus(static_cast<iis::USHORT>(number), "R", 0, kOk, nullptr, 1);
      WriteText(context, "body");
    };
  };
  const Case cases[] = {
      {"one piece", "GET", 1, plain, {"4"}, {}, {}, "body"},
      {"HEAD tells the length only", "HEAD", 1, plain, {"4"}, {}, {}, ""},
      {"flushed", "GET", 1, flushed, {}, {"chunked"}, {}, "body"},
      {"flushed to HTTP/1.0", "GET", 0, flushed, {}, {}, {"close"}, "body"},
      {"one piece to HTTP/1.0", "GET", 0, plain, {"4"}, {}, {"close"}, "body"},
      {"announced", "GET", 1, announced("4"), {"4"}, {}, {}, "body"},
      {"more than announced is cut", "GET", 1, announced("3"), {"3"}, {}, {}, "bod"},
      {"less than announced costs the connection", "GET", 1, announced("9"), {"9"}, {}, {}, "body"},
      {"204 has no body", "GET", 1, status(204, ""), {}, {}, {}, ""},
      {"304 has no body", "GET", 1, status(304, ""), {}, {}, {}, ""},
      {"204 has no length either", "GET", 1, status(204, "4"), {}, {}, {}, ""},
      {"304 tells the length of what it stands for", "GET", 1, status(304, "9"), {"9"}, {}, {}, ""},
      {"asked to close", "GET", 1, [](auto& c) { c.GetResponse()->SetNeedDisconnect(); }, {"0"}, {}, {"close"}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CModuleHost host;
    InProcessRequest request;
    request.method = c.method;
    request.minor_version = static_cast<iis::USHORT>(c.minor_version);
    const InProcessResponse response = RunInProcess(host, request, c.handler);
    EXPECT_EQ(response.Headers("Content-Length"), c.length);
    EXPECT_EQ(response.Headers("Transfer-Encoding"), c.coding);
    EXPECT_EQ(response.Headers("Connection"), c.connection);
    EXPECT_EQ(response.body, c.body);
    const bool wrong = c.length == Values{"3"} || (c.length == Values{"9"} && !c.body.empty());
    EXPECT_EQ(response.length_mismatch, wrong);
    EXPECT_EQ(response.closed, wrong || !c.connection.empty());
  }
}

TEST(Response, RedirectClearAndReset) {
  CModuleHost host;
  InProcessRequest request;
  request.raw_url = "/dir/page?x=1";
  InProcessResponse response = RunInProcess(host, request, [](iis::IHttpContext& context) {
    WriteText(context, "dropped");
    EXPECT_EQ(context.GetResponse()->Redirect("/next", 1, 1), 0);
  });
  EXPECT_EQ(response.status, 302);
  EXPECT_EQ(response.Header("Location"), "http://localhost:80/next?x=1");
  EXPECT_EQ(response.body, "");

  response = RunInProcess(host, request, [](iis::IHttpContext& context) {
    iis::IHttpResponse* r = context.GetResponse();
    WriteText(context, "dropped");
    Set(r, "X-Gone", "1", true);
    EXPECT_EQ(r->SetStatus(500, "Bad", 0, kOk, nullptr, 1), 0);
    EXPECT_LT(r->SetStatus(500, std::string(2000, 'r').c_str(), 0, kOk, nullptr, 1), 0);
    EXPECT_LT(r->SetStatus(500, "a\r\nb", 0, kOk, nullptr, 1), 0);
    EXPECT_TRUE(r->GetKernelCacheEnabled());
    r->DisableKernelCache(9);
    r->DisableKernelCache(4);
    r->Clear();
    EXPECT_FALSE(r->GetKernelCacheEnabled()) << "what Clear takes back is what the client would see";
    iis::USHORT status = 0;
    iis::BOOL skip = 1;
    r->GetStatus(&status, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &skip);
    EXPECT_EQ(status, 200);
    EXPECT_FALSE(skip);
    WriteText(context, "kept");
  });
  EXPECT_EQ(response.body, "kept");
  EXPECT_FALSE(response.Header("X-Gone"));

  EXPECT_EQ(response.kernel_cache_disabled, (std::vector<iis::ULONG>{9, 4}));

  response = RunInProcess(host, request, [](iis::IHttpContext& context) {
    context.GetResponse()->ResetConnection();
    EXPECT_LT(WriteText(context, "x"), 0);
  });
  EXPECT_TRUE(response.reset);
  EXPECT_FALSE(response.sent);
}

TEST(Response, RefusesWhatCannotBeSent) {
  CModuleHost host;
  RunInProcess(host, {}, [](iis::IHttpContext& context) {
    iis::IHttpResponse* r = context.GetResponse();
    iis::HTTP_DATA_CHUNK chunk{};
    chunk.DataChunkType = iis::HttpDataChunkFromFragmentCache;
    EXPECT_LT(r->WriteEntityChunks(&chunk, 1, 0, 1, nullptr, nullptr), 0);
    EXPECT_LT(r->WriteEntityChunkByReference(&chunk, -1), 0);
    EXPECT_LT(r->WriteEntityChunkByReference(nullptr, -1), 0);
    EXPECT_LT(r->WriteEntityChunks(nullptr, 1, 0, 1, nullptr, nullptr), 0);
    std::vector<iis::HTTP_DATA_CHUNK> many(65535);
    EXPECT_EQ(r->WriteEntityChunks(many.data(), 65535, 0, 1, nullptr, nullptr), iis::kArithmeticOverflow);
  });
}

}  // namespace
}  // namespace qiv::host

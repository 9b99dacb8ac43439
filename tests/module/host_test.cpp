// The module registered with the host, in process: what depends on how a server behaves, with both of its behaviours.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/aes.h"
#include "common/text.h"
#include "host/in_process.h"
#include "module/module_state.h"
#include "module/register_module.h"
#include "port/file.h"
#include "tests/module/installation.h"

namespace qiv {
namespace {

using host::AnswerWith;
using host::CModuleHost;
using host::HostOptions;
using host::InProcessRequest;
using host::InProcessResponse;

constexpr char kAttributes[] = "; hidden=value; Secure; HttpOnly; SameSite=Lax";

/// Every option that stands for an uncertain behaviour, each on its own.
std::vector<std::pair<const char*, HostOptions>> Behaviours() {
  std::vector<std::pair<const char*, HostOptions>> all = {{"default", {}}};
  const auto add = [&all](const char* name, auto change) {
    HostOptions options;
    change(options);
    all.emplace_back(name, options);
  };
  add("unknown after insert", [](HostOptions& o) { o.unknown_remaining_after_insert = true; });
  add("unknown after end", [](HostOptions& o) { o.unknown_remaining_after_end = true; });
  add("short reads", [](HostOptions& o) { o.short_read_seed = 4711; });
  add("missing variable is empty", [](HostOptions& o) { o.missing_header_variable_is_empty = true; });
  add("post begin after finish", [](HostOptions& o) { o.post_begin_after_finish = true; });
  add("send on another thread", [](HostOptions& o) { o.send_response_on_other_thread = true; });
  add("no send notification", [](HostOptions& o) { o.send_response_never = true; });
  add("dispose before cleanup", [](HostOptions& o) { o.dispose_before_cleanup = true; });
  add("last of many values", [](HostOptions& o) { o.many_values = host::ManyValues::kLast; });
  add("joined values", [](HostOptions& o) { o.many_values = host::ManyValues::kJoined; });
  add("small response buffer", [](HostOptions& o) { o.response_buffer_limit = 16; });
  return all;
}

class Hosted : public testing::Test {
 protected:
  std::unique_ptr<CModuleHost> Start(const HostOptions& options) {
    test::Site site = test::InjectionSite();
    site.sections["website_base"] = R"("hide":"1")";
    site.sections["website_request"] = R"("cookie":"1","xss_mode":"1","csrf_mode":"1")";
    site.ipv6 = true;
    installation_.Start(site, false);
    auto server = std::make_unique<CModuleHost>(options);
    EXPECT_EQ(server->Register(&RegisterModule), 0);
    EXPECT_TRUE(State().config.IsConfigValid());
    return server;
  }
  test::CInstallation installation_;
};

TEST_F(Hosted, LeavesEveryBodyWhole) {
  for (const auto& [name, options] : Behaviours()) {
    const auto server = Start(options);
    for (const std::size_t size : {0, 1, 4095, 4096, 4097, 60000}) {
      for (const bool chunked : {false, true}) {
        for (const bool lying_length : {false, true}) {
          if (lying_length && !chunked) continue;
          SCOPED_TRACE(std::string(name) + ", " + std::to_string(size) + (chunked ? " chunked" : ""));
          InProcessRequest request;
          request.method = "POST";
          request.headers = {{"Content-Type", "application/octet-stream"}};
          if (lying_length) request.headers.push_back({"Content-Length", "3"});
          request.chunked = chunked;
          for (std::size_t i = 0; i < size; ++i) request.body += static_cast<char>(i * 131 + (i >> 8));
          const InProcessResponse response = RunInProcess(*server, request);
          ASSERT_TRUE(response.handler_ran);
          EXPECT_TRUE(response.handler_body == request.body);
          EXPECT_EQ(response.status, 200);
        }
      }
    }
  }
}

TEST_F(Hosted, BlocksWithItsOwnPageUnderEveryBehaviour) {
  for (const auto& [name, options] : Behaviours()) {
    SCOPED_TRACE(name);
    const auto server = Start(options);
    for (const char* address : {"203.0.113.7", "2001:db8::1"}) {
      InProcessRequest request;
      request.raw_url = "/a.asp?id=1%27%20union%20select%201";
      request.remote_address = address;
      const InProcessResponse response = RunInProcess(*server, request);
      EXPECT_TRUE(response.finished);
      EXPECT_FALSE(response.handler_ran);
      EXPECT_EQ(response.status, 403);
      EXPECT_NE(response.body.find(std::string("Client IP: ") + address), std::string::npos) << response.body;
      EXPECT_EQ(response.Headers("Content-Type"), std::vector<std::string>{"text/html; charset=utf-8"});
      EXPECT_FALSE(response.Header("Server"));
    }
    InProcessRequest harmless;
    harmless.raw_url = "/a.asp?id=1";
    for (const bool warm_up : {false, true}) {
      harmless.warm_up = warm_up;
      EXPECT_EQ(RunInProcess(*server, harmless).status, 200);
    }
  }
}

TEST_F(Hosted, KeepsThreeCookies) {
  const auto answer =
      AnswerWith(200, "ok", {{"Set-Cookie", "a=1; Path=/"}, {"Set-Cookie", "b=2"}, {"set-cookie", "c=3"}});
  for (const auto& [name, options] : Behaviours()) {
    SCOPED_TRACE(name);
    const auto server = Start(options);
    const InProcessResponse response = RunInProcess(*server, InProcessRequest{}, answer);
    const std::vector<std::string> expected = {std::string("a=1; Path=/") + kAttributes,
                                               std::string("b=2") + kAttributes, std::string("c=3") + kAttributes};
    EXPECT_EQ(response.Headers("Set-Cookie"), expected);
  }
}

TEST_F(Hosted, HardensWhatTheApplicationStartsAnew) {
  const auto server = Start({});
  const auto answer = [](iis::IHttpContext& context) {
    context.GetResponse()->Clear();
    context.GetResponse()->SetHeader("X-Powered-By", "x", 1, 1);
    context.GetResponse()->SetHeader("Set-Cookie", "a=1", 3, 0);
    host::WriteText(context, "ok");
    context.GetResponse()->Flush(0, 1, nullptr, nullptr);  // the headers leave before the handler ends
    host::WriteText(context, "more");
  };
  const InProcessResponse response = RunInProcess(*server, InProcessRequest{}, answer);
  EXPECT_EQ(response.body, "okmore");
  EXPECT_FALSE(response.Header("X-Powered-By"));
  EXPECT_EQ(response.Headers("Set-Cookie"), std::vector<std::string>{std::string("a=1") + kAttributes});
}

// An answer whose handler sends it piece by piece: looked at as it goes, across the borders, and not held back.
TEST_F(Hosted, StopsALeakInAnyPieceOfAnAnswer) {
  const std::string long_piece(300000, 'x');
  const std::string leak = "[To Parent Directory]</a>";
  struct {
    std::vector<std::string> pieces;  // "": a send of the headers alone
    std::size_t sent;                 // pieces that arrive; 0: a page instead
    const char* type = "text/html";
    const char* extend = "";
  } const cases[] = {
      {{"<p>", "one", "two"}, 3},
      {{"<p>" + leak, "rest", "rest"}, 0},
      {{"<p>", leak + "rest", "rest"}, 1},
      {{"", leak, "rest"}, 1},
      {{"<p>", "a[To Parent", " Directory]</a>", "rest"}, 2},
      {{"a[", "To", " ", "Parent Directory", "]</", "a>b", "rest"}, 5},
      {{long_piece + "[", "To Parent Directory]</a>" + long_piece}, 1},
      {{long_piece, long_piece + "[To Parent D", "irectory]</a>"}, 2},
      {{"<p>", "[To Parent", "Directory]</a>"}, 3},
      {{"<p>", leak, "rest"}, 3, "image/png"},
      {{"<p>", leak, leak}, 3, "text/html", "website_log_only"},
      {{std::string(5 << 20, 'x'), leak}, 2},
  };
  for (const bool other_thread : {false, true}) {
    for (const auto& c : cases) {
      SCOPED_TRACE("row " + std::to_string(&c - cases) + (other_thread ? ", other thread" : ""));
      const test::CInstallation installation;
      test::Site site;
      site.sections["website_base"] = R"("badcode":"1","badcode_webout":"1")";
      site.extend = c.extend;
      ReplaceFile(installation.Directory() + "config/_badcode.db",
                  encrypt_text("",
                               "<badcode_lists></badcode_lists><badcode_rules>1{*}leak_listing{*}response{*}"
                               "[to parent directory]</a>{*}r{*}h{*}m{#}</badcode_rules>"));
      installation.Start(site);
      HostOptions options;
      options.send_response_on_other_thread = other_thread;
      CModuleHost server(options);
      ASSERT_EQ(server.Register(&RegisterModule), 0);
      const InProcessResponse response = RunInProcess(server, InProcessRequest{}, [&c](iis::IHttpContext& context) {
        context.GetResponse()->SetHeader("Content-Type", c.type, static_cast<iis::USHORT>(std::strlen(c.type)), 1);
        for (const std::string& piece : c.pieces) {
          host::WriteText(context, piece);
          context.GetResponse()->Flush(0, 1, nullptr, nullptr);
        }
      });
      const std::string log = installation.Log();
      if (c.sent == 0) {
        EXPECT_EQ(response.status, 403);
        EXPECT_TRUE(response.body.find("Client IP: ") != std::string::npos && !response.reset) << response.body;
        EXPECT_EQ(response.body.find("rest"), std::string::npos);
        continue;
      }
      std::string sent;
      for (std::size_t i = 0; i < c.sent; ++i) sent += c.pieces[i];
      EXPECT_TRUE(response.body == sent) << response.body.size();
      EXPECT_EQ(response.status, 200);
      EXPECT_EQ(response.reset, c.sent < c.pieces.size());
      const std::size_t events = c.sent < c.pieces.size() || *c.extend != 0;
      const std::string action = *c.extend != 0 ? R"("action":"would block")" : R"("action":"block")";
      EXPECT_EQ(Split(log, action).size(), 1 + events) << log;
    }
  }
}

TEST_F(Hosted, KeepsALinePerRequestWhereTheSiteAsksForIt) {
  for (const bool asked : {false, true}) {
    test::Site site = test::InjectionSite();
    site.log_ex = asked ? "other, request" : "requests";
    installation_.Start(site);
    CModuleHost server;
    ASSERT_EQ(server.Register(&RegisterModule), 0);
    for (const char* url : {"/a?password=hunter2", "/b?x=%27union%20all&password=hunter2"}) {
      InProcessRequest request;
      request.raw_url = url;
      RunInProcess(server, request);
    }
    const std::string lines = installation_.Log("_log_req.log");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), asked ? 2 : 0);
    EXPECT_EQ(lines.find(R"("url":"/a?password=***")") != std::string::npos, asked);
    EXPECT_EQ(lines.find(R"("action":"pass","status":0)") != std::string::npos, asked);
    EXPECT_EQ(lines.find(R"("action":"block","status":403)") != std::string::npos, asked);
    EXPECT_EQ((lines + installation_.Log()).find("hunter2"), std::string::npos);
  }
  InitialiseModule(installation_.Directory(), false);
}

}  // namespace
}  // namespace qiv

#include "module/body_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "config/website_config.h"
#include "module/facts_collector.h"
#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::BodyScript;
using test::CFakeContext;

/// Every byte value, at no period of two.
std::string Bytes(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 131 + (i >> 8) * 7 + (i >> 16));
  return text;
}

constexpr iis::HRESULT kGone = iis::kNetnameDeleted;
constexpr UnreadBody kRead = UnreadBody::kNot;
constexpr UnreadBody kUnreadable = UnreadBody::kUnreadable;

struct Case {
  const char* name;
  BodyScript script;
  std::size_t declared;  ///< Content-Length; 0: that of the data
  UnreadBody unread;
};

TEST(BodyReader, GivesEveryByteBackOnceAndInOrder) {
  const Case cases[] = {
      {"one byte", {.data = Bytes(1)}, 0, kRead},
      {"a piece less one", {.data = Bytes(4095)}, 0, kRead},
      {"a piece", {.data = Bytes(4096)}, 0, kRead},
      {"a piece and one", {.data = Bytes(4097)}, 0, kRead},
      {"one byte a read", {.data = Bytes(3000), .piece = 1}, 0, kRead},
      {"end seen only by a read", {.data = Bytes(9000), .length_known = false}, 0, kRead},
      {"length never known", {.data = Bytes(9000), .length_known = false, .stays_unknown = true}, 0, kRead},
      {"successes without bytes at the end", {.data = Bytes(9000), .empty_success_at_end = true}, 0, kRead},
      {"counts beyond the buffer", {.data = Bytes(8192), .claims_more = true}, 0, kRead},
      {"shorter than declared", {.data = Bytes(5000)}, 60000, kRead},
      {"longer than declared", {.data = Bytes(70000), .length_known = false}, 10, kRead},
      {"much longer than declared", {.data = Bytes(1000001), .length_known = false}, 1, kRead},
      {"nothing at all", {}, 10, kRead},
      {"the client leaves at once", {.data = Bytes(5000), .fail_at = 0, .failure = kGone}, 0, kUnreadable},
      {"the client leaves midway", {.data = Bytes(50000), .fail_at = 20000, .failure = kGone}, 0, kUnreadable},
      {"the server breaks midway", {.data = Bytes(50000), .fail_at = 20000, .throws = true}, 0, kUnreadable},
      {"the insertion is refused", {.data = Bytes(5000), .insert_result = iis::kInvalidData}, 0, kUnreadable},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CFakeContext context;
    context.request.body = c.script;
    const std::string& sent = c.script.data;
    const auto declared = static_cast<std::uint32_t>(c.declared ? c.declared : sent.size());
    const BodyBytes body = ReadAndRestoreBody(context, context.request, declared);
    EXPECT_EQ(body.unread, c.unread);
    EXPECT_LE(context.request.inserted.size(), 1u);
    EXPECT_EQ(context.request.ApplicationBody(), sent);
    EXPECT_EQ(body.bytes, sent.substr(0, context.request.read));
    EXPECT_TRUE(c.unread != kRead || body.bytes.size() == sent.size());
  }
}

TEST(BodyReader, LeavesABodyAloneThatItHasNoMemoryFor) {
  CFakeContext context;
  context.request.body.data = Bytes(10000);
  context.memory_limit = 0;
  EXPECT_EQ(ReadAndRestoreBody(context, context.request, 10000).unread, UnreadBody::kNoMemory);
  EXPECT_EQ(context.request.reads, 0);

  // Memory for what came first, but not for the rest.
  for (const std::uint32_t declared : {10, 200000}) {
    CFakeContext later;
    later.request.body = {.data = Bytes(200000), .length_known = false};
    later.memory_limit = 100000;
    EXPECT_EQ(ReadAndRestoreBody(later, later.request, declared).unread, UnreadBody::kNoMemory);
    EXPECT_EQ(later.request.ApplicationBody(), later.request.body.data);
  }
}

TEST(BodyReader, TakesMemoryForWhatComesNotForWhatIsPromised) {
  struct {
    std::size_t sent;
    std::uint32_t declared;
    std::size_t most;  // bytes of request memory in all
  } const cases[] = {
      {0, kMaxBody, 65536},           {65535, kMaxBody, 65536},  {100, 100, 101},
      {100, 200000, 65536},           {70000, kMaxBody, 300000}, {2000000, kMaxBody, 15100000},
      {10485760, 10485760, 12100000},
  };
  for (const auto& c : cases) {
    CFakeContext context;
    context.request.body = {
        .data = std::string(c.sent, 'a'), .fail_at = c.sent, .failure = kGone, .length_known = false};
    const BodyBytes body = ReadAndRestoreBody(context, context.request, c.declared);
    EXPECT_EQ(body.bytes.size(), c.sent);
    std::size_t taken = 0;
    for (const auto& block : context.memory) taken += block.second;
    EXPECT_LE(taken, c.most) << c.sent << " of " << c.declared;
  }
}

/// A request as the collector sees it.
class CPost {
 public:
  explicit CPost(const std::string& data, const std::string& content_length = "") {
    config.need_post_body = true;
    context.request.SetBody(data);
    if (!content_length.empty()) context.request.known[iis::HttpHeaderContentLength] = content_length;
  }
  void Read(bool may_read = true) { ASSERT_TRUE(ReadHeadersAndBody(context, config, may_read, facts)); }

  CFakeContext context;
  WebsiteConfig config;
  RequestFacts facts;
};

TEST(PostBody, IsReadOnlyWhenAllowed) {
  struct {
    const char* name;
    void (*change)(CPost&);
    bool read;
  } const cases[] = {
      {"a form", [](CPost&) {}, true},
      {"nobody wants it", [](CPost& p) { p.config.need_post_body = false; }, false},
      {"another method", [](CPost& p) { p.context.request.method = "PUT"; }, false},
      {"lower-case method", [](CPost& p) { p.context.request.method = "post"; }, false},
      {"no type", [](CPost& p) { p.context.request.known.erase(iis::HttpHeaderContentType); }, false},
      {"no length", [](CPost& p) { p.context.request.known.erase(iis::HttpHeaderContentLength); }, false},
      {"length 0", [](CPost& p) { p.context.request.known[iis::HttpHeaderContentLength] = "0"; }, false},
      {"no number", [](CPost& p) { p.context.request.known[iis::HttpHeaderContentLength] = "x"; }, false},
      {"beyond 32 bits", [](CPost& p) { p.context.request.known[iis::HttpHeaderContentLength] = "4294967299"; }, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CPost post("a=1");
    c.change(post);
    post.Read();
    EXPECT_EQ(post.context.request.reads != 0, c.read);
    EXPECT_EQ(post.facts.body, c.read ? "a=1" : "");
    EXPECT_EQ(post.context.request.ApplicationBody(), "a=1");
  }
  CPost later("a=1");
  later.Read(false);
  EXPECT_EQ(later.context.request.reads, 0);
}

TEST(PostBody, IsReadUpToTheLimitAndNotBeyond) {
  CPost largest(std::string(kMaxBody, 'a'), std::to_string(kMaxBody - 1));
  largest.context.request.body.length_known = false;
  largest.Read();
  EXPECT_EQ(largest.facts.body.size(), kMaxBody);
  EXPECT_TRUE(largest.context.request.inserted.size() == 1 && largest.context.request.inserted[0].size() == kMaxBody);
  EXPECT_TRUE(largest.facts.raw_body.data() == largest.context.memory.back().first.get()) << "copied";

  CPost too_large("a", std::to_string(kMaxBody + 1));
  too_large.Read();
  EXPECT_EQ(too_large.context.request.reads, 0);
  EXPECT_EQ(too_large.facts.unread_body, UnreadBody::kTooLarge);

  // A length that lies about a body beyond the limit: unread bytes stay behind what is given back.
  CPost liar(std::string(kMaxBody, 'a') + "rest", "5");
  liar.context.request.body.length_known = false;
  liar.Read();
  EXPECT_TRUE(liar.facts.body.empty());
  EXPECT_TRUE(liar.context.request.ApplicationBody() == liar.context.request.body.data);
}

TEST(PostBody, IsDecodedForTheChecks) {
  struct {
    const char* name;
    const char* sent;
    const char* body;
    bool keyed;
  } const cases[] = {
      {"percent and case", "A=%3CScript%3E", "a=<script>", false},
      {"UTF-8 to the local code page", "a=\xE4\xB8\xAD\xE6\x96\x87", "a=\xD6\xD0\xCE\xC4", false},
      {"percent-encoded UTF-8", "a=%E4%B8%AD", "a=\xD6\xD0", false},
      {"local code page stays, its trail bytes too", "a=\xB0\x5CZ", "a=\xB0\x5Cz", false},
      {"trimmed", "\r\n a=1 \r\n", "a=1", false},
      {"password form", "secretrkey1.2.3.4=Ab%43", "secretrkey1.2.3.4=abc", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CPost post(c.sent);
    post.Read();
    EXPECT_EQ(post.facts.body, c.body);
    EXPECT_EQ(post.facts.raw_body, c.sent);
    EXPECT_EQ(post.facts.keyed_body, c.keyed ? c.sent : "");
  }
}

}  // namespace
}  // namespace qiv

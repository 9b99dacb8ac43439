#include "module/request_editor.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;

TEST(RequestEditor, GivesTheApplicationAllOfTheNewBodyOrOfTheOld) {
  struct Row {
    const char* name;
    void (*prepare)(test::CFakeRequest* request);
    std::string body;
    const char* length;  // null: none
    bool refused;
  };
  const auto nothing = [](test::CFakeRequest*) {};
  const std::string old(5000, 'o');
  for (const Row& row :
       {Row{"taken", nothing, "new", "3", false},
        {"chunked", [](auto* r) { r->known.erase(iis::HttpHeaderContentLength); }, "new", nullptr, false},
        {"lost on the way",
         [](auto* r) {
           r->body.fail_at = 4096;
           r->body.failure = -1;
         },
         old, "5000", true},
        {"not inserted", [](auto* r) { r->refused_inserts = 1; }, old, "5000", true},
        {"no length", [](auto* r) { r->refused_header = iis::HttpHeaderContentLength; }, old, "5000", true}}) {
    CFakeContext context;
    context.request.SetBody(old);
    row.prepare(&context.request);
    RequestFacts facts;
    facts.raw_body = context.request.body.data;
    DecidedEdits edits;
    edits.body = "new";
    EXPECT_EQ(EditRequest(context, facts, edits).body, row.refused) << row.name;
    EXPECT_EQ(context.request.ApplicationBody(), row.body) << row.name;
    const auto length = context.request.known.find(iis::HttpHeaderContentLength);
    ASSERT_EQ(length != context.request.known.end(), row.length != nullptr) << row.name;
    EXPECT_EQ(row.length == nullptr || length->second == row.length, true) << row.name;
  }
}

TEST(RequestEditor, CarriesTheQueryOverToARewrittenUrl) {
  struct Row {
    const char16_t *path, *query;  // as cooked; null: none
    bool changed;
    const char* set;  // empty: refused
  };
  for (const Row& row : {Row{nullptr, nullptr, false, "/a%20?q=new"},
                         {u"/a ?q=old", u"?q=old", false, "/a%20?q=new"},
                         {u"/b \u4E2D.php", u"?q=old", true, "/b%20%E4%B8%AD.php?q=new"},
                         {u"/b?r=1&q=old", u"?r=1&q=old", false, "/b?r=1&q=new"},
                         {u"/b/old", u"", true, ""},
                         {u"/b", u"?r=1", false, ""}}) {
    CFakeContext context;
    iis::HTTP_COOKED_URL& cooked = context.request.raw.CookedUrl;
    const std::u16string path = row.path ? row.path : u"", query = row.query ? row.query : u"";
    cooked.pAbsPath = row.path ? path.data() : nullptr;
    cooked.AbsPathLength = static_cast<iis::USHORT>(path.size() * 2);
    cooked.pQueryString = row.query ? query.data() : nullptr;
    cooked.QueryStringLength = static_cast<iis::USHORT>(query.size() * 2);
    context.request.url_changed = row.changed;
    RequestFacts facts;
    facts.raw_url = "/a%20?q=old";
    facts.headers = {{40, "User-Agent", "x"}, {kUnknownHeader, "X-Note", "y"}};
    DecidedEdits edits;
    edits.query = "q=new";
    edits.headers = {{0, "agent"}, {1, "note"}};
    const RefusedEdits refused = EditRequest(context, facts, edits);
    EXPECT_EQ(refused.query, *row.set == '\0');
    EXPECT_EQ(context.request.set_url, row.set);
    EXPECT_FALSE(refused.headers);
    EXPECT_EQ(context.request.known[40], "agent");
    EXPECT_EQ(context.request.unknown["X-Note"], "note");
    context.request.refused_header = 40;
    EXPECT_TRUE(EditRequest(context, facts, edits).headers);
  }
}

}  // namespace
}  // namespace qiv

#include "module/stored_context.h"

#include <gtest/gtest.h>

#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;

RequestFacts Record(std::string path) {
  RequestFacts facts;
  facts.phase = kPhaseBegin;
  facts.path = std::move(path);
  facts.body = std::string("a=1");
  return facts;
}

class StoredContext : public testing::Test {
 protected:
  CQivConfig config_{"./"};
  CStoredContexts contexts_{config_};
  CFakeContext context_;
};

TEST_F(StoredContext, HandsOutCopies) {
  RequestFacts loaded;
  EXPECT_FALSE(contexts_.Load(context_, &loaded));
  ASSERT_TRUE(contexts_.Save(context_, Record("/a")));
  ASSERT_TRUE(contexts_.Load(context_, &loaded));
  EXPECT_EQ(loaded.path, "/a");
  loaded.path = "/changed";
  loaded.body = std::string("changed");
  ASSERT_TRUE(contexts_.Load(context_, &loaded));
  EXPECT_EQ(loaded.path, "/a");
  EXPECT_EQ(loaded.body.View(), "a=1");
}

TEST_F(StoredContext, ReplacesItsRecordThoughTheServerRefusesASecondSet) {
  ASSERT_TRUE(contexts_.Save(context_, Record("/a")));
  iis::IHttpStoredContext* first = context_.container.stored;
  EXPECT_TRUE(contexts_.Save(context_, Record("/b")));
  EXPECT_TRUE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_EQ(context_.container.stored, first);
  EXPECT_EQ(context_.container.sets, 3);
  RequestFacts loaded;
  ASSERT_TRUE(contexts_.Load(context_, &loaded));
  EXPECT_EQ(loaded.path, "/b");
  EXPECT_TRUE(contexts_.PageWritten(context_));
}

// The address sanitizer finds the object that nobody owns.
TEST_F(StoredContext, KeepsWhatTheServerDoesNotTake) {
  for (const iis::HRESULT refusal : {iis::kAlreadyAssigned, iis::kOutOfMemory, iis::E_INVALIDARG}) {
    context_.container.refuse = refusal;
    EXPECT_FALSE(contexts_.Save(context_, Record("/a")));
    EXPECT_FALSE(contexts_.MarkPageWritten(context_, "id"));
    EXPECT_FALSE(contexts_.PageWritten(context_));
  }
  context_.has_container = false;
  RequestFacts loaded;
  EXPECT_FALSE(contexts_.Save(context_, Record("/a")));
  EXPECT_FALSE(contexts_.Load(context_, &loaded));
  EXPECT_FALSE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_FALSE(contexts_.PageWritten(context_));
}

TEST_F(StoredContext, WithThePageMarkAloneHoldsNoRecord) {
  EXPECT_TRUE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_TRUE(contexts_.PageWritten(context_));
  RequestFacts loaded;
  EXPECT_FALSE(contexts_.Load(context_, &loaded));
  EXPECT_TRUE(contexts_.Save(context_, Record("/a")));
  EXPECT_TRUE(contexts_.PageWritten(context_)) << "saving keeps the mark";
}

}  // namespace
}  // namespace qiv

#include "module/stored_context.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/module/fake_server.h"

namespace qiv {
namespace {

using test::CFakeContext;

std::shared_ptr<const RequestRecord> Record(std::string path) {
  const auto record = std::make_shared<RequestRecord>();
  record->facts.path = std::move(path);
  return record;
}

class StoredContext : public testing::Test {
 protected:
  CQivConfig config_{"./"};
  CStoredContexts contexts_{config_};
  CFakeContext context_;
};

TEST_F(StoredContext, HandsOutTheRecordItself) {
  EXPECT_EQ(contexts_.Load(context_).record, nullptr);
  const auto record = Record("/a");
  ASSERT_TRUE(contexts_.Save(context_, record));
  EXPECT_EQ(contexts_.Load(context_).record, record);
}

TEST_F(StoredContext, ReplacesItsRecordThoughTheServerRefusesASecondSet) {
  ASSERT_TRUE(contexts_.Save(context_, Record("/a")));
  iis::IHttpStoredContext* first = context_.container.stored;
  EXPECT_TRUE(contexts_.Save(context_, Record("/b")));
  EXPECT_TRUE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_EQ(context_.container.stored, first);
  EXPECT_EQ(context_.container.sets, 3);
  EXPECT_TRUE(contexts_.MarkPageWritten(context_, "later"));
  const StoredRequest loaded = contexts_.Load(context_);
  EXPECT_EQ(loaded.record->facts.path, "/b");
  EXPECT_EQ(loaded.page_written, 1);
  EXPECT_EQ(loaded.event_id, "id") << "of the first page";
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
  EXPECT_FALSE(contexts_.Save(context_, Record("/a")));
  EXPECT_EQ(contexts_.Load(context_).record, nullptr);
  EXPECT_FALSE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_FALSE(contexts_.PageWritten(context_));
}

TEST_F(StoredContext, WithThePageMarkAloneHoldsNoRecord) {
  EXPECT_TRUE(contexts_.MarkPageWritten(context_, "id"));
  EXPECT_TRUE(contexts_.PageWritten(context_));
  EXPECT_EQ(contexts_.Load(context_).record, nullptr);
  EXPECT_TRUE(contexts_.Save(context_, Record("/a")));
  EXPECT_TRUE(contexts_.PageWritten(context_)) << "saving keeps the mark";
}

}  // namespace
}  // namespace qiv

#include "module/response_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "host/file_handle.h"
#include "port/file.h"
#include "tests/checks/edited_text.h"
#include "tests/module/fake_server.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

using test::CFakeContext;

std::string ReadAll(CFakeContext& context) {
  CResponseReader reader(context);
  return std::string(reader.Read(kMostResponseBytes).text);
}

/// The response as the server sends it.
std::string Sent(const CFakeContext& context) {
  const iis::HTTP_RESPONSE& raw = *context.response.GetRawHttpResponse();
  std::string sent;
  for (std::size_t i = 0; i < raw.EntityChunkCount; ++i) {
    const iis::HTTP_DATA_CHUNK& chunk = raw.pEntityChunks[i];
    std::string part;
    if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
      part.assign(static_cast<const char*>(chunk.FromMemory.pBuffer), chunk.FromMemory.BufferLength);
    } else {
      const iis::HTTP_BYTE_RANGE& range = chunk.FromFileHandle.ByteRange;
      EXPECT_NE(range.Length, 0U);
      ReadHandlePart(chunk.FromFileHandle.FileHandle, range.StartingOffset,
                     static_cast<std::size_t>(std::min<std::uint64_t>(range.Length, 1U << 30U)), &part);
    }
    sent += part;
  }
  return sent;
}

TEST(ResponseReader, ReadsUncompressedTextAsItIs) {
  struct Row {
    const char* type;
    const char* encoding;
    bool read;
  };
  const Row rows[] = {{nullptr, nullptr, true},
                      {"text/html", nullptr, true},
                      {" Text/Plain; charset=gbk", "identity", true},
                      {"application/xhtml+xml", nullptr, true},
                      {"application/json", nullptr, true},
                      {"text/event-stream", nullptr, false},
                      {"image/png", nullptr, false},
                      {"text/html", "gzip", false},
                      {"text/html", "br", false}};
  for (const Row& row : rows) {
    CFakeContext context;
    if (row.type) context.response.known[iis::HttpHeaderContentType] = row.type;
    if (row.encoding) context.response.known[iis::HttpHeaderContentEncoding] = row.encoding;
    context.response.AddChunk("one ");
    context.response.AddChunk("");
    context.response.AddChunk("two");
    EXPECT_EQ(ReadAll(context), row.read ? "one two" : "") << (row.type ? row.type : "");
    EXPECT_EQ(context.response.GetRawHttpResponse()->EntityChunkCount, 3) << "nothing changes";
  }
}

TEST(ResponseReader, ReadsNothingWhereThereIsNothingToRead) {
  CFakeContext context;
  EXPECT_EQ(ReadAll(context), "");
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromFragmentCache;
  context.response.AddChunk(chunk);
  chunk.DataChunkType = iis::HttpDataChunkFromMemory;
  chunk.FromMemory = {nullptr, 5};
  context.response.AddChunk(chunk);
  context.response.AddChunk("text");
  EXPECT_EQ(ReadAll(context), "text");
  context.headers_sent = true;
  EXPECT_EQ(ReadAll(context), "");
  context.headers_sent = false;
  context.response.has_raw = false;
  EXPECT_EQ(ReadAll(context), "");
  context.has_response = false;
  EXPECT_EQ(ReadAll(context), "");
}

TEST(ResponseReader, ReadsFilesAndStopsAtItsBound) {
  const CTemporaryDirectory directory;
  std::string text(10000, 'a');
  text += "end";
  ASSERT_TRUE(ReplaceFile(directory.Path("a.htm"), text));
  host::FileFacts file_facts;
  const iis::HANDLE file = host::OpenForReading(directory.Path("a.htm"), &file_facts);
  ASSERT_NE(file, host::kNoFile);
  constexpr std::uint64_t kToEnd = ~std::uint64_t{0};
  struct Row {
    std::uint64_t begin, length;
    std::string read;
  };
  for (const Row& row :
       {Row{0, kToEnd, text}, {9999, kToEnd, "aend"}, {10000, 2, "en"}, {10003, 5, ""}, {99999, 5, ""}}) {
    CFakeContext context;
    context.response.AddChunk("<");
    iis::HTTP_DATA_CHUNK chunk{};
    chunk.DataChunkType = iis::HttpDataChunkFromFileHandle;
    chunk.FromFileHandle = {{row.begin, row.length}, file};
    context.response.AddChunk(chunk);
    context.response.AddChunk(">");
    EXPECT_EQ(ReadAll(context), "<" + row.read + ">") << row.begin;
  }
  CFakeContext context;
  context.response.AddChunk(std::string(262140, 'b'));
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromFileHandle;
  chunk.FromFileHandle = {{9999, kToEnd}, file};
  context.response.AddChunk(chunk);
  context.response.AddChunk("more");
  EXPECT_EQ(ReadAll(context), std::string(262140, 'b') + "aend");
  host::CloseFile(file);
  CFakeContext closed;
  chunk.FromFileHandle.FileHandle = host::kNoFile;
  closed.response.AddChunk(chunk);
  EXPECT_EQ(ReadAll(closed), "");
}

TEST(ResponseReader, EditsWhatItReadAndLeavesTheRest) {
  const CTemporaryDirectory directory;
  const std::string file_text = "0123456789" + std::string(9000, 'f') + "end";
  ASSERT_TRUE(ReplaceFile(directory.Path("a.htm"), file_text));
  host::FileFacts file_facts;
  const iis::HANDLE file = host::OpenForReading(directory.Path("a.htm"), &file_facts);
  constexpr std::uint64_t kToEnd = ~std::uint64_t{0};
  const std::string far(5000, 'm');
  for (const std::size_t most : {std::size_t{4}, std::size_t{9}, std::size_t{15}, std::size_t{1} << 20U}) {
    for (const auto& [begin, length] :
         {std::pair(std::uint64_t{2}, kToEnd), std::pair(std::uint64_t{0}, std::uint64_t{9})}) {
      for (const bool memory_first : {true, false}) {
        CFakeContext context;
        iis::HTTP_DATA_CHUNK chunk{};
        chunk.DataChunkType = iis::HttpDataChunkFromFileHandle;
        chunk.FromFileHandle = {{begin, length}, file};
        if (memory_first) context.response.AddChunk("memory");
        context.response.AddChunk(chunk);
        context.response.AddChunk(far + "last");
        context.response.known[iis::HttpHeaderContentLength] = "1";
        context.response.known[iis::HttpHeaderEtag] = "e";
        const std::string whole = Sent(context);
        CResponseReader reader(context);
        const ResponseText read = reader.Read(most);
        ASSERT_EQ(read.text, whole.substr(0, most));
        EXPECT_TRUE(read.may_change);
        EXPECT_EQ(read.whole, most > whole.size());
        TextEdits edits{{{0, 1, 0}, {2, 2, 1}}, {"first", "", "<>"}};
        for (const std::size_t at : {std::size_t{6}, read.text.size() - 1}) {
          if (at > 4 && at < read.text.size()) edits.Add({at, 1}, 2);
        }
        KeepApart(&edits);
        const std::string expected = Edited(whole, edits);
        reader.Edit(edits);
        EXPECT_EQ(Sent(context), expected) << most << " " << begin << " " << memory_first;
        EXPECT_TRUE(context.response.known.empty());
      }
    }
  }
  host::CloseFile(file);
}

TEST(ResponseReader, LeavesAResponseAsItIsWhereItCannotChange) {
  CFakeContext context;
  context.response.AddChunk("some text");
  context.response.chunk_room = 1;
  context.response.known[iis::HttpHeaderContentLength] = "9";
  CResponseReader reader(context);
  reader.Read(100);
  reader.Edit({{{5, 4, 0}}, {"more"}});  // two chunks of one
  EXPECT_EQ(Sent(context), "some more");
  context.response.chunk_room = 0;
  CResponseReader again(context);
  again.Read(100);
  again.Edit({{{2, 1, 0}}, {"x"}});
  EXPECT_EQ(Sent(context), "some more") << "no room";
  context.memory_limit = 1;
  CResponseReader poor(context);
  poor.Read(100);
  poor.Edit({{{0, 1, 0}}, {"xyz"}});
  EXPECT_EQ(Sent(context), "some more") << "no memory";
  context.response.known[iis::HttpHeaderContentRange] = "bytes 0-8/100";
  EXPECT_FALSE(CResponseReader(context).Read(100).may_change);
  context.response.known.clear();
  context.response.GetRawHttpResponse()->StatusCode = 206;
  EXPECT_FALSE(CResponseReader(context).Read(100).may_change) << "a part";
}

}  // namespace
}  // namespace qiv

#include "module/response_reader.h"

#include <gtest/gtest.h>

#include "host/file_handle.h"
#include "port/file.h"
#include "tests/module/fake_server.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

using test::CFakeContext;

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
                      {"application/json", nullptr, false},
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
    EXPECT_EQ(ReadResponse(context), row.read ? "one two" : "") << (row.type ? row.type : "");
    EXPECT_EQ(context.response.GetRawHttpResponse()->EntityChunkCount, 3) << "nothing changes";
  }
}

TEST(ResponseReader, ReadsNothingWhereThereIsNothingToRead) {
  CFakeContext context;
  EXPECT_EQ(ReadResponse(context), "");
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromFragmentCache;
  context.response.AddChunk(chunk);
  chunk.DataChunkType = iis::HttpDataChunkFromMemory;
  chunk.FromMemory = {nullptr, 5};
  context.response.AddChunk(chunk);
  context.response.AddChunk("text");
  EXPECT_EQ(ReadResponse(context), "text");
  context.headers_sent = true;
  EXPECT_EQ(ReadResponse(context), "");
  context.headers_sent = false;
  context.response.has_raw = false;
  EXPECT_EQ(ReadResponse(context), "");
  context.has_response = false;
  EXPECT_EQ(ReadResponse(context), "");
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
    EXPECT_EQ(ReadResponse(context), "<" + row.read + ">") << row.begin;
  }
  CFakeContext context;
  context.response.AddChunk(std::string(262140, 'b'));
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromFileHandle;
  chunk.FromFileHandle = {{9999, kToEnd}, file};
  context.response.AddChunk(chunk);
  context.response.AddChunk("more");
  EXPECT_EQ(ReadResponse(context), std::string(262140, 'b') + "aend");
  host::CloseFile(file);
  CFakeContext closed;
  chunk.FromFileHandle.FileHandle = host::kNoFile;
  closed.response.AddChunk(chunk);
  EXPECT_EQ(ReadResponse(closed), "");
}

}  // namespace
}  // namespace qiv

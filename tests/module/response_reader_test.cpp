#include "module/response_reader.h"

#include <gtest/gtest.h>

#include "config/website_config.h"
#include "host/file_handle.h"
#include "module/module_state.h"
#include "module/qiv_module.h"
#include "port/file.h"
#include "tests/module/fake_server.h"
#include "tests/module/installation.h"
#include "tests/port/temporary_directory.h"

namespace qiv {
namespace {

using test::CFakeContext;

constexpr const char* kPanel =
    "<html><title>r57shell</title>uname: Linux kernel 5<br>safe mode: off<form method=post><input name=cmd>"
    "<input type=file> back connect, bind port, chmod, rename, execute command</form></html>";

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

// The page of a webshell is replaced by the block page; other answers go out untouched.
TEST(ResponseReader, APanelNeverLeavesTheServer) {
  test::CInstallation installation;
  test::Site site;
  site.sections["website_base"] = R"("trojan":"1","trojan_webout":"1")";
  site.linked = true;
  installation.Write(site);
  InitialiseModule(installation.Directory(), true);
  State().config.RefreshTick();
  for (const bool panel : {true, false}) {
    CFakeContext context;
    context.request.SetUrl("/a.php");
    CQivIpsIIsModule module;
    ASSERT_EQ(module.OnBeginRequest(&context, nullptr), iis::RQ_NOTIFICATION_CONTINUE);
    context.response.known[iis::HttpHeaderContentType] = "text/html";
    context.response.AddChunk(panel ? kPanel : "<html><form>chmod, kernel, back connect</form></html>");
    const auto answer = module.OnPostExecuteRequestHandler(&context, nullptr);
    EXPECT_EQ(answer, panel ? iis::RQ_NOTIFICATION_FINISH_REQUEST : iis::RQ_NOTIFICATION_CONTINUE);
    EXPECT_EQ(context.response.cleared, panel);
    EXPECT_EQ(context.response.status, panel ? 403 : 200);
    EXPECT_EQ(context.response.GetRawHttpResponse()->EntityChunkCount, panel ? 0 : 1);
    EXPECT_EQ(context.response.body.find("Access denied") != std::string::npos, panel);
  }
  EXPECT_NE(installation.Log().find("webshell_output"), std::string::npos);
  State().service.Finish();
  std::string lines;
  for (const std::string& line : installation.Out()) lines += line;
  EXPECT_NE(lines.find("trojanhtml"), std::string::npos) << lines;
}

}  // namespace
}  // namespace qiv

// Request heads and chunked bodies: what is accepted, what is refused, and that splitting changes nothing.
#include "host/http_parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "host/in_process.h"
#include "host/upstream_response.h"

namespace qiv::host {
namespace {

/// A copy in a block of its exact size, so that the address sanitizer sees one byte too far.
struct ExactCopy {
  explicit ExactCopy(std::string_view text) : size(text.size()), data(new char[text.size()]) {
    std::copy(text.begin(), text.end(), data.get());
  }
  std::string_view View() const { return {data.get(), size}; }
  std::size_t size;
  std::unique_ptr<char[]> data;
};

std::string Head(std::string line, std::string headers = "") { return line + "\r\nHost: h\r\n" + headers + "\r\n"; }

TEST(RequestHead, AcceptsAndRefuses) {
  using namespace std::string_literals;
  const auto all = [](std::vector<std::string> texts, auto make) {
    for (std::string& text : texts) text = make(text);
    return texts;
  };
  const auto line = [](const std::string& text) { return Head(text); };
  const auto host = [](const std::string& text) { return "GET / HTTP/1.1\r\nHost:" + text + "\r\n\r\n"; };
  const auto header = [](const std::string& text) { return Head("GET / HTTP/1.1", text + "\r\n"); };
  const auto post = [](const std::string& text) { return Head("POST / HTTP/1.1", text + "\r\n"); };
  struct Case {
    int status;  ///< 0: accepted
    std::vector<std::string> texts;
  };
  const std::string big(kMaxHeadBytes - 32, 'x');
  const Case cases[] = {
      {0,
       {"\r\n\n\r\n" + Head("GET / HTTP/1.1"), "GET / HTTP/1.1\nHost: h\n\n", "GET / HTTP/1.0\r\n\r\n",
        "GET / HTTP/1.1\r\n Host: h\r\n\r\n"}},
      {400, {"GET / HTTP/1.1\r\n\r\n", std::string(kMaxHeadBytes, 'A')}},
      {0, all({"", " a:8080", " [::1]:80"}, host)},
      {400, all({" a/b", " a b", " <a>", " a@b", " a:80x", " a:65536", " [::1"}, host)},
      {0, all({"GET / HTTP/1.1", "X-FOO / HTTP/1.1", "GET /\xE4\xBD\xA0 HTTP/1.1", "GET http://x/ HTTP/1.1",
               "OPTIONS * HTTP/1.1"},
              line)},
      {400, all({"GE(T / HTTP/1.1", " / HTTP/1.1", "GET /", "GET HTTP/1.1", "GET  / HTTP/1.1", "GET /a b HTTP/1.1",
                 "GET /a\x01 HTTP/1.1", "GET /a\0 HTTP/1.1"s, "GET /a\tb HTTP/1.1", "GET a HTTP/1.1",
                 "GET http://x@y/ HTTP/1.1", "GET ftp://x/ HTTP/1.1", "GET * HTTP/1.1", "CONNECT h:443 HTTP/1.1",
                 "GET / http/1.1", "GET / HTTP/1.1x"},
                line)},
      {505, all({"GET / HTTP/2.0", "GET / HTTP/0.9"}, line)},
      {0, all({"X: a\tb", "X: \xFF\x80", "X: " + big}, header)},
      {400,
       all({"Host: h", "X", ": x", "X : x", "X Y: x", "X: a\0b"s, "X: a\x02", "X: a\rY: b", "X: a\r\n b", "X: x" + big},
           header)},
      {411, {Head("POST / HTTP/1.1")}},
      {0, all({"Content-Length: 5", "Content-Length: 5\r\ncontent-length: 5", "Transfer-Encoding: Chunked",
               "Content-Length: 5\r\nTransfer-Encoding: chunked"},
              post)},
      {400, all({"Content-Length: 18446744073709551616", "Content-Length: +5", "Content-Length: -5",
                 "Content-Length: 0x5", "Content-Length:", "Content-Length: 5, 5",
                 "Content-Length: 5\r\nContent-Length: 6", "Content-Length: 6\r\nContent-Length: 5",
                 "Transfer-Encoding: \x0B"
                 "chunked",
                 "Transfer-Encoding : chunked"},
                post)},
      {400, {Head("POST / HTTP/1.0", "Transfer-Encoding: chunked\r\n")}},
      {501, all({"Transfer-Encoding: gzip", "Transfer-Encoding: gzip, chunked",
                 "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked", "Transfer-Encoding: identity",
                 "Transfer-Encoding:\r\nContent-Length: 3"},
                post)},
  };
  for (const auto& [status, texts] : cases) {
    for (const std::string& text : texts) {
      SCOPED_TRACE(text.substr(0, 200));
      const ExactCopy copy(text);
      RequestHead head;
      const ParseResult result = ParseRequestHead(copy.View(), {}, &head);
      EXPECT_EQ(result.status, status == 0 ? ParseStatus::kComplete : ParseStatus::kRefused) << result.refusal;
      if (status != 0) {
        EXPECT_EQ(result.refusal_status, status);
      } else {
        EXPECT_EQ(head.size, text.size());
      }
      // Any beginning of an acceptable head is merely not complete.
      for (std::size_t cut = 0; status == 0 && cut < text.size() && cut < 200; ++cut) {
        const ExactCopy part(std::string_view(text).substr(0, cut));
        ASSERT_EQ(ParseRequestHead(part.View(), {}, &head).status, ParseStatus::kNeedMore) << cut;
      }
    }
  }
}

TEST(RequestHead, MeaningOfHeaders) {
  struct Case {
    const char* name;
    std::string text;
    bool keep_alive, chunked, expects, confused;
    std::string value;  ///< of the last header
  };
  const Case cases[] = {
      {"HTTP/1.1", Head("GET / HTTP/1.1", "X:  a b \t\r\n"), true, false, false, false, "a b"},
      {"close", Head("GET / HTTP/1.1", "Connection: x, Close\r\n"), false, false, false, false, "x, Close"},
      {"HTTP/1.0", Head("GET / HTTP/1.0", "X:\r\n"), false, false, false, false, ""},
      {"HTTP/1.0 kept", Head("GET / HTTP/1.0", "Connection: keep-alive\r\n"), true, false, false, false, "keep-alive"},
      {"expecting", Head("PUT / HTTP/1.1", "Content-Length: 1\r\nExpect: 100-Continue\r\n"), true, false, true, false,
       "100-Continue"},
      {"HTTP/1.0 cannot expect", Head("PUT / HTTP/1.0", "Content-Length: 1\r\nExpect: 100-continue\r\n"), false, false,
       false, false, "100-continue"},
      {"both", Head("PUT / HTTP/1.1", "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"), true, true, false, true,
       "chunked"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RequestHead head;
    ASSERT_EQ(ParseRequestHead(c.text, {}, &head).status, ParseStatus::kComplete);
    EXPECT_EQ(head.keep_alive, c.keep_alive);
    EXPECT_EQ(head.chunked, c.chunked);
    EXPECT_EQ(head.expects_continue, c.expects);
    EXPECT_EQ(head.length_and_chunked, c.confused);
    EXPECT_EQ(head.headers.back().value, c.value);
  }
  HostOptions options;
  options.fold_header_lines = true;
  RequestHead head;
  const std::string folded = Head("GET / HTTP/1.1", "X: a\r\n\tb\r\n  c\r\nY: d\r\n");
  ASSERT_EQ(ParseRequestHead(folded, options, &head).status, ParseStatus::kComplete);
  EXPECT_EQ(head.headers[1].value, "a b c");
  EXPECT_EQ(head.headers[2].value, "d");
}

CChunkedDecoder::Status DecodeInPieces(std::string_view coded, std::mt19937& random, std::string* body,
                                       std::size_t* used) {
  CChunkedDecoder decoder;
  CChunkedDecoder::Status status = CChunkedDecoder::Status::kMore;
  *used = 0;
  while (status == CChunkedDecoder::Status::kMore && *used < coded.size()) {
    const ExactCopy piece(coded.substr(*used, 1 + random() % 9));
    std::string_view input = piece.View();
    while (status == CChunkedDecoder::Status::kMore && !input.empty()) {
      const ExactCopy room(std::string(1 + random() % 7, 0));
      std::size_t got = 0;
      status = decoder.Decode(&input, room.data.get(), room.size, &got);
      body->append(room.data.get(), got);
    }
    *used += piece.size - input.size();
  }
  return status;
}

TEST(ChunkedDecoder, AcceptsAndRefuses) {
  struct Case {
    const char* name;
    std::string coded;
    CChunkedDecoder::Status status;
    std::string body;
    std::size_t rest;  ///< bytes that belong to the next request
  };
  using Status = CChunkedDecoder::Status;
  const Case cases[] = {
      {"empty", "0\r\n\r\n", Status::kDone, "", 0},
      {"chunks", "3\r\nabc\r\nA\r\n0123456789\r\n0\r\n\r\nGET", Status::kDone, "abc0123456789", 3},
      {"two digits", "0b\r\n0123456789a\r\n10\r\n0123456789abcdef\r\n0\r\n\r\n", Status::kDone,
       "0123456789a0123456789abcdef", 0},
      {"zeros in front", "0003\r\nabc\r\n000\r\n\r\n", Status::kDone, "abc", 0},
      {"extension", "3;a=\"b\"\r\nabc\r\n0;x\r\n\r\n", Status::kDone, "abc", 0},
      {"trailers", "1\r\na\r\n0\r\nX: y\r\nZ: 1\r\n\r\nP", Status::kDone, "a", 1},
      {"line ends in the data", "4\r\n\r\n\r\n\r\n0\r\n\r\n", Status::kDone, "\r\n\r\n", 0},
      {"not finished", "3\r\nab", Status::kMore, "ab", 0},
      {"no size", "\r\nabc", Status::kMalformed, "", 0},
      {"no hexadecimal digit", "g\r\n", Status::kMalformed, "", 0},
      {"prefix", "0x3\r\nabc\r\n", Status::kMalformed, "", 0},
      {"sign", "+3\r\nabc\r\n", Status::kMalformed, "", 0},
      {"fifteen digits", "000000000000003\r\nabc\r\n0\r\n\r\n", Status::kDone, "abc", 0},
      {"sixteen digits", "0000000000000003\r\nabc\r\n", Status::kMalformed, "", 0},
      {"digits of the next chunk are counted anew", "00000001\r\na\r\n00000001\r\nb\r\n0\r\n\r\n", Status::kDone, "ab",
       0},
      {"size behind a blank", " 3\r\nabc\r\n", Status::kMalformed, "", 0},
      {"size with a minus", "-3\r\nabc\r\n", Status::kMalformed, "", 0},
      {"text behind the size", "3x\r\nabc\r\n", Status::kMalformed, "", 0},
      {"extension of 16 KiB", "1;" + std::string(kMaxHeadBytes, 'x') + "\r\na\r\n0\r\n\r\n", Status::kDone, "a", 0},
      {"extensions count together",
       "1;" + std::string(kMaxHeadBytes / 2, 'x') + "\r\na\r\n1;" + std::string(kMaxHeadBytes / 2 + 1, 'x'),
       Status::kMalformed, "a", 0},
      {"size of 64 bits and more", "10000000000000003\r\nabc\r\n", Status::kMalformed, "", 0},
      {"data longer than its size", "3\r\nabcd\r\n", Status::kMalformed, "abc", 0},
      {"line feed alone after the size", "3\nabc\r\n0\r\n\r\n", Status::kMalformed, "", 0},
      {"line feed alone after an extension", "3;x\nabc\r\n0\r\n\r\n", Status::kMalformed, "", 0},
      {"line feed alone after the data", "3\r\nabc\n0\r\n\r\n", Status::kMalformed, "abc", 0},
      {"carriage return in an extension", "3;\rx\r\nabc\r\n", Status::kMalformed, "", 0},
      {"trailer that is no header", "0\r\n bad\r\n\r\n", Status::kMalformed, "", 0},
      {"endless extension", "3;" + std::string(kMaxHeadBytes + 1, 'x'), Status::kMalformed, "", 0},
      {"endless trailers", "0\r\n" + std::string(kMaxHeadBytes + 9, 'x'), Status::kMalformed, "", 0},
  };
  std::mt19937 random(1);
  for (const Case& c : cases) {
    for (int round = 0; round < 20; ++round) {
      SCOPED_TRACE(c.name);
      std::string body;
      std::size_t used = 0;
      ASSERT_EQ(DecodeInPieces(c.coded, random, &body, &used), c.status);
      ASSERT_EQ(body, c.body);
      ASSERT_TRUE(c.status != Status::kDone || c.coded.size() - used == c.rest);
    }
  }
}

TEST(RawRequest, ParsedAndRun) {
  struct Case {
    const char* text;
    int status;
    const char* body;
  };
  const Case cases[] = {
      {"POST /f HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nabc", 0, "abc"},
      {"POST /f HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", 0, "abc"},
      {"POST /f HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\nabc", 400, ""},
      {"POST /f HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab", 400, ""},
      {"POST /f HTTP/1.1\r\nHost: h\r\n\r\n", 411, ""},
      {"GET /f HTTP/1.1\r\nHost: h\r\n", 400, ""},
  };
  CModuleHost host;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    int status = -1;
    std::string error;
    const auto request = ParseRawRequest(c.text, {}, &status, &error);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(request.has_value(), c.status == 0);
    EXPECT_EQ(error.empty(), c.status == 0);
    if (!request) continue;
    EXPECT_EQ(RunInProcess(host, *request).handler_body, c.body);
  }
}

TEST(UpstreamReader, AcceptsAndRefuses) {
  enum { kGood, kCut, kBad };
  struct Case {
    std::string text;
    int result;  ///< when the upstream closes behind it
    int status = 0;
    bool keep_alive = false;
    std::size_t headers = 0;
    std::string body = {};
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string chunks = ok + "Transfer-Encoding: chunked\r\n\r\n";
  const Case cases[] = {
      {ok + "A: b\r\nConnection: X-Hop\r\nX-Hop: 1\r\nKeep-Alive: t\r\nX: \xE4\xFF\r\n\r\nbody", kGood, 200, false, 2,
       "body"},
      {ok + "Content-Length: 4\r\n\r\nbody", kGood, 200, true, 0, "body"},
      {ok + "Content-Length: 5\r\n\r\nbody", kCut},
      {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 0\r\n\r\n", kGood, 200, true},
      {"HTTP/1.0 200 \r\nContent-Length: 0\r\n\r\n", kGood, 200, false},
      {"HTTP/1.1 204 No\r\nContent-Length: 9\r\n\r\n", kGood, 204, true},
      {"HTTP/1.1 304 No\r\nContent-Length: 9\r\n\r\n", kGood, 304, true},
      {chunks + "3;x\r\nabc\r\nA\r\n0123456789\r\n0\r\nT: 1\r\n\r\n", kGood, 200, true, 0, "abc0123456789"},
      {chunks + "3\r\nabc\r\n", kCut},
      {chunks + "3\r\nabcd\r\n0\r\n\r\n", kBad},
      {chunks + "zz\r\n", kBad},
      {chunks + "fffffffffffffffff\r\n", kBad},
      {chunks + "3" + std::string(300 * 1024, ';'), kBad},
      {ok + "A: b", kCut},
      {ok + "A: " + std::string(300 * 1024, 'x'), kBad},
      {ok + "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n", kBad},
      {ok + "Transfer-Encoding: gzip\r\n\r\n", kBad},
      {ok + "Transfer-Encoding: gzip, chunked\r\n\r\n", kBad},
      {ok + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", kBad},
      {ok + "bad line\r\n\r\n", kBad},
      {ok + "A: b\rC: d\r\n\r\n", kBad},
      {"HTTP/2 200\r\n\r\n", kBad},
      {"HTTP/1.1 20 OK\r\n\r\n", kBad},
      {"HTTP/1.1 099 OK\r\n\r\n", kBad},
      {"", kCut},
  };
  for (const Case& c : cases) {
    for (const std::size_t step : {c.text.size() + 1, std::size_t{5}}) {
      if (step == 5 && c.text.size() > 9999) continue;
      SCOPED_TRACE(c.text.substr(0, 90));
      CUpstreamReader reader;
      UpstreamHead head;
      std::string input, body;
      UpstreamParse parsed = UpstreamParse::kNeedMore;
      bool in_body = false;
      for (std::size_t at = 0; at < c.text.size() && parsed == UpstreamParse::kNeedMore; at += step) {
        input.append(c.text, at, step);
        if (!in_body) parsed = reader.ReadHead(&input, &head);
        in_body = in_body || parsed == UpstreamParse::kComplete;
        if (in_body) parsed = reader.ReadBody(&input, &body);
      }
      const bool ended = parsed == UpstreamParse::kComplete || (in_body && reader.EndsHere());
      ASSERT_EQ(parsed == UpstreamParse::kMalformed ? kBad : ended ? kGood : kCut, c.result);
      if (c.result != kGood) continue;
      EXPECT_EQ(head.status, c.status);
      EXPECT_EQ(reader.keeps_alive(), c.keep_alive);
      EXPECT_EQ(head.headers.size(), c.headers);
      EXPECT_EQ(body, c.body);
    }
  }
}

}  // namespace
}  // namespace qiv::host

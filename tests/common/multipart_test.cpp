#include "common/multipart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::string_view kDisposition = "Content-Disposition: form-data; ";

struct Seen {
  MultipartFault fault = MultipartFault::kNone;
  std::vector<std::string> parts;  // "field|file names joined by ,|content"
  std::set<std::string> contents;
  std::set<std::string> names;
};

Seen Read(std::string_view type, std::string_view body) {
  Seen seen;
  seen.fault = ForEachPart(type, body, [&](const MultipartPart& part) {
    std::string line = std::string(part.head.name) + "|";
    for (std::size_t i = 0; i < part.head.file_name_count; ++i) {
      line += (i == 0 ? "" : ",") + std::string(part.head.file_names[i]);
      seen.names.insert(std::string(part.head.file_names[i]));
    }
    seen.parts.push_back(line + "|" + std::string(part.content));
    seen.contents.insert(std::string(part.content));
    seen.contents.insert(std::string(part.late_content));
    return true;
  });
  return seen;
}

// "H " stands for the disposition header up to its parameters.
std::string Body(std::string_view text) { return ReplaceAll(text, "H ", kDisposition); }

TEST(Multipart, ReadsOrdinaryBodiesOnce) {
  const std::string browser = Body(
      "--XX\r\nH name=\"a\"\r\n\r\n1\r\n--XX\r\nH name=\"f\"; filename=\"p.jpg\"\r\nContent-Type: image/jpeg\r\n\r\n"
      "\xFF\xD8\r\n\r\n--X\r\n--XX\r\nH name=\"e\"; filename=\"\"\r\n\r\n\r\n--XX--\r\n");
  const std::vector<std::string> expected = {"a||1", "f|p.jpg|\xFF\xD8\r\n\r\n--X", "e||"};
  for (const char* type : {"multipart/form-data; boundary=XX", "multipart/form-data; charset=utf-8; BOUNDARY = \"XX\"",
                           "Multipart/Form-Data;boundary=XX; charset=utf-8", "multipart/form-data; boundary='XX'",
                           "multipart/form-data", "multipart/form-data; boundary=other", "text/plain"}) {
    EXPECT_EQ(Read(type, browser).parts, expected) << type;
  }
  EXPECT_EQ(Read("multipart/form-data; boundary=XX", "MZ no parts").parts, std::vector<std::string>{"||MZ no parts"});
  EXPECT_EQ(Read("multipart/form-data", "").fault, MultipartFault::kNone);
}

// Each body holds a content or a name that one of the parsers in use reads; it must be among what is handed out.
TEST(Multipart, HandsOutEveryReading) {
  struct Case {
    const char* type;
    const char* body;
    const char* content;
    const char* name;
  };
  constexpr const char* kType = "multipart/form-data; boundary=b1";
  const Case cases[] = {
      // Delimiters.
      {"multipart/form-data; boundary=b0; boundary=b1", "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {"multipart/form-data; boundary=b1; boundary=b0", "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {"multipart/form-data; boundary=b1,b2", "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {"multipart/form-data; boundary=\"b 1\"", "--b 1\r\nH filename=\"x\"\r\n\r\nA\r\n--b 1--", "A", "x"},
      {"multipart/form-data; x=y; boundary*0=b1", "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA", "A", "x"},
      {kType, "--b1\nH filename=\"x\"\n\nA\n--b1--\n", "A", "x"},
      {kType, "--b1\rH filename=\"x\"\r\rA\r--b1--\r", "A", "x"},
      {kType, "junk\r\n--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {kType, "--b1--\r\n--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {kType, "--b1\r\nH name=a\r\n\r\n1\r\n--b1--\r\nepilogue", "epilogue", nullptr},
      {kType, "preamble\r\n--b1\r\nH name=a\r\n\r\n1\r\n--b1--\r\n", "preamble\r\n", nullptr},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1junk\r\nB\r\n--b1--", "A", nullptr},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1junk\r\nB\r\n--b1--", "A\r\n--b1junk\r\nB", nullptr},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA\r\n--b1 \r\nB\r\n--b1--", "A\r\n--b1 \r\nB", nullptr},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA--b1\r\nB\r\n--b1--", "A", nullptr},
      {kType, "--b1\r\nH filename=\"x\"\r\n\r\nA--b1\r\nB\r\n--b1--", "A--b1\r\nB", nullptr},
      {"multipart/form-data; boundary=no", "--own\r\nContent-Type: a/b\r\nH filename=\"x\"\r\n\r\nA\r\n--own--", "A",
       "x"},
      {"multipart/form-data; boundary= b 1", "-- b\r\nX: y\r\nH filename=\"x\"\r\n\r\nA\r\n-- b--", "A", "x"},
      {"multipart/form-data; boundary=\" b\"", "-- b\r\nX: y\r\nH filename=\"x\"\r\n\r\nA\r\n-- b--", "A", "x"},
      {"text/plain", "QQ\r\nsome name=\"f\"; filename=\"x\"\r\n\r\nA\r\nQQ--", "A", "x"},
      {"multipart/form-data; boundary=", "--\r\nH filename=\"x\"\r\n\r\nA\r\n----", "A", "x"},
      // Ends of the headers.
      {kType, "--b1\r\nH name=a\n\nX\r\n\r\nMZ\r\n--b1--", "MZ", nullptr},
      {kType, "--b1\r\nH name=\"a\r\r\"; filename=\"x\"\r\n\r\nA\r\n--b1--", "A", "x"},
      {kType, "--b1\nX: a\r\rb\nH filename=\"x\"\n\nA\n--b1--", "A", "x"},
      {kType, "--b1\r\n\r\nno headers\r\n--b1--", "no headers", nullptr},
      // File names.
      {kType, "--b1\r\nH filename=x y;\r\n\r\n--b1--", nullptr, "x y"},
      {kType, "--b1\r\nH filename=x y;\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename='x'\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=a';'x; b\r\n\r\n--b1--", nullptr, "a';'x"},
      {kType, "--b1\r\nH filename=a\r\nx\r\n\r\n--b1--", nullptr, "a\r\nx"},
      {kType, "--b1\r\nH FileName = \"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=\"a.jpg\"; filename=\"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=\"x\"; filename=\"a.jpg\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=\"a.jpg\"\r\nH filename=\"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=\"a\"; filename*=UTF-8''x\r\n\r\n--b1--", nullptr, "UTF-8''x"},
      {kType, "--b1\r\nH filename*0=\"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH\r\n filename=\"x\"; name=\"y\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH name=\"y\";\r\n\tfilename=\r\n \"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\ncontent-disposition : attachment; filename=\"x\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH filename=\"a\\\"; x\"\r\n\r\n--b1--", nullptr, "a\\\"; x"},
      {kType, "--b1\r\nH filename=\"a\\\"; x\"\r\n\r\n--b1--", nullptr, "a\\"},
      {kType, "--b1\r\nH filename=\"a\xC4\\\"; x\"\r\n\r\n--b1--", nullptr, "a\xC4\\"},
      {kType, "--b1\r\nH filename=\"a\xC4\\\"; x\"\r\n\r\n--b1--", nullptr, "a\xC4\\\"; x"},
      {kType, "--b1\r\nH filename=\"x\r\nX: \"a.jpg\"\r\n\r\n--b1--", nullptr, "x"},
      {kType, "--b1\r\nH name=\"\\\"; filename=\"x\"\r\n\r\n--b1--", nullptr, "x"},
      // Parts in a part.
      {kType,
       "--b1\r\nH name=a\r\nContent-Type: multipart/mixed;\r\n boundary=in\r\n\r\n--in\r\n"
       "Content-Disposition: file; filename=\"x\"\r\n\r\nA\r\n--in--\r\n--b1--",
       "A", "x"},
  };
  for (const Case& item : cases) {
    const Seen seen = Read(item.type, Body(item.body));
    EXPECT_EQ(seen.fault, MultipartFault::kNone) << item.body;
    EXPECT_TRUE(item.content == nullptr || seen.contents.contains(item.content)) << item.type << '\n' << item.body;
    EXPECT_TRUE(item.name == nullptr || seen.names.contains(item.name)) << item.body;
  }
}

TEST(Multipart, ReadsWhatHeadersSay) {
  const std::string text = Body(
      "H name=\"field\"; filename=\"n\"\r\nContent-Type:text/plain\r\n"
      "Content-Transfer-Encoding: BASE64\r\n\r\nQQ==");
  const MultipartPart part = ReadPart(text);
  EXPECT_EQ(part.head.name, "field");
  EXPECT_EQ(part.head.content_type, "text/plain");
  EXPECT_EQ(part.head.encoding, PartHead::kBase64);
  EXPECT_EQ(part.content, "QQ==");
  const MultipartPart empty = ReadPart("Content-Disposition: form-data; name=f; filename=\"\"\r\n\r\n");
  EXPECT_TRUE(empty.head.has_file_name);
  EXPECT_EQ(empty.head.file_name_count, 0U);
}

TEST(Multipart, KeepsItsLimits) {
  const std::string type = "multipart/form-data; boundary=b";
  std::string many;
  for (int i = 0; i < 10000; ++i) many += Body("--b\r\nH name=n; filename=x\r\n\r\nv\r\n");
  EXPECT_EQ(Read(type, many + "--b--").parts.size(), 10000U);

  std::string names = Body("--b\r\nH ");
  for (int i = 0; i < 9; ++i) names += "filename=x" + std::to_string(i) + ";";
  std::string nested_type = type;
  std::string nested = "--b\r\nContent-Type: multipart/mixed; boundary=b0\r\n\r\n";
  for (int i = 0; i < 4; ++i) {
    nested += "--b" + std::to_string(i) + "\r\nContent-Type: multipart/mixed; boundary=b" + std::to_string(i + 1) +
              "\r\n\r\n";
  }
  std::string readings = type;
  for (int i = 0; i < 20; ++i) readings += "; boundary=b" + std::to_string(i);
  const std::string head(kLongestPartHead, 'h');
  const std::tuple<std::string, std::string, MultipartFault> cases[] = {
      {type, names + "\r\n\r\n--b--", MultipartFault::kTooManyFileNames},
      {type, nested, MultipartFault::kTooDeep},
      {readings, std::string(2000, 'x'), MultipartFault::kTooManyReadings},
      {type + std::string(kLongestBoundary, 'b'), "x", MultipartFault::kBoundaryTooLong},
      {type + "\xE9", "x", MultipartFault::kBoundaryBytes},
      {type + "; charset=ibm037", "x", MultipartFault::kCharset},
      {type + "; charset=\"UTF-8\"", "x", MultipartFault::kNone},
      {type + "; charset=cp1252", "x", MultipartFault::kNone},
      {type + "; charset=utf-8; xcharset=iso-2022-kr", "x", MultipartFault::kCharset},
      {type, Body("--b\r\nH file\r\nname=x\r\n\r\n--b--"), MultipartFault::kHiddenFileName},
      {type, Body("--b\r\nH file\xC2\xADname=x; filename=y\r\n\r\n--b--"), MultipartFault::kHiddenFileName},
      {type, Body("--b\r\nH filename*0=x; filename*1=y\r\n\r\n--b--"), MultipartFault::kTooManyFileNames},
      {type, Body("--b\r\nX: ") + head + Body("\r\nH name=a\r\n\r\n<?"), MultipartFault::kHeadTooLong},
      {type, ReplaceAll(std::string(kMostParts + 1, '.'), ".", "--b\r\n"), MultipartFault::kTooManyParts},
      {type, Body("--b\r\nH name=a\r\n") + head + "\r\n\r\n<?", MultipartFault::kHeadTooLong},
      {type, Body("--b\r\nH name=a\r\n\r\n") + head + "<?", MultipartFault::kNone},
  };
  for (const auto& [content_type, body, fault] : cases)
    EXPECT_EQ(Read(content_type, body).fault, fault) << body.substr(0, 200);
}

}  // namespace
}  // namespace qiv

#include "checks/upload_check.h"

#include <functional>
#include <random>

#include "checks/file_content.h"
#include "checks/upload_name.h"
#include "common/char_set.h"
#include "common/text.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

using namespace std::string_literals;

TEST(UploadName, ReadsWhatServersRead) {
  struct Case {
    std::string raw;
    const char* extension;
    NameFault fault;
  };
  constexpr NameFault kNone = NameFault::kNone;
  constexpr NameFault kDisguised = NameFault::kDisguised;
  const Case cases[] = {
      // Ordinary names.
      {"photo.jpg", "jpg", kNone},
      {"C:\\Users\\Ann\\My Photo.JPG", "jpg", kNone},
      {"holiday/day.1/photo.jpeg", "jpeg", kNone},
      {"report v1.2.final.docx", "docx", kNone},
      {"2024-01-01T10:30:00.png", "png", kNone},
      {"blob", "", kNone},
      {".gitignore", "gitignore", kNone},
      {"node.js", "js", kNone},
      {"jquery.min.js", "js", kNone},
      {"site.cer.pdf", "pdf", kNone},
      {"index.php.txt", "txt", kNone},
      {"classic asp notes.pdf", "pdf", kNone},
      {"\xE5\x9B\xBE\xE7\x89\x87\xE3\x80\x82.png", "png", kNone},
      {"\xB1\xA8\x5C\xB8\xE6.doc", "doc", kNone},  // a GBK trail byte that is a backslash
      {"50%.gif", "gif", kNone},
      {"aux-cable.jpg", "jpg", kNone},
      {"x.php", "php", kNone},
      // Two extensions, and what servers cut off.
      {"x.php.jpg", "jpg", NameFault::kDoubleExtension},
      {"x.aspx.png", "png", NameFault::kDoubleExtension},
      {"x.phtml.unknown", "unknown", NameFault::kDoubleExtension},
      {"x.asp;.jpg", "jpg", kDisguised},
      {"x.cer;a.jpg", "jpg", kDisguised},
      {"x.asp/y.jpg", "jpg", kDisguised},
      {"x.asp\\y.jpg", "jpg", kDisguised},
      {"x.php%00.jpg", "jpg", kDisguised},
      {"x.php\0.jpg"s, "jpg", kDisguised},
      {"x.php.", "php", kDisguised},
      {"x.php. .", "php", kDisguised},
      {"x.ph>", "ph>", kDisguised},
      {"x\"php", "php", kNone},
      {"x.php\xD6", "php\xD6", kDisguised},
      {"x.asp::$DATA", "asp", kDisguised},
      {"x.txt::$DATA", "txt::$data", kDisguised},
      {"x.asp:.jpg", "asp", kDisguised},
      {"X.ASP ", "asp", kDisguised},
      {"x%2Easpx", "aspx", kNone},
      {"UTF-8''x%2Ephp", "php", kNone},
      {"gbk'zh'x.asp%3B.jpg", "jpg", kDisguised},
      {"x\xEF\xBC\x8E"
       "asp",
       "asp", kNone},                                           // a full-width dot
      {"x.\xEF\xBD\x81sp", "asp", kNone},                       // a full-width letter
      {"x.\xA3\xE1sp", "asp", kNone},                           // the same in GBK
      {"x.a\xE2\x80\x8Bsp", "asp", kNone},                      // an invisible character
      {"photo\xE2\x80\xAEgpj.php", "php", kNone},               // written backwards
      {"x.ph\xEF\xBD\x90\xEF\xBC\x9B.jpg", "jpg", kDisguised},  // full-width letter and semicolon
      // Other faults.
      {"../x.jpg", "jpg", NameFault::kTraversal},
      {"a%2F..%2F..%2Fx.jpg", "jpg", NameFault::kTraversal},
      {"..\\x.jpg", "jpg", NameFault::kTraversal},
      {"con", "", NameFault::kDevice},
      {"Aux.jpg", "jpg", NameFault::kDevice},
      {"lpt1 .txt", "txt", NameFault::kDevice},
      {"a\tb.jpg", "jpg", NameFault::kControlByte},
      {"a%0d%0ab.jpg", "jpg", NameFault::kControlByte},
      {std::string(1020, 'a') + ".jpg", "jpg", kNone},
      {std::string(1021, 'a') + ".jpg", "jp", NameFault::kTooLong},
  };
  for (const Case& item : cases) {
    const UploadName name = ReadUploadName(item.raw);
    EXPECT_EQ(name.extension, item.extension) << item.raw;
    EXPECT_EQ(static_cast<int>(name.fault), static_cast<int>(item.fault)) << item.raw;
  }
}

TEST(UploadName, AdmitsByList) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"php", "", true},          {"php", ",*,", true},       {"php", ",jpg,png,", false}, {"png", ",jpg,png,", true},
      {"pn", ",jpg,png,", false}, {"", ",jpg,", true},        {"php", ",!php,", false},    {"jpg", ",!php,", true},
      {"php", ",*,!php,", false}, {"php", ",!php,*,", false}, {"jpg", ",*,!php,", true},   {"gif", ",jpg,!php,", false},
  };
  for (const auto& [extension, types, admitted] : cases) {
    EXPECT_EQ(IsAdmittedExtension(extension, types), admitted) << extension << ' ' << types;
  }
}

const std::string kJpeg = "\xFF\xD8\xFF\xE0\0\x10JFIF\0\1\1\0\0\1\0\1\0\0\xFF\xC0\0\x11\x08\0\1\0\1\3"s;
const std::string kPng = "\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR\0\0\0\1\0\0\0\1\x08\2\0\0\0"s;
const std::string kGif = "GIF89a\1\0\1\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0;"s;
const std::string kProgram = "MZ"s + std::string(58, '\0') + "\x40\0\0\0PE\0\0"s + std::string(40, '\0');

TEST(FileContent, KnowsPicturesAndPrograms) {
  const std::string webp = "RIFF\x10\0\0\0WEBPVP8 \4\0\0\0"s;
  const std::string heic =
      "\0\0\0\x18"
      "ftypheic\0\0\0\0mif1heic"s;
  for (const std::string& image : {kJpeg, kPng, kGif, webp, heic, "<?xml version=\"1.0\"?><svg/>"s}) {
    EXPECT_TRUE(IsImage(image)) << image;
    EXPECT_FALSE(IsExecutable(image)) << image;
    for (std::size_t size = 0; size < image.size(); ++size) IsImage(std::string(image, 0, size).c_str());
  }
  for (const std::string& other : {"GIF89a<?php eval($_POST[1]);"s, "\xFF\xD8\xFF<%eval request(1)%>"s, "BM text"s,
                                   "\x89PNG\r\n\x1A\n<?php system($_GET[1]);?>      "s, kProgram, ""s}) {
    EXPECT_FALSE(IsImage(other)) << other;
  }
  for (const std::string& program :
       {kProgram,
        "\x7F"
        "ELF\2\1\1\0\0\0\0\0\0\0\0\0\2\0"s,
        "#!/bin/sh\nid"s, "#! /usr/bin/env perl"s, "\xCA\xFE\xBA\xBE\0\0\0\x34\0\0\0\0\0\0\0\0"s}) {
    EXPECT_TRUE(IsExecutable(program)) << program;
  }
  for (const std::string& other :
       {"MZ is a country code of Mozambique, and some more text to make it long enough"s, "#! note"s, "# heading"s,
        "\x7F"
        "ELF"s}) {
    EXPECT_FALSE(IsExecutable(other)) << other;
  }
}

TEST(FileContent, FindsScriptText) {
  for (const std::string& script :
       {"\xFF<?php echo 1;"s, "<?PHP\n"s, "<?=`$_GET[1]`?>"s, "<?=$_GET[1]\xFF"s, "<? eval($x)\xFF"s,
        "<%eval request(1)%>"s, "<%@ Page Language=\"C#\" %>"s, "<% Execute(\xB0\xA1"s, "<script runat=\"server\">"s,
        "<SCRIPT language = PHP >"s, "<script a=\">\" "s + std::string(999, ' ') + "runat=server>", "<?xml:eval(1);"s,
        "<?xml and eval(1);"s, "\0<?=/*\xFF*/ //\xFF\neval($x);\xFF"s, "<%'\xD6\xD0\r\neval x"s,
        "<!--#exec cmd=\"x\" -->"s, "<?@$a($b)?>"s, "\xFF<?$a=$b;"s}) {
    EXPECT_NE(FindScript(script), std::string_view::npos) << script;
  }
  for (const std::string& other :
       {"<?xml version=\"1.0\" encoding=\"utf-8\"?>"s, "<?xml:namespace prefix = o ns=\"a\" />"s,
        "<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"s, "\0a <% b"s, "\0<?\x80 \x90 text text"s,
        "<script>alert(1)</script>"s, "\0<?phpx\x80"s, "\0<? 2"s, "\0<?/*\xFF"s, "<%"s, "<?"s, "<"s,
        "<?mso-application progid=\"Excel.Sheet\"?>"s}) {
    EXPECT_EQ(FindScript(other), std::string_view::npos) << other;
  }
  std::string random(8 << 20, '\0');
  std::mt19937 generator(7);
  for (char& c : random) c = static_cast<char>(generator() >> 24);
  EXPECT_EQ(FindScript(random), std::string_view::npos);
}

class UploadCheckTest : public CCheckFixture {
 protected:
  UploadCheckTest() {
    site_->base.upload = site_->base.upload_file = site_->base.upload_exe = true;
    site_->base.upload_types = ",*,";
    site_->request.photo = 1;
    site_->request.photo_post = true;
    site_->request.photo_get = 1;
    static const auto libs = std::make_shared<const CQivLibs>();
    webshells_ = libs;
  }

  // The reason, without what all reasons begin with, or "".
  std::string Check(const std::string& type, const std::string& body, const std::string& url = "/") {
    body_ = body;
    facts_.raw_body = body_;
    facts_.content_type = type;
    facts_.raw_url = url;
    result_ = {};
    UploadCheck(facts_, Context(), result_);
    EXPECT_EQ(result_.status == kBlocked, !result_.reason.empty());
    const std::size_t colon = result_.reason.find(':');
    return colon == std::string::npos ? result_.reason : result_.reason.substr(colon + 1);
  }

  std::string CheckPart(const std::string& headers, const std::string& content) {
    return Check(
        "multipart/form-data; boundary=b",
        "--b\r\nContent-Disposition: form-data; name=first\r\n\r\n1\r\n--b\r\nContent-Disposition: form-data; " +
            headers + "\r\n\r\n" + content + "\r\n--b--\r\n");
  }
  std::string CheckFile(const std::string& name, const std::string& content) {
    return CheckPart("name=\"f\"; filename=\"" + name + "\"\r\nContent-Type: application/octet-stream", content);
  }

  std::string body_;
  CheckResult result_;
};

constexpr const char* kShell = "<?php @eval($_POST['x']); ?>";
constexpr const char* kPage = "<?php\n$title = 'News';\ninclude 'header.php';\necho '<h1>' . $title . '</h1>';\n";

TEST_F(UploadCheckTest, JudgesFilesByNameAndContent) {
  struct Case {
    std::string name;
    std::string content;
    const char* finding;
  };
  const Case cases[] = {
      {"a.txt", "text", ""},
      {"", "", ""},
      {"a.php", kPage, ""},
      {"a.docx", "PK\3\4...", ""},
      {"a.jpg", kJpeg, ""},
      {"a.png", kJpeg, ""},  // a picture of another kind
      {"a.svg", "<?xml version=\"1.0\"?><svg xmlns=\"http://www.w3.org/2000/svg\"/>", ""},
      {"web.config.txt", "<configuration><handlers/></configuration>", ""},
      {"a.php", kShell, "Backdoor"},
      {"a.txt", kShell, "Backdoor"},
      {"", kShell, "Backdoor"},
      {"a.asp", "<%eval request(\"x\")%>", "ASP backdoor"},
      {"a.asp", "\xFF\xFE<\0%\0e\0v\0a\0l\0 \0r\0e\0q\0u\0e\0s\0t\0(\0001\0)\0%\0>\0"s, "ASP backdoor"},
      {"a.jpg", kJpeg + kShell, "Script in image"},
      {"a.php", kGif + kPage, "Script in image"},
      {"a.jpg", kJpeg + "<?xpacket begin=\"\"?>", ""},
      {"a.jpg", "no picture at all", "Not an image"},
      {"x.asp;.jpg", kJpeg, "Disguised script name"},
      {"x.php.jpg", kJpeg, "Double extension"},
      {"../../x.gif", kGif, "Directory traversal in file name"},
      {"nul.gif", kGif, "Device name"},
      {"a\x01.gif", kGif, "Control character in file name"},
      {"setup.exe", "x", "Executable file"},
      {"a.dat", kProgram, "Executable file"},
      {"a.dat", "#!/bin/sh\nrm x", "Executable file"},
      {".htaccess", "AddHandler application/x-httpd-php .jpg", "File that turns on scripts"},
      {".htaccess", "Options -Indexes", ""},
      {"web.config", "<configuration><system.webServer><handlers accessPolicy=\"Script\"/>",
       "File that turns on scripts"},
      {".user.ini.", "auto_prepend_file=a.jpg", "File that turns on scripts"},
      {"web.config", "<\0h\0a\0n\0d\0l\0e\0r\0s\0"s, "File that turns on scripts"},
      {"a.asp",
       "\0\0\xFE\xFF\0\0\0<\0\0\0%\0\0\0e\0\0\0v\0\0\0a\0\0\0l\0\0\0 \0\0\0r\0\0\0e\0\0\0q\0\0\0u\0\0\0e\0\0\0s\0\0\0t"
       "\0\0\0(\0\0\0001\0\0\0)\0\0\0%\0\0\0>"s,
       "ASP backdoor"},
  };
  for (const Case& item : cases)
    EXPECT_EQ(CheckFile(item.name, item.content), item.finding) << item.name << item.content;
}

TEST_F(UploadCheckTest, JudgesWhateverAPartCallsItself) {
  const std::string base64 = "PD9waHAgQGV2YWwoJF9QT1NUWyd4J10pOyA/Pg==";
  const std::tuple<std::string, std::string, const char*> parts[] = {
      {"name=text", "an ordinary text, 5 < 6 and <% some signs", ""},
      {"name=text", "MZ", ""},
      {"name=text", kShell, "Backdoor"},
      {"name=text\r\n\0\r\n"s + kShell, "", "Backdoor"},
      {"name=text", kProgram, "Executable file"},
      {"name=text", "data:image/png;base64," + base64, "Not an image"},
      {"name=text\r\nContent-Transfer-Encoding: base64", base64, "Backdoor"},
      {"name=f; filename=a.txt\r\nContent-Transfer-Encoding: base64", base64, "Backdoor"},
      {"name=text\r\nContent-Transfer-Encoding: quoted-printable", "<=3Fphp @eval(=\r\n$_POST['x']);", "Backdoor"},
      {"name=f; filename=a.jpg; filename=\"x.asp;.jpg\"", kJpeg, "Disguised script name"},
      {"name=f; filename=a.jpg; filename*=UTF-8''..%2Fx.jpg", kJpeg, "Directory traversal in file name"},
      {"name=f\r\nContent-Type: multipart/mixed; boundary=c",
       "--c\r\nContent-Disposition: file; filename=x.php.gif\r\n\r\nGIF\r\n--c--", "Double extension"},
      {"name=f; filename=blob\r\nContent-Type: image/png", "no picture", "Not an image"},
      {"name=f; filename=blob\r\nContent-Type: image/png", kPng, ""},
      {"name=f" + std::string(20000, ' '), "x", "Malformed form data"},
  };
  for (const auto& [headers, content, finding] : parts)
    EXPECT_EQ(CheckPart(headers, content), finding) << headers << content;

  // A body that is a file, and bodies that are none.
  EXPECT_EQ(Check("application/octet-stream", kShell), "Backdoor");
  EXPECT_EQ(Check("image/jpeg", kJpeg + kShell), "Script in image");
  EXPECT_EQ(Check("image/jpeg", "text"), "Not an image");
  EXPECT_EQ(Check("image/png", kPng), "");
  EXPECT_EQ(Check("application/zip", "PK\3\4"), "");
  EXPECT_EQ(Check("text/plain", kShell), "");
  EXPECT_EQ(Check("application/json", "{\"a\":\"data:image/png;base64,iVBOR\"}"), "Not an image");
  // Prose, and what decoders that pass over blanks make of its like.
  for (const char* prose :
       {"data:image/png;base64, is accepted for icons", "data:image/png;base64,+is+accepted+for+icons"})
    EXPECT_EQ(Check("application/json", std::string("{\"a\":\"") + prose + "\"}"), "") << prose;
  for (const char* shell : {" PD9waHAgQGV2YWwoJF9QT1NUWyd4J10pOyA/Pg==", "+PD9waHAgQGV2YWwoJF9QT1NUWyd4J10pOyA/Pg==",
                            " PD9wa HAgQGV2YWwoJF 9QT1NUWyd4J10pOyA/Pg=="})
    EXPECT_EQ(Check("application/json", "{\"a\":\"data:image/png;base64," + std::string(shell) + "\"}"),
              "Script in image");
  EXPECT_EQ(Check("application/x-www-form-urlencoded",
                  "a=data%3Aimage%2Fgif%3Bbase64%2CR0lGODlhAQABAAAAACwAAAAAAQABAAACAkQBADs%3D"),
            "");
  EXPECT_EQ(Check("application/x-www-form-urlencoded", "a=data%3Aimage%2Fgif%3Bbase64%2CR0lGODlh"), "Not an image");
  EXPECT_EQ(Check("", "", "/?b=1&a=data:image%2Fgif;base64,R0lGODlh"), "Not an image");
}

// Padding, order and number do not hide a script from the limits.
TEST_F(UploadCheckTest, LimitsAreNoWayPast) {
  const std::string padding = "/*" + std::string(CQivLibs::kLongestText, 'x') + "*/";
  EXPECT_EQ(CheckFile("a.php", "<?php " + padding + "eval($_POST[1]);"), "Script too long to examine");
  EXPECT_EQ(CheckPart("name=text", "<?php " + padding + "eval($_POST[1]);"), "Script too long to examine");
  EXPECT_EQ(CheckFile("a.jpg", kJpeg + "<?php " + padding), "Script in image");
  EXPECT_EQ(CheckFile("a.log", padding + kShell), "Backdoor");
  EXPECT_EQ(CheckFile("a.log", padding + "no script"), "");

  std::string body;
  const std::string part = "--b\r\nContent-Disposition: form-data; name=f; filename=a.txt\r\n\r\n<?php echo 1; " +
                           std::string(2000000, ' ') + "\r\n";
  for (int i = 0; i < 2; ++i) body += part;
  const std::string last = "--b\r\nContent-Disposition: form-data; name=f; filename=a.";
  EXPECT_EQ(Check("multipart/form-data; boundary=b", body + last + "php\r\n\r\n" + kShell + "\r\n--b--"),
            "Script too long to examine");
  EXPECT_EQ(Check("multipart/form-data; boundary=b", body + last + "jpg\r\n\r\n" + kJpeg + "\r\n--b--"), "");
  // Nor does cutting it small: each piece that is looked at costs.
  body.clear();
  for (int i = 0; i < 5000; ++i) body += "--b\r\n\r\n<%x%> and\r\n";
  EXPECT_EQ(Check("multipart/form-data; boundary=b", body + last + "php\r\n\r\n" + kShell + "\r\n--b--"),
            "Script too long to examine");
}

TEST_F(UploadCheckTest, FollowsTheSwitches) {
  const auto with = [&](auto member, auto value, const std::string& name, const std::string& content) {
    auto& setting = site_->base.*member;
    const auto before = setting;
    setting = value;
    const std::string finding = CheckFile(name, content);
    setting = before;
    return finding;
  };
  EXPECT_EQ(with(&BaseSettings::upload, false, "x.asp;.txt", kShell), "");
  EXPECT_EQ(with(&BaseSettings::upload_file, false, "a.txt", kShell), "");
  EXPECT_EQ(with(&BaseSettings::upload_exe, false, "a.exe", kProgram), "");
  EXPECT_EQ(with(&BaseSettings::upload_types, ",jpg,zip,", "a.gif", kGif), "File type is not allowed");
  EXPECT_EQ(with(&BaseSettings::upload_types, ",jpg,zip,", "a.zip", "PK"), "");
  EXPECT_EQ(with(&BaseSettings::upload_types, ",*,!php,", "a.PHP", "x"), "File type is not allowed");
  EXPECT_EQ(with(&BaseSettings::trojan_strict_mode, 0, "a.jsp.txt", "x"), "");

  site_->request.photo_min_size = 1;
  site_->request.photo_max_size = 2;
  EXPECT_EQ(CheckFile("a.jpg", std::string(1023, 'x')), "");
  EXPECT_EQ(CheckFile("a.jpg", std::string(1024, 'x')), "Not an image");
  EXPECT_EQ(CheckFile("a.jpg", std::string(2048, 'x')), "Not an image");
  EXPECT_EQ(CheckFile("a.jpg", std::string(2049, 'x')), "");
  site_->request.photo = 0;
  EXPECT_EQ(CheckFile("a.jpg", std::string(1024, 'x')), "");
  site_->base.upload = false;
  EXPECT_EQ(CheckFile("a.jpg", kShell), "");
}

TEST_F(UploadCheckTest, FillsTheDecision) {
  EXPECT_NE(CheckFile("x.asp;.jpg", kJpeg), "");
  EXPECT_EQ(result_.item, "Upload Protection");
  EXPECT_EQ(result_.category, "Upload");
  EXPECT_EQ(result_.reason, "Deny upload,Type:Disguised script name");
  EXPECT_EQ(result_.detail, "Deny upload(File[f=x.asp;.jpg]),Type:Disguised script name,Keywords:jpg");
  EXPECT_EQ(result_.plain_block, 1);
  EXPECT_EQ(result_.log, 1);
  EXPECT_NE(CheckFile("a.txt", kShell), "");
  EXPECT_EQ(result_.item, "Upload Protection(File)");
  EXPECT_NE(CheckFile("a.jpg", "text"), "");
  EXPECT_EQ(result_.item, "Image Protection");
  EXPECT_EQ(statistics_, (std::vector<std::string>{"upload 192.0.2.7 -", "trojan 192.0.2.7 -", "photo 192.0.2.7 -"}));
  site_->language = Language::kChinese;
  EXPECT_NE(CheckFile("\xE5\x9B\xBE.php.gif", kGif), "");
  EXPECT_EQ(CCharSet::LocalToUtf8(result_.detail), "拦截上传（File[f=图.php.gif]），类型：双重扩展名，关键词：gif");
}

}  // namespace
}  // namespace qiv

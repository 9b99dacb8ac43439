#include "engines/webshell/page/words.h"

#include <unordered_map>

namespace qiv {
namespace {

constexpr PageWord kWords[] = {
    {"eval", PageCall::kRunsCode, 0, true, true},
    {"execute", PageCall::kRunsCode, -1, true, false},
    {"executeglobal", PageCall::kRunsCode, -1, true, false},
    {"executestatement", PageCall::kRunsCode, 0, true, true},
    {"addcode", PageCall::kRunsCode, 1, true, true},
    {"compileassemblyfromsource", PageCall::kLoadsCode, 1, false, true},
    {"compileassemblyfromfile", PageCall::kLoadsCode, 1, false, true},
    {"parsecontrol", PageCall::kLoadsCode, 0, false, true},
    {"parsetemplate", PageCall::kLoadsCode, 0, false, true},
    {"load", PageCall::kLoadsCode, 1, false, true},
    {"loadfrom", PageCall::kLoadsCode, 1, false, true},
    {"loadfile", PageCall::kLoadsCode, 1, false, true},
    {"unsafeloadfrom", PageCall::kLoadsCode, 1, false, true},
    {"deserialize", PageCall::kLoadsCode, 1, false, true},
    {"createinstancefrom", PageCall::kLoadsCode, 1, false, true},
    {"parse", PageCall::kLoadsCode, 1, false, true},
    {"addscript", PageCall::kLoadsCode, 1, false, true},
    {"invokescript", PageCall::kLoadsCode, 1, false, true},
    {"run", PageCall::kRunsShell, 1, true, true},
    {"exec", PageCall::kRunsShell, 1, true, true},
    {"shellexecute", PageCall::kRunsCommand, 1, true, true},
    {"shell", PageCall::kRunsCommand, 0, false, true},
    {"start", PageCall::kRunsShell, 1, false, true},
    {"processstartinfo", PageCall::kRunsCommand, 0, false, true},
    {"createprocess", PageCall::kRunsCommand, 0, false, true},
    {"winexec", PageCall::kRunsCommand, 0, false, true},
    {"createobject", PageCall::kCreates, 0, true, true},
    {"getobject", PageCall::kCreates, -1, true, true},
    {"activexobject", PageCall::kCreates, 0, true, true},
    {"gettypefromprogid", PageCall::kCreates, 1, false, true},
    {"gettypefromclsid", PageCall::kCreates, 1, false, true},
    {"createtextfile", PageCall::kWritesPath, 1, true, true},
    {"opentextfile", PageCall::kWritesPath, 1, true, true},
    {"savetofile", PageCall::kWritesPath, 1, true, true},
    {"streamwriter", PageCall::kWritesPath, 0, false, true},
    {"filestream", PageCall::kWritesPath, 0, false, true},
    {"createtext", PageCall::kWritesPath, 1, false, true},
    {"appendtext", PageCall::kWritesPath, 1, false, true},
    {"create", PageCall::kWritesPath, 1, false, true},
    {"openwrite", PageCall::kWritesPath, 1, false, true},
    {"processform", PageCall::kWritesFile, 1, true, false},
    {"writealltext", PageCall::kWritesFile, 1, false, true},
    {"writeallbytes", PageCall::kWritesFile, 1, false, true},
    {"writealllines", PageCall::kWritesFile, 1, false, true},
    {"appendalltext", PageCall::kWritesFile, 1, false, true},
    {"saveas", PageCall::kWritesFile, 1, false, true},
    {"downloadfile", PageCall::kFetchesFile, 1, false, true},
    {"write", PageCall::kWrites, 1, true, true},
    {"writeline", PageCall::kWrites, 1, true, true},
    {"writetext", PageCall::kWrites, 1, true, true},
    {"readalltext", PageCall::kReadsPath, 1, false, true},
    {"readalllines", PageCall::kReadsPath, 1, false, true},
    {"readlines", PageCall::kReadsPath, 1, false, true},
    {"opentext", PageCall::kReadsPath, 1, false, true},
    {"openread", PageCall::kReadsPath, 1, false, true},
    {"fileinfo", PageCall::kReadsPath, 0, false, true},
    {"delete", PageCall::kReadsPath, 1, false, true},
    {"move", PageCall::kReadsPath, 1, false, true},
    {"copy", PageCall::kReadsPath, 1, false, true},
    {"writefile", PageCall::kReadsPath, 1, false, true},
    {"transmitfile", PageCall::kReadsPath, 1, false, true},
    {"directoryinfo", PageCall::kReadsPath, 0, false, true},
    {"getdirectories", PageCall::kReadsPath, 1, false, true},
    {"getfiles", PageCall::kReadsPath, 1, false, true},
    {"getfilesystementries", PageCall::kReadsPath, 1, false, true},
    {"getfolder", PageCall::kReadsPath, 1, true, false},
    {"getfile", PageCall::kReadsPath, 1, true, false},
    {"deletefile", PageCall::kReadsPath, 1, true, false},
    {"deletefolder", PageCall::kReadsPath, 1, true, false},
    {"loadfromfile", PageCall::kReadsPath, 1, true, false},
    {"downloaddata", PageCall::kReads, 1, false, true},
    {"downloadstring", PageCall::kReads, 1, false, true},
    {"jscriptevaluate", PageCall::kRunsCode, 1, false, true},
    {"readallbytes", PageCall::kReadsPath, 1, false, true},
    {"streamreader", PageCall::kReadsPath, 0, false, true},
    {"readtext", PageCall::kReads, 1, true, true},
    {"readall", PageCall::kReads, 1, true, true},
    {"read", PageCall::kReads, 1, true, true},
    {"responsetext", PageCall::kReads, 1, true, true},
    {"responsebody", PageCall::kReads, 1, true, true},
    {"cint", PageCall::kClean, -1, true, true},
    {"clng", PageCall::kClean, -1, true, true},
    {"cdbl", PageCall::kClean, -1, true, true},
    {"csng", PageCall::kClean, -1, true, true},
    {"cbool", PageCall::kClean, -1, true, true},
    {"cdate", PageCall::kClean, -1, true, true},
    {"ccur", PageCall::kClean, -1, true, true},
    {"int", PageCall::kClean, -1, true, true},
    {"len", PageCall::kClean, -1, true, true},
    {"isnumeric", PageCall::kClean, -1, true, true},
    {"isempty", PageCall::kClean, -1, true, true},
    {"isnull", PageCall::kClean, -1, true, true},
    {"instr", PageCall::kClean, -1, true, true},
    {"instrrev", PageCall::kClean, -1, true, true},
    {"ubound", PageCall::kClean, -1, true, true},
    {"md5", PageCall::kClean, 0, true, true},
    {"parseint", PageCall::kClean, -1, true, true},
    {"parsefloat", PageCall::kClean, -1, true, true},
    {"isnan", PageCall::kClean, -1, true, true},
    {"indexof", PageCall::kClean, 1, true, true},
    {"toint32", PageCall::kClean, 1, false, true},
    {"toint64", PageCall::kClean, 1, false, true},
    {"toboolean", PageCall::kClean, 1, false, true},
    {"todatetime", PageCall::kClean, 1, false, true},
    {"todouble", PageCall::kClean, 1, false, true},
    {"todecimal", PageCall::kClean, 1, false, true},
    {"tryparse", PageCall::kClean, 1, false, true},
    {"isnullorempty", PageCall::kClean, 1, false, true},
    {"length", PageCall::kClean, 1, true, true},
    {"contentlength", PageCall::kClean, 1, true, true},
    {"count", PageCall::kClean, 1, true, true},
    {"contains", PageCall::kClean, 1, false, true},
    {"equals", PageCall::kClean, 1, false, true},
    {"getfilename", PageCall::kMaps, 1, false, true},
    {"getextension", PageCall::kClean, 1, false, true},
    {"mappath", PageCall::kMaps, 0, true, true},
    {"chr", PageCall::kCharacter, 0, true, true},
    {"chrw", PageCall::kCharacter, 0, true, true},
    {"chrb", PageCall::kCharacter, 0, true, false},
    {"char", PageCall::kCharacter, 0, false, true},
    {"fromcharcode", PageCall::kCharacter, 1, true, true},
    {"tochar", PageCall::kCharacter, 1, false, true},
    {"strreverse", PageCall::kReverse, 0, true, true},
    {"replace", PageCall::kReplace, 0, true, true},
    {"unescape", PageCall::kUnescape, 0, true, true},
    {"urldecode", PageCall::kUnescape, 1, false, true},
    {"decodeuricomponent", PageCall::kUnescape, 0, true, true},
    {"mid", PageCall::kMid, -1, true, true},
    {"lcase", PageCall::kCase, -1, true, true},
    {"ucase", PageCall::kCase, -1, true, true},
    {"trim", PageCall::kCase, 0, true, true},
    {"cstr", PageCall::kCase, -1, true, true},
    {"tolower", PageCall::kCase, 1, true, true},
    {"tostring", PageCall::kCase, 1, true, true},
    {"frombase64string", PageCall::kBase64, 1, false, true},
    {"invoke", PageCall::kInvokes, 1, false, true},
    {"invokemember", PageCall::kInvokes, 1, false, true},
    {"dynamicinvoke", PageCall::kInvokes, 1, false, true},
    {"setvalue", PageCall::kInvokes, 1, false, true},
    {"callbyname", PageCall::kInvokes, 0, false, true},
    {"opensubkey", PageCall::kReadsPath, 1, false, true},
};

}  // namespace

const PageWord* FindPageWord(std::string_view word) {
  static const auto kTable = [] {
    std::unordered_map<std::string_view, const PageWord*> table;
    for (const PageWord& row : kWords) table.emplace(row.word, &row);
    return table;
  }();
  const auto found = kTable.find(word);
  return found == kTable.end() ? nullptr : found->second;
}

PageObject ObjectOf(std::string_view name, std::string_view* part) {
  constexpr struct {
    std::string_view part;
    PageObject object;
  } kObjects[] = {
      {"wscript.shell", PageObject::kShell},
      {"shell.application", PageObject::kShell},
      {"shell.users", PageObject::kShell},
      {"72c24dd5-d70a-438b-8a42-98424b88afb8", PageObject::kShell},
      {"f935dc22-1cf0-11d0-adb9-00c04fd58a0b", PageObject::kShell},
      {"13709620-c279-11ce-a49e-444553540000", PageObject::kShell},
      {"scriptcontrol", PageObject::kEngine},
      {"0e59f1d5-1fbe-11d0-8ff2-00a0d10038bc", PageObject::kEngine},
      {"filesystemobject", PageObject::kFso},
      {"0d43fe01-f093-11cf-8940-00a0c9054228", PageObject::kFso},
      {"adodb.stream", PageObject::kFile},
      {"00000566-0000-0010-8000-00aa006d2ea4", PageObject::kFile},
      {"xmlhttp", PageObject::kHttp},
      {"winhttp", PageObject::kHttp},
  };
  for (const auto& row : kObjects) {
    if (name.find(row.part) == std::string_view::npos) continue;
    *part = row.part;
    return row.object;
  }
  return PageObject::kOther;
}

bool IsHot(std::string_view name) {
  constexpr std::string_view kHot[] = {
      "start", "load", "eval", "run", "exec", "shellexecute", "compileassemblyfromsource"};
  return IsOneOf(name, kHot) || name.find("diagnostics.process") != std::string_view::npos ||
         name.find("reflection.assembly") != std::string_view::npos;
}

}  // namespace qiv

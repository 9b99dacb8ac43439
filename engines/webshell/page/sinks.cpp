#include "engines/webshell/page/sinks.h"

#include <algorithm>

namespace qiv {
namespace {

constexpr std::size_t kFewestVeiled = 2;  // types and methods whose names are hidden: one may come out of a setting

// Names of other objects' methods as well.
constexpr std::string_view kFileMethods[] = {"create", "delete", "move", "copy"};

// Names under which what is written goes to the client or a log.
bool IsOutput(std::string_view name) {
  constexpr std::string_view kNames[] = {"out", "output", "writer", "console", "trace", "debug", "document", "context"};
  return name.empty() || IsOneOf(name, kNames);
}

}  // namespace

PageValue CPageSinks::Act(const PageWord& word, PageFrame* frame) {
  PageValue result;
  result.name = word.word;
  for (const PageValue& argument : frame->arguments) result.marks |= argument.marks;
  const PageValue none;
  const PageValue& first = frame->arguments.empty() ? none : frame->arguments[0];
  switch (word.call) {
    case PageCall::kRunsCode:
      if (word.word != "eval" || frame->receiver.object != PageObject::kOther) RunCode(first, word.word);
      break;
    case PageCall::kLoadsCode:
      Load(word, *frame, result.marks);
      break;
    case PageCall::kInvokes:
      Invoke(word, *frame, result.marks);
      break;
    case PageCall::kRunsShell:
    case PageCall::kRunsCommand:
      if (!Run(word, *frame, result.marks)) break;
      result.marks = 0;
      result.object = PageObject::kShell;
      return result;
    case PageCall::kCreates:
      return Create(frame->arguments);
    case PageCall::kWritesPath:
    case PageCall::kReadsPath:
      if (IsOneOf(word.word, kFileMethods) && frame->receiver.name != "file" && frame->receiver.name != "directory")
        break;
      return OpenFile(word, *frame);
    case PageCall::kWritesFile:
    case PageCall::kFetchesFile:
    case PageCall::kWrites:
      WriteFile(word, *frame);
      break;
    case PageCall::kReads:
      return Read(word, *frame);
    case PageCall::kClean:
      result.marks = 0;
      return result;
    case PageCall::kMaps:
      result.marks |= kMapped;
      if (first.known && (first.text == "." || first.text == "./")) result.marks |= kHere;
      if (first.known && (first.text == "~/" || first.text == "~" || first.text == "/")) result.marks |= kRoot;
      return result;
    case PageCall::kCharacter:
    case PageCall::kReverse:
    case PageCall::kReplace:
    case PageCall::kUnescape:
    case PageCall::kMid:
    case PageCall::kCase:
      WorkOut(word, frame, &result);
      return result;
    case PageCall::kBase64:
      if ((result.marks & kLong) != 0) result.marks |= kDecoded;
      if (first.known) result.marks |= kVeiled;
      return result;
    case PageCall::kNone:
      break;
  }
  result.marks |= frame->receiver.marks;
  result.marks &= ~static_cast<std::uint32_t>(kSql);
  return result;
}

void CPageSinks::RunCode(const PageValue& value, std::string_view word) {
  if ((value.marks & kSql) != 0) return;
  if ((value.marks & kFed) != 0 && (value.marks & kPiece) == 0) {
    findings_.Reach(kReachesCode, word);
  } else if (value.known) {
    layers_.Follow(value);
  } else if ((value.marks & kDecoded) != 0 || ((value.marks & kNet) != 0 && layers_.IsBasic())) {
    findings_.Reach(kHiddenCode, word);
  } else if ((value.marks & (kFile | kJson)) == 0) {
    findings_.Reach(kEvaluates, word);
  }
}

PageValue CPageSinks::Create(const std::vector<PageValue>& arguments) {
  PageValue made;
  made.object = PageObject::kOther;
  if (arguments.empty() || !arguments[0].known) return made;
  std::string_view name;
  made.object = ObjectOf(arguments[0].text, &name);
  const bool files = made.object == PageObject::kFso || made.object == PageObject::kFile;
  const bool runs = made.object == PageObject::kShell || made.object == PageObject::kEngine;
  if (!files && !runs) return made;
  shell_made_ = shell_made_ || made.object == PageObject::kShell;
  if (made.object != PageObject::kEngine) findings_.Reach(files ? kMakesFiles : kMakesShell, name);
  const auto [written, is_new] = written_.try_emplace(name, false);
  if (is_new) written->second = layers_.AnyHolds(name);
  if (!written->second) findings_.Reach(files ? kHiddenFiles : kHiddenObject, name);
  return made;
}

void CPageSinks::Load(const PageWord& word, const PageFrame& frame, std::uint32_t marks) {
  const std::string_view name = word.word;
  constexpr std::string_view kAlways[] = {"deserialize",
                                          "compileassemblyfromsource",
                                          "addscript",
                                          "unsafeloadfrom",
                                          "createinstancefrom",
                                          "invokescript",
                                          "parsecontrol",
                                          "parsetemplate",
                                          "compileassemblyfromfile"};
  constexpr std::string_view kLoaders[] = {"assembly",     "currentdomain", "appdomain",  "xamlreader",
                                           "xamlservices", "activator",     "scriptblock"};
  if (name == "deserialize" && frame.receiver.object == PageObject::kOther) return;  // makes one type alone
  if (!IsOneOf(name, kAlways) && !IsOneOf(frame.receiver.name, kLoaders) && !(name == "load" && trusted_xslt_)) return;
  if ((marks & kFed) != 0 && (marks & kPiece) == 0) findings_.Reach(kReachesCode, name);
  if ((marks & (kDecoded | kNet)) != 0) findings_.Reach(kHiddenCode, name);
}

// What is called was asked for by its name.
void CPageSinks::Invoke(const PageWord& word, const PageFrame& frame, std::uint32_t marks) {
  const bool dangerous =
      dangerous_name_ || hidden_names_ >= kFewestVeiled || (!frame.arguments.empty() && IsHot(frame.arguments[0].text));
  if (dangerous && (marks & kFed) != 0) findings_.Reach(kReachesCode, word.word);
}

// Whether the call runs a program.
bool CPageSinks::Run(const PageWord& word, const PageFrame& frame, std::uint32_t marks) {
  if (word.call == PageCall::kRunsShell) {
    const PageValue& receiver = frame.receiver;
    const bool program = std::any_of(frame.arguments.begin(), frame.arguments.end(), [](const PageValue& argument) {
      return argument.known && (Holds(argument.text, "cmd") || Holds(argument.text, ".exe"));
    });
    const bool starts = word.word == "start";
    const bool shell =
        receiver.object == PageObject::kShell ||
        (starts ? receiver.name == "process" || program : receiver.object == PageObject::kNone && shell_made_);
    if (!shell) return false;
  }
  if ((marks & kFed) != 0) findings_.Reach(kReachesCommand, word.word);
  findings_.Reach(kMakesShell | kUsesShell, word.word);
  return true;
}

// What a file or another server holds.
PageValue CPageSinks::Read(const PageWord& word, const PageFrame& frame) {
  const PageValue& receiver = frame.receiver;
  const bool downloads = word.word.starts_with("download");
  PageValue result;
  result.name = word.word;
  result.marks = receiver.marks & (kFed | kNet | kFile);
  if (receiver.object == PageObject::kHttp || downloads) result.marks |= kNet;
  if (downloads && !frame.arguments.empty()) result.marks |= frame.arguments[0].marks & (kFed | kLed | kPiece);
  if (receiver.object == PageObject::kFile) result.marks |= kFile;
  return result;
}

PageValue CPageSinks::OpenFile(const PageWord& word, const PageFrame& frame) {
  const std::vector<PageValue>& arguments = frame.arguments;
  PageValue file;
  file.name = word.word;
  file.object = PageObject::kFile;
  file.marks = kFile;
  if (arguments.empty()) {
    const PageValue& described = frame.receiver;  // a file's description
    if (word.call == PageCall::kWritesPath) Path(described, word.word);
    if (word.call == PageCall::kReadsPath && (described.marks & (kFed | kMapped | kLed)) == kFed)
      findings_.Reach(kReadsRequested, word.word);
    return file;
  }
  const PageValue& first = arguments[0];
  if (word.word == "fileinfo") file.marks = first.marks;  // a path yet
  const bool reads = word.call == PageCall::kReadsPath ||
                     (word.word == "opentextfile" && (arguments.size() < 2 || arguments[1].text == "1"));
  if (first.name == "inputstream" || first.object == PageObject::kRequest) {
    file.marks = kFed;  // the request's body is what is read
  } else if (!reads) {
    Path(first, word.word);
  } else if ((first.marks & kFed) != 0 && (first.marks & (kMapped | kLed)) == 0) {
    findings_.Reach(kReadsRequested, word.word);
  }
  return file;
}

void CPageSinks::WriteFile(const PageWord& word, const PageFrame& frame) {
  const std::vector<PageValue>& arguments = frame.arguments;
  if (arguments.empty()) return;
  const bool first_fed = (arguments[0].marks & kFed) != 0;
  const bool second_fed = arguments.size() > 1 && (arguments[1].marks & kFed) != 0;
  if (word.call == PageCall::kWritesFile) {
    Path(arguments[0], word.word);
    if (word.word == "saveas" || second_fed) findings_.Reach(kContentRequested, word.word);
  } else if (word.call == PageCall::kFetchesFile) {
    if (!second_fed) return;
    Path(arguments[1], word.word);
    if (first_fed) findings_.Reach(kContentRequested, word.word);
  } else if (first_fed && frame.receiver.object != PageObject::kResponse) {
    if (frame.receiver.name == "standardinput") {
      findings_.Reach(kReachesCommand, word.word);
    } else if (!IsOutput(frame.receiver.name)) {
      findings_.Reach(kContentRequested, word.word);
    }
    if (PageValue* const variable = scopes_.Find(frame.receiver.name)) variable->marks |= kFed;
  }
}

void CPageSinks::Path(const PageValue& path, std::string_view word) {
  const bool uploads = word == "saveas" || word == "filestream";
  if ((path.marks & kSelf) != 0 || (uploads && (path.marks & kHere) != 0)) findings_.Reach(kWritesItself, word);
  if (word == "saveas" && (path.marks & kRoot) != 0) findings_.Reach(kUploadsToRoot, word);
  if ((path.marks & kFed) == 0) return;
  if (word != "saveas" && !service_) findings_.Reach(kPathBelow, word);
  if ((path.marks & kLed) != 0) return;
  if ((path.marks & kMapped) == 0) {
    findings_.Reach(kPathRequested, word);
  } else if ((path.marks & kPiece) == 0) {
    findings_.Reach(kPathMapped, word);
  }
}

void CPageSinks::WorkOut(const PageWord& word, PageFrame* frame, PageValue* result) {
  std::vector<PageValue>* const values = &frame->arguments;
  if (frame->member && (word.call == PageCall::kReplace || word.call == PageCall::kCase))
    values->insert(values->begin(), frame->receiver);
  result->marks |= frame->receiver.marks;
  operators_.WorkOut(word.call, *values, result);
  const bool decodes = word.call != PageCall::kReplace && word.call != PageCall::kCase;
  const bool picks = word.call == PageCall::kMid && values->size() > 2 && (*values)[2].text == "1";
  if (!result->known && (picks || (decodes && (result->marks & kLong) != 0))) result->marks |= kDecoded;
  // Of what is cut out or rubbed out, the text around the request may be what goes.
  if (word.call == PageCall::kReplace || word.call == PageCall::kMid)
    result->marks &= ~static_cast<std::uint32_t>(kPiece | kLed);
}

// What a method puts into its argument, or into its own object.
void CPageSinks::PassOn(std::string_view callee, const PageFrame& frame) {
  const PageValue& first = frame.arguments[0];
  if ((callee == "read" || callee == "copyto") && (frame.receiver.marks & kFed) != 0) {
    if (callee == "copyto" && first.object == PageObject::kFile) findings_.Reach(kContentRequested, callee);
    if (PageValue* const into = scopes_.Find(first.name)) into->marks |= kFed;
  }
  constexpr std::string_view kTakes[] = {"loadxml", "append",   "appendline", "appendformat",
                                         "add",     "addrange", "insert"};
  if ((first.marks & kFed) != 0 && IsOneOf(callee, kTakes)) {
    if (PageValue* const into = scopes_.Find(frame.receiver.name))
      into->marks |= first.marks & (kFed | kPiece | kLed | kSql | kMapped);
  }
}

// Long texts without a blank that an object of another maker is to make sense of.
void CPageSinks::HandOpaque(std::string_view callee, const PageValue& value) {
  constexpr std::size_t kOpaqueLiteral = 128;  // bytes
  constexpr std::size_t kOpaquePage = 16384;   // bytes of such texts, of which the page consists all but for a fifth
  if (!value.known || value.text.size() < kOpaqueLiteral || value.text.find(' ') != std::string::npos) return;
  opaque_ += value.text.size();
  if (opaque_ >= kOpaquePage && opaque_ >= layers_.FirstSize() / 5 * 4) findings_.Reach(kHiddenCode, callee);
}

// A server or a statement that the request names, by what it is handed to.
void CPageSinks::Connect(std::string_view callee, const PageValue& value) {
  constexpr std::string_view kSockets[] = {"ipendpoint", "tcpclient", "connect", "beginconnect"};
  constexpr std::string_view kStatements[] = {"sqlcommand",  "oledbcommand", "sqldataadapter", "oledbdataadapter",
                                              "odbccommand", "execute",      "commandtext"};
  if ((value.marks & kProgram) != 0) findings_.Reach(kReachesCommand, "xp_cmdshell");
  const bool whole = callee.ends_with("connection") && (value.marks & kLed) == 0;
  const bool database = callee == "open" || callee == "connectionstring" || callee.ends_with("connection");
  const bool socket = IsOneOf(callee, kSockets);
  if ((database && (value.marks & kServer) != 0) || whole || socket) findings_.Reach(kConnects, callee);
  if ((value.marks & (kPiece | kSql)) == 0 && IsOneOf(callee, kStatements)) {
    findings_.Reach(kRunsSql, callee);
  }
}

}  // namespace qiv

// What the words of a page's code that run, create, read and write do with what they are given.
#include "common/text.h"
#include "engines/webshell/page/follower.h"

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

void CPageFollower::RunsCode(const PageValue& value, std::string_view word) {
  if ((value.marks & kSql) != 0) return;
  if ((value.marks & kFed) != 0 && (value.marks & kPiece) == 0) {
    Reach(kReachesCode, word);
  } else if (value.known) {
    Follow(value);
  } else if ((value.marks & kDecoded) != 0 || ((value.marks & kNet) != 0 && basic_)) {
    Reach(kHiddenCode, word);
  } else if ((value.marks & (kFile | kJson)) == 0) {
    Reach(kEvaluates, word);
  }
}

void CPageFollower::Path(const PageValue& path, std::string_view word) {
  const bool uploads = word == "saveas" || word == "filestream";
  if ((path.marks & kSelf) != 0 || (uploads && (path.marks & kHere) != 0)) Reach(kWritesItself, word);
  if (word == "saveas" && (path.marks & kRoot) != 0) Reach(kUploadsToRoot, word);
  if ((path.marks & kFed) == 0) return;
  if (word != "saveas" && !service_) Reach(kPathBelow, word);
  if ((path.marks & kLed) != 0) return;
  if ((path.marks & kMapped) == 0) {
    Reach(kPathRequested, word);
  } else if ((path.marks & kPiece) == 0) {
    Reach(kPathMapped, word);
  }
}

PageValue CPageFollower::Create(const std::vector<PageValue>& arguments) {
  PageValue made;
  made.object = PageObject::kOther;
  if (arguments.empty() || !arguments[0].known) return made;
  std::string_view name;
  made.object = ObjectOf(arguments[0].text, &name);
  const bool files = made.object == PageObject::kFso || made.object == PageObject::kFile;
  const bool runs = made.object == PageObject::kShell || made.object == PageObject::kEngine;
  if (!files && !runs) return made;
  shell_made_ = shell_made_ || made.object == PageObject::kShell;
  if (made.object != PageObject::kEngine) Reach(files ? kMakesFiles : kMakesShell, name);
  const auto [written, is_new] = written_.try_emplace(name, false);
  if (is_new) {
    written->second =
        std::any_of(parts_.begin(), parts_.end(), [name](const Part& part) { return Holds(part.code, name); });
  }
  if (!written->second) Reach(files ? kHiddenFiles : kHiddenObject, name);
  return made;
}

PageValue CPageFollower::Act(const PageWord& word, Frame* frame) {
  PageValue result;
  result.name = word.word;
  for (const PageValue& argument : frame->arguments) result.marks |= argument.marks;
  const PageValue none;
  const PageValue& first = frame->arguments.empty() ? none : frame->arguments[0];
  switch (word.call) {
    case PageCall::kRunsCode:
      if (word.word != "eval" || frame->receiver.object != PageObject::kOther) RunsCode(first, word.word);
      break;
    case PageCall::kLoadsCode:
    case PageCall::kInvokes:
      Loads(word, *frame, result.marks);
      break;
    case PageCall::kRunsShell:
    case PageCall::kRunsCommand:
      if (!Runs(word, *frame, result.marks)) break;
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
      WritesFile(word, *frame);
      break;
    case PageCall::kReads:
      result.marks = frame->receiver.marks & (kFed | kNet | kFile);
      if (frame->receiver.object == PageObject::kHttp || word.word.starts_with("download")) result.marks |= kNet;
      if (word.word.starts_with("download")) result.marks |= first.marks & (kFed | kLed | kPiece);
      if (frame->receiver.object == PageObject::kFile) result.marks |= kFile;
      return result;
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
      ActOnText(word, frame, &result);
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

void CPageFollower::Loads(const PageWord& word, const Frame& frame, std::uint32_t marks) {
  const std::string_view name = word.word;
  if (word.call == PageCall::kInvokes) {
    const bool hot =
        hot_method_ || veiled_methods_ >= kFewestVeiled || (!frame.arguments.empty() && IsHot(frame.arguments[0].text));
    if (hot && (marks & kFed) != 0) Reach(kReachesCode, name);
    return;
  }
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
  if ((marks & kFed) != 0 && (marks & kPiece) == 0) Reach(kReachesCode, name);
  if ((marks & (kDecoded | kNet)) != 0) Reach(kHiddenCode, name);
}

// Whether the call runs a program.
bool CPageFollower::Runs(const PageWord& word, const Frame& frame, std::uint32_t marks) {
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
  if ((marks & kFed) != 0) Reach(kReachesCommand, word.word);
  Reach(kMakesShell | kUsesShell, word.word);
  return true;
}

PageValue CPageFollower::OpenFile(const PageWord& word, const Frame& frame) {
  const std::vector<PageValue>& arguments = frame.arguments;
  PageValue file;
  file.name = word.word;
  file.object = PageObject::kFile;
  file.marks = kFile;
  if (arguments.empty()) {
    const PageValue& described = frame.receiver;  // a file's description
    if (word.call == PageCall::kWritesPath) Path(described, word.word);
    if (word.call == PageCall::kReadsPath && (described.marks & (kFed | kMapped | kLed)) == kFed)
      Reach(kReadsRequested, word.word);
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
    Reach(kReadsRequested, word.word);
  }
  return file;
}

void CPageFollower::WritesFile(const PageWord& word, const Frame& frame) {
  const std::vector<PageValue>& arguments = frame.arguments;
  if (arguments.empty()) return;
  const bool first_fed = (arguments[0].marks & kFed) != 0;
  const bool second_fed = arguments.size() > 1 && (arguments[1].marks & kFed) != 0;
  if (word.call == PageCall::kWritesFile) {
    Path(arguments[0], word.word);
    if (word.word == "saveas" || second_fed) Reach(kContentRequested, word.word);
  } else if (word.call == PageCall::kFetchesFile) {
    if (!second_fed) return;
    Path(arguments[1], word.word);
    if (first_fed) Reach(kContentRequested, word.word);
  } else if (first_fed && frame.receiver.object != PageObject::kResponse) {
    if (frame.receiver.name == "standardinput") {
      Reach(kReachesCommand, word.word);
    } else if (!IsOutput(frame.receiver.name)) {
      Reach(kContentRequested, word.word);
    }
    if (PageValue* const variable = scope_.Find(frame.receiver.name)) variable->marks |= kFed;
  }
}

void CPageFollower::ActOnText(const PageWord& word, Frame* frame, PageValue* result) {
  std::vector<PageValue>* const values = &frame->arguments;
  if (frame->member && (word.call == PageCall::kReplace || word.call == PageCall::kCase))
    values->insert(values->begin(), frame->receiver);
  result->marks |= frame->receiver.marks;
  result->known = WorkOut(word.call, *values, &result->text);
  if (result->known && result->text.size() > kShortText) {
    result->known = result->text.size() <= copies_left_;
    result->known ? copies_left_ -= result->text.size() : flow_.reach |= kLosesSight;
  }
  const bool decodes = word.call != PageCall::kReplace && word.call != PageCall::kCase;
  const bool picks = word.call == PageCall::kMid && values->size() > 2 && (*values)[2].text == "1";
  if (!result->known && (picks || (decodes && (result->marks & kLong) != 0))) result->marks |= kDecoded;
  // Of what is cut out or rubbed out, the text around the request may be what goes.
  if (word.call == PageCall::kReplace || word.call == PageCall::kMid)
    result->marks &= ~static_cast<std::uint32_t>(kPiece | kLed);
}

}  // namespace qiv

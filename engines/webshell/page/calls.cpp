// What the words of a page's code mean: reading them, and calling them.
#include <utility>

#include "common/text.h"
#include "engines/webshell/page/follower.h"

namespace qiv {
namespace {

constexpr std::size_t kShortestLayer = 6;  // bytes: a shorter text calls nothing with anything
constexpr std::size_t kShortestName = 4;   // bytes: a type or method that runs something has a longer name
constexpr std::size_t kLongestIndex = 8;   // bytes: elements of a longer index are not told apart
constexpr std::size_t kLongestList = 64;   // bytes: of a list's name

}  // namespace

const PageWord* CPageFollower::Find(std::string_view word, bool member) const {
  const PageWord* const row = FindPageWord(word);
  if (row == nullptr || (aspx_ ? !row->aspx : !row->asp)) return nullptr;
  if (row->member != 0 && (row->member > 0) != member) return nullptr;
  if (!member && scope_.IsFunction(word)) return nullptr;
  return row;
}

PageValue CPageFollower::ReadWord(std::string_view word) {
  PageValue value;
  value.name = word;
  if (word == "request") {
    flow_.reach |= kHearsClient;
    value.marks = kFed;
    value.object = PageObject::kRequest;
    return value;
  }
  if (word == "response") {
    value.object = PageObject::kResponse;
    return value;
  }
  if (word == "true" || word == "false") {
    value.known = true;
    value.text = word;
    return value;
  }
  if (word == "vbcrlf" || word == "vbnewline" || word == "vblf") {
    value.known = true;
    value.text = "\n";
    return value;
  }
  if (const PageFunction* const function = word == function_ ? nullptr : scope_.FindFunction(word)) {
    value.marks = function->returns;
    value.alias = word;
    return value;
  }
  if (const PageValue* const variable = scope_.Find(word)) {
    value = Copy(*variable);
    value.name = word;
    return value;
  }
  if (const PageWord* const row = Find(word, false)) {
    value.alias = row->word;
  } else if (scope_.Forgotten() != 0) {
    value.marks = scope_.Forgotten();
  } else if (basic_) {
    value.known = true;  // a variable that nothing was assigned to is empty
  }
  return value;
}

PageValue CPageFollower::ReadMember(std::string_view word, const PageValue& receiver) {
  PageValue value;
  value.name = word;
  if (word == "request") return ReadWord(word);
  if (receiver.object == PageObject::kRequest) return FromRequest(word, {});
  if (const PageWord* const row = Find(word, true)) {
    value.name = row->word;
    if (row->call == PageCall::kClean) return value;
    if (row->call == PageCall::kCase) {
      value.marks = receiver.marks;
      return value;
    }
    if (row->call == PageCall::kReads) {
      value.marks = receiver.marks & (kFed | kNet | kFile);
      if (receiver.object == PageObject::kHttp || row->word.starts_with("download")) value.marks |= kNet;
      if (receiver.object == PageObject::kFile) value.marks |= kFile;
      return value;
    }
    value.name = word;
    value.alias = row->word;
  }
  value.marks = receiver.marks & ~static_cast<std::uint32_t>(kSql);
  if (word == "query" && receiver.name == "url") value.marks = kFed;
  if (aspx_ && value.marks == 0 && (word == "text" || word == "value" || word == "selectedvalue") &&
      (receiver.object == PageObject::kControl || scope_.Find(receiver.name) == nullptr)) {
    flow_.reach |= kHearsClient;
    value.marks = kFed;
  }
  if (word == "startinfo" || (aspx_ && word == "process")) value.object = PageObject::kShell;
  trusted_xslt_ = trusted_xslt_ || word == "trustedxslt";
  if (const PageValue* const variable = scope_.Find(word)) {
    value.marks |= variable->marks;
    value.object = variable->object;
  }
  return value;
}

PageValue CPageFollower::FromRequest(std::string_view member, const std::vector<PageValue>& arguments) const {
  PageValue value;
  value.name = member;
  constexpr std::string_view kSelfNames[] = {"script_name", "path_info", "path_translated", "url", "physicalpath"};
  if (IsOneOf(member, kSelfNames)) value.marks |= kSelf;
  if (member == "servervariables" && !arguments.empty()) {
    const PageValue& key = arguments[0];
    if (key.known && IsOneOf(key.text, kSelfNames)) value.marks |= kSelf;
    if (key.known && !key.text.starts_with("http_") && key.text != "query_string" && !key.text.starts_with("all_"))
      return value;
  } else if (IsServersOwn(member) || member == "files") {
    return value;
  }
  value.marks = kFed;
  if (arguments.empty()) value.object = PageObject::kRequest;
  return value;
}

PageValue CPageFollower::CallFunction(std::string_view name, const std::vector<PageValue>& arguments) {
  PageValue result;
  result.name = name;
  PageFunction* const found = scope_.FindFunction(name);
  if (found == nullptr) return result;
  PageFunction& function = *found;
  std::uint32_t given = 0;
  std::uint32_t taken = 0;
  for (std::size_t i = 0; i < arguments.size() && i < function.marks.size(); ++i) {
    changed_ = changed_ || (function.marks[i] | arguments[i].marks) != function.marks[i];
    function.marks[i] |= arguments[i].marks;
    given |= arguments[i].marks;
  }
  for (const std::uint32_t marks : function.marks) taken |= marks;
  // What only other calls' arguments bring is not in this one's result.
  std::uint32_t absent = taken & ~given;
  if ((given & kLong) != 0) absent &= ~static_cast<std::uint32_t>(kDecoded);
  result.marks = function.returns & ~absent;
  if (arguments.size() == 1 && arguments[0].known && arguments[0].text.size() >= kShortestName) result.marks |= kVeiled;
  return result;
}

// What a method puts into its argument, or into its own object.
void CPageFollower::PassOn(std::string_view callee, const Frame& frame) {
  const PageValue& first = frame.arguments[0];
  if ((callee == "read" || callee == "copyto") && (frame.receiver.marks & kFed) != 0) {
    if (callee == "copyto" && first.object == PageObject::kFile) Reach(kContentRequested, callee);
    if (PageValue* const into = scope_.Find(first.name)) into->marks |= kFed;
  }
  constexpr std::string_view kTakes[] = {"loadxml", "append",   "appendline", "appendformat",
                                         "add",     "addrange", "insert"};
  if ((first.marks & kFed) != 0 && IsOneOf(callee, kTakes)) {
    if (PageValue* const into = scope_.Find(frame.receiver.name))
      into->marks |= first.marks & (kFed | kPiece | kLed | kSql | kMapped);
  }
}

PageValue CPageFollower::Call(Frame* frame) {
  std::string_view callee = frame->callee;
  bool member = frame->member;
  if (callee.empty()) {
    callee = frame->receiver.alias;
    member = false;
  } else if (!member) {
    const PageValue* const variable = scope_.Find(callee);
    if (variable != nullptr && !variable->alias.empty()) callee = variable->alias;
  }
  const std::vector<PageValue>& arguments = frame->arguments;
  if (callee == "request") {
    flow_.reach |= kHearsClient;
    return FromRequest(callee, arguments);
  }
  if (member && !arguments.empty()) PassOn(callee, *frame);
  if (frame->receiver.object == PageObject::kRequest && callee == "mappath") {
    if (const PageWord* const word = Find(callee, member)) return Act(*word, frame);
  }
  if (frame->receiver.object == PageObject::kRequest) return FromRequest(member ? callee : "item", arguments);
  if (!callee.empty() && scope_.IsFunction(callee) && (!member || frame->receiver.object == PageObject::kNone)) {
    return CallFunction(callee, arguments);
  }
  if (!arguments.empty() && (arguments[0].marks & kFed) != 0) {
    Connects(callee, arguments[0]);
    if (frame->receiver.name == "server" && (callee == "execute" || callee == "transfer") &&
        (arguments[0].marks & kLed) == 0) {
      Reach(kReadsRequested, callee);  // another page, as it likes
    }
  }
  if (const PageWord* const word = Find(callee, member)) return Act(*word, frame);
  if (frame->callee.empty() && !callee.empty()) {  // a function that stands behind an alias
    if (const PageWord* const word = FindPageWord(callee)) return Act(*word, frame);
  }
  PageValue result;
  result.name = callee;
  if (!member && (callee == "session" || callee == "application" || callee == "viewstate" || callee == "cache")) {
    std::string key(callee);
    key += ':';
    if (!arguments.empty() && arguments[0].known) key += arguments[0].text;
    const std::string_view name = names_.Keep(std::move(key));
    if (const PageValue* const stored = scope_.Find(name)) result = Copy(*stored);
    result.name = name;
    return result;
  }
  constexpr std::string_view kControls[] = {"textbox", "hiddenfield", "htmltextarea", "htmlinputtext",
                                            "htmlinputhidden"};
  if (arguments.empty() && IsOneOf(callee, kControls)) result.object = PageObject::kControl;
  if (arguments.empty() && callee == "javascriptserializer") result.object = PageObject::kOther;
  if (!arguments.empty() && aspx_) {
    if (callee == "function" && frame->made) RunsCode(arguments.back(), callee);
    constexpr std::string_view kNamed[] = {"gettype", "getmethod", "getproperty", "createinstance"};
    if ((arguments[0].marks & kVeiled) != 0 && IsOneOf(callee, kNamed)) ++veiled_methods_;
    if (callee == "createinstance") result.object = arguments[0].object;  // of a type that was asked for by its name
    if (callee == "xmlserializer" && (result.marks & kFed) == 0) result.object = PageObject::kOther;
    if (callee == "guid" && arguments[0].known) return arguments[0];
  }
  if (!arguments.empty() && arguments[0].known) {
    if (callee.empty() || callee == "getref") {  // an element, or a function, by its name
      if (const PageWord* const word = FindPageWord(arguments[0].text)) result.alias = word->word;
      const std::string_view function = scope_.FunctionName(arguments[0].text);
      if (!function.empty()) result.alias = function;
    }
    trusted_xslt_ = trusted_xslt_ || (callee == "xsltsettings" && arguments.back().text != "false");
    if (callee == "getmethod" || callee == "gettype" || callee == "invokemember") {
      hot_method_ = hot_method_ || IsHot(arguments[0].text);
    }
  }
  if (member && frame->receiver.object == PageObject::kOther && !arguments.empty()) Opaque(callee, arguments[0]);
  const std::size_t known = frame->known_arguments;
  for (const PageValue& argument : arguments) {
    if ((argument.marks & kSql) != 0) return result;
    result.marks |= argument.marks;
  }
  if (known >= kManyArguments) result.marks |= kLong;
  if (callee == "combine" && !arguments.empty() && (arguments[0].marks & (kFed | kMapped | kLed)) == kFed)
    result.marks &= ~static_cast<std::uint32_t>(kMapped);
  const std::string_view whole = callee.empty() ? frame->receiver.name : callee;
  if (!member && !whole.empty() && arguments.size() == 1 && known == 1 && arguments[0].text.size() <= kLongestIndex) {
    result.name = Element(whole, arguments[0].text);
    if (const PageValue* const element = scope_.Find(result.name)) {
      const std::string_view alias = result.alias;
      result = Copy(*element);
      if (result.alias.empty()) result.alias = alias;
      return result;
    }
  }
  if (const PageValue* const variable = member ? nullptr : scope_.Find(callee)) {
    result.marks |= variable->marks;
    result.object = variable->object;
  }
  result.marks |= frame->receiver.marks & ~static_cast<std::uint32_t>(kSql);
  if (member && result.object == PageObject::kNone && callee == "getrequeststream") result.object = PageObject::kOther;
  return result;
}

void CPageFollower::Reach(std::uint32_t reach, std::string_view word) {
  constexpr std::uint32_t kDecides = kReachesCode | kReachesCommand | kHiddenCode;
  if ((flow_.reach & kDecides) == 0) flow_.detail = word;
  flow_.reach |= reach;
}

// The name of an element of a list. Elements of elements, and those that there is no room for, are not told apart.
std::string_view CPageFollower::Element(std::string_view list, std::string_view index) {
  if (list.size() > kLongestList || Holds(list, "(")) return list;
  std::string key(list);
  key.append("(").append(index);
  const std::string_view name = names_.Keep(std::move(key));
  return name.empty() ? list : name;
}

void CPageFollower::Follow(const PageValue& value) {
  constexpr std::size_t kLayerBytes = 128;  // what a layer takes beside its text
  if (value.text.size() < kShortestLayer || value.text.find_first_of(" (\n") == std::string::npos) return;
  if (followed_.contains(value.text)) return;
  if (value.text.size() + kLayerBytes > layers_left_) {
    flow_.reach |= kLosesSight;
    return;
  }
  layers_left_ -= value.text.size() + kLayerBytes;
  const std::string_view text = layers_.emplace_back(value.text);
  followed_.insert(text);
  parts_.push_back({text, basic_ ? ScriptSyntax::kBasic : ScriptSyntax::kBraces});
  changed_ = true;
}

// Long texts without a blank that an object of another maker is to make sense of.
void CPageFollower::Opaque(std::string_view callee, const PageValue& value) {
  constexpr std::size_t kOpaqueLiteral = 128;  // bytes
  constexpr std::size_t kOpaquePage = 16384;   // bytes of such texts, of which the page consists all but for a fifth
  if (!value.known || value.text.size() < kOpaqueLiteral || value.text.find(' ') != std::string::npos) return;
  opaque_ += value.text.size();
  if (opaque_ >= kOpaquePage && opaque_ >= parts_[0].code.size() / 5 * 4) Reach(kHiddenCode, callee);
}

// A server or a statement that the request names, by what it is handed to.
void CPageFollower::Connects(std::string_view callee, const PageValue& value) {
  constexpr std::string_view kSockets[] = {"ipendpoint", "tcpclient", "connect", "beginconnect"};
  constexpr std::string_view kStatements[] = {"sqlcommand",  "oledbcommand", "sqldataadapter", "oledbdataadapter",
                                              "odbccommand", "execute",      "commandtext"};
  if ((value.marks & kProgram) != 0) Reach(kReachesCommand, "xp_cmdshell");
  const bool whole = callee.ends_with("connection") && (value.marks & kLed) == 0;
  const bool database = callee == "open" || callee == "connectionstring" || callee.ends_with("connection");
  const bool socket = IsOneOf(callee, kSockets);
  if ((database && (value.marks & kServer) != 0) || whole || socket) Reach(kConnects, callee);
  if ((value.marks & (kPiece | kSql)) == 0 && IsOneOf(callee, kStatements)) {
    Reach(kRunsSql, callee);
  }
}

}  // namespace qiv

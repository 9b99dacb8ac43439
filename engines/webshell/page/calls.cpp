#include "engines/webshell/page/calls.h"

#include <string>
#include <utility>

#include "engines/webshell/page/sources.h"

namespace qiv {
namespace {

constexpr std::size_t kLongestIndex = 8;  // bytes: elements of a longer index are not told apart
constexpr std::size_t kLongestList = 64;  // bytes: of a list's name

}  // namespace

const PageWord* CPageCalls::Find(std::string_view word, bool member) const {
  const PageWord* const row = FindPageWord(word);
  if (row == nullptr) return nullptr;
  if (row->asp != row->aspx && IsAspx() != row->aspx) return nullptr;
  if (row->member != 0 && (row->member > 0) != member) return nullptr;
  if (!member && functions_.Has(word)) return nullptr;
  return row;
}

PageValue CPageCalls::ReadWord(std::string_view word) {
  PageValue value;
  value.name = word;
  if (word == "request") {
    findings_.Note(kReadsRequest);
    value.marks = kTainted;
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
  if (const PageFunction* const function = word == functions_.Current() ? nullptr : functions_.Find(word)) {
    value.marks = function->returns;
    value.alias = word;
    return value;
  }
  if (const PageValue* const variable = scopes_.Find(word)) {
    value = operators_.Copy(*variable);
    value.name = word;
    return value;
  }
  if (const PageWord* const row = Find(word, false)) {
    value.alias = row->word;
  } else if (scopes_.Forgotten() != 0) {
    value.marks = scopes_.Forgotten();
  } else if (layers_.IsBasic()) {
    value.known = true;  // a variable that nothing was assigned to is empty
  }
  return value;
}

PageValue CPageCalls::ReadMember(std::string_view word, const PageValue& receiver) {
  PageValue value;
  value.name = word;
  if (word == "request") return ReadWord(word);
  if (receiver.object == PageObject::kRequest) return RequestMember(word, {});
  if (const PageWord* const row = Find(word, true)) {
    value.name = row->word;
    if (row->call == PageCall::kClean) return value;
    if (row->call == PageCall::kCase) {
      value.marks = receiver.marks;
      return value;
    }
    if (row->call == PageCall::kReads) {
      value.marks = receiver.marks & (kTainted | kNet | kFile);
      if (receiver.object == PageObject::kHttp || row->word.starts_with("download")) value.marks |= kNet;
      if (receiver.object == PageObject::kFile) value.marks |= kFile;
      return value;
    }
    value.name = word;
    value.alias = row->word;
  }
  value.marks = receiver.marks & ~static_cast<std::uint32_t>(kSql);
  if (word == "query" && receiver.name == "url") value.marks = kTainted;
  if (value.marks == 0 && (word == "text" || word == "value" || word == "selectedvalue") &&
      (receiver.object == PageObject::kControl || scopes_.Find(receiver.name) == nullptr) && IsAspx()) {
    findings_.Note(kReadsRequest);
    value.marks = kTainted;
  }
  if (word == "startinfo" || (word == "process" && IsAspx())) value.object = PageObject::kShell;
  if (word == "trustedxslt") sinks_.TrustStyleSheets();
  if (const PageValue* const variable = scopes_.Find(word)) {
    value.marks |= variable->marks;
    value.object = variable->object;
  }
  return value;
}

PageValue CPageCalls::Call(PageFrame* frame) {
  std::string_view callee = frame->callee;
  bool member = frame->member;
  if (callee.empty()) {
    callee = frame->receiver.alias;
    member = false;
  } else if (!member) {
    const PageValue* const variable = scopes_.Find(callee);
    if (variable != nullptr && !variable->alias.empty()) callee = variable->alias;
  }
  const std::vector<PageValue>& arguments = frame->arguments;
  if (callee == "request") {
    findings_.Note(kReadsRequest);
    return RequestMember(callee, arguments);
  }
  if (member && !arguments.empty()) sinks_.PassOn(callee, *frame);
  if (frame->receiver.object == PageObject::kRequest && callee == "mappath") {
    if (const PageWord* const word = Find(callee, member)) return sinks_.Act(*word, frame);
  }
  if (frame->receiver.object == PageObject::kRequest) return RequestMember(member ? callee : "item", arguments);
  if (!callee.empty() && functions_.Has(callee) && (!member || frame->receiver.object == PageObject::kNone)) {
    return functions_.Bind(callee, arguments);
  }
  if (!arguments.empty() && (arguments[0].marks & kTainted) != 0) {
    sinks_.Connect(callee, arguments[0]);
    if (frame->receiver.name == "server" && (callee == "execute" || callee == "transfer") &&
        (arguments[0].marks & kPrefixed) == 0) {
      findings_.Reach(kReadsRequested, callee);  // another page, as it likes
    }
  }
  if (const PageWord* const word = Find(callee, member)) return sinks_.Act(*word, frame);
  if (frame->callee.empty() && !callee.empty()) {  // a function that stands behind an alias
    if (const PageWord* const word = FindPageWord(callee)) return sinks_.Act(*word, frame);
  }
  return CallUnknown(callee, member, frame);
}

// A call of what the table does not hold.
PageValue CPageCalls::CallUnknown(std::string_view callee, bool member, PageFrame* frame) {
  const std::vector<PageValue>& arguments = frame->arguments;
  PageValue result;
  result.name = callee;
  if (!member && (callee == "session" || callee == "application" || callee == "viewstate" || callee == "cache"))
    return Stored(callee, arguments);
  if (AskFor(callee, *frame, &result)) return result;
  if (member && frame->receiver.object == PageObject::kOther && !arguments.empty())
    sinks_.HandOpaque(callee, arguments[0]);
  const std::size_t known = frame->known_arguments;
  for (const PageValue& argument : arguments) {
    if ((argument.marks & kSql) != 0) return result;
    result.marks |= argument.marks;
  }
  if (known >= kManyArguments) result.marks |= kLong;
  if (callee == "combine" && !arguments.empty() && (arguments[0].marks & (kTainted | kMapped | kPrefixed)) == kTainted)
    result.marks &= ~static_cast<std::uint32_t>(kMapped);
  if (!member && known == 1 && PropagateElement(callee, *frame, &result)) return result;
  if (const PageValue* const variable = member ? nullptr : scopes_.Find(callee)) {
    result.marks |= variable->marks;
    result.object = variable->object;
  }
  result.marks |= frame->receiver.marks & ~static_cast<std::uint32_t>(kSql);
  if (member && result.object == PageObject::kNone && callee == "getrequeststream") result.object = PageObject::kOther;
  return result;
}

// An element of a collection that outlives the request.
PageValue CPageCalls::Stored(std::string_view collection, const std::vector<PageValue>& arguments) {
  std::string key(collection);
  key += ':';
  if (!arguments.empty() && arguments[0].known) key += arguments[0].text;
  const std::string_view name = names_.Keep(std::move(key));
  PageValue result;
  if (const PageValue* const stored = scopes_.Find(name)) result = operators_.Copy(*stored);
  result.name = name;
  return result;
}

// Objects, types, methods and functions that are asked for by a name; true: that is all of the call.
bool CPageCalls::AskFor(std::string_view callee, const PageFrame& frame, PageValue* result) {
  const std::vector<PageValue>& arguments = frame.arguments;
  constexpr std::string_view kControls[] = {"textbox", "hiddenfield", "htmltextarea", "htmlinputtext",
                                            "htmlinputhidden"};
  if (arguments.empty() && IsOneOf(callee, kControls)) result->object = PageObject::kControl;
  if (arguments.empty() && callee == "javascriptserializer") result->object = PageObject::kOther;
  constexpr std::string_view kNamed[] = {"gettype", "getmethod", "getproperty", "createinstance"};
  constexpr std::string_view kOthers[] = {"function", "xmlserializer", "guid"};
  if (!arguments.empty() && (IsOneOf(callee, kNamed) || IsOneOf(callee, kOthers)) && IsAspx()) {
    if (callee == "function" && frame.made) sinks_.RunCode(arguments.back(), callee);
    if ((arguments[0].marks & kObfuscated) != 0 && IsOneOf(callee, kNamed)) sinks_.AskByHiddenName();
    if (callee == "createinstance") result->object = arguments[0].object;  // of a type that was asked for by its name
    if (callee == "xmlserializer" && (result->marks & kTainted) == 0) result->object = PageObject::kOther;
    if (callee == "guid" && arguments[0].known) return *result = arguments[0], true;
  }
  if (!arguments.empty() && arguments[0].known) {
    if (callee.empty() || callee == "getref") {  // an element, or a function, by its name
      if (const PageWord* const word = FindPageWord(arguments[0].text)) result->alias = word->word;
      const std::string_view function = functions_.NameOf(arguments[0].text);
      if (!function.empty()) result->alias = function;
    }
    if (callee == "xsltsettings" && arguments.back().text != "false") sinks_.TrustStyleSheets();
    if (callee == "getmethod" || callee == "gettype" || callee == "invokemember") sinks_.AskByName(arguments[0].text);
  }
  return false;
}

// An element of a list whose index is known; false: nothing is known of it alone.
bool CPageCalls::PropagateElement(std::string_view callee, const PageFrame& frame, PageValue* result) {
  const std::vector<PageValue>& arguments = frame.arguments;
  const std::string_view whole = callee.empty() ? frame.receiver.name : callee;
  if (whole.empty() || arguments.size() != 1 || arguments[0].text.size() > kLongestIndex) return false;
  result->name = Element(whole, arguments[0].text);
  const PageValue* const element = scopes_.Find(result->name);
  if (element == nullptr) return false;
  const std::string_view alias = result->alias;
  *result = operators_.Copy(*element);
  if (result->alias.empty()) result->alias = alias;
  return true;
}

// The name of an element of a list. Elements of elements, and those that there is no room for, are not told apart.
std::string_view CPageCalls::Element(std::string_view list, std::string_view index) {
  if (list.size() > kLongestList || Holds(list, "(")) return list;
  std::string key(list);
  key.append("(").append(index);
  const std::string_view name = names_.Keep(std::move(key));
  return name.empty() ? list : name;
}

}  // namespace qiv

#include "engines/webshell/page/sources.h"

#include "engines/webshell/page/words.h"

namespace qiv {
namespace {

// Whether the member of the request is not the client's to choose.
bool IsServersOwn(std::string_view member) {
  constexpr std::string_view kOwn[] = {"totalbytes",
                                       "contentlength",
                                       "physicalapplicationpath",
                                       "physicalpath",
                                       "applicationpath",
                                       "mappath",
                                       "isauthenticated",
                                       "islocal",
                                       "browser",
                                       "url",
                                       "path",
                                       "filepath",
                                       "userhostaddress",
                                       "userhostname",
                                       "httpmethod",
                                       "requesttype",
                                       "count",
                                       "issecureconnection",
                                       "currentexecutionfilepath",
                                       "script_name",
                                       "path_info",
                                       "url",
                                       "path_translated",
                                       "appl_physical_path",
                                       "local_addr",
                                       "server_name",
                                       "server_port",
                                       "remote_addr",
                                       "request_method",
                                       "server_software",
                                       "remote_host",
                                       "https",
                                       "http_host",
                                       "contenttype",
                                       "contentencoding",
                                       "servervariables",
                                       "logonuseridentity",
                                       "instance_id"};
  return IsOneOf(member, kOwn);
}

}  // namespace

PageValue RequestMember(std::string_view member, const std::vector<PageValue>& arguments) {
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

}  // namespace qiv

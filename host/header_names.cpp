#include "host/header_names.h"

#include <vector>

#include "base/ascii.h"
#include "iis/header_names.h"

namespace qiv::host {
namespace {

// Names grouped by length, so that a lookup compares one or two candidates.
class CNameIndex {
 public:
  void Add(std::string_view name, int id) {
    if (name.size() >= by_length_.size()) by_length_.resize(name.size() + 1);
    by_length_[name.size()].push_back({name, id});
  }
  int Find(std::string_view name) const {
    if (name.size() >= by_length_.size()) return -1;
    for (const Entry& entry : by_length_[name.size()]) {
      if (EqualsIgnoreCase(entry.name, name)) return entry.id;
    }
    return -1;
  }

 private:
  struct Entry {
    std::string_view name;
    int id;
  };
  std::vector<std::vector<Entry>> by_length_;
};

CNameIndex BuildIndex(bool response) {
  CNameIndex index;
  const int count = response ? iis::HttpHeaderResponseMaximum : iis::HttpHeaderRequestMaximum;
  for (int id = 0; id < count; ++id) {
    const bool kept_unknown = response && (id == iis::HttpHeaderServer || id == iis::HttpHeaderSetCookie ||
                                           id == iis::HttpHeaderWwwAuthenticate);
    if (!kept_unknown) index.Add(response ? iis::ResponseHeaderName(id) : iis::RequestHeaderName(id), id);
  }
  return index;
}

struct Verb {
  std::string_view name;
  iis::HTTP_VERB verb;
};
constexpr Verb kVerbs[] = {
    {"GET", iis::HttpVerbGET},
    {"POST", iis::HttpVerbPOST},
    {"HEAD", iis::HttpVerbHEAD},
    {"OPTIONS", iis::HttpVerbOPTIONS},
    {"PUT", iis::HttpVerbPUT},
    {"DELETE", iis::HttpVerbDELETE},
    {"TRACE", iis::HttpVerbTRACE},
    {"CONNECT", iis::HttpVerbCONNECT},
    {"TRACK", iis::HttpVerbTRACK},
    {"MOVE", iis::HttpVerbMOVE},
    {"COPY", iis::HttpVerbCOPY},
    {"PROPFIND", iis::HttpVerbPROPFIND},
    {"PROPPATCH", iis::HttpVerbPROPPATCH},
    {"MKCOL", iis::HttpVerbMKCOL},
    {"LOCK", iis::HttpVerbLOCK},
    {"UNLOCK", iis::HttpVerbUNLOCK},
    {"SEARCH", iis::HttpVerbSEARCH},
};

struct Reason {
  int status;
  std::string_view text;
};
constexpr Reason kReasons[] = {
    {100, "Continue"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {204, "No Content"},
    {206, "Partial Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {408, "Request Timeout"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Payload Too Large"},
    {414, "URI Too Long"},
    {416, "Range Not Satisfiable"},
    {429, "Too Many Requests"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
};

}  // namespace

int RequestHeaderId(std::string_view name) {
  static const CNameIndex index = BuildIndex(false);
  return index.Find(name);
}

int ResponseHeaderId(std::string_view name) {
  static const CNameIndex index = BuildIndex(true);
  return index.Find(name);
}

iis::HTTP_VERB VerbOf(std::string_view method) {
  for (const Verb& verb : kVerbs) {
    if (verb.name == method) return verb.verb;
  }
  return iis::HttpVerbUnknown;
}

std::string_view ReasonOf(int status) {
  for (const Reason& reason : kReasons) {
    if (reason.status == status) return reason.text;
  }
  return "Unknown";
}

}  // namespace qiv::host

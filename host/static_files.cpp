#include "host/static_files.h"

#include <algorithm>
#include <charconv>

#include "base/hex.h"
#include "host/ascii.h"
#include "host/file_handle.h"
#include "host/header_names.h"
#include "host/http_date.h"
#include "host/media_types.h"
#include "host/results.h"
#include "port/code_page.h"

namespace qiv::host {
namespace {

constexpr std::string_view kDefaultDocuments[] = {"index.html", "index.htm", "default.html", "default.htm"};

std::string_view RequestHeader(CHostContext& context, iis::HTTP_HEADER_ID id) {
  iis::USHORT length = 0;
  const char* value = context.request().GetHeader(id, &length);
  return value == nullptr ? std::string_view() : std::string_view(value, length);
}

void SetHeader(CHostContext& context, iis::HTTP_HEADER_ID id, std::string_view value) {
  const std::string text(value);
  context.response().SetHeader(id, text.c_str(), static_cast<iis::USHORT>(text.size()), 1);
}

/// A status without a body of its own: the server's error page takes its place.
void SetStatus(CHostContext& context, int status) {
  const std::string reason(ReasonOf(status));
  context.response().SetStatus(static_cast<iis::USHORT>(status), reason.c_str(), 0, kOk, nullptr, 0);
}

void RefuseMethod(CHostContext& context) {
  static constexpr std::string_view kPage =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>405 - Method Not Allowed</title></head>\n"
      "<body><h2>405 - Method Not Allowed</h2>\n<p>This site holds files only and answers GET and HEAD. The request "
      "itself was let through.</p></body></html>\n";
  context.response().SetStatus(405, "Method Not Allowed", 0, kOk, nullptr, 1);
  SetHeader(context, iis::HttpHeaderAllow, "GET, HEAD, OPTIONS");
  SetHeader(context, iis::HttpHeaderContentType, "text/html; charset=utf-8");
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.FromMemory.pBuffer = const_cast<char*>(kPage.data());
  chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(kPage.size());
  context.response().WriteEntityChunkByReference(&chunk, -1);
}

/// The Location of a folder without its slash: the raw path (still encoded) with the slash, and the query.
std::string WithSlash(CHostContext& context) {
  const iis::HTTP_COOKED_URL& url = context.request().GetRawHttpRequest()->CookedUrl;
  std::string location;
  for (const char c : Utf16ToUtf8({url.pAbsPath, url.AbsPathLength / sizeof(iis::WCHAR)})) {
    if (IsTokenChar(c) || c == '/') {
      location.push_back(c);
    } else {
      AppendEscapedByte(c, &location);
    }
  }
  location.push_back('/');
  for (std::size_t i = 0; i < url.QueryStringLength / sizeof(iis::WCHAR); ++i) {
    location.push_back(static_cast<char>(url.pQueryString[i]));
  }
  return location;
}

void AppendHex(std::uint64_t number, std::string* out) {
  char digits[16];
  out->append(digits, std::to_chars(digits, digits + sizeof digits, number, 16).ptr);
}

std::string MakeTag(const FileFacts& facts) {
  std::string tag = "\"";
  AppendHex(facts.identity, &tag);
  tag += ':';
  AppendHex(facts.size, &tag);
  tag += '"';
  return tag;
}

bool TagMatches(std::string_view list, std::string_view tag) {
  std::string_view item;
  while (NextListItem(&list, &item)) {
    if (item.substr(0, 2) == "W/") item.remove_prefix(2);
    if (item == "*" || item == tag) return true;
  }
  return false;
}

/// 200 to go on; else 304 or 412.
int CheckConditions(CHostContext& context, const FileFacts& facts, std::string_view tag) {
  std::int64_t date = 0;
  const std::string_view match = RequestHeader(context, iis::HttpHeaderIfMatch);
  if (!match.empty()) {
    if (!TagMatches(match, tag)) return 412;
  } else if (ParseHttpDate(RequestHeader(context, iis::HttpHeaderIfUnmodifiedSince), &date) && facts.modified > date) {
    return 412;
  }
  const std::string_view none = RequestHeader(context, iis::HttpHeaderIfNoneMatch);
  if (!none.empty()) return TagMatches(none, tag) ? 304 : 200;
  const bool since = ParseHttpDate(RequestHeader(context, iis::HttpHeaderIfModifiedSince), &date);
  return since && facts.modified <= date ? 304 : 200;
}

bool RangeStillValid(CHostContext& context, const FileFacts& facts, std::string_view tag) {
  const std::string_view condition = RequestHeader(context, iis::HttpHeaderIfRange);
  if (condition.empty() || condition == tag) return true;
  std::int64_t date = 0;
  return ParseHttpDate(condition, &date) && date == facts.modified;
}

void SendFile(CHostContext& context, iis::HANDLE file, const FileFacts& facts, std::string_view extension) {
  const std::string tag = MakeTag(facts);
  SetHeader(context, iis::HttpHeaderEtag, tag);
  SetHeader(context, iis::HttpHeaderLastModified, HttpDate(facts.modified));
  SetHeader(context, iis::HttpHeaderAcceptRanges, "bytes");
  const int outcome = CheckConditions(context, facts, tag);
  if (outcome != 200) {
    SetStatus(context, outcome);
    return;
  }
  SetHeader(context, iis::HttpHeaderContentType, MediaTypeOf(extension));
  std::uint64_t first = 0;
  std::uint64_t last = facts.size == 0 ? 0 : facts.size - 1;
  const std::string_view range = RequestHeader(context, iis::HttpHeaderRange);
  if (!range.empty() && RangeStillValid(context, facts, tag)) {
    const RangeOutcome kind = ParseRange(range, facts.size, &first, &last);
    if (kind == RangeOutcome::kUnsatisfiable) {
      SetStatus(context, 416);
      SetHeader(context, iis::HttpHeaderContentRange, "bytes */" + std::to_string(facts.size));
      return;
    }
    if (kind == RangeOutcome::kPart) {
      SetStatus(context, 206);
      SetHeader(context, iis::HttpHeaderContentRange,
                "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" + std::to_string(facts.size));
    }
  }
  if (facts.size == 0) return;
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromFileHandle;
  chunk.FromFileHandle.ByteRange = {first, last - first + 1};
  chunk.FromFileHandle.FileHandle = file;
  context.response().WriteEntityChunkByReference(&chunk, -1);
}

/// Device names of Windows, with or without an extension.
bool IsDeviceName(std::string_view segment) {
  const std::string_view stem = segment.substr(0, segment.find('.'));
  for (const std::string_view name : {"con", "prn", "aux", "nul", "conin$", "conout$"}) {
    if (EqualsIgnoreCase(stem, name)) return true;
  }
  const bool numbered = stem.size() == 4 && IsDigit(stem[3]);
  return numbered && (EqualsIgnoreCase(stem.substr(0, 3), "com") || EqualsIgnoreCase(stem.substr(0, 3), "lpt"));
}

}  // namespace

bool IsServablePath(std::string_view path) {
  if (path.empty() || path.front() != '/') return false;
  if (path.find_first_of(std::string_view("\0:\\*?\"<>|", 9)) != std::string_view::npos) return false;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view segment = path.substr(0, path.find('/'));
    path.remove_prefix(segment.size());
    if (segment.empty()) continue;
    if (segment.front() == '.' && segment != ".well-known") return false;
    if (segment.back() == '.' || segment.back() == ' ' || IsDeviceName(segment)) return false;
  }
  return true;
}

RangeOutcome ParseRange(std::string_view header, std::uint64_t size, std::uint64_t* first, std::uint64_t* last) {
  if (header.size() < 6 || !EqualsIgnoreCase(header.substr(0, 6), "bytes=")) return RangeOutcome::kWhole;
  const std::string_view bounds = TrimBlanks(header.substr(6));
  const std::size_t dash = bounds.find('-');
  // Several ranges would need a multipart answer; the whole file is a correct one.
  if (dash == std::string_view::npos || bounds.find(',') != std::string_view::npos) return RangeOutcome::kWhole;
  std::uint64_t from = 0;
  std::uint64_t to = ~std::uint64_t{0};
  const bool has_to = dash + 1 < bounds.size();
  if (has_to && !ParseDecimal(bounds.substr(dash + 1), &to)) return RangeOutcome::kWhole;
  if (dash == 0) {
    if (!has_to) return RangeOutcome::kWhole;
    if (to == 0 || size == 0) return RangeOutcome::kUnsatisfiable;
    *first = to >= size ? 0 : size - to;
    *last = size - 1;
    return RangeOutcome::kPart;
  }
  if (!ParseDecimal(bounds.substr(0, dash), &from) || to < from) return RangeOutcome::kWhole;
  if (from >= size) return RangeOutcome::kUnsatisfiable;
  *first = from;
  *last = std::min(to, size - 1);
  return RangeOutcome::kPart;
}

void CStaticFiles::Execute(CHostContext& context) {
  const std::string_view method = context.request().GetHttpMethod();
  if (method == "OPTIONS") {
    SetHeader(context, iis::HttpHeaderAllow, "GET, HEAD, OPTIONS");
    return;
  }
  if (method != "GET" && method != "HEAD") return RefuseMethod(context);
  const iis::HTTP_COOKED_URL& url = context.request().GetRawHttpRequest()->CookedUrl;
  const std::string path = Utf16ToUtf8({url.pAbsPath, url.AbsPathLength / sizeof(iis::WCHAR)});
  if (!IsServablePath(path)) return SetStatus(context, 404);

  std::string name = root_ + path;
  FileFacts facts;
  iis::HANDLE file = kNoFile;
  if (path.back() == '/') {
    for (const std::string_view document : kDefaultDocuments) {
      const std::string candidate = name + std::string(document);
      if ((file = OpenForReading(candidate, &facts)) == kNoFile) continue;
      name = candidate;
      break;
    }
    // The folder exists but is not listed.
    if (file == kNoFile) return SetStatus(context, IsFolder(name) ? 403 : 404);
  } else if ((file = OpenForReading(name, &facts)) == kNoFile) {
    if (!IsFolder(name)) return SetStatus(context, 404);
    SetStatus(context, 301);
    return SetHeader(context, iis::HttpHeaderLocation, WithSlash(context));
  }
  context.KeepFile(file);
  const std::size_t slash = name.rfind('/');
  const std::size_t dot = name.rfind('.');
  const bool has_extension = dot != std::string::npos && dot > slash;
  const std::string_view extension = has_extension ? std::string_view(name).substr(dot + 1) : std::string_view();
  if (IsServerScript(extension)) return SetStatus(context, 404);
  SendFile(context, file, facts, extension);
}

}  // namespace qiv::host

#include "host/host_request.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/hex.h"
#include "host/ascii.h"
#include "host/cooked_url.h"
#include "host/header_names.h"
#include "host/host_context.h"
#include "host/results.h"

namespace qiv::host {
namespace {

constexpr std::size_t kFewHeaders = 24;  ///< up to here comparing all names is cheaper than a table

}  // namespace

CHostRequest::CHostRequest(CHostContext& context, const RequestInput& input, IWire& wire)
    : context_(context),
      wire_(wire),
      headers_(raw_.Headers, context.memory()),
      remote_(input.remote),
      local_(input.local),
      chunked_(input.chunked) {
  unread_ = chunked_ ? 1 : input.content_length.value_or(0);
  const std::uint64_t seed = context.options().short_read_seed;
  if (seed != 0) short_reads_.seed(seed + input.request_id);
}

bool CHostRequest::Build(const RequestInput& input, const char** reason) {
  CRequestMemory& memory = context_.memory();
  raw_.ConnectionId = raw_.RawConnectionId = input.connection_id;
  raw_.RequestId = input.request_id;
  raw_.UrlContext = 0;
  raw_.Flags = unread_ > 0 ? 1 : 0;  // more entity body exists
  raw_.Version = {static_cast<iis::USHORT>(input.major_version), static_cast<iis::USHORT>(input.minor_version)};
  raw_.Verb = VerbOf(input.method);
  method_ = memory.CopyText(input.method);
  if (raw_.Verb == iis::HttpVerbUnknown) {
    raw_.pUnknownVerb = method_;
    raw_.UnknownVerbLength = static_cast<iis::USHORT>(input.method.size());
  }
  if (!input.warm_up) {
    raw_.pRawUrl = memory.CopyText(input.raw_url);
    raw_.RawUrlLength = static_cast<iis::USHORT>(input.raw_url.size());
  }
  CookedUrl cooked;
  std::string authority(input.host);
  if (authority.empty()) {
    const std::string address = AddressText(local_);
    authority = (local_.any.sa_family == iis::kFamilyIpv6 ? "[" + address + "]" : address) + ":" +
                std::to_string(AddressPort(local_));
  }
  if (!CookUrl(input.raw_url, authority, input.secure, &cooked, reason)) return false;
  BuildUrl(cooked);
  raw_.Address.pRemoteAddress = &remote_.any;
  raw_.Address.pLocalAddress = &local_.any;
  // Only the presence of the pointer means something to a module: the connection is secured.
  if (input.secure) raw_.pSslInfo = static_cast<iis::HTTP_SSL_INFO*>(memory.Allocate(64));
  if (raw_.pSslInfo != nullptr) std::memset(static_cast<void*>(raw_.pSslInfo), 0, 64);
  if (!BuildHeaders(input.headers)) {
    *reason = "Invalid header.";
    return false;
  }
  raw_.BytesReceived = input.raw_url.size();
  return true;
}

/// Repeated headers become one. The work grows with the bytes of the head, however many headers it is cut into.
bool CHostRequest::BuildHeaders(std::span<const HeaderView> headers) {
  struct Merged {
    std::string_view name;
    std::string_view value;
    std::string joined;  ///< used once there is a second value
  };
  std::vector<Merged> merged;
  merged.reserve(headers.size());
  std::unordered_map<std::string, std::size_t> places;  // by lower-case name
  const bool few = headers.size() <= kFewHeaders;
  for (const HeaderView& header : headers) {
    std::size_t place = 0;
    if (few) {
      while (place < merged.size() && !EqualsIgnoreCase(merged[place].name, header.name)) ++place;
    } else {
      std::string key(header.name);
      for (char& c : key) c = LowerByte(c);
      place = places.try_emplace(std::move(key), merged.size()).first->second;
    }
    if (place == merged.size()) {
      merged.push_back({header.name, header.value, {}});
      continue;
    }
    Merged& first = merged[place];
    const int id = RequestHeaderId(header.name);
    if (id == iis::HttpHeaderContentLength) continue;  // the same length twice was accepted as one
    if (first.joined.empty()) first.joined = first.value;
    first.joined.append(id == iis::HttpHeaderCookie ? "; " : ", ").append(header.value);
  }
  for (const Merged& header : merged) {
    if (!headers_.Append(header.name, header.joined.empty() ? header.value : header.joined)) return false;
  }
  return true;
}

void CHostRequest::BuildUrl(const CookedUrl& cooked) {
  const iis::WCHAR* full = context_.memory().CopyText(cooked.full);
  const auto bytes = [](std::size_t units) { return static_cast<iis::USHORT>(units * sizeof(iis::WCHAR)); };
  iis::HTTP_COOKED_URL& url = raw_.CookedUrl;
  url.pFullUrl = full;
  url.FullUrlLength = bytes(cooked.full.size());
  url.pHost = full + cooked.host_at;
  url.HostLength = bytes(cooked.host_length);
  url.pAbsPath = url.pHost + cooked.host_length;
  url.AbsPathLength = bytes(cooked.path_length);
  url.QueryStringLength = bytes(cooked.query_length);
  url.pQueryString = cooked.query_length == 0 ? nullptr : url.pAbsPath + cooked.path_length;
}

iis::PCSTR CHostRequest::GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const {
  return headers_.Get(id, length);
}

iis::PCSTR CHostRequest::GetHeader(iis::PCSTR name, iis::USHORT* length) const {
  return headers_.Get(name, length, context_.options().many_values);
}

iis::HRESULT CHostRequest::SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  return headers_.Set(id, value, length, replace != 0);
}

iis::HRESULT CHostRequest::SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  return headers_.Set(name, value, length, replace != 0);
}

iis::HRESULT CHostRequest::SetHttpMethod(iis::PCSTR method) {
  if (method == nullptr || *method == 0) return kInvalidArgument;
  const std::string_view text(method);
  method_ = context_.memory().CopyText(text);
  raw_.Verb = VerbOf(text);
  const bool unknown = raw_.Verb == iis::HttpVerbUnknown;
  raw_.pUnknownVerb = unknown ? method_ : nullptr;
  raw_.UnknownVerbLength = unknown ? static_cast<iis::USHORT>(text.size()) : iis::USHORT{0};
  return kOk;
}

iis::HRESULT CHostRequest::SetUrl(iis::PCSTR url, iis::DWORD length, iis::BOOL reset_query) {
  if (url == nullptr || length == 0 || length >= kMaxHeadBytes) return kInvalidArgument;
  std::string target(url, length);
  if (!reset_query && target.find('?') == std::string::npos) {
    const iis::HTTP_COOKED_URL& old = raw_.CookedUrl;
    for (std::size_t i = 0; i < old.QueryStringLength / sizeof(iis::WCHAR); ++i) {
      target.push_back(static_cast<char>(old.pQueryString[i]));
    }
  }
  std::string authority;
  for (std::size_t i = 0; i < raw_.CookedUrl.HostLength / sizeof(iis::WCHAR); ++i) {
    authority.push_back(static_cast<char>(raw_.CookedUrl.pHost[i]));
  }
  CookedUrl cooked;
  const char* reason = "";
  if (!CookUrl(target, authority, raw_.pSslInfo != nullptr, &cooked, &reason)) return kInvalidArgument;
  BuildUrl(cooked);  // the raw URL stays as it was received
  url_changed_ = 1;
  return kOk;
}

iis::HRESULT CHostRequest::SetUrl(iis::PCWSTR url, iis::DWORD length, iis::BOOL reset_query) {
  if (url == nullptr || length == 0 || length >= kMaxHeadBytes) return kInvalidArgument;
  std::string target;
  for (std::size_t i = 0; i < length; ++i) {
    const unsigned unit = url[i];
    if (unit < 0x80) {
      target.push_back(static_cast<char>(unit));
    } else {
      target += "%u";
      for (int shift = 12; shift >= 0; shift -= 4) target.push_back(kHexDigits[(unit >> shift) & 15]);
    }
  }
  return SetUrl(target.c_str(), static_cast<iis::DWORD>(target.size()), reset_query);
}

std::size_t CHostRequest::ShortenedSize(std::size_t size) {
  if (context_.options().short_read_seed == 0 || size < 2) return size;
  return 1 + static_cast<std::size_t>(short_reads_() % size);
}

iis::HRESULT CHostRequest::ReadBody(void* buffer, std::size_t size, std::size_t* got) {
  *got = 0;
  if (!inserted_.empty()) {
    Inserted& front = inserted_.front();
    const std::size_t take = std::min(size, front.size);
    std::memcpy(buffer, front.data, take);
    front.data += take;
    front.size -= take;
    if (front.size == 0) inserted_.pop_front();
    *got = take;
    return kOk;
  }
  if (lost_) return iis::kNetnameDeleted;
  if (unread_ == 0) return iis::kHandleEof;
  if (!chunked_ && size > unread_) size = static_cast<std::size_t>(unread_);
  switch (wire_.ReadBody(static_cast<char*>(buffer), size, got)) {
    case BodyRead::kData:
      if (!chunked_) unread_ -= *got;
      return kOk;
    case BodyRead::kEnd:
      *got = 0;
      unread_ = 0;
      return iis::kHandleEof;
    case BodyRead::kLost:
      break;
  }
  *got = 0;
  lost_ = true;
  return iis::kNetnameDeleted;
}

iis::HRESULT CHostRequest::ReadEntityBody(void* buffer, iis::DWORD size, iis::BOOL async, iis::DWORD* got,
                                          iis::BOOL* pending) {
  if (pending != nullptr) *pending = 0;
  if (buffer == nullptr || size == 0 || (!async && got == nullptr)) return kInvalidArgument;
  context_.NotifyReadEntity();
  std::size_t count = 0;
  const iis::HRESULT result = ReadBody(buffer, ShortenedSize(size), &count);
  if (async) {
    // The completion is delivered through OnAsyncCompletion, once the caller has returned PENDING.
    if (pending == nullptr) return kInvalidArgument;
    *pending = 1;
    context_.QueueCompletion(static_cast<iis::DWORD>(count), result);
    return kOk;
  }
  // At the end (and on failure) the count means nothing: a module that trusts it shall notice.
  *got = iis::Failed(result) ? 0xDEADBEEF : static_cast<iis::DWORD>(count);
  return result;
}

iis::HRESULT CHostRequest::InsertEntityBody(void* buffer, iis::DWORD size) {
  if (buffer == nullptr && size > 0) return kInvalidArgument;
  was_inserted_ = true;
  if (size > 0) inserted_.push_front({static_cast<const char*>(buffer), size});
  return kOk;
}

iis::DWORD CHostRequest::GetRemainingEntityBytes() {
  std::uint64_t held = 0;
  for (const Inserted& piece : inserted_) held += piece.size;
  const HostOptions& options = context_.options();
  if (chunked_) {
    if (unread_ > 0 && !lost_) return iis::kUnknownEntityLength;
    if (held > 0) {
      return options.unknown_remaining_after_insert ? iis::kUnknownEntityLength : static_cast<iis::DWORD>(held);
    }
    return options.unknown_remaining_after_end && !was_inserted_ ? iis::kUnknownEntityLength : 0;
  }
  const std::uint64_t total = held + unread_;
  // What 32 bits cannot say reads as unknown.
  return total >= iis::kUnknownEntityLength ? iis::kUnknownEntityLength : static_cast<iis::DWORD>(total);
}

void CHostRequest::GetHttpVersion(iis::USHORT* major, iis::USHORT* minor) const {
  if (major != nullptr) *major = raw_.Version.MajorVersion;
  if (minor != nullptr) *minor = raw_.Version.MinorVersion;
}

iis::HRESULT CHostRequest::GetClientCertificate(iis::HTTP_SSL_CLIENT_CERT_INFO** info, iis::BOOL* negotiated) {
  if (info != nullptr) *info = nullptr;
  if (negotiated != nullptr) *negotiated = 0;
  return iis::kNotSupported;  // the host takes no secured connections
}

iis::HRESULT CHostRequest::NegotiateClientCertificate(iis::BOOL, iis::BOOL* pending) {
  if (pending != nullptr) *pending = 0;
  return iis::kNotSupported;
}

iis::DWORD CHostRequest::GetSiteId() const { return context_.options().site_id; }

iis::HRESULT CHostRequest::GetHeaderChanges(iis::DWORD, iis::DWORD*, iis::PCSTR*, iis::DWORD*, iis::PCSTR**,
                                            iis::PCSTR**, iis::DWORD*, iis::DWORD*, iis::DWORD**) {
  return iis::kNotSupported;  // child requests are not run through this
}

}  // namespace qiv::host

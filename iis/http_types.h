// Plain types, constants and wire structures of the web server's native-module interface.
//
// Sizes and offsets are those of x64 Windows on every system we build for: DWORD, ULONG, LONG, HRESULT and BOOL have
// 32 bits, WCHAR 16. Where a length is given with a text it counts bytes without a terminator; texts need not be
// terminated unless said otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace iis {

using BOOL = std::int32_t;
using DWORD = std::uint32_t;
using HRESULT = std::int32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using USHORT = std::uint16_t;
using ULONGLONG = std::uint64_t;
using WCHAR = char16_t;
using VOID = void;
using PVOID = void*;
using HANDLE = void*;
using PCSTR = const char*;
using PWSTR = WCHAR*;
using PCWSTR = const WCHAR*;

/// The value of an HRESULT written in its usual unsigned form.
constexpr HRESULT MakeHresult(std::uint32_t value) { return static_cast<HRESULT>(value); }

// The system's headers define these two as macros of the same value.
#ifndef S_OK
inline constexpr HRESULT S_OK = 0;
#endif
#ifndef E_INVALIDARG
inline constexpr HRESULT E_INVALIDARG = MakeHresult(0x80070057);
#endif
inline constexpr HRESULT kOutOfMemory = MakeHresult(0x80070008);
inline constexpr HRESULT kHandleEof = MakeHresult(0x80070026);        ///< no body left
inline constexpr HRESULT kNetnameDeleted = MakeHresult(0x80070040);   ///< the client went away
inline constexpr HRESULT kAlreadyAssigned = MakeHresult(0x80070055);  ///< a stored context is already there
inline constexpr HRESULT kAlreadyExists = MakeHresult(0x800700B7);
inline constexpr HRESULT kInvalidData = MakeHresult(0x8007000D);
inline constexpr HRESULT kNotSupported = MakeHresult(0x80070032);
inline constexpr HRESULT kInsufficientBuffer = MakeHresult(0x8007007A);
inline constexpr HRESULT kArithmeticOverflow = MakeHresult(0x80070216);
inline constexpr HRESULT kConnectionInvalid = MakeHresult(0x800704CD);  ///< byte count of the request is wrong
inline constexpr HRESULT kInvalidIndex = MakeHresult(0x80070585);       ///< unknown or unset server variable

constexpr bool Succeeded(HRESULT hr) { return hr >= 0; }
constexpr bool Failed(HRESULT hr) { return hr < 0; }

/// GetRemainingEntityBytes when the length is not known (chunked coding).
inline constexpr DWORD kUnknownEntityLength = 0xFFFFFFFF;
/// HTTP_BYTE_RANGE.Length of a range that runs to the end of the file.
inline constexpr ULONGLONG HTTP_BYTE_RANGE_TO_EOF = ~0ULL;

// Address families as the server numbers them (Linux numbers IPv6 otherwise).
inline constexpr USHORT kFamilyIpv4 = 2;
inline constexpr USHORT kFamilyIpv6 = 23;

struct SOCKADDR {
  USHORT sa_family;
  unsigned char sa_data[14];
};
using PSOCKADDR = SOCKADDR*;

struct SOCKADDR_IN {
  USHORT sin_family;
  unsigned char sin_port[2];  ///< network byte order
  unsigned char sin_addr[4];  ///< network byte order
  unsigned char sin_zero[8];
};

struct SOCKADDR_IN6 {
  USHORT sin6_family;
  unsigned char sin6_port[2];  ///< network byte order
  ULONG sin6_flowinfo;
  unsigned char sin6_addr[16];  ///< network byte order
  ULONG sin6_scope_id;
};

/// Numbers of the known headers. 0-19 are shared; from 20 on requests and responses differ.
enum HTTP_HEADER_ID : std::int32_t {
  HttpHeaderCacheControl = 0,
  HttpHeaderConnection = 1,
  HttpHeaderDate = 2,
  HttpHeaderKeepAlive = 3,
  HttpHeaderPragma = 4,
  HttpHeaderTrailer = 5,
  HttpHeaderTransferEncoding = 6,
  HttpHeaderUpgrade = 7,
  HttpHeaderVia = 8,
  HttpHeaderWarning = 9,
  HttpHeaderAllow = 10,
  HttpHeaderContentLength = 11,
  HttpHeaderContentType = 12,
  HttpHeaderContentEncoding = 13,
  HttpHeaderContentLanguage = 14,
  HttpHeaderContentLocation = 15,
  HttpHeaderContentMd5 = 16,
  HttpHeaderContentRange = 17,
  HttpHeaderExpires = 18,
  HttpHeaderLastModified = 19,

  HttpHeaderAccept = 20,
  HttpHeaderAcceptCharset = 21,
  HttpHeaderAcceptEncoding = 22,
  HttpHeaderAcceptLanguage = 23,
  HttpHeaderAuthorization = 24,
  HttpHeaderCookie = 25,
  HttpHeaderExpect = 26,
  HttpHeaderFrom = 27,
  HttpHeaderHost = 28,
  HttpHeaderIfMatch = 29,
  HttpHeaderIfModifiedSince = 30,
  HttpHeaderIfNoneMatch = 31,
  HttpHeaderIfRange = 32,
  HttpHeaderIfUnmodifiedSince = 33,
  HttpHeaderMaxForwards = 34,
  HttpHeaderProxyAuthorization = 35,
  HttpHeaderReferer = 36,
  HttpHeaderRange = 37,
  HttpHeaderTe = 38,
  HttpHeaderTranslate = 39,
  HttpHeaderUserAgent = 40,
  HttpHeaderRequestMaximum = 41,

  HttpHeaderAcceptRanges = 20,
  HttpHeaderAge = 21,
  HttpHeaderEtag = 22,
  HttpHeaderLocation = 23,
  HttpHeaderProxyAuthenticate = 24,
  HttpHeaderRetryAfter = 25,
  HttpHeaderServer = 26,
  HttpHeaderSetCookie = 27,
  HttpHeaderVary = 28,
  HttpHeaderWwwAuthenticate = 29,
  HttpHeaderResponseMaximum = 30,
};

/// Methods the server knows by number; all others are HttpVerbUnknown with pUnknownVerb.
enum HTTP_VERB : std::int32_t {
  HttpVerbUnparsed = 0,
  HttpVerbUnknown = 1,
  HttpVerbInvalid = 2,
  HttpVerbOPTIONS = 3,
  HttpVerbGET = 4,
  HttpVerbHEAD = 5,
  HttpVerbPOST = 6,
  HttpVerbPUT = 7,
  HttpVerbDELETE = 8,
  HttpVerbTRACE = 9,
  HttpVerbCONNECT = 10,
  HttpVerbTRACK = 11,
  HttpVerbMOVE = 12,
  HttpVerbCOPY = 13,
  HttpVerbPROPFIND = 14,
  HttpVerbPROPPATCH = 15,
  HttpVerbMKCOL = 16,
  HttpVerbLOCK = 17,
  HttpVerbUNLOCK = 18,
  HttpVerbSEARCH = 19,
};

struct HTTP_VERSION {
  USHORT MajorVersion;
  USHORT MinorVersion;
};

struct HTTP_KNOWN_HEADER {
  USHORT RawValueLength;
  PCSTR pRawValue;  ///< null when the header is absent
};

struct HTTP_UNKNOWN_HEADER {
  USHORT NameLength;
  USHORT RawValueLength;
  PCSTR pName;
  PCSTR pRawValue;  ///< may be null when the value is empty
};

struct HTTP_REQUEST_HEADERS {
  USHORT UnknownHeaderCount;
  HTTP_UNKNOWN_HEADER* pUnknownHeaders;
  USHORT TrailerCount;
  HTTP_UNKNOWN_HEADER* pTrailers;
  HTTP_KNOWN_HEADER KnownHeaders[HttpHeaderRequestMaximum];
};

struct HTTP_RESPONSE_HEADERS {
  USHORT UnknownHeaderCount;
  HTTP_UNKNOWN_HEADER* pUnknownHeaders;
  USHORT TrailerCount;
  HTTP_UNKNOWN_HEADER* pTrailers;
  HTTP_KNOWN_HEADER KnownHeaders[HttpHeaderResponseMaximum];
};

/// Lengths in bytes. pHost holds ":port" when the full URL does; pAbsPath is decoded and canonicalised; pQueryString
/// begins with "?" (null when there is none) and holds the raw bytes, each widened to 16 bits. Only pFullUrl is
/// terminated; the other three point into it.
struct HTTP_COOKED_URL {
  USHORT FullUrlLength;
  USHORT HostLength;
  USHORT AbsPathLength;
  USHORT QueryStringLength;
  PCWSTR pFullUrl;
  PCWSTR pHost;
  PCWSTR pAbsPath;
  PCWSTR pQueryString;
};

struct HTTP_TRANSPORT_ADDRESS {
  PSOCKADDR pRemoteAddress;
  PSOCKADDR pLocalAddress;
};

enum HTTP_DATA_CHUNK_TYPE : std::int32_t {
  HttpDataChunkFromMemory = 0,
  HttpDataChunkFromFileHandle = 1,
  HttpDataChunkFromFragmentCache = 2,
  HttpDataChunkFromFragmentCacheEx = 3,
};

struct HTTP_BYTE_RANGE {
  ULONGLONG StartingOffset;
  ULONGLONG Length;  ///< HTTP_BYTE_RANGE_TO_EOF: to the end of the file
};

/// The forms of a chunk; the server's own declaration leaves these four types without names.
struct MemoryChunk {
  PVOID pBuffer;
  ULONG BufferLength;
};
struct FileHandleChunk {
  HTTP_BYTE_RANGE ByteRange;
  HANDLE FileHandle;
};
struct FragmentCacheChunk {
  USHORT FragmentNameLength;
  PCWSTR pFragmentName;
};
struct FragmentCacheExChunk {
  HTTP_BYTE_RANGE ByteRange;
  PCWSTR pFragmentName;
};

struct HTTP_DATA_CHUNK {
  HTTP_DATA_CHUNK_TYPE DataChunkType;
  union {
    MemoryChunk FromMemory;
    FileHandleChunk FromFileHandle;
    FragmentCacheChunk FromFragmentCache;
    FragmentCacheExChunk FromFragmentCacheEx;
  };
};

struct HTTP_SSL_CLIENT_CERT_INFO;
struct HTTP_SSL_INFO;
struct HTTP_LOG_DATA;

struct HTTP_REQUEST {
  ULONG Flags;
  ULONGLONG ConnectionId;
  ULONGLONG RequestId;
  ULONGLONG UrlContext;
  HTTP_VERSION Version;
  HTTP_VERB Verb;
  USHORT UnknownVerbLength;
  USHORT RawUrlLength;
  PCSTR pUnknownVerb;
  PCSTR pRawUrl;  ///< as received; null or of length 0 in warm-up requests
  HTTP_COOKED_URL CookedUrl;
  HTTP_TRANSPORT_ADDRESS Address;
  HTTP_REQUEST_HEADERS Headers;
  ULONGLONG BytesReceived;
  USHORT EntityChunkCount;
  HTTP_DATA_CHUNK* pEntityChunks;
  ULONGLONG RawConnectionId;
  HTTP_SSL_INFO* pSslInfo;  ///< null on a plain connection
  USHORT RequestInfoCount;
  PVOID pRequestInfo;
};

struct HTTP_RESPONSE {
  ULONG Flags;
  HTTP_VERSION Version;
  USHORT StatusCode;
  USHORT ReasonLength;
  PCSTR pReason;
  HTTP_RESPONSE_HEADERS Headers;
  USHORT EntityChunkCount;
  HTTP_DATA_CHUNK* pEntityChunks;
  USHORT ResponseInfoCount;
  PVOID pResponseInfo;
};

static_assert(sizeof(WCHAR) == 2 && sizeof(SOCKADDR) == 16 && sizeof(SOCKADDR_IN) == 16 && sizeof(SOCKADDR_IN6) == 28);
static_assert(sizeof(HTTP_KNOWN_HEADER) == 16 && sizeof(HTTP_UNKNOWN_HEADER) == 24);
static_assert(sizeof(HTTP_COOKED_URL) == 40 && sizeof(HTTP_DATA_CHUNK) == 32);
static_assert(sizeof(HTTP_REQUEST_HEADERS) == 688 && sizeof(HTTP_RESPONSE_HEADERS) == 512);
static_assert(sizeof(HTTP_REQUEST) == 864 && offsetof(HTTP_REQUEST, CookedUrl) == 64);
static_assert(offsetof(HTTP_REQUEST, Verb) == 36 && offsetof(HTTP_REQUEST, pRawUrl) == 56);
static_assert(offsetof(HTTP_REQUEST, Headers) == 120 && offsetof(HTTP_REQUEST, BytesReceived) == 808);
static_assert(offsetof(HTTP_REQUEST, pSslInfo) == 840 && offsetof(HTTP_REQUEST, RequestInfoCount) == 848);
static_assert(sizeof(HTTP_RESPONSE) == 568 && offsetof(HTTP_RESPONSE, Headers) == 24);
static_assert(offsetof(HTTP_RESPONSE, EntityChunkCount) == 536 && offsetof(HTTP_RESPONSE, pEntityChunks) == 544);

}  // namespace iis

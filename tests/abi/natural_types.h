// The plain types and structures of the native-module interface, written down from the vendor's public documentation
// with the types a Windows compiler gives them. Shares nothing with iis/: the two are compared.
#pragma once

#include <stddef.h>

typedef int BOOL;
typedef unsigned long DWORD;
typedef unsigned long ULONG;
typedef long LONG;
typedef long HRESULT;
typedef unsigned short USHORT;
typedef unsigned long long ULONGLONG;
typedef wchar_t WCHAR;
typedef void VOID;
typedef void* PVOID;
typedef void* HANDLE;
typedef void* HTTP_MODULE_ID;
typedef const char* PCSTR;
typedef wchar_t* PWSTR;
typedef const wchar_t* PCWSTR;
static_assert(sizeof(DWORD) == 4 && sizeof(WCHAR) == 2 && sizeof(void*) == 8, "compile for x86_64-pc-windows-msvc");

struct SOCKADDR {
  USHORT sa_family;
  char sa_data[14];
};
typedef SOCKADDR* PSOCKADDR;

struct SOCKADDR_IN {
  USHORT sin_family;
  USHORT sin_port;
  unsigned char sin_addr[4];
  char sin_zero[8];
};

enum HTTP_HEADER_ID { HttpHeaderRequestMaximum = 41, HttpHeaderResponseMaximum = 30 };
enum HTTP_VERB { HttpVerbUnknown = 1, HttpVerbGET = 4, HttpVerbPOST = 6 };
enum HTTP_DATA_CHUNK_TYPE { HttpDataChunkFromMemory, HttpDataChunkFromFileHandle, HttpDataChunkFromFragmentCache };
enum REQUEST_NOTIFICATION_STATUS { RQ_NOTIFICATION_CONTINUE, RQ_NOTIFICATION_PENDING, RQ_NOTIFICATION_FINISH_REQUEST };
enum GLOBAL_NOTIFICATION_STATUS { GL_NOTIFICATION_CONTINUE, GL_NOTIFICATION_HANDLED };
enum HTTP_CONTEXT_INTERFACE_VERSION { HTTP_CONTEXT_INTERFACE_VERSION_1 = 1 };

struct HTTP_KNOWN_HEADER {
  USHORT RawValueLength;
  PCSTR pRawValue;
};

struct HTTP_UNKNOWN_HEADER {
  USHORT NameLength;
  USHORT RawValueLength;
  PCSTR pName;
  PCSTR pRawValue;
};

template <int Known>
struct HTTP_HEADERS {
  USHORT UnknownHeaderCount;
  HTTP_UNKNOWN_HEADER* pUnknownHeaders;
  USHORT TrailerCount;
  HTTP_UNKNOWN_HEADER* pTrailers;
  HTTP_KNOWN_HEADER KnownHeaders[Known];
};

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

struct HTTP_DATA_CHUNK {
  HTTP_DATA_CHUNK_TYPE DataChunkType;
  union {
    struct {
      PVOID pBuffer;
      ULONG BufferLength;
    } FromMemory;
    struct {
      ULONGLONG StartingOffset;
      ULONGLONG Length;
      HANDLE FileHandle;
    } FromFileHandle;
  };
};

struct HTTP_REQUEST {
  ULONG Flags;
  ULONGLONG ConnectionId;
  ULONGLONG RequestId;
  ULONGLONG UrlContext;
  USHORT MajorVersion;
  USHORT MinorVersion;
  HTTP_VERB Verb;
  USHORT UnknownVerbLength;
  USHORT RawUrlLength;
  PCSTR pUnknownVerb;
  PCSTR pRawUrl;
  HTTP_COOKED_URL CookedUrl;
  PSOCKADDR pRemoteAddress;
  PSOCKADDR pLocalAddress;
  HTTP_HEADERS<HttpHeaderRequestMaximum> Headers;
  ULONGLONG BytesReceived;
  USHORT EntityChunkCount;
  HTTP_DATA_CHUNK* pEntityChunks;
  ULONGLONG RawConnectionId;
  PVOID pSslInfo;
  USHORT RequestInfoCount;
  PVOID pRequestInfo;
};

struct HTTP_RESPONSE {
  ULONG Flags;
  USHORT MajorVersion;
  USHORT MinorVersion;
  USHORT StatusCode;
  USHORT ReasonLength;
  PCSTR pReason;
  HTTP_HEADERS<HttpHeaderResponseMaximum> Headers;
  USHORT EntityChunkCount;
  HTTP_DATA_CHUNK* pEntityChunks;
  USHORT ResponseInfoCount;
  PVOID pResponseInfo;
};

static_assert(sizeof(HTTP_REQUEST) == 864 && offsetof(HTTP_REQUEST, Headers) == 120, "layout of a request");
static_assert(sizeof(HTTP_RESPONSE) == 568 && offsetof(HTTP_RESPONSE, pEntityChunks) == 544, "layout of a response");

struct HTTP_LOG_DATA;
struct HTTP_SSL_CLIENT_CERT_INFO;
class IHttpServer;

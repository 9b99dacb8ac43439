// A small server of the MSVC ABI, compiled by clang from the natural-order declaration: takes requests through a real
// module. Methods that a module has no business to call are noted as faults.
#include "tests/abi/fake_server.h"

#include "tests/abi/fake_text.h"
#include "tests/abi/natural_stubs.h"

namespace {

using proof::Same;

constexpr HRESULT kHandleEof = static_cast<HRESULT>(0x80070026);
constexpr HRESULT kInvalidIndex = static_cast<HRESULT>(0x80070585);
constexpr HRESULT kAlreadyAssigned = static_cast<HRESULT>(0x80070055);
constexpr HRESULT kInvalidParameter = static_cast<HRESULT>(0x80070057);
constexpr DWORD kUnknownLength = 0xFFFFFFFF;
constexpr DWORD kPiece = 1000;  ///< a read gives at most this much, as a network does
const HTTP_MODULE_ID kModuleId = reinterpret_cast<HTTP_MODULE_ID>(0x51);

proof::Arena arena;
proof::Outcome* outcome = nullptr;
const proof::ScriptedRequest* scripted = nullptr;

void Fault(const char* what) {
  if (outcome->faults < proof::kMaxNotes) outcome->fault[outcome->faults] = what;
  ++outcome->faults;
}

}  // namespace

template <typename R>
R stubs::Unexpected(const char* method) {
  Fault(method);
  return R();
}

namespace {

/// The place of a known header; null for others. The server keeps Server and Set-Cookie among the unknown ones.
template <int Known>
HTTP_KNOWN_HEADER* KnownHeader(HTTP_HEADERS<Known>& headers, const char* name) {
  const int number = proof::NumberOf(Known == 41 ? proof::kRequestNames : proof::kResponseNames, name);
  return number < 0 || Same(name, "Server") || Same(name, "Set-Cookie") ? nullptr : &headers.KnownHeaders[number];
}

template <int Known>
void AddHeader(HTTP_HEADERS<Known>& headers, const char* name, const char* value) {
  const size_t size = proof::Length(value);
  if (HTTP_KNOWN_HEADER* known = KnownHeader(headers, name)) {
    *known = {static_cast<USHORT>(size), arena.Copy(value, size)};
    return;
  }
  auto* list = static_cast<HTTP_UNKNOWN_HEADER*>(
      arena.Take(sizeof(HTTP_UNKNOWN_HEADER) * (headers.UnknownHeaderCount + size_t{1})));
  for (int i = 0; i < headers.UnknownHeaderCount; ++i) list[i] = headers.pUnknownHeaders[i];
  list[headers.UnknownHeaderCount++] = {static_cast<USHORT>(proof::Length(name)), static_cast<USHORT>(size),
                                        arena.Copy(name, proof::Length(name)), arena.Copy(value, size)};
  headers.pUnknownHeaders = list;
}

template <int Known>
const char* HeaderOf(const HTTP_HEADERS<Known>& headers, int number, USHORT* size) {
  if (number < 0 || number >= Known) {
    Fault("a header number that does not exist");
    return nullptr;
  }
  if (size != nullptr) *size = headers.KnownHeaders[number].RawValueLength;
  return headers.KnownHeaders[number].pRawValue;
}

template <int Known>
const char* FindHeader(const HTTP_HEADERS<Known>& headers, const char* name, USHORT* size) {
  const int number = proof::NumberOf(Known == 41 ? proof::kRequestNames : proof::kResponseNames, name);
  const char* found = number < 0 ? nullptr : HeaderOf(headers, number, size);
  for (int i = 0; found == nullptr && i < headers.UnknownHeaderCount; ++i) {
    if (!Same(headers.pUnknownHeaders[i].pName, name)) continue;
    found = headers.pUnknownHeaders[i].pRawValue;
    if (size != nullptr) *size = headers.pUnknownHeaders[i].RawValueLength;
  }
  return found;
}

template <int Known>
void RemoveHeader(HTTP_HEADERS<Known>& headers, const char* name) {
  if (HTTP_KNOWN_HEADER* known = KnownHeader(headers, name)) *known = {0, nullptr};
  USHORT kept = 0;
  for (int i = 0; i < headers.UnknownHeaderCount; ++i) {
    if (!Same(headers.pUnknownHeaders[i].pName, name)) headers.pUnknownHeaders[kept++] = headers.pUnknownHeaders[i];
  }
  headers.UnknownHeaderCount = kept;
}

struct Container : stubs::UnexpectedHttpModuleContextContainer {
  IHttpStoredContext* GetModuleContext(HTTP_MODULE_ID id) override {
    if (id != kModuleId) Fault("GetModuleContext: another module's number");
    if (stored != nullptr) ++outcome->contexts_found;
    return stored;
  }
  HRESULT SetModuleContext(IHttpStoredContext* context, HTTP_MODULE_ID id) override {
    if (id != kModuleId) Fault("SetModuleContext: another module's number");
    if (context == nullptr) return kInvalidParameter;
    if (stored != nullptr) return kAlreadyAssigned;
    stored = context;
    ++outcome->contexts_set;
    return 0;
  }
  IHttpStoredContext* stored = nullptr;
};

struct Request : stubs::UnexpectedHttpRequest {
  HTTP_REQUEST* GetRawHttpRequest() override { return &raw; }
  const HTTP_REQUEST* GetRawHttpRequest() const override { return &raw; }
  PCSTR GetHeader(PCSTR name, USHORT* size) const override { return FindHeader(raw.Headers, name, size); }
  PCSTR GetHeader(HTTP_HEADER_ID id, USHORT* size) const override { return HeaderOf(raw.Headers, id, size); }
  PCSTR GetHttpMethod() const override { return scripted->method; }
  PSOCKADDR GetRemoteAddress() const override { return raw.pRemoteAddress; }
  PSOCKADDR GetLocalAddress() const override { return raw.pLocalAddress; }
  DWORD GetSiteId() const override { return 3; }

  HRESULT ReadEntityBody(VOID* buffer, DWORD size, BOOL async, DWORD* received, BOOL* pending) override {
    ++outcome->reads;
    if (async != 0) Fault("ReadEntityBody: asynchronous");
    if (received == nullptr) Fault("ReadEntityBody: no place for the count");
    if (pending != nullptr) *pending = 0;
    if (inserted_left != 0 || offset >= scripted->body_size) {
      at_end = true;
      *received = 0xDEADBEEF;  // means nothing at the end of the body
      return kHandleEof;
    }
    DWORD count = scripted->body_size - offset;
    if (count > size) count = size;
    if (count > kPiece) count = kPiece;
    for (DWORD i = 0; i < count; ++i) static_cast<unsigned char*>(buffer)[i] = scripted->body[offset + i];
    offset += count;
    *received = count;
    return 0;
  }
  HRESULT InsertEntityBody(VOID* buffer, DWORD size) override {
    ++outcome->insertions;
    outcome->inserted = static_cast<unsigned char*>(buffer);
    outcome->inserted_size = size;
    inserted_left = size;
    return 0;
  }
  DWORD GetRemainingEntityBytes() override {
    if (scripted->chunked != 0) return at_end ? inserted_left : kUnknownLength;
    return scripted->body_size - offset + inserted_left;
  }

  HTTP_REQUEST raw;
  DWORD offset = 0;
  DWORD inserted_left = 0;
  bool at_end = false;
};

struct Response : stubs::UnexpectedHttpResponse {
  HTTP_RESPONSE* GetRawHttpResponse() override { return &raw; }
  const HTTP_RESPONSE* GetRawHttpResponse() const override { return &raw; }
  HRESULT SetStatus(USHORT code, PCSTR reason, USHORT, HRESULT, IAppHostConfigException*, BOOL skip) override {
    if (reason == nullptr) Fault("SetStatus: no reason");
    raw.StatusCode = code;
    raw.pReason = reason;
    outcome->skip_custom_errors = skip;
    return 0;
  }
  HRESULT SetHeader(PCSTR name, PCSTR value, USHORT size, BOOL replace) override {
    if (proof::Length(value) != size) Fault("SetHeader: the size is not that of the value");
    if (replace != 0) RemoveHeader(raw.Headers, name);
    AddHeader(raw.Headers, name, value);
    return 0;
  }
  HRESULT SetHeader(HTTP_HEADER_ID id, PCSTR value, USHORT size, BOOL) override { return Put(id, {size, value}); }
  HRESULT DeleteHeader(HTTP_HEADER_ID id) override { return Put(id, {0, nullptr}); }
  HRESULT Put(int id, HTTP_KNOWN_HEADER header) {
    if (HeaderOf(raw.Headers, id, nullptr) == nullptr && static_cast<unsigned>(id) >= 30) return kInvalidParameter;
    if (header.pRawValue != nullptr) header.pRawValue = arena.Copy(header.pRawValue, header.RawValueLength);
    raw.Headers.KnownHeaders[id] = header;
    return 0;
  }
  HRESULT DeleteHeader(PCSTR name) override {
    RemoveHeader(raw.Headers, name);
    return 0;
  }
  PCSTR GetHeader(PCSTR name, USHORT* size) const override { return FindHeader(raw.Headers, name, size); }
  PCSTR GetHeader(HTTP_HEADER_ID id, USHORT* size) const override { return HeaderOf(raw.Headers, id, size); }
  VOID Clear() override {
    ClearHeaders();
    raw.StatusCode = 200;
    outcome->page_size = 0;
  }
  VOID ClearHeaders() override { raw.Headers = {}; }
  VOID DisableKernelCache(ULONG) override {}
  HRESULT WriteEntityChunks(HTTP_DATA_CHUNK* chunks, DWORD count, BOOL async, BOOL, DWORD* sent,
                            BOOL* pending) override {
    if (async != 0) Fault("WriteEntityChunks: asynchronous");
    DWORD total = 0;
    for (DWORD c = 0; c < count; ++c) {
      if (chunks[c].DataChunkType != HttpDataChunkFromMemory) Fault("WriteEntityChunks: a chunk that is no memory");
      const auto* bytes = static_cast<const unsigned char*>(chunks[c].FromMemory.pBuffer);
      for (ULONG i = 0; i < chunks[c].FromMemory.BufferLength && outcome->page_size < proof::kMaxPage; ++i, ++total) {
        outcome->page[outcome->page_size++] = bytes[i];
      }
    }
    if (sent != nullptr) *sent = total;
    if (pending != nullptr) *pending = 0;
    return 0;
  }
  VOID GetStatus(USHORT* code, USHORT* sub, PCSTR* reason, USHORT* reason_size, HRESULT*, PCWSTR*, DWORD*,
                 IAppHostConfigException**, BOOL*) override {
    *code = raw.StatusCode;
    if (sub != nullptr) *sub = 0;
    if (reason != nullptr) *reason = "OK";
    if (reason_size != nullptr) *reason_size = 2;
  }
  HTTP_RESPONSE raw;
};

struct Context : stubs::UnexpectedHttpContext {
  IHttpRequest* GetRequest() override { return &request; }
  IHttpResponse* GetResponse() override { return &response; }
  IHttpModuleContextContainer* GetModuleContextContainer() override { return &container; }
  BOOL GetResponseHeadersSent() const override { return 0; }
  IHttpContext* GetParentContext() const override { return nullptr; }
  VOID* AllocateRequestMemory(DWORD size) override {
    outcome->request_memory += size;
    return arena.Take(size);
  }
  HRESULT GetServerVariable(PCSTR name, PCSTR* value, DWORD* size) override {
    const char* text = Variable(name);
    if (text == nullptr) return kInvalidIndex;
    *value = text;
    *size = static_cast<DWORD>(proof::Length(text));
    return 0;
  }
  const char* Variable(const char* name) const {
    if (Same(name, "REMOTE_ADDR")) return "203.0.113.9";
    return Same(name, "HTTP_X_FORWARDED_FOR") ? request.GetHeader("X-Forwarded-For", nullptr) : nullptr;
  }

  Request request;
  Response response;
  Container container;
};

struct Allocator : stubs::UnexpectedModuleAllocator {
  VOID* AllocateMemory(DWORD size) override { return arena.Take(size); }
};

struct SendProvider : stubs::UnexpectedSendResponseProvider {
  BOOL GetHeadersBeingSent() const override { return 1; }
  DWORD GetFlags() const override { return 0; }  // all of the answer at once
};

struct PreBegin : stubs::UnexpectedPreBeginRequestProvider {
  IHttpContext* GetHttpContext() override { return context; }
  IHttpContext* context = nullptr;
};

struct Registration : stubs::UnexpectedHttpModuleRegistrationInfo {
  HTTP_MODULE_ID GetId() const override { return kModuleId; }
  HRESULT SetRequestNotifications(IHttpModuleFactory* a, DWORD b, DWORD c) override {
    factory = a;
    notifications = b;
    post_notifications = c;
    return 0;
  }
  HRESULT SetGlobalNotifications(CGlobalModule* a, DWORD b) override {
    global_module = a;
    global_notifications = b;
    return 0;
  }
  HRESULT SetPriorityForRequestNotification(DWORD, PCWSTR alias) override { return CheckAlias(alias); }
  HRESULT SetPriorityForGlobalNotification(DWORD, PCWSTR alias) override { return CheckAlias(alias); }
  HRESULT CheckAlias(PCWSTR alias) {
    bad_alias = bad_alias || (alias[0] != 'F' && alias[0] != 'H' && alias[0] != 'M' && alias[0] != 'L');
    return 0;
  }
  IHttpModuleFactory* factory = nullptr;
  CGlobalModule* global_module = nullptr;
  DWORD notifications = 0, post_notifications = 0, global_notifications = 0;
  bool bad_alias = false;
};

Registration registration;
Allocator allocator;
SendProvider send_provider;
stubs::UnexpectedHttpEventProvider event_provider;
PreBegin pre_begin;
SOCKADDR_IN remote = {2, 0x5000, {203, 0, 113, 9}, {}};
SOCKADDR_IN local = {2, 0x5000, {192, 0, 2, 1}, {}};

void FillUrl(HTTP_COOKED_URL& url) {
  const size_t size = proof::Length(scripted->raw_url);
  size_t path_size = 0;
  while (path_size < size && scripted->raw_url[path_size] != '?') ++path_size;
  static constexpr char kHost[] = "http://localhost:80";
  constexpr size_t kHostSize = sizeof(kHost) - 1;
  char* full = arena.Copy(kHost, kHostSize + size);
  for (size_t i = 0; i < size; ++i) full[kHostSize + i] = scripted->raw_url[i];
  const wchar_t* wide = arena.Widen(full, kHostSize + size);
  url.pFullUrl = wide;
  url.FullUrlLength = static_cast<USHORT>((kHostSize + size) * 2);
  url.pHost = wide + 7;
  url.HostLength = static_cast<USHORT>((kHostSize - 7) * 2);
  url.pAbsPath = wide + kHostSize;
  url.AbsPathLength = static_cast<USHORT>(path_size * 2);
  url.pQueryString = path_size < size ? wide + kHostSize + path_size : nullptr;
  url.QueryStringLength = static_cast<USHORT>((size - path_size) * 2);
}

void FillRequest(Context& context) {
  HTTP_REQUEST& raw = context.request.raw;
  raw = {};
  raw.MajorVersion = raw.MinorVersion = 1;
  raw.Verb = Same(scripted->method, "GET")    ? HttpVerbGET
             : Same(scripted->method, "POST") ? HttpVerbPOST
                                              : HttpVerbUnknown;
  raw.pRawUrl = scripted->raw_url;
  raw.RawUrlLength = static_cast<USHORT>(proof::Length(scripted->raw_url));
  raw.pRemoteAddress = reinterpret_cast<PSOCKADDR>(&remote);
  raw.pLocalAddress = reinterpret_cast<PSOCKADDR>(&local);
  FillUrl(raw.CookedUrl);
  for (int i = 0; i < scripted->header_count; ++i) {
    AddHeader(raw.Headers, scripted->headers[i].name, scripted->headers[i].value);
  }
  context.response.raw = {};
  context.response.raw.StatusCode = 200;
}

/// What the application answers when the request reaches it.
void RunHandler(Context& context) {
  static constexpr proof::Header kHeaders[] = {
      {"Server", "Server/10.0"},     {"X-Powered-By", "Framework"}, {"Content-Type", "text/html; charset=utf-8"},
      {"Set-Cookie", "a=1; path=/"}, {"Set-Cookie", "b=2"},         {"Set-Cookie", "c=3; HttpOnly"}};
  for (const auto& header : kHeaders) {
    AddHeader(context.response.raw.Headers, header.name, header.value);
  }
  HTTP_DATA_CHUNK chunk = {};
  static char body[] = "<html><body>application</body></html>";
  chunk.FromMemory.pBuffer = body;
  chunk.FromMemory.BufferLength = sizeof(body) - 1;
  context.response.WriteEntityChunks(&chunk, 1, 0, 0, nullptr, nullptr);
}

void Finish(Context& context) {
  outcome->status = context.response.raw.StatusCode;
  const auto& headers = context.response.raw.Headers;
  USHORT size = 0;
  if (const char* type = context.response.GetHeader("Content-Type", &size)) {
    for (USHORT i = 0; i < size && i < sizeof(outcome->content_type) - 1; ++i) outcome->content_type[i] = type[i];
  }
  for (int i = 0; i < headers.UnknownHeaderCount; ++i) {
    if (Same(headers.pUnknownHeaders[i].pName, "Set-Cookie")) ++outcome->set_cookies;
  }
  if (headers.KnownHeaders[27].pRawValue != nullptr) Fault("Set-Cookie among the known headers");
}

}  // namespace

extern "C" const char* ServerStart(RegisterFunction register_module) {
  if (register_module(10, &registration, nullptr) != 0) return "RegisterModule failed";
  if (registration.factory == nullptr) return "no factory";
  if (registration.notifications != 0x20000001) return "notifications other than begin and send";
  if (registration.post_notifications != 0x80) return "post-notifications other than that of the handler";
  if (registration.global_module == nullptr || registration.global_notifications != 0x100)
    return "global notifications";
  if (registration.bad_alias) return "a priority that is no alias";
  return nullptr;
}

extern "C" void ServerRequest(const proof::ScriptedRequest* request, proof::Outcome* result) {
  static Context context_storage;
  scripted = request;
  outcome = result;
  arena.Reset();
  Context& context = context_storage;
  context.request.offset = context.request.inserted_left = 0;
  context.request.at_end = false;
  context.container.stored = nullptr;
  FillRequest(context);
  pre_begin.context = &context;
  if (registration.global_module->OnGlobalPreBeginRequest(&pre_begin) != GL_NOTIFICATION_CONTINUE) Fault("pre-begin");
  CHttpModule* module = nullptr;
  if (registration.factory->GetHttpModule(&module, &allocator) != 0 || module == nullptr) {
    Fault("GetHttpModule");
    return;
  }
  outcome->begin = module->OnBeginRequest(&context, &event_provider);
  outcome->post_execute = -1;
  if (outcome->begin == RQ_NOTIFICATION_CONTINUE) {
    RunHandler(context);
    outcome->post_execute = module->OnPostExecuteRequestHandler(&context, &event_provider);
  }
  outcome->send = module->OnSendResponse(&context, &send_provider);
  module->Dispose();
  if (context.container.stored != nullptr) {
    context.container.stored->CleanupStoredContext();
    ++outcome->context_cleaned;
  }
  Finish(context);
}

extern "C" const char* ServerStop() {
  if (registration.factory == nullptr || registration.global_module == nullptr) return "never started";
  registration.factory->Terminate();
  registration.global_module->Terminate();
  return nullptr;
}

// A server of scripted behaviour: what a real one does rarely, or only when something is wrong.
//
// Request memory is handed out in blocks of exactly the size asked for, so that the address sanitizer sees one byte too
// far. Whatever the module is not meant to call fails the test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "iis/httpserv.h"
#include "tests/abi/server_stubs.h"

template <typename R>
R stubs::Unexpected(const char* method) {
  ADD_FAILURE() << "a call that the module is not meant to make: " << method;
  return R();
}

namespace qiv::test {

inline constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

/// What the client sends, and how reading it goes.
struct BodyScript {
  std::string data;
  std::size_t piece = kNever;         ///< most bytes that one read gives
  std::size_t fail_at = kNever;       ///< the read that would go past this many bytes fails
  iis::HRESULT failure = 0;           ///< with this result
  bool throws = false;                ///< or with an exception
  bool length_known = true;           ///< false: chunked
  bool stays_unknown = false;         ///< of a chunked body, also after its end was seen
  bool empty_success_at_end = false;  ///< a success without bytes in place of the end
  bool claims_more = false;           ///< a success says one byte more than it gave
  iis::HRESULT insert_result = 0;
};

class CFakeRequest final : public stubs::UnexpectedHttpRequest {
 public:
  CFakeRequest();

  void SetUrl(const std::string& raw_url, const std::u16string& cooked_host = u"www.example.com:80");
  void SetClient(const std::string& ipv4);
  /// A POST of a body of known length.
  void SetBody(const std::string& data, const std::string& type = "application/x-www-form-urlencoded");
  void SetFamily(iis::USHORT family) { address_.sin6_family = family; }

  /// What the application reads: what was inserted, then what is unread.
  std::string ApplicationBody() const;

  std::string method = "GET";
  bool has_raw = true;
  bool has_address = true;
  std::map<std::int32_t, std::string> known;
  std::map<std::string, std::string> unknown;
  BodyScript body;
  std::size_t read = 0;  ///< bytes taken out of body.data
  int reads = 0;
  std::vector<std::string> inserted;  ///< one entry an insertion
  iis::HTTP_REQUEST raw{};

  const iis::HTTP_REQUEST* GetRawHttpRequest() const override { return has_raw ? &raw : nullptr; }
  iis::HTTP_REQUEST* GetRawHttpRequest() override { return has_raw ? &raw : nullptr; }
  iis::PCSTR GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const override;
  iis::PCSTR GetHeader(iis::PCSTR name, iis::USHORT* length) const override;
  iis::HRESULT SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::PCSTR GetHttpMethod() const override { return method.c_str(); }
  iis::PSOCKADDR GetRemoteAddress() const override;
  iis::PSOCKADDR GetLocalAddress() const override { return GetRemoteAddress(); }
  iis::HRESULT ReadEntityBody(iis::VOID* buffer, iis::DWORD size, iis::BOOL async, iis::DWORD* received,
                              iis::BOOL* pending) override;
  iis::HRESULT InsertEntityBody(iis::VOID* buffer, iis::DWORD size) override;
  iis::DWORD GetRemainingEntityBytes() override;
  iis::DWORD GetSiteId() const override { return 7; }

 private:
  std::string raw_url_;
  std::u16string host_;
  iis::SOCKADDR_IN6 address_{};
  bool end_seen_ = false;
};

class CFakeResponse final : public stubs::UnexpectedHttpResponse {
 public:
  CFakeResponse() { Rebuild(); }

  /// All values of a header, in order, read from the raw response as it would go on the wire.
  std::vector<std::string> Values(const std::string& name) const;
  void Add(const std::string& name, const std::string& value);
  /// What the application has written, kept in the raw response: a piece in memory, or any other chunk.
  void AddChunk(const std::string& text);
  void AddChunk(const iis::HTTP_DATA_CHUNK& chunk);

  bool has_raw = true;
  bool joins_cookies = false;  ///< appended to one header, as other values are, instead of one entry each
  std::vector<iis::ULONG> kernel_cache_disabled;  ///< the reasons given
  std::uint16_t status = 200;
  std::string reason;
  bool skip_custom_errors = false;
  bool cleared = false;
  iis::HRESULT status_result = 0;
  std::size_t chunk_room = kNever;  ///< chunks that fit beside those of AddChunk
  std::string body;
  bool more_data = false;
  int header_writes = 0;
  std::map<std::int32_t, std::string> known;

  const iis::HTTP_RESPONSE* GetRawHttpResponse() const override { return has_raw ? &raw_ : nullptr; }
  iis::HTTP_RESPONSE* GetRawHttpResponse() override { return has_raw ? &raw_ : nullptr; }
  iis::HRESULT SetStatus(iis::USHORT code, iis::PCSTR text, iis::USHORT, iis::HRESULT, iis::IAppHostConfigException*,
                         iis::BOOL skip) override;
  iis::HRESULT SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT DeleteHeader(iis::HTTP_HEADER_ID id) override;
  iis::HRESULT DeleteHeader(iis::PCSTR name) override;
  iis::PCSTR GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const override;
  iis::PCSTR GetHeader(iis::PCSTR name, iis::USHORT* length) const override;
  iis::VOID DisableKernelCache(iis::ULONG why) override { kernel_cache_disabled.push_back(why); }
  iis::VOID Clear() override;
  iis::HRESULT WriteEntityChunkByReference(iis::HTTP_DATA_CHUNK* chunk, iis::LONG position) override;
  iis::HRESULT WriteEntityChunks(iis::HTTP_DATA_CHUNK* chunks, iis::DWORD count, iis::BOOL async, iis::BOOL more,
                                 iis::DWORD* sent, iis::BOOL* pending) override;
  iis::VOID GetStatus(iis::USHORT* code, iis::USHORT*, iis::PCSTR*, iis::USHORT*, iis::HRESULT*, iis::PCWSTR*,
                      iis::DWORD*, iis::IAppHostConfigException**, iis::BOOL*) override {
    *code = status;
  }

 private:
  void Rebuild();
  std::deque<std::string> texts_;  ///< names and values that raw headers point to
  std::vector<iis::HTTP_UNKNOWN_HEADER> headers_;
  std::vector<iis::HTTP_DATA_CHUNK> chunks_;
  iis::HTTP_RESPONSE raw_{};
};

class CFakeContainer final : public stubs::UnexpectedHttpModuleContextContainer {
 public:
  ~CFakeContainer() { End(); }
  iis::IHttpStoredContext* GetModuleContext(iis::HTTP_MODULE_ID) override { return stored; }
  iis::HRESULT SetModuleContext(iis::IHttpStoredContext* context, iis::HTTP_MODULE_ID) override;
  /// The end of the request.
  void End();

  iis::IHttpStoredContext* stored = nullptr;
  iis::HRESULT refuse = 0;  ///< result of every set, when it is a failure
  int sets = 0;
};

class CFakeContext final : public stubs::UnexpectedHttpContext {
 public:
  CFakeRequest request;
  CFakeResponse response;
  CFakeContainer container;
  bool has_request = true;
  bool has_response = true;
  bool has_container = true;
  bool headers_sent = false;
  bool is_child = false;
  bool throws_in_response = false;
  std::size_t memory_limit = kNever;  ///< the largest block that is handed out
  std::map<std::string, std::string> variables;
  std::vector<std::pair<std::unique_ptr<char[]>, std::size_t>> memory;

  iis::IHttpRequest* GetRequest() override { return has_request ? &request : nullptr; }
  iis::IHttpResponse* GetResponse() override;
  iis::BOOL GetResponseHeadersSent() const override { return headers_sent; }
  iis::IHttpModuleContextContainer* GetModuleContextContainer() override {
    return has_container ? &container : nullptr;
  }
  iis::HRESULT GetServerVariable(iis::PCSTR name, iis::PCSTR* value, iis::DWORD* length) override;
  iis::VOID* AllocateRequestMemory(iis::DWORD size) override;
  iis::IHttpContext* GetParentContext() const override { return is_child ? const_cast<CFakeContext*>(this) : nullptr; }
};

class CFakeSend final : public stubs::UnexpectedSendResponseProvider {
 public:
  explicit CFakeSend(bool with_headers) : with_headers_(with_headers) {}
  iis::BOOL GetHeadersBeingSent() const override { return with_headers_; }
  iis::DWORD GetFlags() const override { return 0; }

 private:
  bool with_headers_;
};

}  // namespace qiv::test

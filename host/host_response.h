// IHttpResponse of the host.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/header_table.h"
#include "host/wire.h"
#include "iis/httpserv.h"

namespace qiv::host {

class CHostContext;

/// The response half of a context. Everything a module can see is in the raw structure, which modules change too.
/// Chunks written are copied into buffers that are freed once they were sent.
class CHostResponse final : public iis::IHttpResponse {
 public:
  CHostResponse(CHostContext& context, IWire& wire);

  const iis::HTTP_RESPONSE* GetRawHttpResponse() const override { return &raw_; }
  iis::HTTP_RESPONSE* GetRawHttpResponse() override { return &raw_; }
  iis::IHttpCachePolicy* GetCachePolicy() override { return nullptr; }
  iis::HRESULT SetStatus(iis::USHORT status, iis::PCSTR reason, iis::USHORT sub_status, iis::HRESULT error,
                         iis::IAppHostConfigException* exception, iis::BOOL skip_custom_errors) override;
  iis::HRESULT SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT DeleteHeader(iis::HTTP_HEADER_ID id) override { return headers_.Delete(id); }
  iis::HRESULT DeleteHeader(iis::PCSTR name) override { return headers_.Delete(name); }
  iis::PCSTR GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const override;
  iis::PCSTR GetHeader(iis::PCSTR name, iis::USHORT* length) const override;
  void Clear() override;
  void ClearHeaders() override;
  void SetNeedDisconnect() override { disconnect_ = true; }
  void ResetConnection() override;
  void DisableKernelCache(iis::ULONG reason) override;
  iis::BOOL GetKernelCacheEnabled() const override { return kernel_cache_reasons_.empty(); }
  void SuppressHeaders() override { suppressed_ = true; }
  iis::BOOL GetHeadersSuppressed() const override { return suppressed_; }
  iis::HRESULT Flush(iis::BOOL async, iis::BOOL more_data, iis::DWORD* sent, iis::BOOL* pending) override;
  iis::HRESULT Redirect(iis::PCSTR url, iis::BOOL reset_status, iis::BOOL include_parameters) override;
  iis::HRESULT WriteEntityChunkByReference(iis::HTTP_DATA_CHUNK* chunk, iis::LONG position) override;
  iis::HRESULT WriteEntityChunks(iis::HTTP_DATA_CHUNK* chunks, iis::DWORD count, iis::BOOL async, iis::BOOL more_data,
                                 iis::DWORD* sent, iis::BOOL* pending) override;
  void DisableBuffering() override { buffered_ = false; }
  void GetStatus(iis::USHORT* status, iis::USHORT* sub_status, iis::PCSTR* reason, iis::USHORT* reason_length,
                 iis::HRESULT* error, iis::PCWSTR* module, iis::DWORD* notification,
                 iis::IAppHostConfigException** exception, iis::BOOL* skip_custom_errors) override;
  iis::HRESULT SetErrorDescription(iis::PCWSTR text, iis::DWORD length, iis::BOOL html_encode) override;
  iis::PCWSTR GetErrorDescription(iis::DWORD* length) override;
  iis::HRESULT GetHeaderChanges(iis::DWORD old_count, iis::DWORD* changes, iis::PCSTR* known, iis::DWORD* unknown_count,
                                iis::PCSTR** names, iis::PCSTR** values, iis::DWORD* known_indexes,
                                iis::DWORD* unknown_index_count, iis::DWORD** unknown_indexes) override;
  void CloseConnection() override { ResetConnection(); }

  /// Sends what is queued, running the send-response notifications; the head goes with the first send. A call made from
  /// within those notifications sends nothing: what was written joins the send under way.
  iis::HRESULT Send(bool more_data, iis::DWORD* sent);

  /// The last send of the request; also when nothing was written.
  void Finish();

  bool headers_sent() const { return headers_sent_; }
  bool was_reset() const { return reset_; }
  bool over() const { return over_; }
  const std::string& replaced_body() const { return replaced_body_; }
  /// The reasons given to DisableKernelCache, in the order of the calls.
  const std::vector<iis::ULONG>& kernel_cache_reasons() const { return kernel_cache_reasons_; }

 private:
  void ResetToStart();
  void ReplaceByErrorPage();
  iis::HRESULT AddChunk(const iis::HTTP_DATA_CHUNK& chunk, iis::LONG position);
  iis::HRESULT CopyChunk(const iis::HTTP_DATA_CHUNK& chunk);
  void DropChunks();

  CHostContext& context_;
  IWire& wire_;
  iis::HTTP_RESPONSE raw_{};
  CHeaderTable<iis::HTTP_RESPONSE_HEADERS> headers_;
  iis::HTTP_DATA_CHUNK* own_chunks_ = nullptr;  ///< the array we allocated; a module may put its own in the structure
  std::size_t chunk_capacity_ = 0;
  std::vector<iis::ULONG> kernel_cache_reasons_;
  std::vector<std::unique_ptr<char[]>> buffers_;
  std::size_t buffered_bytes_ = 0;

  iis::USHORT sub_status_ = 0;
  iis::HRESULT error_ = 0;
  iis::IAppHostConfigException* exception_ = nullptr;
  iis::BOOL skip_custom_errors_ = 0;
  iis::PCWSTR error_description_ = nullptr;
  iis::DWORD error_description_length_ = 0;

  bool buffered_ = true;
  bool suppressed_ = false;
  bool disconnect_ = false;
  bool sending_ = false;
  bool headers_sent_ = false;
  bool reset_ = false;
  bool over_ = false;
  std::string replaced_body_;
};

}  // namespace qiv::host

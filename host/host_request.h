// IHttpRequest of the host.
#pragma once

#include <cstdint>
#include <deque>
#include <random>

#include "host/header_table.h"
#include "host/request_input.h"
#include "host/wire.h"
#include "iis/httpserv.h"

namespace qiv::host {

class CHostContext;

/// The request half of a context: raw structure, headers, the body stream. The body comes from the wire as it is read;
/// what a module inserts is kept by reference, in front of what was not read yet.
class CHostRequest final : public iis::IHttpRequest {
 public:
  CHostRequest(CHostContext& context, const RequestInput& input, IWire& wire);

  /// Builds the raw structure. False, with a reason, when the URL is refused.
  bool Build(const RequestInput& input, const char** reason);

  const iis::HTTP_REQUEST* GetRawHttpRequest() const override { return &raw_; }
  iis::HTTP_REQUEST* GetRawHttpRequest() override { return &raw_; }
  iis::PCSTR GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const override;
  iis::PCSTR GetHeader(iis::PCSTR name, iis::USHORT* length) const override;
  iis::HRESULT SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) override;
  iis::HRESULT DeleteHeader(iis::HTTP_HEADER_ID id) override { return headers_.Delete(id); }
  iis::HRESULT DeleteHeader(iis::PCSTR name) override { return headers_.Delete(name); }
  iis::PCSTR GetHttpMethod() const override { return method_; }
  iis::HRESULT SetHttpMethod(iis::PCSTR method) override;
  iis::HRESULT SetUrl(iis::PCSTR url, iis::DWORD length, iis::BOOL reset_query) override;
  iis::HRESULT SetUrl(iis::PCWSTR url, iis::DWORD length, iis::BOOL reset_query) override;
  iis::BOOL GetUrlChanged() const override { return url_changed_; }
  iis::PCWSTR GetForwardedUrl() const override { return forwarded_url_; }
  iis::PSOCKADDR GetLocalAddress() const override { return raw_.Address.pLocalAddress; }
  iis::PSOCKADDR GetRemoteAddress() const override { return raw_.Address.pRemoteAddress; }
  iis::HRESULT ReadEntityBody(void* buffer, iis::DWORD size, iis::BOOL async, iis::DWORD* got,
                              iis::BOOL* pending) override;
  iis::HRESULT InsertEntityBody(void* buffer, iis::DWORD size) override;
  iis::DWORD GetRemainingEntityBytes() override;
  void GetHttpVersion(iis::USHORT* major, iis::USHORT* minor) const override;
  iis::HRESULT GetClientCertificate(iis::HTTP_SSL_CLIENT_CERT_INFO** info, iis::BOOL* negotiated) override;
  iis::HRESULT NegotiateClientCertificate(iis::BOOL async, iis::BOOL* pending) override;
  iis::DWORD GetSiteId() const override;
  iis::HRESULT GetHeaderChanges(iis::DWORD old_count, iis::DWORD* changes, iis::PCSTR* known, iis::DWORD* unknown_count,
                                iis::PCSTR** names, iis::PCSTR** values, iis::DWORD* known_indexes,
                                iis::DWORD* unknown_index_count, iis::DWORD** unknown_indexes) override;

  /// Reads without the notification and without short reads: for the host's own handlers.
  iis::HRESULT ReadBody(void* buffer, std::size_t size, std::size_t* got);
  bool chunked() const { return chunked_; }
  bool body_lost() const { return lost_; }

 private:
  struct Inserted {
    const char* data;
    std::size_t size;
  };
  bool BuildHeaders(std::span<const HeaderView> headers);
  void BuildUrl(const struct CookedUrl& cooked);
  std::size_t ShortenedSize(std::size_t size);

  CHostContext& context_;
  IWire& wire_;
  iis::HTTP_REQUEST raw_{};
  CHeaderTable<iis::HTTP_REQUEST_HEADERS> headers_;
  HostAddress remote_;
  HostAddress local_;
  const char* method_ = "";
  iis::PCWSTR forwarded_url_ = nullptr;
  iis::BOOL url_changed_ = 0;

  const bool chunked_;
  std::uint64_t unread_ = 0;  ///< announced bytes still on the wire; of a chunked body 1 until its end was seen
  std::deque<Inserted> inserted_;
  bool was_inserted_ = false;
  bool lost_ = false;
  std::mt19937_64 short_reads_;
};

}  // namespace qiv::host

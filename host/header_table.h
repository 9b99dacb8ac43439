// The header half of a raw request or response, with the server's rules for setting and joining.
#pragma once

#include <string_view>

#include "host/host_options.h"
#include "host/request_memory.h"
#include "iis/http_types.h"

namespace qiv::host {

/// Works directly on the raw structure, because modules read and change that structure too: nothing is cached here
/// beside it. Values are copied into request memory and end with a terminator.
/// `Headers` is HTTP_REQUEST_HEADERS or HTTP_RESPONSE_HEADERS.
template <class Headers>
class CHeaderTable {
 public:
  CHeaderTable(Headers& raw, CRequestMemory& memory) : raw_(raw), memory_(memory) {}

  /// Null when absent; `length` may be null.
  iis::PCSTR Get(iis::HTTP_HEADER_ID id, iis::USHORT* length) const;
  iis::PCSTR Get(iis::PCSTR name, iis::USHORT* length, ManyValues many) const;

  iis::HRESULT Set(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, bool replace);
  iis::HRESULT Set(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, bool replace);

  /// S_OK also when there was nothing to delete.
  iis::HRESULT Delete(iis::HTTP_HEADER_ID id);
  iis::HRESULT Delete(iis::PCSTR name);

  /// Adds a header without looking for an unknown one of the same name. False when it does not fit the 16-bit lengths.
  bool Append(std::string_view name, std::string_view value);

 private:
  static constexpr bool kIsRequest = sizeof(Headers) == sizeof(iis::HTTP_REQUEST_HEADERS);
  static int IdOf(std::string_view name);
  iis::HTTP_UNKNOWN_HEADER* FindUnknown(std::string_view name) const;
  void RemoveUnknown(std::string_view name);
  void AddUnknown(std::string_view name, std::string_view value);
  bool Join(iis::PCSTR* value, iis::USHORT* length, std::string_view more, std::string_view separator);

  Headers& raw_;
  CRequestMemory& memory_;
  iis::HTTP_UNKNOWN_HEADER* own_ = nullptr;  ///< the array we allocated; a module may put its own in the structure
  std::size_t capacity_ = 0;
};

extern template class CHeaderTable<iis::HTTP_REQUEST_HEADERS>;
extern template class CHeaderTable<iis::HTTP_RESPONSE_HEADERS>;

}  // namespace qiv::host

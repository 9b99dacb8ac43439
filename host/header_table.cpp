#include "host/header_table.h"

#include <cstring>
#include <new>
#include <string>

#include "host/ascii.h"
#include "host/header_names.h"
#include "host/results.h"
#include "iis/header_names.h"

namespace qiv::host {
namespace {

constexpr std::size_t kMaxLength = 65535;

std::string_view NameView(const iis::HTTP_UNKNOWN_HEADER& header) { return {header.pName, header.NameLength}; }

/// A value must not end its own line. The terminator of the name is trusted, as the server trusts it.
bool IsClean(std::string_view text) { return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos; }

bool IsListOfOwnEntries(std::string_view name) {
  return EqualsIgnoreCase(name, "Set-Cookie") || EqualsIgnoreCase(name, "WWW-Authenticate");
}

}  // namespace

template <class Headers>
int CHeaderTable<Headers>::IdOf(std::string_view name) {
  return kIsRequest ? RequestHeaderId(name) : ResponseHeaderId(name);
}

template <class Headers>
iis::PCSTR CHeaderTable<Headers>::Get(iis::HTTP_HEADER_ID id, iis::USHORT* length) const {
  if (length != nullptr) *length = 0;
  const int count = kIsRequest ? iis::HttpHeaderRequestMaximum : iis::HttpHeaderResponseMaximum;
  if (id < 0 || id >= count) return nullptr;
  const iis::HTTP_KNOWN_HEADER& header = raw_.KnownHeaders[id];
  if (length != nullptr) *length = header.RawValueLength;
  return header.pRawValue;
}

template <class Headers>
iis::PCSTR CHeaderTable<Headers>::Get(iis::PCSTR name, iis::USHORT* length, ManyValues many) const {
  if (length != nullptr) *length = 0;
  if (name == nullptr) return nullptr;
  const int id = IdOf(name);
  if (id >= 0) return Get(static_cast<iis::HTTP_HEADER_ID>(id), length);
  const iis::HTTP_UNKNOWN_HEADER* found = nullptr;
  std::string joined;
  int matches = 0;
  for (std::size_t i = 0; i < raw_.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = raw_.pUnknownHeaders[i];
    if (!EqualsIgnoreCase(NameView(header), name)) continue;
    if (found == nullptr || many == ManyValues::kLast) found = &header;
    if (many == ManyValues::kJoined) {
      if (matches > 0) joined += ",";
      if (header.pRawValue != nullptr) joined.append(header.pRawValue, header.RawValueLength);
    }
    ++matches;
  }
  if (found == nullptr) return nullptr;
  if (many == ManyValues::kJoined && matches > 1 && joined.size() <= kMaxLength) {
    if (length != nullptr) *length = static_cast<iis::USHORT>(joined.size());
    return memory_.CopyText(joined);
  }
  if (length != nullptr) *length = found->RawValueLength;
  return found->pRawValue == nullptr ? "" : found->pRawValue;
}

template <class Headers>
bool CHeaderTable<Headers>::Join(iis::PCSTR* value, iis::USHORT* length, std::string_view more,
                                 std::string_view separator) {
  std::string joined(*value == nullptr ? "" : *value, *length);
  joined.append(separator).append(more);
  if (joined.size() > kMaxLength) return false;
  *value = memory_.CopyText(joined);
  *length = static_cast<iis::USHORT>(joined.size());
  return true;
}

template <class Headers>
iis::HRESULT CHeaderTable<Headers>::Set(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, bool replace) {
  const int count = kIsRequest ? iis::HttpHeaderRequestMaximum : iis::HttpHeaderResponseMaximum;
  if (id < 0 || id >= count || value == nullptr) return kInvalidArgument;
  if (!kIsRequest && ResponseHeaderId(iis::ResponseHeaderName(id)) < 0) {
    // The server's own quirk: by number, Server is appended to, whatever the caller asked for.
    const bool really_replace = replace && id != iis::HttpHeaderServer;
    return Set(iis::ResponseHeaderName(id).data(), value, length, really_replace);
  }
  const std::string_view text(value, length);
  if (!IsClean(text)) return kInvalidArgument;
  iis::HTTP_KNOWN_HEADER& header = raw_.KnownHeaders[id];
  if (!replace && header.pRawValue != nullptr && header.RawValueLength > 0) {
    return Join(&header.pRawValue, &header.RawValueLength, text, ",") ? kOk : iis::kInvalidData;
  }
  header.pRawValue = memory_.CopyText(text);
  header.RawValueLength = length;
  return kOk;
}

template <class Headers>
iis::HRESULT CHeaderTable<Headers>::Set(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, bool replace) {
  if (name == nullptr || *name == 0 || value == nullptr) return kInvalidArgument;
  const std::string_view name_view(name);
  for (const char c : name_view) {
    if (!IsTokenChar(c)) return kInvalidArgument;
  }
  const int id = IdOf(name_view);
  if (id >= 0) return Set(static_cast<iis::HTTP_HEADER_ID>(id), value, length, replace);
  const std::string text(value, length);  // a copy: the value may be one that is removed below
  if (!IsClean(text) || name_view.size() > kMaxLength) return kInvalidArgument;
  if (!replace && !IsListOfOwnEntries(name_view)) {
    if (iis::HTTP_UNKNOWN_HEADER* header = FindUnknown(name_view)) {
      return Join(&header->pRawValue, &header->RawValueLength, text, ",") ? kOk : iis::kInvalidData;
    }
  }
  if (replace) RemoveUnknown(name_view);
  AddUnknown(name_view, text);
  return kOk;
}

template <class Headers>
iis::HRESULT CHeaderTable<Headers>::Delete(iis::HTTP_HEADER_ID id) {
  const int count = kIsRequest ? iis::HttpHeaderRequestMaximum : iis::HttpHeaderResponseMaximum;
  if (id < 0 || id >= count) return kInvalidArgument;
  const std::string_view name = kIsRequest ? iis::RequestHeaderName(id) : iis::ResponseHeaderName(id);
  if (IdOf(name) < 0) {
    RemoveUnknown(name);
  } else {
    raw_.KnownHeaders[id] = {};
  }
  return kOk;
}

template <class Headers>
iis::HRESULT CHeaderTable<Headers>::Delete(iis::PCSTR name) {
  if (name == nullptr) return kInvalidArgument;
  const int id = IdOf(name);
  if (id >= 0) return Delete(static_cast<iis::HTTP_HEADER_ID>(id));
  RemoveUnknown(name);
  return kOk;
}

template <class Headers>
bool CHeaderTable<Headers>::Append(std::string_view name, std::string_view value) {
  if (name.size() > kMaxLength || value.size() > kMaxLength) return false;
  const int id = IdOf(name);
  if (id >= 0) {
    iis::HTTP_KNOWN_HEADER& header = raw_.KnownHeaders[id];
    if (header.pRawValue != nullptr && header.RawValueLength > 0) {
      return Join(&header.pRawValue, &header.RawValueLength, value, ", ");
    }
    header.pRawValue = memory_.CopyText(value);
    header.RawValueLength = static_cast<iis::USHORT>(value.size());
    return true;
  }
  AddUnknown(name, value);
  return true;
}

template <class Headers>
iis::HTTP_UNKNOWN_HEADER* CHeaderTable<Headers>::FindUnknown(std::string_view name) const {
  for (std::size_t i = 0; i < raw_.UnknownHeaderCount; ++i) {
    if (EqualsIgnoreCase(NameView(raw_.pUnknownHeaders[i]), name)) return &raw_.pUnknownHeaders[i];
  }
  return nullptr;
}

template <class Headers>
void CHeaderTable<Headers>::RemoveUnknown(std::string_view name) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < raw_.UnknownHeaderCount; ++i) {
    if (EqualsIgnoreCase(NameView(raw_.pUnknownHeaders[i]), name)) continue;
    raw_.pUnknownHeaders[kept++] = raw_.pUnknownHeaders[i];
  }
  raw_.UnknownHeaderCount = static_cast<iis::USHORT>(kept);
}

template <class Headers>
void CHeaderTable<Headers>::AddUnknown(std::string_view name, std::string_view value) {
  const std::size_t count = raw_.UnknownHeaderCount;
  const std::size_t room = own_ != nullptr && raw_.pUnknownHeaders == own_ ? capacity_ : count;
  if (count == kMaxLength) throw std::bad_alloc();
  if (count == room) {
    const std::size_t capacity = count < 8 ? 16 : count * 2;
    auto* grown = static_cast<iis::HTTP_UNKNOWN_HEADER*>(memory_.Allocate(capacity * sizeof(iis::HTTP_UNKNOWN_HEADER)));
    if (grown == nullptr) throw std::bad_alloc();
    if (count > 0) std::memcpy(grown, raw_.pUnknownHeaders, count * sizeof(iis::HTTP_UNKNOWN_HEADER));
    raw_.pUnknownHeaders = own_ = grown;
    capacity_ = capacity;
  }
  iis::HTTP_UNKNOWN_HEADER& header = raw_.pUnknownHeaders[count];
  header.NameLength = static_cast<iis::USHORT>(name.size());
  header.pName = memory_.CopyText(name);
  header.RawValueLength = static_cast<iis::USHORT>(value.size());
  // As on the real server, an empty value of an unknown header has no text at all.
  header.pRawValue = value.empty() ? nullptr : memory_.CopyText(value);
  raw_.UnknownHeaderCount = static_cast<iis::USHORT>(count + 1);
}

template class CHeaderTable<iis::HTTP_REQUEST_HEADERS>;
template class CHeaderTable<iis::HTTP_RESPONSE_HEADERS>;

}  // namespace qiv::host

#include "tests/module/fake_server.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "common/char_set.h"
#include "common/ip_address.h"

namespace qiv::test {
namespace {

bool SameName(std::string_view a, std::string_view b) { return CCharSet::LowerAscii(a) == CCharSet::LowerAscii(b); }

}  // namespace

CFakeRequest::CFakeRequest() {
  SetUrl("/");
  SetClient("203.0.113.7");
}

void CFakeRequest::SetUrl(const std::string& raw_url, const std::u16string& cooked_host) {
  raw_url_ = raw_url;
  host_ = cooked_host;
  // Without a terminator: the buffer is as long as the length says.
  raw.pRawUrl = raw_url_.data();
  raw.RawUrlLength = static_cast<iis::USHORT>(raw_url_.size());
  raw.CookedUrl.pHost = host_.data();
  raw.CookedUrl.HostLength = static_cast<iis::USHORT>(host_.size() * 2);
}

void CFakeRequest::SetClient(const std::string& ipv4) {
  const std::uint32_t value = CIpAddress::Parse(ipv4)->Ipv4();
  iis::SOCKADDR_IN in{};
  in.sin_family = iis::kFamilyIpv4;
  in.sin_port[0] = 0x12;
  in.sin_port[1] = 0x34;
  for (int i = 0; i < 4; ++i) in.sin_addr[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
  std::memcpy(&address_, &in, sizeof(in));
}

void CFakeRequest::SetBody(const std::string& data, const std::string& type) {
  method = "POST";
  body.data = data;
  known[iis::HttpHeaderContentType] = type;
  known[iis::HttpHeaderContentLength] = std::to_string(data.size());
}

std::string CFakeRequest::ApplicationBody() const {
  std::string text;
  for (const std::string& piece : inserted) text += piece;
  return text + body.data.substr(read);
}

iis::PCSTR CFakeRequest::GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const {
  const auto found = known.find(id);
  if (found == known.end()) return nullptr;
  *length = static_cast<iis::USHORT>(found->second.size());
  return found->second.data();
}

iis::PCSTR CFakeRequest::GetHeader(iis::PCSTR name, iis::USHORT* length) const {
  for (const auto& [key, value] : unknown) {
    if (!SameName(key, name)) continue;
    *length = static_cast<iis::USHORT>(value.size());
    return value.data();
  }
  return nullptr;
}

iis::HRESULT CFakeRequest::SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL) {
  if (id == refused_header) return iis::kInvalidData;
  known[id] = std::string(value, length);
  return 0;
}

iis::PSOCKADDR CFakeRequest::GetRemoteAddress() const {
  return has_address ? reinterpret_cast<iis::PSOCKADDR>(const_cast<iis::SOCKADDR_IN6*>(&address_)) : nullptr;
}

iis::HRESULT CFakeRequest::ReadEntityBody(iis::VOID* buffer, iis::DWORD size, iis::BOOL async, iis::DWORD* received,
                                          iis::BOOL* pending) {
  EXPECT_FALSE(async);
  EXPECT_TRUE(inserted.empty()) << "a read after the insertion would give the body back a second time";
  EXPECT_LE(size, 4096u);
  ++reads;
  *pending = 0;
  *received = 0xDEADBEEF;  // means nothing unless the read succeeds
  const std::size_t count = std::min({std::size_t{size}, body.piece, body.data.size() - read});
  if (read + count > body.fail_at) {
    if (body.throws) throw std::runtime_error("the server broke");
    return body.failure;
  }
  if (count == 0) {
    end_seen_ = true;
    if (!body.empty_success_at_end) return iis::kHandleEof;
  }
  if (count != 0) std::memcpy(buffer, body.data.data() + read, count);
  read += count;
  *received = static_cast<iis::DWORD>(count) + (body.claims_more && count == size);
  return 0;
}

iis::HRESULT CFakeRequest::InsertEntityBody(iis::VOID* buffer, iis::DWORD size) {
  if (refused_inserts-- > 0) return iis::kInvalidData;
  inserted.emplace_back(static_cast<const char*>(buffer), size);
  return body.insert_result;
}

iis::DWORD CFakeRequest::GetRemainingEntityBytes() {
  if (body.length_known && !body.empty_success_at_end) return static_cast<iis::DWORD>(body.data.size() - read);
  return end_seen_ && !body.stays_unknown && !body.empty_success_at_end ? 0 : iis::kUnknownEntityLength;
}

void CFakeResponse::Rebuild() {
  raw_.Headers.UnknownHeaderCount = static_cast<iis::USHORT>(headers_.size());
  raw_.Headers.pUnknownHeaders = headers_.empty() ? nullptr : headers_.data();
  // The server keeps these three as unknown headers; their known slots are there but empty.
  for (const int id : {iis::HttpHeaderServer, iis::HttpHeaderSetCookie}) raw_.Headers.KnownHeaders[id] = {0, ""};
}

void CFakeResponse::AddChunk(const std::string& text) {
  texts_.push_back(text);
  texts_.back().shrink_to_fit();
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.FromMemory = {texts_.back().data(), static_cast<iis::ULONG>(text.size())};
  AddChunk(chunk);
}

void CFakeResponse::AddChunk(const iis::HTTP_DATA_CHUNK& chunk) {
  chunks_.resize(raw_.EntityChunkCount);  // the module may have taken some out
  chunks_.push_back(chunk);
  raw_.EntityChunkCount = static_cast<iis::USHORT>(chunks_.size());
  raw_.pEntityChunks = chunks_.data();
}

iis::HRESULT CFakeResponse::WriteEntityChunkByReference(iis::HTTP_DATA_CHUNK* chunk, iis::LONG position) {
  EXPECT_EQ(position, -1);
  if (chunk_room == 0) return static_cast<iis::HRESULT>(0x8007000EU);
  --chunk_room;
  AddChunk(*chunk);
  return 0;
}

void CFakeResponse::Add(const std::string& name, const std::string& value) {
  texts_.push_back(name);
  const std::string& kept_name = texts_.back();
  texts_.push_back(value);
  const std::string& kept_value = texts_.back();
  headers_.push_back({static_cast<iis::USHORT>(name.size()), static_cast<iis::USHORT>(value.size()), kept_name.data(),
                      value.empty() ? nullptr : kept_value.data()});
  Rebuild();
}

std::vector<std::string> CFakeResponse::Values(const std::string& name) const {
  std::vector<std::string> values;
  for (const auto& header : headers_) {
    if (!SameName({header.pName, header.NameLength}, name)) continue;
    values.emplace_back(header.pRawValue ? header.pRawValue : "", header.RawValueLength);
  }
  return values;
}

iis::HRESULT CFakeResponse::SetStatus(iis::USHORT code, iis::PCSTR text, iis::USHORT, iis::HRESULT,
                                      iis::IAppHostConfigException*, iis::BOOL skip) {
  if (iis::Failed(status_result)) return status_result;
  status = code;
  reason = text;
  skip_custom_errors = skip != 0;
  return 0;
}

iis::HRESULT CFakeResponse::SetHeader(iis::HTTP_HEADER_ID id, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  ++header_writes;
  const std::string before = replace || known[id].empty() ? "" : known[id] + ",";
  known[id] = before + std::string(value, length);
  return 0;
}

iis::HRESULT CFakeResponse::SetHeader(iis::PCSTR name, iis::PCSTR value, iis::USHORT length, iis::BOOL replace) {
  ++header_writes;
  std::string text(value, length);
  iis::USHORT held = 0;
  const char* before = replace || (SameName(name, "Set-Cookie") && !joins_cookies) ? nullptr : GetHeader(name, &held);
  if (before) text.insert(0, std::string(before, held) + ",");
  if (replace || before) DeleteHeader(name);
  Add(name, text);
  return 0;
}

iis::HRESULT CFakeResponse::DeleteHeader(iis::HTTP_HEADER_ID id) {
  known.erase(id);
  return 0;
}

iis::HRESULT CFakeResponse::DeleteHeader(iis::PCSTR name) {
  ++header_writes;
  std::erase_if(headers_, [&](const auto& header) { return SameName({header.pName, header.NameLength}, name); });
  Rebuild();
  return 0;
}

iis::PCSTR CFakeResponse::GetHeader(iis::HTTP_HEADER_ID id, iis::USHORT* length) const {
  const auto found = known.find(id);
  if (found == known.end()) return nullptr;
  *length = static_cast<iis::USHORT>(found->second.size());
  return found->second.data();
}

iis::PCSTR CFakeResponse::GetHeader(iis::PCSTR name, iis::USHORT* length) const {
  for (const auto& header : headers_) {
    if (!SameName({header.pName, header.NameLength}, name)) continue;
    *length = header.RawValueLength;
    return header.pRawValue;
  }
  return nullptr;
}

iis::VOID CFakeResponse::Clear() {
  cleared = true;
  headers_.clear();
  known.clear();
  body.clear();
  chunks_.clear();
  raw_.EntityChunkCount = 0;
  status = 200;
  Rebuild();
}

iis::HRESULT CFakeResponse::WriteEntityChunks(iis::HTTP_DATA_CHUNK* chunks, iis::DWORD count, iis::BOOL async,
                                              iis::BOOL more, iis::DWORD*, iis::BOOL*) {
  EXPECT_FALSE(async);
  for (iis::DWORD i = 0; i < count; ++i) {
    EXPECT_EQ(chunks[i].DataChunkType, iis::HttpDataChunkFromMemory);
    body.append(static_cast<const char*>(chunks[i].FromMemory.pBuffer), chunks[i].FromMemory.BufferLength);
  }
  more_data = more != 0;
  return 0;
}

iis::HRESULT CFakeContainer::SetModuleContext(iis::IHttpStoredContext* context, iis::HTTP_MODULE_ID) {
  ++sets;
  if (stored) return iis::kAlreadyAssigned;  // also for the object it holds
  if (iis::Failed(refuse)) return refuse;
  stored = context;
  return 0;
}

void CFakeContainer::End() {
  if (stored) std::exchange(stored, nullptr)->CleanupStoredContext();
}

iis::IHttpResponse* CFakeContext::GetResponse() {
  if (throws_in_response) throw std::runtime_error("no response today");
  return has_response ? &response : nullptr;
}

iis::HRESULT CFakeContext::GetServerVariable(iis::PCSTR name, iis::PCSTR* value, iis::DWORD* length) {
  const auto found = variables.find(name);
  if (found == variables.end()) return iis::kInvalidIndex;
  *value = found->second.data();
  *length = static_cast<iis::DWORD>(found->second.size());
  return 0;
}

iis::VOID* CFakeContext::AllocateRequestMemory(iis::DWORD size) {
  if (size > memory_limit) return nullptr;
  memory.emplace_back(std::unique_ptr<char[]>(new char[size]), size);
  return memory.back().first.get();
}

}  // namespace qiv::test

#include "host/in_process.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "host/ascii.h"
#include "host/file_handle.h"
#include "host/header_names.h"
#include "host/http_parser.h"
#include "host/pipeline.h"
#include "host/response_framer.h"
#include "host/results.h"
#include "iis/data_chunk.h"
#include "iis/header_names.h"

namespace qiv::host {
namespace {

/// Takes the place of the socket: body from the request record, response into the result.
class CInProcessWire final : public IWire {
 public:
  CInProcessWire(const InProcessRequest& request, bool keep_alive, InProcessResponse* response)
      : request_(request), response_(response), framer_(request.method == "HEAD", request.minor_version, keep_alive) {}

  BodyRead ReadBody(char* buffer, std::size_t size, std::size_t* got) override {
    if (request_.body_stream) {
      const std::int64_t count = request_.body_stream(buffer, size);
      if (count <= 0) return count == 0 ? BodyRead::kEnd : BodyRead::kLost;
      *got = static_cast<std::size_t>(count);
      return BodyRead::kData;
    }
    const std::size_t take = std::min(size, request_.body.size() - body_at_);
    // A body shorter than its Content-Length is a client that went away.
    if (take == 0) return request_.chunked ? BodyRead::kEnd : BodyRead::kLost;
    std::memcpy(buffer, request_.body.data() + body_at_, take);
    body_at_ += take;
    *got = take;
    return BodyRead::kData;
  }

  bool Send(const OutgoingPiece& piece, std::size_t* sent) override {
    ++response_->sends;
    if (piece.with_head) {
      std::string head;
      framer_.AppendHead(piece, BodyBytes(piece), &head);
      TakeHead(head);
    }
    const std::size_t before = response_->body.size();
    for (std::size_t i = 0; i < piece.chunk_count; ++i) AppendChunk(piece.chunks[i]);
    *sent = response_->body.size() - before;
    if (!piece.more_data) framer_.End();
    response_->closed = !framer_.keep_alive();
    response_->length_mismatch = framer_.mismatch();
    return true;
  }

  bool IsConnected() override { return !response_->reset; }
  void Reset() override { response_->reset = response_->closed = true; }
  void SendContinue() override {}

 private:
  void TakeHead(std::string_view head) {
    response_->sent = true;
    std::size_t end = head.find("\r\n");
    const std::string_view line = head.substr(0, end);
    response_->status = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
    response_->reason = line.substr(13);
    for (head.remove_prefix(end + 2); (end = head.find("\r\n")) != 0; head.remove_prefix(end + 2)) {
      const std::string_view field = head.substr(0, end);
      const std::size_t colon = field.find(": ");
      response_->headers.push_back({std::string(field.substr(0, colon)), std::string(field.substr(colon + 2))});
    }
  }

  void AppendChunk(const iis::HTTP_DATA_CHUNK& chunk) {
    std::string& body = response_->body;
    if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
      const auto* data = static_cast<const char*>(chunk.FromMemory.pBuffer);
      body.append(data, static_cast<std::size_t>(framer_.Admit(chunk.FromMemory.BufferLength)));
    } else if (chunk.DataChunkType == iis::HttpDataChunkFromFileHandle) {
      std::uint64_t offset = chunk.FromFileHandle.ByteRange.StartingOffset;
      std::uint64_t left = chunk.FromFileHandle.ByteRange.Length;
      char buffer[4096];
      while (left > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, sizeof buffer));
        const std::int64_t got = ReadAt(chunk.FromFileHandle.FileHandle, offset, buffer, wanted);
        if (got <= 0) break;
        offset += static_cast<std::uint64_t>(got);
        left -= static_cast<std::uint64_t>(got);
        body.append(buffer, static_cast<std::size_t>(framer_.Admit(static_cast<std::uint64_t>(got))));
      }
    }
  }

  const InProcessRequest& request_;
  InProcessResponse* const response_;
  CResponseFramer framer_;
  std::size_t body_at_ = 0;
};

void ListHeaders(const iis::HTTP_REQUEST_HEADERS& headers, std::vector<HeaderField>* out) {
  for (int id = 0; id < iis::HttpHeaderRequestMaximum; ++id) {
    const iis::HTTP_KNOWN_HEADER& header = headers.KnownHeaders[id];
    if (header.pRawValue == nullptr) continue;
    out->push_back({std::string(iis::RequestHeaderName(id)), std::string(header.pRawValue, header.RawValueLength)});
  }
  for (std::size_t i = 0; i < headers.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    const char* text = header.pRawValue == nullptr ? "" : header.pRawValue;
    out->push_back({std::string(header.pName, header.NameLength), std::string(text, header.RawValueLength)});
  }
}

class CFunctionHandler final : public IRequestHandler {
 public:
  CFunctionHandler(const InProcessRequest& request, const InProcessHandler& handler, InProcessResponse* response)
      : request_(request), handler_(handler), response_(response) {}

  void Execute(CHostContext& context) override {
    response_->handler_ran = true;
    ListHeaders(context.request().GetRawHttpRequest()->Headers, &response_->handler_headers);
    if (request_.read_body_for_handler) {
      response_->handler_read_result = ReadEntity(context, &response_->handler_body);
    }
    handler_(context);
  }

 private:
  const InProcessRequest& request_;
  const InProcessHandler& handler_;
  InProcessResponse* const response_;
};

bool HasHeader(const std::vector<HeaderField>& headers, std::string_view name) {
  return std::any_of(headers.begin(), headers.end(),
                     [&](const HeaderField& field) { return EqualsIgnoreCase(field.name, name); });
}

/// The request's headers with those that a real client would have added.
std::vector<HeaderField> CompleteHeaders(const InProcessRequest& request) {
  std::vector<HeaderField> headers = request.headers;
  if (request.minor_version >= 1 && !HasHeader(headers, "Host")) headers.push_back({"Host", "localhost"});
  if (request.chunked && !HasHeader(headers, "Transfer-Encoding")) headers.push_back({"Transfer-Encoding", "chunked"});
  if (!request.chunked && !request.body.empty() && !HasHeader(headers, "Content-Length")) {
    headers.push_back({"Content-Length", std::to_string(request.body.size())});
  }
  return headers;
}

InProcessResponse Refused(int status, const char* reason) {
  InProcessResponse response;
  response.refused = true;
  response.closed = true;
  response.status = status;
  response.reason = ReasonOf(status);
  response.body = reason;
  return response;
}

RequestInput MakeInput(const InProcessRequest& request, const std::vector<HeaderView>& views) {
  static std::atomic<std::uint64_t> next_id{1};
  RequestInput input;
  input.method = request.method;
  input.raw_url = request.raw_url;
  input.headers = views;
  input.major_version = request.major_version;
  input.minor_version = request.minor_version;
  input.chunked = request.chunked;
  input.secure = request.secure;
  input.warm_up = request.warm_up;
  input.request_id = next_id.fetch_add(1);
  input.connection_id = input.request_id;
  for (const HeaderView& header : views) {
    std::uint64_t length = 0;
    if (EqualsIgnoreCase(header.name, "Host")) input.host = header.value;
    if (EqualsIgnoreCase(header.name, "Content-Length") && ParseDecimal(header.value, &length)) {
      input.content_length = length;
    }
  }
  if (!ParseAddress(request.remote_address, request.remote_port, &input.remote)) input.remote.any.sa_family = 0;
  ParseAddress(request.local_address, request.local_port, &input.local);
  if (request.remote_family != 0) input.remote.any.sa_family = request.remote_family;
  return input;
}

}  // namespace

std::optional<std::string> InProcessResponse::Header(std::string_view name) const {
  for (const HeaderField& field : headers) {
    if (EqualsIgnoreCase(field.name, name)) return field.value;
  }
  return std::nullopt;
}

std::vector<std::string> InProcessResponse::Headers(std::string_view name) const {
  std::vector<std::string> values;
  for (const HeaderField& field : headers) {
    if (EqualsIgnoreCase(field.name, name)) values.push_back(field.value);
  }
  return values;
}

iis::HRESULT WriteText(iis::IHttpContext& context, std::string_view text, bool more_data) {
  iis::HTTP_DATA_CHUNK chunk = iis::MakeMemoryChunk(text.data(), text.size());
  iis::DWORD sent = 0;
  return context.GetResponse()->WriteEntityChunks(&chunk, 1, 0, more_data, &sent, nullptr);
}

iis::HRESULT ReadEntity(iis::IHttpContext& context, std::string* body) {
  iis::IHttpRequest* request = context.GetRequest();
  std::vector<char> buffer(16384);
  for (;;) {
    iis::DWORD got = 0;
    const iis::HRESULT result =
        request->ReadEntityBody(buffer.data(), static_cast<iis::DWORD>(buffer.size()), 0, &got, nullptr);
    if (iis::Failed(result)) return result;
    body->append(buffer.data(), got);
  }
}

InProcessHandler AnswerWith(int status, std::string body, std::vector<HeaderField> headers) {
  return [status, body = std::move(body), headers = std::move(headers)](iis::IHttpContext& context) {
    iis::IHttpResponse* response = context.GetResponse();
    const std::string reason(ReasonOf(status));
    response->SetStatus(static_cast<iis::USHORT>(status), reason.c_str(), 0, kOk, nullptr, 1);
    for (const HeaderField& field : headers) {
      const bool repeats = EqualsIgnoreCase(field.name, "Set-Cookie");
      response->SetHeader(field.name.c_str(), field.value.c_str(), static_cast<iis::USHORT>(field.value.size()),
                          !repeats);
    }
    WriteText(context, body);
  };
}

InProcessResponse RunInProcess(CModuleHost& host, const InProcessRequest& request, const InProcessHandler& handler) {
  static const InProcessHandler kDefault =
      AnswerWith(200, "<html><body>ok</body></html>", {{"Content-Type", "text/html"}});
  const std::vector<HeaderField> headers = CompleteHeaders(request);
  std::vector<HeaderView> views;
  for (const HeaderField& field : headers) views.push_back({field.name, field.value});
  const RequestInput input = MakeInput(request, views);
  const bool keep_alive = request.minor_version >= 1;

  InProcessResponse response;
  CRequestMemory memory;
  CInProcessWire wire(request, keep_alive, &response);
  CHostConnection connection(wire);
  InProcessResponse unused;
  CInProcessWire parent_wire(request, keep_alive, &unused);
  CHostContext parent(host, input, parent_wire, memory, nullptr, nullptr);
  CHostContext context(host, input, wire, memory, request.warm_up ? nullptr : &connection,
                       request.is_child ? &parent : nullptr);
  context.trace = &response.notifications;
  const char* reason = "";
  if (!context.request().Build(input, &reason)) return Refused(400, reason);
  CFunctionHandler function(request, handler ? handler : kDefault, &response);
  RunPipeline(context, function);
  response.finished = context.finished;
  response.error_body = context.response().replaced_body();
  response.kernel_cache_disabled = context.response().kernel_cache_reasons();
  return response;
}

std::optional<InProcessRequest> ParseRawRequest(std::string_view text, const HostOptions& options, int* status,
                                                std::string* error) {
  RequestHead head;
  const ParseResult result = ParseRequestHead(text, options, &head);
  *status = 400;
  if (result.status != ParseStatus::kComplete) {
    const bool refused = result.status == ParseStatus::kRefused;
    if (refused) *status = result.refusal_status;
    *error = refused ? result.refusal : "The request is not complete.";
    return std::nullopt;
  }
  InProcessRequest request;
  request.method = head.method;
  request.raw_url = head.raw_url;
  request.minor_version = static_cast<iis::USHORT>(head.minor_version);
  request.chunked = head.chunked;
  for (const HeaderView& header : head.headers) {
    request.headers.push_back({std::string(header.name), std::string(header.value)});
  }
  std::string_view rest = text.substr(head.size);
  if (head.chunked) {
    CChunkedDecoder decoder;
    std::string body(rest.size(), '\0');
    std::size_t got = 0;
    if (decoder.Decode(&rest, body.data(), body.size() + 1, &got) != CChunkedDecoder::Status::kDone) {
      *error = "The chunked body is malformed or not complete.";
      return std::nullopt;
    }
    body.resize(got);
    request.body = std::move(body);
  } else {
    const std::uint64_t length = head.content_length.value_or(0);
    if (length > rest.size()) {
      *error = "The body is shorter than its Content-Length.";
      return std::nullopt;
    }
    request.body = rest.substr(0, static_cast<std::size_t>(length));
  }
  *status = 0;
  return request;
}

}  // namespace qiv::host

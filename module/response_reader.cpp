#include "module/response_reader.h"

#include <algorithm>
#include <limits>

#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "module/server_text.h"
#include "port/file.h"

namespace qiv {
namespace {

// Longer than what any rule for responses wants to see together.
constexpr std::size_t kPieceOverlap = 2048;

const iis::HTTP_RESPONSE* RawResponse(iis::IHttpContext& context) {
  const iis::IHttpResponse* const response = context.GetResponse();
  return response ? response->GetRawHttpResponse() : nullptr;
}

std::string_view ResponseHeader(const iis::IHttpResponse& response, iis::HTTP_HEADER_ID id) {
  iis::USHORT length = 0;
  const char* value = response.GetHeader(id, &length);
  return value ? Trim(ServerText(value, length)) : std::string_view();
}

enum class TextKind { kNone, kPage, kData };

/// A response without a type is a page: browsers take it for one if it looks like one.
TextKind KindOf(std::string_view type) {
  constexpr std::string_view kPages[] = {"text/html", "text/plain", "application/xhtml"};
  constexpr std::string_view kData[] = {"application/json",     "text/json",
                                        "application/xml",      "text/xml",
                                        "application/soap+xml", "application/problem+json"};
  const auto begins = [type](std::string_view known) { return BeginsNoCase(type, known); };
  if (type.empty() || std::any_of(std::begin(kPages), std::end(kPages), begins)) return TextKind::kPage;
  return std::any_of(std::begin(kData), std::end(kData), begins) ? TextKind::kData : TextKind::kNone;
}

bool IsPlainlyEncoded(const iis::IHttpResponse& response) {
  const std::string_view encoding = ResponseHeader(response, iis::HttpHeaderContentEncoding);
  return encoding.empty() || EqualNoCase(encoding, "identity");
}

iis::HTTP_DATA_CHUNK MemoryChunk(const char* data, std::size_t size) {
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = iis::HttpDataChunkFromMemory;
  chunk.FromMemory.pBuffer = const_cast<char*>(data);
  chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(size);
  return chunk;
}

/// What was said of a body that is another one now.
void DropBodyHeaders(iis::IHttpResponse& response) {
  for (const iis::HTTP_HEADER_ID id : {iis::HttpHeaderContentLength, iis::HttpHeaderContentMd5,
                                       iis::HttpHeaderAcceptRanges, iis::HttpHeaderEtag, iis::HttpHeaderLastModified}) {
    response.DeleteHeader(id);
  }
  for (const char* const name : {"Digest", "Content-Digest", "Repr-Digest"}) response.DeleteHeader(name);
}

/// Edits with little between them as one: a chunk costs more than to copy that.
TextEdits Gathered(std::string_view text, const TextEdits& edits) {
  constexpr std::size_t kLittle = 4096;
  TextEdits gathered;
  for (const TextEdit& edit : edits) {
    TextPlace& last = gathered.empty() ? gathered.emplace_back(edit).place : gathered.back().place;
    const std::size_t end = last.offset + last.length;
    if (&edit == &edits.front()) continue;
    if (edit.place.offset - end > kLittle) {
      gathered.push_back(edit);
      continue;
    }
    AppendAll(&gathered.back().text, {text.substr(end, edit.place.offset - end), edit.text});
    last.length = edit.place.offset + edit.place.length - last.offset;
  }
  return gathered;
}

}  // namespace

std::size_t WantedResponseBytes(const WebsiteConfig& config) {
  const BaseSettings& base = config.base;
  const RequestSettings& request = config.request;
  const unsigned uses = (request.ill_block_webout ? unsigned{kWordBlock} : 0U) |
                        (request.ill_replace_webout ? unsigned{kWordReplace} : 0U) |
                        (request.ill_record_webout ? unsigned{kWordRecord} : 0U);
  if ((uses & config.words.words.Uses()) != 0 || !config.script.urls.Empty()) return kMostEditedBytes;
  const bool heads =
      (base.trojan && base.trojan_webout) || (base.badcode && base.badcode_webout) || (base.url && base.url_dir_list);
  return heads ? kMostResponseBytes : 0;
}

/// False when not all of the chunk that was wanted could be had.
bool CResponseReader::ReadChunk(const iis::HTTP_DATA_CHUNK& chunk, std::size_t room, Piece* piece) {
  piece->begin = room_.size();
  if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
    const std::size_t size = chunk.FromMemory.BufferLength;
    if (!chunk.FromMemory.pBuffer) return size == 0;
    piece->length = std::min(size, room);
    piece->ends = piece->length == size;
    room_.append(static_cast<const char*>(chunk.FromMemory.pBuffer), piece->length);
    return true;
  }
  if (chunk.DataChunkType != iis::HttpDataChunkFromFileHandle) return false;
  const iis::HTTP_BYTE_RANGE& range = chunk.FromFileHandle.ByteRange;
  // One byte more tells whether the file goes on.
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(range.Length, room + 1));
  std::string part;
  const bool read =
      ReadHandlePart(chunk.FromFileHandle.FileHandle, range.StartingOffset, wanted, &part) == ReadFileResult::kOk;
  piece->length = std::min(part.size(), room);
  piece->ends = part.size() <= room;
  room_.append(part, 0, piece->length);
  return read && (range.Length == iis::HTTP_BYTE_RANGE_TO_EOF || part.size() == wanted);
}

ResponseText CResponseReader::Read(std::size_t most) {
  ResponseText answer;
  const iis::HTTP_RESPONSE* const raw = RawResponse(context_);
  if (!raw || raw->EntityChunkCount == 0 || context_.GetResponseHeadersSent()) return answer;
  if (ReadHead(*raw, &answer)) ReadChunks(*raw, most, &answer);
  return answer;
}

/// False when the answer is none that can be looked at.
bool CResponseReader::ReadHead(const iis::HTTP_RESPONSE& raw, ResponseText* answer) const {
  const iis::IHttpResponse& response = *context_.GetResponse();
  answer->type = ResponseHeader(response, iis::HttpHeaderContentType);
  const TextKind kind = KindOf(answer->type);
  if (kind == TextKind::kNone || !IsPlainlyEncoded(response)) return false;
  answer->page = kind == TextKind::kPage;
  answer->status = raw.StatusCode;
  constexpr int kPartialContent = 206;
  answer->may_change =
      answer->status != kPartialContent && ResponseHeader(response, iis::HttpHeaderContentRange).empty();
  return true;
}

void CResponseReader::ReadChunks(const iis::HTTP_RESPONSE& raw, std::size_t most, ResponseText* answer) {
  const std::size_t count = raw.pEntityChunks ? raw.EntityChunkCount : 0;
  for (std::size_t i = 0; i < count && room_.size() < most; ++i) {
    if (count == 1 && room_.empty() && raw.pEntityChunks[0].DataChunkType == iis::HttpDataChunkFromMemory) {
      // Most pages: they are looked at where they are.
      const auto& memory = raw.pEntityChunks[0].FromMemory;
      const std::size_t size = memory.pBuffer ? memory.BufferLength : 0;
      text_ = {static_cast<const char*>(memory.pBuffer), std::min(size, most)};
      pieces_.push_back({0, text_.size(), text_.size() == size});
      break;
    }
    Piece piece;
    answer->may_change = ReadChunk(raw.pEntityChunks[i], most - room_.size(), &piece) && answer->may_change;
    pieces_.push_back(piece);
  }
  if (!room_.empty()) text_ = room_;
  answer->text = text_;
  answer->whole = pieces_.size() == count &&
                  std::all_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) { return piece.ends; });
}

ResponseText CResponseReader::ReadPiece(bool first, StreamedAnswer* streamed) {
  ResponseText answer;
  const iis::HTTP_RESPONSE* const raw = RawResponse(context_);
  if (!raw || (first && !ReadHead(*raw, &answer))) {
    streamed->left = 0;
    return answer;
  }
  if (first) {
    streamed->type = answer.type;
    streamed->page = answer.page;
    streamed->status = answer.status;
  }
  room_ = streamed->end;
  ReadChunks(*raw, room_.size() + streamed->left, &answer);
  const bool more = text_.size() > streamed->end.size();
  // What is read again counts as well: an answer of many small pieces costs no more than another.
  streamed->left -= std::min(streamed->left, more ? text_.size() : 0);
  streamed->end = text_.substr(text_.size() - std::min(text_.size(), kPieceOverlap));
  answer.part = first ? ResponsePart::kFirstPiece : ResponsePart::kLaterPiece;
  answer.type = streamed->type;
  answer.page = streamed->page;
  answer.status = streamed->status;
  answer.whole = answer.may_change = false;
  if (!more) answer.text = {};
  return answer;
}

void CResponseReader::DropPiece() {
  if (iis::IHttpResponse* const response = context_.GetResponse()) {
    if (iis::HTTP_RESPONSE* const raw = response->GetRawHttpResponse()) raw->EntityChunkCount = 0;
  }
}

/// Bytes `from` to `to` of the text, as far as the chunk gave them.
void CResponseReader::AppendPart(const iis::HTTP_DATA_CHUNK& chunk, const Piece& piece, std::size_t from,
                                 std::size_t to, std::vector<iis::HTTP_DATA_CHUNK>* chunks) const {
  const std::size_t begin = std::max(from, piece.begin);
  const std::size_t end = std::min(to, piece.begin + piece.length);
  if (begin >= end) return;
  const std::size_t skipped = begin - piece.begin;
  iis::HTTP_DATA_CHUNK part = chunk;
  if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
    part = MemoryChunk(static_cast<const char*>(chunk.FromMemory.pBuffer) + skipped, end - begin);
  } else {
    part.FromFileHandle.ByteRange = {chunk.FromFileHandle.ByteRange.StartingOffset + skipped, end - begin};
  }
  chunks->push_back(part);
}

void CResponseReader::Edit(const TextEdits& edits) {
  iis::IHttpResponse* const response = context_.GetResponse();
  const iis::HTTP_RESPONSE* const raw = response ? response->GetRawHttpResponse() : nullptr;
  if (!raw || edits.empty()) return;
  const TextEdits gathered = Gathered(text_, edits);
  std::vector<iis::HTTP_DATA_CHUNK> chunks;
  std::size_t next = 0;  // edit
  std::size_t at = 0;    // in the text
  for (std::size_t i = 0; i < raw->EntityChunkCount; ++i) {
    const iis::HTTP_DATA_CHUNK& chunk = raw->pEntityChunks[i];
    if (i >= pieces_.size()) {
      chunks.push_back(chunk);
      continue;
    }
    const Piece& piece = pieces_[i];
    const std::size_t end = piece.begin + piece.length;
    const bool last = i + 1 == pieces_.size();
    for (; next < gathered.size() && (last || gathered[next].place.offset < end); ++next) {
      const TextEdit& edit = gathered[next];
      AppendPart(chunk, piece, at, edit.place.offset, &chunks);
      const char* const kept = edit.text.empty() ? nullptr : CopyToRequestMemory(context_, edit.text);
      if (!kept && !edit.text.empty()) return;
      if (kept) chunks.push_back(MemoryChunk(kept, edit.text.size()));
      at = edit.place.offset + edit.place.length;
    }
    AppendPart(chunk, piece, at, end, &chunks);
    at = std::max(at, end);
    if (piece.ends || piece.length == 0) continue;
    iis::HTTP_DATA_CHUNK rest = chunk;
    if (chunk.DataChunkType == iis::HttpDataChunkFromMemory) {
      rest = MemoryChunk(static_cast<const char*>(chunk.FromMemory.pBuffer) + piece.length,
                         chunk.FromMemory.BufferLength - piece.length);
    } else {
      iis::HTTP_BYTE_RANGE& range = rest.FromFileHandle.ByteRange;
      range.StartingOffset += piece.length;
      if (range.Length != iis::HTTP_BYTE_RANGE_TO_EOF) range.Length -= piece.length;
    }
    chunks.push_back(rest);
  }
  if (Replace(chunks)) DropBodyHeaders(*response);
}

/// The chunks in place of those that are there. The server makes room for them by taking some more of what there is;
/// then they are written over. False when it makes none.
bool CResponseReader::Replace(const std::vector<iis::HTTP_DATA_CHUNK>& chunks) {
  iis::IHttpResponse& response = *context_.GetResponse();
  iis::HTTP_RESPONSE& raw = *response.GetRawHttpResponse();
  const iis::USHORT before = raw.EntityChunkCount;
  if (chunks.size() > std::numeric_limits<iis::USHORT>::max()) return false;
  // Each stays as long as the request: the server may keep it by reference.
  auto* const kept = static_cast<iis::HTTP_DATA_CHUNK*>(context_.AllocateRequestMemory(
      static_cast<iis::DWORD>(std::max<std::size_t>(chunks.size(), 1) * sizeof(iis::HTTP_DATA_CHUNK))));
  if (!kept) return false;
  std::copy(chunks.begin(), chunks.end(), kept);
  for (std::size_t i = before; i < chunks.size(); ++i) {
    if (iis::Failed(response.WriteEntityChunkByReference(kept + i, -1))) {
      raw.EntityChunkCount = before;
      return false;
    }
  }
  std::copy(chunks.begin(), chunks.end(), raw.pEntityChunks);
  raw.EntityChunkCount = static_cast<iis::USHORT>(chunks.size());
  return true;
}

}  // namespace qiv

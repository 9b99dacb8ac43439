// Reads what the application answers, and changes it as checks decided.
//
// Nothing of a response is held back: what is on its way already is not read, and what stays behind the bytes that are
// read stays where it is, in memory or in its file. An answer that goes out before it is whole is read piece by piece,
// each together with the end of the one before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "iis/httpserv.h"

namespace qiv {

struct WebsiteConfig;

/// Bytes of a response that are read: what is looked for stands at its head.
inline constexpr std::size_t kMostResponseBytes = 256 * 1024;
/// And where words are looked for or a script is inserted: all but a few pages whole.
inline constexpr std::size_t kMostEditedBytes = 4 * 1024 * 1024;

/// And of an answer that goes out in pieces, in all: many pages whole, and still no more than some milliseconds.
inline constexpr std::size_t kMostStreamedBytes = 4 * 1024 * 1024;

/// An answer that goes out in pieces. Used by one notification of its request at a time.
struct StreamedAnswer {
  std::string type;  ///< its Content-Type
  int status = 200;
  bool page = true;
  bool dropped = false;                   ///< nothing more of it goes out
  std::string end;                        ///< of what was read last
  std::size_t left = kMostStreamedBytes;  ///< what is still read of it
};

/// How much of a response the checks of the site want; 0: none of it.
std::size_t WantedResponseBytes(const WebsiteConfig& config);

/// The response of one notification. Views that it gave are valid as long as it is, and until Edit.
class CResponseReader {
 public:
  explicit CResponseReader(iis::IHttpContext& context) : context_(context) {}

  /// Its head of at most `most` bytes. Text alone is read (HTML, plain text, JSON, XML; also without a type), as long
  /// as it is uncompressed and no header was sent. Nothing of the response changes.
  ResponseText Read(std::size_t most);

  /// The piece that goes out now. The first one comes with the headers, and says of what kind the answer is; a later
  /// one begins with the end of the one before, so that what lies across the border is there whole. Empty when the
  /// answer is no text, and when enough of it was read. A piece cannot be changed.
  ResponseText ReadPiece(bool first, StreamedAnswer* answer);
  /// Takes all of the piece away.
  void DropPiece();

  /// Does the edits, places of the text that was read, where that may change. Length, validators and ranges of what the
  /// body was go. Without memory the response stays as it was.
  void Edit(const TextEdits& edits);

 private:
  // What was read of a chunk.
  struct Piece {
    std::size_t begin = 0;  // in the text
    std::size_t length = 0;
    bool ends = false;  // nothing of the chunk is left
  };
  bool ReadHead(const iis::HTTP_RESPONSE& raw, ResponseText* answer) const;
  void ReadChunks(const iis::HTTP_RESPONSE& raw, std::size_t most, ResponseText* answer);
  bool ReadChunk(const iis::HTTP_DATA_CHUNK& chunk, std::size_t room, Piece* piece);
  void AppendPart(const iis::HTTP_DATA_CHUNK& chunk, const Piece& piece, std::size_t from, std::size_t to,
                  std::vector<iis::HTTP_DATA_CHUNK>* chunks) const;
  bool Replace(const std::vector<iis::HTTP_DATA_CHUNK>& chunks);

  iis::IHttpContext& context_;
  std::string_view text_;
  std::string room_;           // of a text in several chunks, or in a file
  std::vector<Piece> pieces_;  // of the first chunks
};

}  // namespace qiv

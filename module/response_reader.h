// Reads what the application answers, and changes it as checks decided.
//
// Nothing of a response is held back: what is on its way already is not read, and what stays behind the bytes that are
// read stays where it is, in memory or in its file.
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

/// How much of a response the checks of the site want; 0: none of it.
std::size_t WantedResponseBytes(const WebsiteConfig& config);

/// The response of one notification. Views that it gave are valid as long as it is, and until Edit.
class CResponseReader {
 public:
  explicit CResponseReader(iis::IHttpContext& context) : context_(context) {}

  /// Its head of at most `most` bytes. Text alone is read (HTML, plain text, JSON, XML; also without a type), as long
  /// as it is uncompressed and no header was sent. Nothing of the response changes.
  ResponseText Read(std::size_t most);

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

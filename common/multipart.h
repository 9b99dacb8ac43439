// Reads multipart bodies in every way in which a server's parser may read them.
//
// Parsers differ: in what is a delimiter (a line that equals "--" and the boundary; a line that begins with it; any
// place where it stands), in where the headers of a part end, in quotes, escapes and repeated parameters. Who uploads
// a file past a filter lets the filter read one file and the application another. So each reading is handed out: parts
// by every reading of the delimiters that makes a difference in this body, file names by every reading of the value.
// An ordinary body has one reading and is passed over once.
//
// Everything is a view into the body. No recursion; work is bounded by kMostPasses passes over the body.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// How much of a line a delimiter must be. Each reading finds all that the readings before it find.
enum class DelimiterReading {
  kExactLine,  ///< the whole line: the delimiter, or the delimiter and "--"
  kLine,       ///< blanks may follow, anything may follow "--"
  kLineStart,  ///< anything may follow
  kAnywhere,   ///< it may stand inside a line, or behind a lone carriage return
};

/// A stretch between two delimiters.
struct MultipartPiece {
  enum Place { kBefore, kPart, kAfterLast };
  std::string_view text;  ///< without the line end that belongs to the delimiter behind it, but for kBefore
  Place place = kBefore;
};

/// Takes a body apart at one delimiter ("--" and the boundary). Linear but for kAnywhere, where a byte is compared up
/// to once per byte of the delimiter.
class CMultipartReader {
 public:
  /// `delimiter` holds no line feed.
  CMultipartReader(std::string_view text, std::string_view delimiter, DelimiterReading reading)
      : text_(text), delimiter_(delimiter), reading_(reading) {}

  /// False at the end. Pieces are in order; an empty one is handed out too.
  bool Next(MultipartPiece* piece);

  /// Of the delimiters passed so far, whether one needed this reading and no stricter one.
  bool Saw(DelimiterReading reading) const { return seen_[static_cast<std::size_t>(reading)]; }

 private:
  std::size_t FindNext();
  DelimiterReading Classify(std::size_t at) const;

  std::string_view text_;
  std::string_view delimiter_;
  DelimiterReading reading_;
  std::size_t begin_ = 0;  // of the next piece
  std::size_t from_ = 0;   // where the search for the next delimiter begins
  bool done_ = false;
  MultipartPiece::Place place_ = MultipartPiece::kBefore;
  std::array<bool, 4> seen_{};
};

/// Bytes of a part's headers that are read.
inline constexpr std::size_t kLongestPartHead = 16 * 1024;
/// Readings of file names that are kept of one part; an ordinary part has one, rarely two.
inline constexpr std::size_t kMostFileNames = 8;
/// Bytes of a file name that are kept; no file system takes one as long.
inline constexpr std::size_t kLongestFileName = 4096;

/// What the headers of a part say. Views into the part.
struct PartHead {
  enum Encoding { kPlain, kBase64, kQuotedPrintable };

  std::string_view name;  ///< of the form's field; the last one stated
  std::array<std::string_view, kMostFileNames> file_names;
  std::size_t file_name_count = 0;
  bool has_file_name = false;  ///< a "filename" parameter stands there, be it empty
  bool too_many_file_names = false;
  /// Without control and non-ASCII bytes more "filename=" stand there: some parsers join broken lines, others compare
  /// texts without characters that are not shown.
  bool hidden_file_name = false;
  std::string_view content_type;
  Encoding encoding = kPlain;
};

struct MultipartPart {
  std::string_view text;  ///< headers and content
  /// All headers, without the blank line; empty when there is none.
  std::string_view head_text;
  /// What follows the first blank line in any reading; everything when there is no blank line.
  std::string_view content;
  /// What follows the first line that is blank in the strictest reading; the same as `content` unless a part mixes line
  /// ends.
  std::string_view late_content;
  PartHead head;
  bool head_too_long = false;  ///< no blank line within kLongestPartHead, and a content disposition somewhere
};

/// Splits the text of a piece into headers and content, and reads the headers.
MultipartPart ReadPart(std::string_view piece);

/// The first line that begins with "--" and stands before a line "Content-...", without trailing blanks: a delimiter
/// that needs no Content-Type. Empty when there is none. `*at`: where it stands.
std::string_view GuessDelimiter(std::string_view text, std::size_t* at);

/// What keeps a body from being read in all of its readings. No ordinary client makes such a body.
enum class MultipartFault {
  kNone,
  kBoundaryTooLong,
  kTooManyReadings,
  kTooDeep,
  kHeadTooLong,
  kTooManyFileNames,
  kHiddenFileName,
  kTooManyParts,
  kBoundaryBytes,  ///< a boundary that is not ASCII: parsers replace its other bytes
  kCharset,        ///< headers in a charset in which ASCII bytes are not ASCII characters, such as UTF-7 and EBCDIC
};

/// The longest boundary, in bytes. The standard allows 70.
inline constexpr std::size_t kLongestBoundary = 256;
/// Passes over bytes of the body, in multiples of its length: a body with one boundary read in one way takes one, one
/// that nests a body in it two.
inline constexpr std::size_t kMostPasses = 12;
/// Parts that are handed out, over all readings; servers take a thousand of one body.
inline constexpr std::size_t kMostParts = 100'000;
/// Parts inside parts.
inline constexpr int kDeepestPart = 3;

/// Whether a body of this type is taken apart: the type names parts or a boundary, or the body begins like parts.
bool IsMultipartBody(std::string_view content_type, std::string_view body);

/// Calls visit(part) for every part of `body` in every reading, nested parts too, and for what stands before, between
/// and behind parts when it is not blank, until it returns false. A body without a delimiter is one part.
MultipartFault ForEachPart(std::string_view content_type, std::string_view body,
                           const std::function<bool(const MultipartPart&)>& visit);

/// A value of a header's parameter that begins at `*pos`, quoted by '"' or "'" or not, moving `*pos` behind it: a
/// backslash keeps a quote in the value, and so does a GBK lead byte a backslash.
std::string_view TakeHeaderValue(std::string_view text, std::size_t* pos);

}  // namespace qiv

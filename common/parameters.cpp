// The shared parameter splitter.
//
// Multipart bodies are read (multipart.h) without knowing the Content-Type header: the first line that begins with "--"
// and stands before a line beginning with "content-" names the boundary. Browsers, libraries and attackers differ in
// line ends, quotes, blanks after a boundary, preambles and missing last boundaries; all are read, and every byte that
// could be a value is handed out by one of the parameters. Lines are visited once, and a boundary holds no line feed,
// so that a search for it compares no byte of the text twice: linear.
#include "common/multipart.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;

using Visitor = std::function<bool(const Parameter&)>;

// This and the following visit functions return false when the visitor did.
bool VisitForm(std::string_view text, const Visitor& visit) {
  while (!text.empty()) {
    const std::size_t end = text.find('&');
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(end == kEnd ? text.size() : end + 1);
    if (piece.empty()) continue;
    const std::size_t equals = piece.find('=');
    if (!visit(equals == kEnd ? Parameter{{}, piece} : Parameter{piece.substr(0, equals), piece.substr(equals + 1)})) {
      return false;
    }
  }
  return true;
}

// One part, without the delimiters around it.
bool VisitPart(std::string_view piece, const Visitor& visit) {
  const MultipartPart part = ReadPart(piece);
  if (part.head_text.find('&') != kEnd && !VisitForm(part.head_text, visit)) return false;
  for (std::size_t i = 0; i < part.head.file_name_count; ++i) {
    if (!visit({"filename", part.head.file_names[i], true})) return false;
  }
  return part.content.empty() || visit({part.head.name, part.content});
}

bool VisitMultipart(std::string_view text, std::string_view delimiter, const Visitor& visit) {
  CMultipartReader reader(text, delimiter, DelimiterReading::kLine);
  MultipartPiece piece;
  while (reader.Next(&piece)) {
    const bool part = piece.place == MultipartPiece::kPart;
    if (!(part ? VisitPart(piece.text, visit) : VisitForm(piece.text, visit))) return false;
  }
  return true;
}

}  // namespace

bool ForEachParameter(std::string_view text, const std::function<bool(const Parameter&)>& visit) {
  const std::string_view trimmed = Trim(text);
  if (trimmed.empty()) return true;
  std::size_t first = 0;
  const std::string_view delimiter = GuessDelimiter(text, &first);
  if (!delimiter.empty()) return VisitMultipart(text, delimiter, visit);
  if (trimmed.front() == '{' || trimmed.front() == '[') return visit({{}, text});
  return VisitForm(text, visit);
}

std::vector<Parameter> SplitParameters(std::string_view text) {
  std::vector<Parameter> result;
  ForEachParameter(text, [&](const Parameter& parameter) {
    result.push_back(parameter);
    return true;
  });
  return result;
}

}  // namespace qiv

// The shared parameter splitter.
//
// Multipart bodies are read without knowing the Content-Type header: the first line that begins with "--" and stands
// before a line beginning with "content-" names the boundary. Browsers, libraries and attackers differ in line ends,
// quotes, blanks after a boundary, preambles and missing last boundaries; all are read, and every byte that could be a
// value is handed out by one of the parameters. Lines are visited once, and a boundary holds no line feed, so that a
// search for it compares no byte of the text twice: linear.
#include <algorithm>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;

using Visitor = std::function<bool(const Parameter&)>;

bool EqualNoCase(std::string_view text, std::string_view lower) {
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                    [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a | 0x20 : a) == b; });
}

bool BeginsNoCase(std::string_view text, std::string_view lower) {
  return EqualNoCase(text.substr(0, lower.size()), lower);
}

// Takes the first line off `rest`; the line comes without its line end.
std::string_view TakeLine(std::string_view* rest) {
  const std::size_t feed = rest->find('\n');
  std::string_view line = rest->substr(0, feed);
  rest->remove_prefix(feed == kEnd ? rest->size() : feed + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

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

struct Disposition {
  std::string_view name;
  std::string_view file_name;
};

// A quoted value that begins after `*pos`, moving *pos behind it. A backslash keeps a quote in it.
std::string_view TakeQuoted(std::string_view text, std::size_t* pos) {
  const char quote = text[(*pos)++];
  const std::size_t begin = *pos;
  while (*pos < text.size() && text[*pos] != quote) {
    const bool escape = text[*pos] == '\\' && *pos + 1 < text.size() && text[*pos + 1] == quote;
    *pos += escape ? 2 : CCharSet::CharacterLength(text, *pos);
  }
  const std::string_view value = text.substr(begin, *pos - begin);
  if (*pos < text.size()) ++*pos;
  return value;
}

// `text`: "form-data; name=...; filename=...", values quoted or not.
void ReadDisposition(std::string_view text, Disposition* disposition) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t key_end = std::min(text.find_first_of("=;", pos), text.size());
    const std::string_view key = Trim(text.substr(pos, key_end - pos));
    pos = key_end;
    if (pos == text.size() || text[pos++] == ';') continue;
    while (pos < text.size() && IsSpace(text[pos])) ++pos;
    std::string_view value;
    if (pos < text.size() && (text[pos] == '"' || text[pos] == '\'')) value = TakeQuoted(text, &pos);
    const std::size_t end = std::min(text.find(';', pos), text.size());
    if (value.empty()) value = Trim(text.substr(pos, end - pos));
    pos = std::min(end + 1, text.size());
    if (EqualNoCase(key, "name")) disposition->name = value;
    if (EqualNoCase(key, "filename") || EqualNoCase(key, "filename*")) disposition->file_name = value;
  }
}

// One part, without the boundary lines around it.
bool VisitPart(std::string_view part, const Visitor& visit) {
  constexpr std::string_view kDisposition = "content-disposition:";
  Disposition disposition;
  std::string_view rest = part;
  bool blank_line = false;
  while (!rest.empty() && !blank_line) {
    std::string_view line = TakeLine(&rest);
    blank_line = line.empty();
    if (!BeginsNoCase(line, kDisposition)) continue;
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) {  // the header goes on in the next line
      const std::string_view more = TakeLine(&rest);
      line = std::string_view(line.data(), static_cast<std::size_t>(more.data() + more.size() - line.data()));
    }
    ReadDisposition(line.substr(kDisposition.size()), &disposition);
  }
  if (!blank_line) rest = part;  // no end of the headers: look at everything
  const std::string_view headers = part.substr(0, part.size() - rest.size());
  if (headers.find('&') != kEnd && !VisitForm(headers, visit)) return false;
  if (!disposition.file_name.empty() && !visit({"filename", disposition.file_name, true})) return false;
  return rest.empty() || visit({disposition.name, rest});
}

// Where the first boundary line begins, or kEnd. *delimiter: the line without trailing blanks.
std::size_t FindDelimiter(std::string_view text, std::string_view* delimiter) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    if (text.compare(pos, 2, "--") == 0) {
      std::string_view rest = text.substr(pos);
      const std::string_view line = TakeLine(&rest);
      *delimiter = line.substr(0, line.find_last_not_of(" \t") + 1);
      if (delimiter->size() > 2 && BeginsNoCase(rest, "content-")) return pos;
    }
    const std::size_t feed = text.find('\n', pos);
    if (feed == kEnd) break;
    pos = feed + 1;
  }
  return kEnd;
}

// `first` and `delimiter` are what FindDelimiter found.
bool VisitMultipart(std::string_view text, std::size_t first, std::string_view delimiter, const Visitor& visit) {
  if (!VisitForm(text.substr(0, first), visit)) return false;
  const std::string needle = "\n" + std::string(delimiter);
  std::size_t part = text.find('\n', first) + 1;  // there is one: a header line follows
  std::size_t from = part - 1;
  for (;;) {
    const std::size_t feed = text.find(needle, from);
    if (feed == kEnd) return VisitPart(text.substr(part), visit);
    std::string_view rest = text.substr(feed + needle.size());
    const std::string_view tail = TakeLine(&rest);
    from = text.size() - rest.size() - (rest.empty() ? 0 : 1);  // the feed that ends this line may begin the next
    const bool last = tail.starts_with("--");
    if (!last && !Trim(tail).empty()) continue;  // a line of content that begins like the boundary
    std::string_view content = text.substr(part, feed > part ? feed - part : 0);
    if (content.ends_with('\r')) content.remove_suffix(1);
    if (!VisitPart(content, visit)) return false;
    part = text.size() - rest.size();
    if (last) return VisitForm(tail.substr(2), visit) && VisitForm(rest, visit);
  }
}

}  // namespace

bool ForEachParameter(std::string_view text, const std::function<bool(const Parameter&)>& visit) {
  const std::string_view trimmed = Trim(text);
  if (trimmed.empty()) return true;
  std::string_view delimiter;
  const std::size_t first = FindDelimiter(text, &delimiter);
  if (first != kEnd) return VisitMultipart(text, first, delimiter, visit);
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

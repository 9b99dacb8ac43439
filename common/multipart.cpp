#include "common/multipart.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/charset_label.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

constexpr bool IsLineBlank(char c) { return c == ' ' || c == '\t'; }

// Bytes of the line end at `at`: 0 when there is none.
std::size_t LineEnd(std::string_view text, std::size_t at) {
  if (at >= text.size()) return 0;
  if (text[at] == '\n') return 1;
  if (text[at] != '\r') return 0;
  return at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1;
}

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && IsLineBlank(text[at])) ++at;
  return at;
}

std::string_view WithoutLineEnd(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

}  // namespace

DelimiterReading CMultipartReader::Classify(std::size_t at) const {
  if (at != 0 && text_[at - 1] != '\n') return DelimiterReading::kAnywhere;
  std::size_t after = at + delimiter_.size();
  const bool last = text_.compare(after, 2, "--") == 0;
  if (last) after += 2;
  const std::size_t line_end = LineEnd(text_, after);
  if (after == text_.size() || line_end == 2 || (line_end == 1 && text_[after] == '\n')) {
    return DelimiterReading::kExactLine;
  }
  if (last) return DelimiterReading::kLine;
  after = SkipBlanks(text_, after);
  return after == text_.size() || LineEnd(text_, after) != 0 ? DelimiterReading::kLine : DelimiterReading::kLineStart;
}

// A line begins at the text's begin and behind each line feed. The delimiter holds no line feed: no byte is compared
// for two lines.
std::size_t CMultipartReader::FindNext() {
  if (reading_ == DelimiterReading::kAnywhere) return text_.find(delimiter_, from_);
  while (from_ <= text_.size()) {
    const std::size_t line = from_;
    if (line == 0 || text_[line - 1] == '\n') {
      if (text_.compare(line, delimiter_.size(), delimiter_) == 0) return line;
    }
    const std::size_t feed = text_.find('\n', line);
    if (feed == kNone) return kNone;
    from_ = feed + 1;
  }
  return kNone;
}

bool CMultipartReader::Next(MultipartPiece* piece) {
  if (done_) return false;
  piece->place = place_;
  for (;;) {
    const std::size_t at = FindNext();
    if (at == kNone) {
      piece->text = text_.substr(begin_);
      done_ = true;
      return true;
    }
    const DelimiterReading needed = Classify(at);
    seen_[static_cast<std::size_t>(needed)] = true;
    std::size_t after = at + delimiter_.size();
    from_ = after;
    if (needed > reading_) continue;  // a line of content that begins like the delimiter
    piece->text = text_.substr(begin_, at > begin_ ? at - begin_ : 0);
    if (place_ != MultipartPiece::kBefore) piece->text = WithoutLineEnd(piece->text);
    const bool last = text_.compare(after, 2, "--") == 0;
    if (last) after += 2;
    const std::size_t blanks_end = SkipBlanks(text_, after);
    const std::size_t line_end = LineEnd(text_, blanks_end);
    begin_ = line_end != 0 || blanks_end == text_.size() ? blanks_end + line_end : after;
    place_ = last ? MultipartPiece::kAfterLast : MultipartPiece::kPart;
    return true;
  }
}

namespace {

// A quoted value that begins at `begin`, up to its closing quote; all of the text when there is none.
std::string_view Quoted(std::string_view text, std::size_t begin, char quote, bool escapes, bool lead_bytes) {
  std::size_t pos = begin;
  while (pos < text.size() && text[pos] != quote) {
    const bool escaped =
        escapes && text[pos] == '\\' && pos + 1 < text.size() && (text[pos + 1] == quote || text[pos + 1] == '\\');
    pos += escaped ? 2 : lead_bytes ? CCharSet::CharacterLength(text, pos) : 1;
  }
  return text.substr(begin, std::min(pos, text.size()) - begin);
}

std::string_view FirstLine(std::string_view text) { return text.substr(0, text.find_first_of("\r\n")); }

void AddFileName(std::string_view name, PartHead* head) {
  name = Trim(name.substr(0, kLongestFileName));
  if (name.empty()) return;
  const auto end = head->file_names.begin() + static_cast<std::ptrdiff_t>(head->file_name_count);
  if (std::find(head->file_names.begin(), end, name) != end) return;
  if (head->file_name_count == kMostFileNames) {
    head->too_many_file_names = true;
  } else {
    head->file_names[head->file_name_count++] = name;
  }
}

// Every reading of the value that begins at the start of `text`.
void AddFileNames(std::string_view text, PartHead* head) {
  text = text.substr(0, kLongestFileName);
  if (text.empty()) return;
  const char quote = text.front();
  if (quote != '"' && quote != '\'') {
    const std::size_t end = std::min(text.find_first_of(";\r\n"), text.size());
    const std::string_view value = text.substr(0, end);
    AddFileName(value, head);
    AddFileName(value.substr(0, value.find_first_of(" \t")), head);
    // To some, quotes inside hold a ";", and a line without ":" goes on with the line before it.
    if (value.find_first_of("\"'") != kNone) {
      const std::string_view word = text.substr(0, text.find_first_of(" \t\r\n"));
      AddFileName(word.substr(0, word.find_last_not_of(';') + 1), head);
    }
    const std::size_t next = end + LineEnd(text, end);
    if (next > end && next < text.size() && !IsSpace(text[next]) && FirstLine(text.substr(next)).find(':') == kNone) {
      AddFileName(text.substr(0, next + 1), head);
    }
    return;
  }
  for (const auto& [escapes, lead_bytes] : {std::pair{true, true}, {true, false}, {false, false}}) {
    const std::string_view value = Quoted(text, 1, quote, escapes, lead_bytes);
    AddFileName(value, head);
    AddFileName(FirstLine(value), head);
  }
  // Read without a meaning of quotes. A file in the old style names a path between them, with ";" in it perhaps.
  if (quote == '\'') AddFileName(FirstLine(text.substr(0, text.find(';'))), head);
}

// Where the value of the parameter begins whose name ends at `at`, or kNone: "filename = x", "filename*0*=x".
std::size_t ValueBegin(std::string_view text, std::size_t at) {
  while (at < text.size() && (IsSpace(text[at]) || text[at] == '*' || IsDigit(text[at]))) ++at;
  if (at >= text.size() || text[at] != '=') return kNone;
  ++at;
  while (at < text.size() && IsSpace(text[at])) ++at;
  return at;
}

bool IsShown(char c) { return c >= ' ' && c <= '~'; }

// How many "filename=" stand in the text, or in what is left of it without bytes that are not shown.
std::size_t CountFileNames(std::string_view text, bool shown_only) {
  constexpr std::string_view kWord = "filename=";  // its first letter stands in it once
  std::size_t count = 0;
  std::size_t matched = 0;
  for (const char c : text) {
    if (shown_only && !IsShown(c)) continue;
    const char lower = IsLetter(c) ? static_cast<char>(c | 0x20) : c;
    matched = lower == kWord[matched] ? matched + 1 : lower == kWord.front() ? 1 : 0;
    if (matched < kWord.size()) continue;
    matched = 0;
    ++count;
  }
  return count;
}

PartHead ReadHead(std::string_view text) {
  PartHead head;
  head.hidden_file_name = CountFileNames(text, true) != CountFileNames(text, false);
  std::size_t stated = 0;
  std::size_t name = kNone;
  constexpr std::string_view kName = "name";
  constexpr std::string_view kFile = "file";
  for (std::size_t at = FindNoCase(text, kName); at != kNone; at = FindNoCase(text, kName, at + kName.size())) {
    const std::size_t value = ValueBegin(text, at + kName.size());
    if (value == kNone) continue;
    const bool file = at >= kFile.size() && EqualNoCase(text.substr(at - kFile.size(), kFile.size()), kFile);
    if (file) {
      head.has_file_name = true;
      AddFileNames(text.substr(value), &head);
      // "filename*1" goes on with a name; no form is sent with it.
      const std::size_t digit = at + kName.size() + 1;
      const bool goes_on = text[digit - 1] == '*' && digit < text.size() && IsDigit(text[digit]) && text[digit] != '0';
      head.too_many_file_names = head.too_many_file_names || goes_on || ++stated > kMostFileNames;
      if (head.too_many_file_names) break;
    } else if (at == 0 || !IsWordByte(text[at - 1])) {
      name = value;
    }
  }
  if (name != kNone) head.name = TakeHeaderValue(text, &name);
  constexpr std::string_view kType = "content-type";
  const std::size_t type = FindNoCase(text, kType);
  if (type != kNone) {
    // Folded lines belong to the value: the parameters of a type often stand in the next line.
    std::size_t end = type + kType.size();
    do {
      end = std::min(text.find_first_of("\r\n", end), text.size());
      end += LineEnd(text, end);
    } while (end < text.size() && IsLineBlank(text[end]));
    head.content_type = Trim(text.substr(type + kType.size(), end - type - kType.size()));
    head.content_type = Trim(TrimBytes(head.content_type, ":"));
  }
  const std::size_t encoding = FindNoCase(text, "content-transfer-encoding");
  if (encoding != kNone) {
    const std::string_view rest = text.substr(encoding);
    if (FindNoCase(rest, "quoted-printable") != kNone) head.encoding = PartHead::kQuotedPrintable;
    if (FindNoCase(rest, "base64") != kNone) head.encoding = PartHead::kBase64;
  }
  return head;
}

}  // namespace

std::string_view TakeHeaderValue(std::string_view text, std::size_t* pos) {
  const std::size_t begin = *pos;
  if (begin < text.size() && (text[begin] == '"' || text[begin] == '\'')) {
    const std::string_view value = Quoted(text, begin + 1, text[begin], true, true);
    *pos = std::min(begin + value.size() + 2, text.size());
    return value;
  }
  *pos = std::min(text.find_first_of(";\r\n", begin), text.size());
  return Trim(text.substr(begin, *pos - begin));
}

MultipartPart ReadPart(std::string_view piece) {
  MultipartPart part;
  part.text = part.content = part.late_content = piece;
  const std::size_t first_line_end = LineEnd(piece, 0);
  if (first_line_end != 0) {
    part.content = part.late_content = piece.substr(first_line_end);
    return part;
  }
  // The first blank line by each reading of line ends.
  const std::string_view front = piece.substr(0, kLongestPartHead);
  const std::size_t strict = front.find("\r\n\r\n");
  std::size_t first = kNone;
  std::size_t head_end = 0;
  for (const std::string_view blank : {"\n\n", "\n\r\n", "\r\r"}) {
    const std::size_t at = front.find(blank);
    if (at >= first) continue;
    first = at;
    part.content = piece.substr(at + blank.size());
    // Who reads lines that end with a line feed reads on behind two carriage returns.
    if (head_end != 0 && blank == "\r\r") continue;
    part.late_content = part.content;
    head_end = at;
  }
  if (strict != kNone) {
    part.late_content = piece.substr(strict + 4);
    head_end = std::max(head_end, strict);
  }
  const bool has_head = first != kNone || strict != kNone;
  part.head_text = WithoutLineEnd(front.substr(0, has_head ? head_end : 0));
  part.head_too_long = !has_head && piece.size() > front.size() && FindNoCase(piece, "content-disposition") != kNone;
  part.head = ReadHead(has_head ? part.head_text : front);
  return part;
}

std::string_view GuessDelimiter(std::string_view text, std::size_t* at) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t feed = std::min(text.find('\n', pos), text.size());
    if (text.compare(pos, 2, "--") == 0 && BeginsNoCase(text.substr(std::min(feed + 1, text.size())), "content-")) {
      const std::string_view line = WithoutLineEnd(text.substr(pos, feed - pos));
      const std::string_view delimiter = line.substr(0, line.find_last_not_of(" \t") + 1);
      if (delimiter.size() > 2) {
        *at = pos;
        return delimiter;
      }
    }
    pos = feed + 1;
  }
  *at = text.size();
  return {};
}

namespace {

// The first line, when it stands again and headers of a part follow it: pages that take bodies apart themselves go by
// it, whatever it and the Content-Type are. Empty when it is none.
std::string_view FirstLineDelimiter(std::string_view body) {
  const std::string_view line = body.substr(0, body.substr(0, kLongestBoundary).find("\r\n"));
  if (line.empty() || line.size() > kLongestBoundary || line.find('\n') != kNone) return {};
  const std::string_view rest = body.substr(std::min(line.size() + 2, body.size()));
  const std::size_t head_end = rest.substr(0, kLongestPartHead).find("\r\n\r\n");
  if (head_end == kNone || FindNoCase(rest.substr(0, head_end), "name=\"") == kNone) return {};
  return rest.find(line, head_end) == kNone ? std::string_view() : line;
}

// Whether the headers of parts are read as ASCII: no charset is named, or one that holds ASCII.
bool IsAsciiCharset(std::string_view content_type) {
  const auto is_other = [](CharsetKind kind) {
    return IsWideCharset(kind) || kind == CharsetKind::kUnreadable || kind == CharsetKind::kUnknown;
  };
  return FindCharset(content_type, is_other).empty();
}

// The delimiters that parsers may read out of a content type, and the one that the body itself shows.
class CDelimiters {
 public:
  CDelimiters(std::string_view content_type, std::string_view body) {
    constexpr std::string_view kBoundary = "boundary";
    for (std::size_t at = FindNoCase(content_type, kBoundary); at != kNone;
         at = FindNoCase(content_type, kBoundary, at + kBoundary.size())) {
      const std::size_t equals = content_type.find('=', at);
      if (equals == kNone) break;
      AddValue(content_type.substr(equals + 1));
    }
    // The body's own first line, which some parsers take whatever the type says.
    std::size_t at = 0;
    const std::string_view guess = GuessDelimiter(body.substr(0, kLongestPartHead), &at);
    if (guess.size() > kLongestBoundary + 2) fault_ = MultipartFault::kBoundaryTooLong;
    if (!guess.empty()) delimiters_.emplace_back(guess);
    const std::string_view line = FirstLineDelimiter(body);
    if (!line.empty()) delimiters_.emplace_back(line);
    std::sort(delimiters_.begin(), delimiters_.end());
    delimiters_.erase(std::unique(delimiters_.begin(), delimiters_.end()), delimiters_.end());
  }

  const std::vector<std::string>& List() const { return delimiters_; }
  MultipartFault Fault() const { return fault_; }

 private:
  void AddValue(std::string_view value) {
    Add(value.substr(0, value.find_first_of(";,")));
    if (value.starts_with('"')) Add(Quoted(value, 1, '"', false, false));
    value = Trim(value);
    Add(value.substr(0, value.find_first_of(";,")));
    Add(value.substr(0, value.find_first_of(" ,")));
    Add(value.substr(0, value.find(';')));
    if (value.empty() || (value.front() != '"' && value.front() != '\'')) return;
    Add(Quoted(value, 1, value.front(), false, false));
    Add(Quoted(value, 1, value.front(), true, false));
  }

  // With and without the blanks around it: some parsers keep them.
  void Add(std::string_view boundary) {
    if (boundary.size() > kLongestBoundary) {
      fault_ = MultipartFault::kBoundaryTooLong;
      return;
    }
    for (const std::string_view text : {boundary, Trim(boundary)}) {
      if (text.find_first_of("\r\n") != kNone) continue;
      delimiters_.push_back("--" + std::string(text));
      if (!std::all_of(text.begin(), text.end(), [](char c) { return IsShown(c) || c == '\t'; }))
        fault_ = MultipartFault::kBoundaryBytes;
    }
  }

  std::vector<std::string> delimiters_;
  MultipartFault fault_ = MultipartFault::kNone;
};

class CPartWalk {
 public:
  CPartWalk(std::size_t body_size, const std::function<bool(const MultipartPart&)>& visit)
      : visit_(visit), budget_(kMostPasses * std::max<std::size_t>(body_size, 1024)) {}

  MultipartFault Walk(std::string_view content_type, std::string_view body) {
    stack_.push_back({content_type, body, 0});
    while (!stack_.empty() && fault_ == MultipartFault::kNone && !stopped_) {
      const Level level = stack_.back();
      stack_.pop_back();
      WalkLevel(level);
    }
    return fault_;
  }

 private:
  struct Level {
    std::string_view content_type;
    std::string_view body;
    int depth;
  };

  void WalkLevel(const Level& level) {
    const CDelimiters delimiters(level.content_type, level.body);
    fault_ = delimiters.Fault();
    if (fault_ == MultipartFault::kNone && !IsAsciiCharset(level.content_type)) fault_ = MultipartFault::kCharset;
    if (fault_ != MultipartFault::kNone) return;
    bool found = false;
    for (const std::string& delimiter : delimiters.List()) {
      // The loosest reading tells which of the others differ from it.
      CMultipartReader loosest(level.body, delimiter, DelimiterReading::kAnywhere);
      if (!WalkReading(level, &loosest, &found)) return;
      for (const DelimiterReading reading :
           {DelimiterReading::kLineStart, DelimiterReading::kLine, DelimiterReading::kExactLine}) {
        const auto looser = static_cast<DelimiterReading>(static_cast<int>(reading) + 1);
        if (!loosest.Saw(looser)) continue;
        CMultipartReader reader(level.body, delimiter, reading);
        if (!WalkReading(level, &reader, &found)) return;
      }
    }
    if (!found && level.depth == 0) Visit(ReadWhole(level.body), level);
  }

  static MultipartPart ReadWhole(std::string_view body) {
    MultipartPart part;
    part.text = part.content = part.late_content = body;
    return part;
  }

  // False when the walk is over.
  bool WalkReading(const Level& level, CMultipartReader* reader, bool* found) {
    if (level.body.size() > budget_) {
      fault_ = MultipartFault::kTooManyReadings;
      return false;
    }
    budget_ -= level.body.size();
    MultipartPiece piece;
    while (reader->Next(&piece)) {
      if (piece.place == MultipartPiece::kBefore && piece.text.size() == level.body.size())
        return true;  // no delimiter
      *found = true;
      if (piece.place != MultipartPiece::kPart && Trim(piece.text).empty()) continue;
      if (!Visit(ReadPart(piece.text), level)) return false;
    }
    return true;
  }

  bool Visit(const MultipartPart& part, const Level& level) {
    if (++parts_ > kMostParts) fault_ = MultipartFault::kTooManyParts;
    if (part.head_too_long) fault_ = MultipartFault::kHeadTooLong;
    if (part.head.hidden_file_name) fault_ = MultipartFault::kHiddenFileName;
    if (part.head.too_many_file_names) fault_ = MultipartFault::kTooManyFileNames;
    if (fault_ != MultipartFault::kNone) return false;
    stopped_ = !visit_(part);
    if (stopped_) return false;
    if (FindNoCase(part.head.content_type, "multipart/") == kNone) return true;
    if (level.depth == kDeepestPart) {
      fault_ = MultipartFault::kTooDeep;
      return false;
    }
    stack_.push_back({part.head.content_type, part.content, level.depth + 1});
    return true;
  }

  const std::function<bool(const MultipartPart&)>& visit_;
  std::size_t budget_;
  std::size_t parts_ = 0;
  std::vector<Level> stack_;  // at most one per part
  MultipartFault fault_ = MultipartFault::kNone;
  bool stopped_ = false;
};

}  // namespace

bool IsMultipartBody(std::string_view content_type, std::string_view body) {
  if (FindNoCase(content_type, "multipart") != kNone || FindNoCase(content_type, "boundary") != kNone) return true;
  std::size_t at = 0;
  return !GuessDelimiter(body.substr(0, kLongestPartHead), &at).empty() || !FirstLineDelimiter(body).empty();
}

MultipartFault ForEachPart(std::string_view content_type, std::string_view body,
                           const std::function<bool(const MultipartPart&)>& visit) {
  return CPartWalk(body.size(), visit).Walk(content_type, body);
}

}  // namespace qiv

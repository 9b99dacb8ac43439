// The text is visited at its opening parentheses. In front of each stands a word or none; only words of one list are
// looked at further: what their argument begins with, through the decoders around it, and a short piece of it.
#include "engines/webshell/request_code.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/decoding/decoders.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kLongestWord = 32;    // bytes; longer than any word of the list
constexpr std::size_t kMostBlanks = 16;     // between a word and its parenthesis; a comment is at most that long
constexpr std::size_t kMostDecoders = 8;    // around one another; known clients use four
constexpr std::size_t kArgumentView = 200;  // bytes of an argument that are looked at; enough for the longest decoders
constexpr std::size_t kDetailBytes = 120;   // of the code, in events

enum class WordKind : std::uint8_t {
  kNoWord,
  kCode,     // evaluates code
  kCommand,  // runs a command
  kDecoder,
  kSetup,  // prepares the interpreter for what follows
  kProbe,  // shows that code runs
  kWrite,  // writes a file
};

struct Word {
  std::string_view text;
  WordKind kind;
};

// Sorted by text.
constexpr Word kWords[] = {
    {"assert", WordKind::kCode},
    {"base64_decode", WordKind::kDecoder},
    {"chr", WordKind::kDecoder},
    {"chrw", WordKind::kDecoder},
    {"convert_uudecode", WordKind::kDecoder},
    {"create_function", WordKind::kCode},
    {"error_reporting", WordKind::kSetup},
    {"eval", WordKind::kCode},
    {"exec", WordKind::kCommand},
    {"execute", WordKind::kCode},
    {"executeglobal", WordKind::kCode},
    {"file_put_contents", WordKind::kWrite},
    {"gzdecode", WordKind::kDecoder},
    {"gzinflate", WordKind::kDecoder},
    {"gzuncompress", WordKind::kDecoder},
    {"hex2bin", WordKind::kDecoder},
    {"ignore_user_abort", WordKind::kSetup},
    {"ini_set", WordKind::kSetup},
    {"pack", WordKind::kDecoder},
    {"passthru", WordKind::kCommand},
    {"pcntl_exec", WordKind::kCommand},
    {"phpinfo", WordKind::kProbe},
    {"popen", WordKind::kCommand},
    {"proc_open", WordKind::kCommand},
    {"rawurldecode", WordKind::kDecoder},
    {"set_magic_quotes_runtime", WordKind::kSetup},
    {"set_time_limit", WordKind::kSetup},
    {"shell_exec", WordKind::kCommand},
    {"str_rot13", WordKind::kDecoder},
    {"strrev", WordKind::kDecoder},
    {"system", WordKind::kCommand},
    {"urldecode", WordKind::kDecoder},
};
static_assert(std::is_sorted(std::begin(kWords), std::end(kWords),
                             [](const Word& a, const Word& b) { return a.text < b.text; }));

// What an argument may hold that runs what a client sent, and where it tells: of every call, or only of one that
// evaluates code. The request, as PHP and then as ASP pages name it ("request." alone is a variable of ordinary
// scripts), and code in quotes: eval("Ex"&cHr(101)&"cute(""Server.ScriptTimeout=3600:On Error Resume Next..."")")
struct Source {
  std::string_view text;
  bool code_only;
  bool is_object;  // of its own: "$request[" and "http.request(" are others
};
constexpr Source kSources[] = {
    {"$_post", false, false},
    {"$_get", false, false},
    {"$_request", false, false},
    {"$_cookie", false, false},
    {"$_server", false, false},
    {"$_files", false, false},
    {"php://input", false, false},
    {"${_post}", false, false},
    {"${_get}", false, false},
    {"${_request}", false, false},
    {"$globals", false, false},
    {"getallheaders(", false, false},
    {"${\"_p", false, false},
    {"${\"_g", false, false},
    {"${\"_r", false, false},
    {"request(", true, true},
    {"request[", true, true},
    {"request.item", true, true},
    {"request.form", true, true},
    {"request.querystring", true, true},
    {"request.cookies", true, true},
    {"frombase64string(", true, false},
    {"on error resume next", true, false},
    {"server.scripttimeout", true, false},
    {"\"&chr(", true, false},
};

constexpr std::string_view kAnswerOpens = "->|";
constexpr std::string_view kAnswerCloses = "|<-";

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

/// A lower-cased word of the text on the stack.
class CShortWord {
 public:
  explicit CShortWord(std::string_view text) : size_(std::min(text.size(), kLongestWord)) {
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size_), bytes_.begin(), Lower);
  }
  std::string_view View() const { return {bytes_.data(), size_}; }

 private:
  std::array<char, kLongestWord> bytes_;
  std::size_t size_;
};

/// Whether the list has a word of that length and first letter.
bool MayBeWord(std::string_view word) {
  static constexpr auto kLengths = [] {
    std::array<std::uint32_t, 256> lengths{};  // by the first letter, bits
    for (const Word& known : kWords) {
      const auto first = static_cast<unsigned char>(known.text[0]);
      lengths[first] |= 1U << known.text.size();
      lengths[first & ~0x20U] |= 1U << known.text.size();
    }
    return lengths;
  }();
  return !word.empty() && (kLengths[static_cast<unsigned char>(word[0])] >> word.size() & 1U) != 0;
}

WordKind KindOf(std::string_view word) {
  if (word.size() >= kLongestWord || !MayBeWord(word)) return WordKind::kNoWord;
  const CShortWord lower(word);
  const auto* const found = std::lower_bound(std::begin(kWords), std::end(kWords), lower.View(),
                                             [](const Word& a, std::string_view b) { return a.text < b; });
  return found != std::end(kWords) && found->text == lower.View() ? found->kind : WordKind::kNoWord;
}

/// A call: the word in front of a parenthesis.
struct Call {
  std::size_t begin = 0;     // of the word
  std::size_t argument = 0;  // behind the parenthesis
  std::string_view word;
  WordKind kind = WordKind::kNoWord;
};

/// The call whose parenthesis is at `open`; kNoWord for none of the list, and for a method.
Call CallAt(std::string_view text, std::size_t open) {
  std::size_t end = open;
  for (std::size_t i = 0; i < kMostBlanks && end > 0; ++i) {
    if (IsSpace(text[end - 1]) || text[end - 1] == '+') {  // a blank of a form that is not decoded
      --end;
    } else if (text.substr(0, end).ends_with("*/")) {
      const std::size_t from = end > kMostBlanks ? end - kMostBlanks : 0;
      const std::size_t comment = text.substr(from, end - 2 - from).rfind("/*");
      if (comment == kNone) break;
      end = from + comment;
    } else {
      break;
    }
  }
  std::size_t begin = end;
  while (begin > 0 && end - begin < kLongestWord && IsWordByte(text[begin - 1])) --begin;
  Call call{begin, open + 1, text.substr(begin, end - begin), WordKind::kNoWord};
  if (begin > 0) {
    const char before = text[begin - 1];
    // Code in a page is written with references, once or twice: "-&gt;", "-&amp;gt;".
    const bool referred =
        before == ';' && (text.substr(0, begin).ends_with("-&gt;") || text.substr(0, begin).ends_with("-&amp;gt;"));
    const bool method = referred || before == '.' || before == '$' ||
                        (before == '>' && begin > 1 && text[begin - 2] == '-') ||
                        (before == ':' && begin > 1 && text[begin - 2] == ':');
    if (method) return call;
  }
  call.kind = KindOf(call.word);
  return call;
}

/// Calls visit(position) for every "(" until it returns false.
template <typename Visit>
void ForEachParenthesis(std::string_view text, Visit&& visit) {
  for (std::size_t at = text.find('('); at != kNone; at = text.find('(', at + 1)) {
    if (!visit(at)) return;
  }
}

bool IsXmlInstruction(std::string_view behind_mark) {
  for (const std::string_view name : {"xml", "mso", "xpacket", "import"}) {
    if (CShortWord(behind_mark.substr(0, name.size())).View() == name) return true;
  }
  return false;
}

std::uint32_t TagHints(std::string_view text) {
  std::uint32_t hints = 0;
  for (std::size_t at = text.find('<'); at != kNone && at + 1 < text.size(); at = text.find('<', at + 1)) {
    if (text[at + 1] == '%') hints |= kHintPageTag;
    if (text[at + 1] == '?' && !IsXmlInstruction(text.substr(at + 2))) hints |= kHintPhpTag;
    if (hints == (kHintPageTag | kHintPhpTag)) break;
  }
  return hints;
}

// The sources of a text, for arguments that are asked for from front to back: it is searched once, whatever they are.
class CSources {
 public:
  explicit CSources(std::string_view text) : text_(text) {}

  /// Whether one lies inside [begin, end); no begin may be smaller than the one before.
  bool Holds(std::size_t begin, std::size_t end, bool code) {
    std::erase_if(found_, [begin](const Place& place) { return place.begin < begin; });
    for (at_ = std::max(at_, begin); at_ < end; ++at_) Look();
    return std::any_of(found_.begin(), found_.end(),
                       [&](const Place& place) { return place.end <= end && (code || !place.code_only); });
  }

 private:
  struct Place {
    std::size_t begin;
    std::size_t end;
    bool code_only;
  };

  static bool MayBegin(char c) {
    static constexpr auto kBegins = [] {
      std::array<bool, 256> begins{};
      for (const Source& source : kSources) {
        const auto first = static_cast<unsigned char>(source.text[0]);
        begins[first] = true;
        if (IsLetter(source.text[0])) begins[first & ~0x20U] = true;
      }
      return begins;
    }();
    return kBegins[static_cast<unsigned char>(c)];
  }

  void Look() {
    if (!MayBegin(text_[at_])) return;
    const char first = LowerByte(text_[at_]);
    for (const Source& source : kSources) {
      if (source.text[0] != first || !EqualsIgnoreCase(text_.substr(at_, source.text.size()), source.text)) continue;
      if (source.is_object && at_ > 0 && IsPartOfName(text_[at_ - 1])) continue;
      found_.push_back({at_, at_ + source.text.size(), source.code_only});
    }
  }

  static bool IsPartOfName(char before) {
    return IsWordByte(before) || before == '$' || before == '>' || before == ':' || before == '.';
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::vector<Place> found_;  // those that begin at the last argument's begin or behind it
};

// One walk over the calls of a text.
class CFragment {
 public:
  explicit CFragment(std::string_view text) : text_(text), sources_(text) {}

  FragmentStrength Judge() {
    ForEachParenthesis(text_, [this](std::size_t open) {
      OnCall(CallAt(text_, open), open);
      return strength_ != FragmentStrength::kStrong;
    });
    if (strength_ != FragmentStrength::kStrong && IsAnswered()) Found(text_.find(kAnswerOpens));
    return strength_;
  }

  TextPlace Place() const { return {where_, CCharSet::Prefix(text_.substr(where_), kDetailBytes).size()}; }

 private:
  void OnCall(const Call& call, std::size_t open) {
    // "${@word(" and "{${word(": code inside a text, whatever the word.
    const std::string_view before = text_.substr(0, call.begin);
    const bool interpolated = before.ends_with("${@") || (before.ends_with("{${") && call.kind != WordKind::kNoWord);
    if (!call.word.empty() && interpolated) return Found(call.begin);
    switch (call.kind) {
      case WordKind::kCode:
        if (RunsNothing(call)) return;
        if (RunsInput(call, true)) return Found(call.begin);
        break;
      case WordKind::kCommand:
        if (RunsNothing(call)) return;
        if (RunsInput(call, false)) return Found(call.begin);
        break;
      case WordKind::kSetup:
        if (!before.ends_with('@') || !IsSwitchedOff(open)) return;
        // Ordinary code switches one thing off, perhaps again and again.
        if (silent_setup_.empty()) silent_setup_ = call.word;
        if (call.word.size() != silent_setup_.size()) return Found(call.begin);
        return;
      case WordKind::kProbe:
      case WordKind::kWrite:
        break;
      default:
        return;
    }
    if (strength_ == FragmentStrength::kNone && IsStatement(before) && IsText(call.argument)) {
      strength_ = FragmentStrength::kWeak;
      where_ = call.begin;
    }
  }

  /// "eval()", as one writes of it.
  bool RunsNothing(const Call& call) const {
    return text_.substr(std::min(text_.find_first_not_of(" \t\r\n+", call.argument), text_.size())).starts_with(')');
  }

  /// Whether the argument is the request, or comes out of a decoder.
  bool RunsInput(const Call& call, bool code) {
    std::size_t at = call.argument;
    std::size_t decoders = 0;
    while (decoders < kMostDecoders) {
      at = std::min(text_.find_first_not_of(" \t\r\n@(\"'", at), text_.size());
      std::size_t end = at;
      while (end < text_.size() && end - at < kLongestWord && IsWordByte(text_[end])) ++end;
      if (KindOf(text_.substr(at, end - at)) != WordKind::kDecoder) break;
      const std::size_t open = text_.find_first_not_of(" \t\r\n", end);
      if (open == kNone || text_[open] != '(') break;
      ++decoders;
      at = open + 1;
    }
    if (code && decoders != 0) return true;
    // Most arguments hold none, closed or not.
    const std::string_view view = text_.substr(call.argument, kArgumentView);
    return sources_.Holds(call.argument, call.argument + view.size(), code) &&
           sources_.Holds(call.argument, call.argument + ArgumentOf(view).size(), code);
  }

  /// Up to the parenthesis that closes the call; quoted ones do not count.
  static std::string_view ArgumentOf(std::string_view text) {
    int depth = 0;
    char quote = '\0';
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      if (quote != '\0') {
        if (c == '\\') ++i;
        if (c == quote) quote = '\0';
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '(') {
        ++depth;
      } else if (c == ')' && --depth < 0) {
        return text.substr(0, i);
      }
    }
    return text;
  }

  /// ("display_errors","0"), (0).
  bool IsSwitchedOff(std::size_t open) const {
    const std::string_view argument = text_.substr(open + 1, kArgumentView);
    const std::size_t close = argument.find(')');
    if (close == kNone) return false;
    return TrimBytes(argument.substr(0, close), " \t\"'").ends_with('0');
  }

  /// Whether what stands before a word can end a statement, so that the word begins one.
  static bool IsStatement(std::string_view before) {
    const std::string_view left = before.substr(0, before.find_last_not_of(" \t\r\n@") + 1);
    if (left.empty()) return true;
    constexpr std::string_view kOpeners = ";{}=?%";
    if (kOpeners.find(left.back()) != kNone) return true;
    for (const std::string_view word : {"echo", "print", "die(", "exit(", "php"}) {
      if (left.size() >= word.size() && CShortWord(left.substr(left.size() - word.size())).View() == word) return true;
    }
    return false;
  }

  /// Packed bytes hold short words in front of parentheses by chance.
  bool IsText(std::size_t argument) const {
    const std::string_view own = ArgumentOf(text_.substr(argument, kArgumentView));
    return std::all_of(own.begin(), own.end(),
                       [](char c) { return IsSpace(c) || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F); });
  }

  bool IsAnswered() const {
    const std::size_t opens = text_.find("\"->|");
    return opens != kNone && text_.find(kAnswerCloses, opens) != kNone;
  }

  void Found(std::size_t where) {
    strength_ = FragmentStrength::kStrong;
    where_ = where;
  }

  std::string_view text_;
  CSources sources_;
  FragmentStrength strength_ = FragmentStrength::kNone;
  std::size_t where_ = 0;
  std::string_view silent_setup_;  // the first setup without messages; the words of the list differ in length
};

bool IsBase64(char c) { return IsLetter(c) || IsDigit(c) || c == '+' || c == '/' || c == ' ' || c == '-' || c == '_'; }

}  // namespace

std::uint32_t CodeHints(std::string_view text) {
  std::uint32_t hints = TagHints(text);
  for (std::size_t at = text.find('$'); at != kNone; at = text.find('$', at + 1)) {
    // "$_" alone is the current item of other languages.
    if (at + 2 < text.size() && text[at + 1] == '_' && IsLetter(text[at + 2])) {
      hints |= kHintSource;
      break;
    }
  }
  ForEachParenthesis(text, [&](std::size_t open) {
    const Call call = CallAt(text, open);
    const bool interpolated = call.begin >= 3 && text.substr(call.begin - 3, 3) == "${@";
    if (call.kind == WordKind::kNoWord && !interpolated) return true;
    hints |= kHintCall;
    return false;
  });
  if (text.find(kAnswerOpens) != kNone) hints |= kHintMarker;
  return hints;
}

FragmentStrength AnalyseFragment(std::string_view text, WebshellResult* result) {
  CFragment fragment(text);
  const FragmentStrength strength = fragment.Judge();
  if (strength == FragmentStrength::kNone) return strength;
  *result = {};
  result->finding = MessageId::kCodeInRequest;
  result->place = fragment.Place();
  result->detail = result->place.In(text);
  result->suspicious = strength == FragmentStrength::kWeak;
  return strength;
}

std::string DecodeEncodedText(std::string_view text, std::size_t most) {
  constexpr std::size_t kShortest = 32;  // nothing shorter is code that does harm
  text = Trim(text);
  if (text.size() < kShortest || text.find('\0') != kNone) return {};
  std::string_view piece = text.substr(0, most);
  const std::size_t end = std::min(piece.find('='), piece.size());
  // Words and paths are base64 as well, so the decoded text decides. A blank is a "+" that a form's decoding changed.
  if (!std::all_of(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(end), IsBase64)) return {};
  piece = piece.substr(0, end);
  std::string plain;
  const std::size_t blank = piece.find(' ');
  plain = blank == kNone ? DecodeBase64(piece) : DecodeBase64(ReplaceAll(piece, " ", "+"));
  const auto printable = [](char c) { return IsSpace(c) || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F); };
  const std::size_t head = std::min<std::size_t>(plain.size(), kShortest);
  if (!std::all_of(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(head), printable)) return {};
  return plain;
}

}  // namespace qiv

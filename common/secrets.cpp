#include "common/secrets.h"

#include <algorithm>
#include <array>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;
constexpr std::string_view kNames[] = {"pass", "pwd", "psw", "secretrkey", "authorization"};
constexpr std::string_view kAuthorization = "authorization";

/// Finds the names one after the other, each word of the text once.
class CNameFinder {
 public:
  explicit CNameFinder(std::string_view lower) : lower_(lower) {
    for (std::size_t i = 0; i < std::size(kNames); ++i) next_[i] = lower.find(kNames[i]);
  }

  /// Goes to the first name at or after `from`. False when there is none.
  bool Find(std::size_t from) {
    std::size_t begin = kEnd;
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
      if (next_[i] != kEnd && next_[i] < from) next_[i] = lower_.find(kNames[i], from);
      if (next_[i] >= begin) continue;
      begin = next_[i];
      is_authorization_ = kNames[i] == kAuthorization;
    }
    end_ = begin;
    const auto goes_on = [](char c) { return IsWordByte(c) || c == '-' || c == '.'; };
    while (end_ < lower_.size() && goes_on(lower_[end_])) ++end_;
    return begin != kEnd;
  }

  std::size_t End() const { return end_; }  ///< of the word that holds the name
  bool IsAuthorization() const { return is_authorization_; }

 private:
  std::string_view lower_;
  std::array<std::size_t, std::size(kNames)> next_{};
  std::size_t end_ = 0;
  bool is_authorization_ = false;
};

/// What stands between a name and its value, as it is or as "%XX" in a URL: brackets and quotes that close the name,
/// white space, an assignment, white space and a quote that opens the value. Behind "=" the value begins at once.
struct Between {
  std::size_t end = 0;      ///< where the value begins
  char assignment = '\0';   ///< "=", ":", ">" or a line end; 0: nothing is assigned
  char quote = '\0';        ///< that opens the value
  bool in_string = false;   ///< that quote is escaped: all of this stands in a string of an outer JSON text
  bool is_encoded = false;  ///< some of it is "%XX"
};

Between ReadBetween(std::string_view text, std::size_t begin) {
  constexpr std::string_view kAssignments = "=:>\n";
  Between between;
  bool backslash = false;
  for (between.end = begin; between.end < text.size() && between.assignment != '=' && between.quote == '\0';) {
    char c = text[between.end];
    std::size_t length = 1;
    if (c == '%') {
      const std::string decoded = PercentDecode(text.substr(between.end, 3));
      if (decoded.size() != 1) break;
      c = decoded[0];
      length = 3;
    }
    const bool is_quote = c == '"' || c == '\'';
    if (between.assignment == '\0' && kAssignments.find(c) != kEnd) {
      between.assignment = c;
    } else if (between.assignment != '\0' && is_quote) {
      between.quote = c;
      between.in_string = backslash;
    } else if (!is_quote && !IsSpace(c) && c != '\\' && (c != ']' || between.assignment != '\0')) {
      break;
    }
    backslash = c == '\\';
    between.is_encoded = between.is_encoded || length != 1;
    between.end += length;
  }
  return between;
}

/// The end of the string that begins at `begin`. Behind how many backslashes a quote still belongs to it depends on
/// whether it stands in another string.
std::size_t StringEnd(std::string_view text, std::size_t begin, const Between& between) {
  std::size_t backslashes = 0;
  for (std::size_t at = begin; at < text.size(); ++at) {
    if (text[at] == between.quote) {
      if (backslashes == 0 || (!between.in_string && backslashes % 2 == 0)) return at;
      if (between.in_string && backslashes % 4 == 1) return at - 1;
    }
    backslashes = text[at] == '\\' ? backslashes + 1 : 0;
  }
  return text.size();
}

std::size_t ValueEnd(std::string_view text, const Between& between, bool is_authorization) {
  const std::size_t begin = between.end;
  const std::string_view rest = text.substr(begin);
  // Already hidden, in a text composed of hidden pieces: what follows belongs to that text.
  if (rest.starts_with(kHiddenSecret)) {
    const std::string_view after = rest.substr(kHiddenSecret.size());
    if (after.empty() || (!IsWordByte(after[0]) && after[0] != '*')) return begin + kHiddenSecret.size();
  }
  if (!between.is_encoded && between.quote != '\0') return StringEnd(text, begin, between);
  std::string_view ends = "&\r\n";
  if (between.assignment == '>') ends = "<";
  if (between.assignment == ':') ends = "&\"\r\n";
  if (is_authorization) ends = "\r\n";
  return std::min(text.find_first_of(ends, begin), text.size());
}

}  // namespace

bool IsSecretName(std::string_view name) {
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [name](std::string_view secret) { return FindNoCase(name, secret) != kEnd; });
}

void FindSecrets(std::string_view text, const std::function<void(std::size_t, std::size_t)>& visit) {
  const std::string lower = CCharSet::LowerBytes(text);
  CNameFinder names(lower);
  for (std::size_t from = 0; names.Find(from);) {
    const Between between = ReadBetween(text, names.End());
    from = between.end;
    if (between.assignment == '\0') continue;
    const std::size_t end = ValueEnd(text, between, names.IsAuthorization());
    if (end > between.end) visit(between.end, end);
    from = end;
  }
}

std::string WithoutSecrets(std::string_view text) {
  std::string clean;
  std::size_t kept = 0;  // what stands before it is in `clean`
  FindSecrets(text, [&](std::size_t begin, std::size_t end) {
    clean.append(text.substr(kept, begin - kept)).append(kHiddenSecret);
    kept = end;
  });
  return clean.append(text.substr(kept));
}

void OverwriteSecrets(std::string* text) {
  FindSecrets(*text, [text](std::size_t begin, std::size_t end) {
    std::fill(text->begin() + static_cast<std::ptrdiff_t>(begin), text->begin() + static_cast<std::ptrdiff_t>(end),
              kSecretByte);
  });
}

std::string WithHiddenSecrets(std::string_view piece) {
  std::string shown;
  while (!piece.empty()) {
    const std::size_t secret = std::min(piece.find(kSecretByte), piece.size());
    shown.append(piece.substr(0, secret));
    piece.remove_prefix(secret);
    if (piece.empty()) break;
    shown.append(kHiddenSecret);
    piece.remove_prefix(std::min(piece.find_first_not_of(kSecretByte), piece.size()));
  }
  return shown;
}

}  // namespace qiv

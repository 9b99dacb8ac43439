#include "engines/injection/sql_squeeze.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr char kWideBlank = '\xA0';

/// Bytes at which a run may begin: all others are copied without a look.
constexpr auto kOfInterest = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c <= 0x20; ++c) table[c] = true;
  for (const char c : {'/', '-', '#', '*', kWideBlank}) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

class CSqueezer {
 public:
  explicit CSqueezer(std::string_view text) : text_(text) {}

  bool Run(std::string* squeezed) {
    while (at_ < text_.size()) {
      const std::size_t run = at_;
      if (kOfInterest[static_cast<unsigned char>(text_[at_])] && SkipRun()) {
        const bool line = !commented_ && text_.substr(run, at_ - run).find('\n') != kNone;
        const char blank = line ? '\n' : ' ';
        if (at_ > run + 1 || text_[run] != blank) {
          out_ = squeezed;
          out_->append(text_, kept_, run - kept_);
          *out_ += blank;
          kept_ = at_;
        }
      } else {
        ++at_;
      }
    }
    if (!out_) return false;
    out_->append(text_, kept_);
    return true;
  }

 private:
  bool IsBlankAt(std::size_t at) const {
    const auto byte = static_cast<unsigned char>(text_[at]);
    if (byte <= 0x20) return true;
    // Behind another high byte it may be the second byte of a character.
    return text_[at] == kWideBlank &&
           (at == 0 || static_cast<unsigned char>(text_[at - 1]) < 0x80 || text_[at - 1] == kWideBlank);
  }

  /// Past what counts as one blank from here on; false when nothing does.
  bool SkipRun() {
    const std::size_t begin = at_;
    commented_ = false;
    while (at_ < text_.size() && SkipOne()) {
    }
    return at_ > begin;
  }

  bool SkipOne() {
    if (IsBlankAt(at_)) {
      ++at_;
      return true;
    }
    const bool skipped = SkipSign();
    commented_ = commented_ || skipped;
    return skipped;
  }

  bool SkipSign() {
    switch (text_[at_]) {
      case '/':
        return SkipComment();
      case '*':  // the end of a comment whose contents stayed
        if (open_ == 0 || text_.compare(at_, 2, "*/") != 0) return false;
        --open_;
        at_ += 2;
        return true;
      case '-':
        return text_.compare(at_, 2, "--") == 0 && SkipLine();
      case '#':
        return SkipLine();
      default:
        return false;
    }
  }

  bool SkipComment() {
    if (text_.compare(at_, 2, "/*") != 0) return false;
    std::size_t mark = at_ + 2;
    if (mark < text_.size() && (text_[mark] == 'm' || text_[mark] == 'M')) ++mark;
    if (mark < text_.size() && text_[mark] == '!') {
      constexpr std::size_t kLongestVersion = 6;
      at_ = mark + 1;
      for (std::size_t i = 0; i < kLongestVersion && at_ < text_.size() && IsDigit(text_[at_]); ++i) ++at_;
      ++open_;
      return true;
    }
    const std::size_t end = FindFrom("*/", at_ + 2, &comment_end_);
    if (end == kNone) return false;
    at_ = end + 2;
    return true;
  }

  /// A line comment without an end of the line stays: it may be what ends the statement.
  bool SkipLine() {
    const std::size_t end = FindFrom("\n", at_, &line_end_);
    if (end == kNone) return false;
    at_ = end + 1;
    return true;
  }

  /// Finds `what` at or behind `from`. *known is where it was last found: no byte is searched twice.
  std::size_t FindFrom(std::string_view what, std::size_t from, std::size_t* known) const {
    if (*known != kNone && *known < from) *known = text_.find(what, from);
    return *known;
  }

  std::string_view text_;
  std::string* out_ = nullptr;
  std::size_t at_ = 0;
  std::size_t kept_ = 0;    // up to here the text is squeezed
  bool commented_ = false;  // the run holds a comment
  int open_ = 0;            // comments whose contents stay
  std::size_t comment_end_ = 0;
  std::size_t line_end_ = 0;
};

}  // namespace

bool SqueezeSql(std::string_view text, std::string* squeezed) { return CSqueezer(text).Run(squeezed); }

}  // namespace qiv

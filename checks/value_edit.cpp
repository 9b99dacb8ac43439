#include "checks/value_edit.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"

namespace qiv {

void CTextWriter::Replace(const TextPlace& piece, std::string_view with) {
  if (piece.offset < kept_until_) return;
  const std::size_t end = piece.offset + piece.length;
  const std::size_t without = written_.size() + (piece.offset - kept_until_) + (text_.size() - end);
  if (with.size() > piece.length && without + with.size() > most_) {
    left_out_ = true;
    with = {};
  }
  if (written_.empty()) written_.reserve(text_.size());
  AppendAll(&written_, {text_.substr(kept_until_, piece.offset - kept_until_), with});
  kept_until_ = end;
}

std::string CTextWriter::Take() { return std::move(written_.append(text_.substr(kept_until_))); }

void CValueReading::CStep::Begin(RequestValue::Encoding encoding, std::string_view text, TextEncoding characters) {
  encoding_ = encoding;
  characters_ = characters;
  text_ = text;
  sent_ = read_ = plain_ = escaped_ = made_ = 0;
}

std::string_view CValueReading::CStep::Decoded() {
  return DecodeInto(encoding_, text_, characters_, &decoded_) ? std::string_view(decoded_) : text_;
}

void CValueReading::CStep::GoOn() {
  sent_ += plain_ + escaped_;
  read_ += plain_ + made_;
  const std::size_t stop = NextEscape(encoding_, text_, sent_);
  plain_ = stop - sent_;
  escape_.clear();
  escaped_ = stop == text_.size() ? 0 : AppendDecoded(encoding_, text_, stop, characters_, &escape_);
  made_ = escape_.size();
}

TextPlace CValueReading::CStep::SentOf(std::size_t at) {
  while (at >= read_ + plain_ + made_ && sent_ + plain_ + escaped_ < text_.size()) GoOn();
  if (at < read_ + plain_) return {sent_ + (std::max(at, read_) - read_), 1};
  return {sent_ + plain_, escaped_};
}

std::string_view CValueReading::Read(const RequestValue& value, TextEncoding characters) {
  step_count_ = 0;
  const auto step = [&](RequestValue::Encoding encoding, std::string_view text) {
    CStep& next = steps_[step_count_++];
    next.Begin(encoding, text, characters);
    return next.Decoded();
  };
  std::string_view text = step(value.encoding, value.raw);
  if (value.encoding == RequestValue::kQuery && text.find('%') != text.npos) text = step(RequestValue::kPercent, text);
  if (value.encoding != RequestValue::kXml && text.find("&#") != text.npos) text = step(RequestValue::kXml, text);
  return text;
}

TextPlace CValueReading::Sent(const TextPlace& place) {
  TextPlace sent = place;
  for (std::size_t step = step_count_; step-- > 0;) {
    const std::size_t begin = steps_[step].SentOf(sent.offset).offset;
    const TextPlace last = steps_[step].SentOf(sent.offset + sent.length - 1);
    sent = {begin, last.offset + last.length - begin};
  }
  return sent;
}

std::string_view ReplacementIn(const RequestValue& value, const CReplacement& replacement, TextEncoding charset) {
  switch (value.encoding) {
    case RequestValue::kPlain:
    case RequestValue::kConverted:
      return replacement.Plain(charset);
    case RequestValue::kJson:
      return replacement.Json();
    case RequestValue::kXml:
      return replacement.Xml();
    case RequestValue::kForm:
    case RequestValue::kQuery:
      return replacement.Percent(charset);
    case RequestValue::kPercent:
    case RequestValue::kCookie:
      break;
  }
  // A header that holds no escape is read as it is.
  const bool escaped =
      value.raw.find('%') != value.raw.npos || (value.encoding == RequestValue::kCookie && !replacement.FitsCookie());
  return escaped ? replacement.Percent(charset) : replacement.Plain(charset);
}

bool CBase64Runs::Hold(const TextPlace& place) {
  constexpr std::size_t kShortest = 32;
  const auto belongs = [this](std::size_t at) {
    const char c = text_[at];
    return IsWordByte(c) || c == '+' || c == '/' || c == '-' || c == '=';
  };
  if (place.offset >= end_) {
    std::size_t begin = place.offset;
    while (begin > end_ && belongs(begin - 1)) --begin;
    end_ = place.offset;
    while (end_ < text_.size() && belongs(end_)) ++end_;
    const std::string_view run = text_.substr(begin, end_ - begin);
    const auto has = [run](bool (*is)(char)) { return std::any_of(run.begin(), run.end(), is); };
    is_run_ = run.size() >= kShortest && has(IsDigit) && has([](char c) { return c >= 'A' && c <= 'Z'; }) &&
              has([](char c) { return c >= 'a' && c <= 'z'; });
  }
  return is_run_ && place.offset + place.length <= end_;
}

}  // namespace qiv

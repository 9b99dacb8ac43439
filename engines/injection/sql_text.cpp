// What the readers of one text have found out about it: see sql_tokens.h.
#include <algorithm>

#include "engines/injection/sql_tokens.h"

namespace qiv {

std::size_t CSqlText::BehindComment(std::size_t from) {
  if (!ends_known_) {
    ends_known_ = true;
    for (std::size_t i = text_.find("*/"); i != std::string_view::npos; i = text_.find("*/", i + 2))
      ends_.push_back(i + 2);
  }
  const auto end = std::lower_bound(ends_.begin(), ends_.end(), from + 2);
  return end == ends_.end() ? std::string_view::npos : *end;
}

std::size_t CSqlText::PlainQuote(char quote, std::size_t from) {
  Span& known = plain_quotes_[quote == '\'' ? 0 : quote == '"' ? 1 : 2];
  if (known.Holds(from)) return known.to;
  std::size_t next = text_.find(quote, from);
  while (next != std::string_view::npos && next > 0 && text_[next - 1] == '\\') {
    next = known.Holds(next) ? known.to : text_.find(quote, next + 1);
  }
  known = {from, next};
  return next;
}

std::size_t CSqlText::LineEnd(std::size_t from) {
  if (!line_.Holds(from)) line_ = {from, text_.find('\n', from)};
  return line_.to;
}

void CSqlText::PassComments(std::size_t* at, std::size_t* room) const {
  const auto first = std::lower_bound(comments_.begin(), comments_.end(), *at,
                                      [](const Comment& comment, std::size_t place) { return comment.begin < place; });
  if (first == comments_.end() || first->begin != *at) return;
  const auto behind = std::lower_bound(first, comments_.end(), first->spent + *room,
                                       [](const Comment& comment, std::size_t spent) { return comment.spent < spent; });
  if (behind == first) return;
  const Comment& last = *(behind - 1);
  *at = last.begin;
  *room -= last.spent - first->spent;
}

void CSqlText::KeepComment(std::size_t begin, std::size_t spent, std::size_t next) {
  if (text_.size() >= UINT32_MAX) return;
  if (comments_.empty() || comments_.back().begin != begin) comments_.assign(1, {static_cast<std::uint32_t>(begin), 0});
  if (comments_.size() == kMostComments) comments_.erase(comments_.begin(), comments_.begin() + kMostComments / 2);
  comments_.push_back({static_cast<std::uint32_t>(next), comments_.back().spent + static_cast<std::uint32_t>(spent)});
}

CSqlText::Read* CSqlText::BarrenAt(std::size_t at) {
  Read& known = KeptAt(at);
  if (known.at != at) CSqlTokens(this, at);
  return known.at == at && known.barren != 0 ? &known : nullptr;
}

bool CSqlText::IsBarren(std::size_t from, std::size_t tokens) {
  if (kept_.empty()) return false;
  // Brackets that the statement had open are passed over, however many.
  for (const Read* known = BarrenAt(from); known != nullptr && known->kind == SqlTokenKind::kClose;
       known = BarrenAt(from))
    from = known->end;
  std::size_t count = 0;
  std::size_t at = from;
  while (count < tokens) {
    const Read* const known = BarrenAt(at);
    if (known == nullptr) return false;
    count += known->barren;
    at = known->resume;
  }
  // Whoever begins at one of these goes on behind all of them.
  std::size_t left = count;
  for (std::size_t place = from; place != at;) {
    Read& known = KeptAt(place);
    if (known.at != place) break;  // another one has taken its room
    const std::size_t own = known.barren;
    place = known.resume;
    known.barren = static_cast<std::uint32_t>(left);
    known.resume = static_cast<std::uint32_t>(at);
    left -= own;
  }
  return true;
}

}  // namespace qiv

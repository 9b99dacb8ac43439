#include "checks/shown_text.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "checks/request_values.h"
#include "common/char_set.h"
#include "common/secrets.h"
#include "engines/injection/match_excerpt.h"

namespace qiv {
namespace {

// Forms have a few. A body made of nothing but passwords must not need more memory for their places than for itself;
// from the last one on, all of it counts as secret.
constexpr std::size_t kMostSecrets = 1000;

class CSecretPlaces {
 public:
  explicit CSecretPlaces(std::string_view text) : text_(text) {}

  bool Visit(const RequestValue& value) {
    if (value.name.empty() || value.raw.empty()) return true;
    std::string room;
    if (!IsSecretName(RequestValue{{}, value.name, value.encoding}.Decoded(&room))) return true;
    const auto offset = static_cast<std::size_t>(value.raw.data() - text_.data());
    places_.push_back({offset, places_.size() + 1 < kMostSecrets ? value.raw.size() : text_.size() - offset});
    return places_.size() < kMostSecrets;
  }

  std::vector<TextPlace> Take() { return std::move(places_); }

 private:
  std::string_view text_;
  std::vector<TextPlace> places_;
};

bool SameButCase(std::string_view text, std::string_view judged) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
  return std::equal(text.begin(), text.end(), judged.begin(), judged.end(),
                    [lower](char a, char b) { return lower(a) == lower(b); });
}

std::string Overwritten(MarkedText sent, std::string_view judged) {
  if (!SameButCase(sent.text, judged)) sent = {std::string(judged), {}};
  // First what a name in the text says, while all of it can be read.
  OverwriteSecrets(&sent.text);
  for (const TextPlace& place : sent.places) {
    std::fill_n(sent.text.begin() + static_cast<std::ptrdiff_t>(place.offset), place.length, kSecretByte);
  }
  return std::move(sent.text);
}

}  // namespace

CShownText CShownText::Query(const RequestFacts& facts) noexcept {
  CShownText shown;
  try {
    const std::string_view url = facts.raw_url;
    const std::size_t query = std::min(url.find('?'), url.size() - 1) + 1;
    CSecretPlaces secrets(url.substr(query));
    ForEachQueryValue(facts, [&secrets](const RequestValue& value) { return secrets.Visit(value); });
    MarkedText sent{std::string(url.substr(query)), secrets.Take()};
    TrimMarked(&sent);
    NormalizeMarked(&sent);
    TrimMarked(&sent);
    shown.text_ = Overwritten(std::move(sent), facts.query);
  } catch (const std::bad_alloc&) {
    shown.text_.clear();
  }
  return shown;
}

CShownText CShownText::Body(const RequestFacts& facts) noexcept {
  CShownText shown;
  try {
    CSecretPlaces secrets(facts.text_body);
    ForEachBodyValue(facts.content_type, facts.text_body,
                     [&secrets](const RequestValue& value) { return secrets.Visit(value); });
    MarkedText sent{std::string(facts.text_body), secrets.Take()};
    DecodeBodyMarked(&sent);
    shown.text_ = Overwritten(std::move(sent), facts.body);
  } catch (const std::bad_alloc&) {
    shown.text_.clear();
  }
  return shown;
}

CShownText CShownText::Plain(std::string_view judged) noexcept {
  CShownText shown;
  try {
    shown.text_ = Overwritten({std::string(judged), {}}, judged);
  } catch (const std::bad_alloc&) {
    shown.text_.clear();
  }
  return shown;
}

CShownText CShownText::Header(const HeaderEntry& header) noexcept {
  CShownText shown;
  try {
    shown.is_utf8_ = true;
    MarkedText sent{header.value, {}};
    if (IsSecretName(header.name)) sent.places.push_back({0, header.value.size()});
    shown.text_ = Overwritten(std::move(sent), header.value);
  } catch (const std::bad_alloc&) {
    shown.text_.clear();
  }
  return shown;
}

CShownText CShownText::Value(std::string_view text, std::size_t name_length) noexcept {
  CShownText shown;
  try {
    shown.is_utf8_ = true;
    MarkedText sent{std::string(text), {}};
    const std::size_t begin = name_length + 1;
    if (IsSecretName(text.substr(0, name_length))) sent.places.push_back({begin, text.size() - begin});
    shown.text_ = Overwritten(std::move(sent), text);
  } catch (const std::bad_alloc&) {
    shown.text_.clear();
  }
  return shown;
}

std::string CShownText::At(TextPlace place) const {
  std::string piece = WithHiddenSecrets(place.In(text_));
  return is_utf8_ ? CCharSet::ToLocal(std::move(piece)) : piece;
}

std::string CShownText::ExcerptAt(TextPlace place) const { return WithHiddenSecrets(MatchExcerpt(text_, place)); }

std::string ShownUrl(const RequestFacts& facts) { return WithoutSecrets(facts.raw_url); }

std::string ShownFullUrl(const RequestFacts& facts) {
  const CShownText query = CShownText::Query(facts);
  if (query.View().find(kSecretByte) == std::string_view::npos) return facts.full_url;
  return facts.site_url + "?" + query.At({0, query.View().size()});
}

}  // namespace qiv

#include "config/url_exemptions.h"

#include <utility>

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

/// The item in the other encoding, or the same text when there is nothing to convert. Settings are in GBK, so only what
/// percent-decoding brought in can be UTF-8.
std::string OtherEncoding(const std::string& item, bool decoded) {
  if (CCharSet::IsAscii(item)) return item;
  return decoded && CCharSet::IsValidUtf8(item) ? CCharSet::Utf8ToLocal(item) : CCharSet::LocalToUtf8(item);
}

}  // namespace

CUrlExemptions::CUrlExemptions(std::string_view setting) {
  Parts parts;
  for (const std::string_view written : Split(setting, '|')) {
    if (written.empty()) continue;
    const bool decoded = written.find('%') != std::string_view::npos;
    std::string item = decoded ? PercentDecode(written) : std::string(written);
    std::string other = OtherEncoding(item, decoded);
    if (other != item) Add(std::move(other), &parts);
    Add(std::move(item), &parts);
  }
  item_count_ = parts.items.size();
  items_ = CMultiPattern(parts.items);
  names_ = CMultiPattern(parts.names);
}

void CUrlExemptions::Add(std::string item, Parts* parts) {
  const std::string_view view = item;
  const std::size_t question = view.find('?');
  if (question != std::string_view::npos) {
    for (const std::string_view name : Split(view.substr(question + 1), '&')) {
      if (name.empty()) continue;
      parts->names.emplace_back(name);
      page_of_name_.push_back(static_cast<std::uint32_t>(pages_.size()));
    }
    pages_.emplace_back(view.substr(0, question));
  }
  parts->items.push_back(std::move(item));
}

bool CUrlExemptions::Matches(std::string_view raw_url, std::string_view path) const {
  bool found = false;
  items_.Find(raw_url, [&found](std::uint32_t, std::size_t) {
    found = true;
    return false;
  });
  const std::size_t question = raw_url.find('?');
  if (found || question == std::string_view::npos) return found;
  names_.Find(raw_url.substr(question + 1), [&](std::uint32_t name, std::size_t) {
    found = path.ends_with(pages_[page_of_name_[name]]);
    return !found;
  });
  return found;
}

}  // namespace qiv

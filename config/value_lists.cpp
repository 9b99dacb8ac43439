#include "config/value_lists.h"

#include "common/char_set.h"
#include "common/text.h"

namespace qiv {
namespace {

void AppendItem(std::string_view item, std::string* out) {
  item = Trim(item);
  if (item.empty()) return;
  if (out->empty()) *out += ',';
  *out += item;
  *out += ',';
}

std::string UpperAscii(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

}  // namespace

std::string WrapNames(std::string_view text) {
  std::string wrapped;
  for (const std::string_view item : Split(text, ',')) AppendItem(item, &wrapped);
  return wrapped;
}

std::string WrapExtensions(std::string_view text) {
  std::string wrapped;
  for (const std::string_view group : Split(text, ',')) {
    for (const std::string_view item : Split(group, '|')) AppendItem(item, &wrapped);
  }
  CCharSet::LowerAscii(&wrapped);
  return wrapped;
}

std::string LowerMethods(std::string_view wrapped) {
  std::string methods;
  for (const std::string_view item : Split(wrapped, ',')) {
    const bool marker = item.size() > 2 && item.front() == '|' && item.back() == '|';
    AppendItem(marker ? UpperAscii(item) : CCharSet::LowerAscii(item), &methods);
  }
  return methods;
}

std::vector<std::string> BarItems(std::string_view text) {
  std::vector<std::string> items;
  for (const std::string_view item : Split(text, '|')) {
    if (!item.empty()) items.emplace_back(item);
  }
  return items;
}

CIpRanges RangesOf(std::string_view list) {
  CIpRanges ranges;
  ranges.Add(list);
  return ranges;
}

std::string WithoutControls(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) clean += c;
  }
  return clean;
}

}  // namespace qiv

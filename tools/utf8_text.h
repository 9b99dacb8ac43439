// Text helpers for the tool's own files, which are UTF-8. (Those of common/ expect the local code page, where an ASCII
// byte may be the second half of a character.)
#pragma once

#include <string_view>
#include <vector>

namespace qiv {

/// Parts between separators; empty parts are kept; an empty text is one empty part.
inline std::vector<std::string_view> SplitUtf8(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  for (std::size_t at = text.find(separator); at != std::string_view::npos; at = text.find(separator)) {
    parts.push_back(text.substr(0, at));
    text.remove_prefix(at + separator.size());
  }
  parts.push_back(text);
  return parts;
}

}  // namespace qiv

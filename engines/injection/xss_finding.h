// What the XSS engines find.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qiv {

enum class XssType : std::uint8_t {
  kNone,
  kHtmlEvent,      ///< an event attribute with a script-like value
  kScriptTag,      ///< an opening script tag
  kScriptLoading,  ///< a URL that is a script
  kScriptCode,     ///< a value that ends the string of a script and goes on as script
};

/// The kinds that a site looks for.
struct XssKinds {
  bool event = true;
  bool script = true;  ///< tags and code
  bool loading = true;

  constexpr bool Has(XssType type) const {
    switch (type) {
      case XssType::kHtmlEvent:
        return event;
      case XssType::kScriptTag:
      case XssType::kScriptCode:
        return script;
      case XssType::kScriptLoading:
        return loading;
      case XssType::kNone:
        break;
    }
    return false;
  }
};

/// Its place in the text that was judged, in bytes.
struct XssFinding {
  XssType type = XssType::kNone;
  std::size_t begin = 0;
  std::size_t end = 0;
};

}  // namespace qiv

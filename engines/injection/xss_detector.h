// The XSS detector: event attributes with a script-like value, bare script tags, "javascript:" URLs in tag attributes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/injection_settings.h"

namespace qiv {

/// No state of its own; case-sensitive; thread safe; linear in the text.
class XssDetector {
 public:
  /// The type name in the site's language, empty when nothing was found; *fragment is written on a hit. Every "+" in
  /// *text becomes a blank, in place.
  static std::string_view Check(std::string* text, const InjectionSettings& settings, const InjectionLibrary& library,
                                std::string* fragment, bool per_parameter);
  /// The same for a text that is not to be changed: it is copied only when there is a "+" to replace and a check to
  /// run.
  static std::string_view CheckText(std::string_view text, const InjectionSettings& settings,
                                    const InjectionLibrary& library, std::string* fragment, bool per_parameter);

  // The three checks; each returns the matched fragment, empty when there is none. `work`, when given, is increased by
  // the bytes looked at beside the search for the names (a test compares it with the length of the text).
  static std::string_view EventCheck(std::string_view text, const InjectionLibrary& library,
                                     std::size_t* work = nullptr);
  static std::string_view ScriptTagCheck(std::string_view text, std::size_t* work = nullptr);
  static std::string_view JavascriptUrlCheck(std::string_view text, std::size_t* work = nullptr);
};

}  // namespace qiv

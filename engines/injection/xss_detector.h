// The XSS detector: event attributes with a script-like value, bare script tags, "javascript:" URLs in tag attributes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/injection_settings.h"
#include "engines/injection/judged_text.h"
#include "engines/injection/xss_finding.h"

namespace qiv {

/// No state of its own; case-sensitive; thread safe; linear in the text. It speaks no language: checks/ names the
/// types.
class XssDetector {
 public:
  /// The kind of attack; *fragment is set on a hit, to its place in the text. A "+" counts as a blank; the text is
  /// copied only when there is one and a check to run.
  static XssType TagCheck(const JudgedText& text, const InjectionSettings& settings, const InjectionLibrary& library,
                          TextPlace* fragment, bool per_parameter);
  /// With `xss_form` on, what a browser would run (xss_forms.h), of the kinds that are on; of one value, lower-cased.
  static XssType FormCheck(std::string_view value, const InjectionSettings& settings, const InjectionLibrary& library,
                           TextPlace* fragment);
  /// Both.
  static XssType CheckText(const JudgedText& text, const InjectionSettings& settings, const InjectionLibrary& library,
                           TextPlace* fragment, bool per_parameter);

  // The three checks; each returns the matched fragment, empty when there is none. `work`, when given, is increased by
  // the bytes looked at beside the search for the names (a test compares it with the length of the text).
  static std::string_view EventCheck(const JudgedText& text, const InjectionLibrary& library,
                                     std::size_t* work = nullptr);
  /// Whatever white space the tag holds, the fragment is kScriptFragment.
  static std::string_view ScriptTagCheck(std::string_view text, std::size_t* work = nullptr);
  static std::string_view JavascriptUrlCheck(std::string_view text, std::size_t* work = nullptr);

  static constexpr std::string_view kScriptFragment = "<script>";
};

}  // namespace qiv

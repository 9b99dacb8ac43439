// Judges a value by what a browser would do with it, wherever a page may print it.
//
// The places: between tags, in attributes with either quote or none, in a URL attribute, in a string of a script; the
// same behind the decodings that a browser adds there (character references in attributes, escapes in scripts). Text
// that no place turns into something that runs is no finding, however much it talks about scripts.
#pragma once

#include <string_view>

#include "engines/injection/injection_library.h"
#include "engines/injection/xss_finding.h"

namespace qiv {

/// One value, decoded, in lower case; kNone when it runs nowhere. Of the kinds asked for alone: none hides another.
/// Linear; any number of threads. It takes memory, for copies of the value, only when the value holds escapes that may
/// hide something.
XssFinding FindXssForm(std::string_view value, const InjectionLibrary& library, XssKinds kinds = {});

}  // namespace qiv

// Pieces of the report page: escaping, texts in both languages, style and script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "common/language.h"

namespace qiv {

enum class ReportText : std::uint16_t {
#define QIV_REPORT_TEXT(id, english, chinese) id,
#include "tools/report_texts.def"
#undef QIV_REPORT_TEXT
  kCount,
};

/// Any text, from a log too, as text between tags or in a quoted attribute: control characters and those that are not
/// seen are made visible, "&", "<", ">" and both quotes are references. The result is valid UTF-8.
std::string HtmlText(std::string_view text);

/// Both languages, of which the page shows one. `pieces` are markup and go in for {0}, {1} ...
std::string BothLanguages(ReportText text, std::initializer_list<std::string> pieces = {});

/// The text alone, for places without markup: it holds no pieces.
std::string_view PlainText(ReportText text, Language language);

/// What stands in the page's <style> and <script>; neither holds anything of a log.
std::string_view ReportStyle();
std::string_view ReportScript();

}  // namespace qiv

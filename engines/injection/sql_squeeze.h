// A text as a database divides it into words: every run of blanks and comments is one blank, and a run of blanks that
// holds the end of a line is one end of a line, since the lines of ordinary texts are not sentences of their own.
//
// Rules are found byte by byte, so each spells its blanks as one blank; however an attacker spells them, this form
// holds them so. Blanks are what some database takes for one: control bytes and blank, and 0xA0 where no character can
// hold it. A comment is "/*...*/", or "--" or "#" up to the end of a line; of a comment that the database runs
// ("/*!50000union*/", "/*M!100100 union*/") the contents stay. Quoted strings are not told apart: the form is judged
// beside the text, never instead of it.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// Appends the squeezed form of the text to *squeezed. False, with nothing appended, when the text holds nothing to
/// squeeze but single blanks. Linear.
bool SqueezeSql(std::string_view text, std::string* squeezed);

}  // namespace qiv

// The ways in which servers and file systems may come to read the path of a request.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// The path of a request's URL as sent: without query, and of an absolute URL without scheme and host.
std::string_view PathOfUrl(std::string_view raw_url);

/// The readings of a text as UTF-8, each once: percent-decoded, once and until nothing is left to decode (at most four
/// times: nobody decodes more often), taken for UTF-8 and for GBK. Case is kept.
std::vector<std::string> TextReadings(std::string_view text);

/// The readings of a path in UTF-8 and lower case, each once: those of its text, in each backslashes as slashes, runs
/// of slashes as one, dot segments resolved; with and without ";parameters" and the dots and blanks that file systems
/// drop from the end of a name. A path without anything of it has one reading. Linear in the path.
std::vector<std::string> PathReadings(std::string_view raw_path);

/// One text resolved as PathReadings says. `loose`: without what is dropped from the end of names.
std::string ResolvedPath(std::string_view path, bool loose);

/// `written`, an item of a list in GBK, percent-decoded, in UTF-8 and lower case.
std::string PathItemText(std::string_view written);

}  // namespace qiv

// Reads lists of areas in the shapes in which they are published.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/area_builder.h"
#include "tools/report.h"

namespace qiv {

/// Fields of one line of comma-separated values: quoted fields may hold commas, and "" for a quotation mark.
std::vector<std::string> SplitCsvLine(std::string_view line);

/// Adds every line of `start,end,code[,name]` or `cidr,code[,name]` to the builder of its family; start and end are
/// addresses, or the numbers of IPv4 addresses. Texts in UTF-8. Blank lines, lines that begin with "#" and a first line
/// without an address are passed over; every other line that is no range is an error in the report. An area is "-" or
/// empty where nobody is: such ranges are left out.
void ReadAreaCsv(std::string_view text, CAreaBuilder* ipv4, CAreaBuilder* ipv6, CReport* report);

}  // namespace qiv

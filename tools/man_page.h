// Manual pages (section 1), made of the table of commands.
#pragma once

#include <string>
#include <vector>

#include "command_line/command.h"

namespace qiv {

struct ManPage {
  std::string file;  ///< "qivctl-library-pack.1"
  std::string text;
};

/// A page for the program, first, and one for each command below it.
std::vector<ManPage> ManPages(const CCommand& program, const std::string& version);

}  // namespace qiv

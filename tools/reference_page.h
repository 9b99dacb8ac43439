// The reference page of the configuration, made from the key tables.
#pragma once

#include <string>

namespace qiv {

/// docs/configuration-reference.md.
std::string ReferencePage();

}  // namespace qiv

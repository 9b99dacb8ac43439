// Types of files by their extension.
#pragma once

#include <string_view>

namespace qiv::host {

/// The Content-Type of an extension (without its dot, any case); "application/octet-stream" when it is not known.
std::string_view MediaTypeOf(std::string_view extension);

/// Whether files of this extension are programs of some application server, which are never given out as text.
bool IsServerScript(std::string_view extension);

}  // namespace qiv::host

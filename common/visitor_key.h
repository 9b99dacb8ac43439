// The key of what visitors show to prove that they passed a page: config/_key.db.
#pragma once

#include <cstddef>
#include <string>

namespace qiv {

inline constexpr std::size_t kVisitorKeyBytes = 16;

/// A key file's content, hexadecimal digits and a line end, of a key that was just drawn by the system's generator.
/// Throws std::exception where there is none.
std::string NewVisitorKey();

}  // namespace qiv

// What rule libraries in plain files have in common: a folder with one file for each list.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

/// One of the files of an unpacked library.
struct PlainLibraryFile {
  std::string name;  ///< without ".txt"
  std::string text;
};

inline std::string PlainLibraryPath(const std::string& directory, std::string_view name) {
  return directory + "/" + std::string(name) + ".txt";
}

/// Whether the line holds what divides the records of a stored library, and their fields.
inline bool HoldsRecordMarks(std::string_view line) {
  return line.find("{#}") != std::string_view::npos || line.find("{*}") != std::string_view::npos;
}

}  // namespace qiv

// What a server makes of the file name that an upload states.
#pragma once

#include <string>
#include <string_view>

namespace qiv {

enum class NameFault {
  kNone,
  kDisguised,        ///< a script to some server: "x.asp;.jpg", "x.php%00.jpg", "x.asp::$DATA", "x.php.", "x.asp/y.jpg"
  kDoubleExtension,  ///< a script's extension in front of another one: "x.php.jpg"
  kDevice,           ///< a device of Windows: "con", "aux.txt"
  kTraversal,        ///< a ".." among its directories
  kControlByte,      ///< NUL, or another byte below a blank
  kTooLong,
};

struct UploadName {
  /// Without directories, lower-case. Decoded where it was percent-encoded or in the extended notation; full-width and
  /// other letters that Windows takes for ASCII letters folded to them, invisible characters left out.
  std::string base;
  std::string extension;  ///< of `base`, without dot and without trailing dots, blanks and streams; may be empty
  NameFault fault = NameFault::kNone;
};

/// The longest file name, with directories, in bytes. Windows takes 260 characters unless asked otherwise; a character
/// is at most 3 bytes.
inline constexpr std::size_t kLongestUploadName = 1024;

/// `raw`: a file name as it stands in a header or a request, in any encoding.
UploadName ReadUploadName(std::string_view raw);

/// `types`: the setting `upload_types` as the configuration holds it. "!php" denies an extension; other items admit
/// theirs, "*" every one; where no item admits, all are admitted that are not denied. A name without extension is.
bool IsAdmittedExtension(std::string_view extension, std::string_view types);

/// `extension` in lower case.
bool IsScriptExtension(std::string_view extension);      ///< run by IIS or by what is usually installed with it
bool IsExecutableExtension(std::string_view extension);  ///< run by a visitor's or the server's system
bool IsImageExtension(std::string_view extension);

}  // namespace qiv

// What the bytes of an uploaded file are: a picture, an executable, script text. Linear; thread safe.
#pragma once

#include <cstddef>
#include <string_view>

namespace qiv {

/// Whether the content is a picture of a kind that browsers and cameras make: its magic number, and the first of its
/// structures behind it (the frame of a JPEG file, the header chunk of a PNG file and so on).
bool IsImage(std::string_view content);

/// Whether it only begins like a picture.
bool BeginsLikeImage(std::string_view content);

/// Executables of Windows ("MZ" and a PE, NE or LE header, .NET among them), Unix and macOS, shortcuts of Windows, and
/// scripts that name their interpreter ("#!/").
bool IsExecutable(std::string_view content);

/// Where script text of a server begins at or after `from`: "<?php", "<?=", "<?", "<%", "<script runat=server>",
/// "<!--#exec"; npos when there is none. In compressed or random bytes the two-byte marks occur by chance, some 300
/// times in 10 MiB: what follows must read like text (see kScriptRun in the source). "<?xml" and other markup of the
/// kind is none.
std::size_t FindScript(std::string_view content, std::size_t from = 0);

/// Whether a file's text switches on the execution of scripts where it is put. `base`: its name in lower case: of
/// interest are ".htaccess", ".user.ini", "php.ini" and "*.config".
bool SwitchesOnScripts(std::string_view base, std::string_view content);

}  // namespace qiv

// Keeps passwords out of what the module shows, logs and hands on.
//
// Two ways, for two situations. Where the structure of a request is known, whoever reads it asks IsSecretName for each
// parameter and header, and blanks the values (checks/shown_text.h). What remains is texts whose structure is not
// known: reasons and details as checks compose them, URLs, JSON inside of a parameter. There FindSecrets recognises a
// name like a password's with a value behind it, as forms, JSON, XML, multipart contents and header lines write them.
// When it is in doubt where a value ends, it takes more rather than less.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace qiv {

/// Whether a parameter, field, header or element of this name holds a secret: the name contains "pass", "pwd", "psw",
/// "secretrkey" or "authorization", without regard to case.
bool IsSecretName(std::string_view name);

/// What stands in place of a secret.
inline constexpr std::string_view kHiddenSecret = "***";

/// Calls visit(begin, end) for each value behind a secret name, in order; none is empty. Linear in the text.
void FindSecrets(std::string_view text, const std::function<void(std::size_t, std::size_t)>& visit);

/// The text with kHiddenSecret in place of each of them. Applied again, it changes nothing more.
std::string WithoutSecrets(std::string_view text);

/// Where pieces are to be cut from a text by their places, its secrets are first overwritten with this byte, which is
/// part of no character in GBK or UTF-8; WithHiddenSecrets then gives each run of it in a piece as kHiddenSecret.
inline constexpr char kSecretByte = '\xFF';
void OverwriteSecrets(std::string* text);
std::string WithHiddenSecrets(std::string_view piece);

}  // namespace qiv

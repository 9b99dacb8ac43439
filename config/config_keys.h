// The one table of configuration keys: what the loader, lint, pack, unpack and the reference page know of them.
//
// It is made of the keys_*.def files (and engines/injection/injection_keys.def), one row a key:
//   QIV_<TYPE>(member, key, reader, meaning)
// in the order in which keys are read. The reader is a KeyReader: the part that acts on the value. kIdle marks a key
// that nothing acts on yet; who builds that part puts its own name there. A repository check compares the mark with the
// sources, where a member is read as "section.member" or "section_.member". The meaning is English Markdown with unit
// and range. The same files declare the members of the records in website_config.h, read their values in
// config_parser.cpp, and say there which flags have the body captured. All of this is thread safe.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace qiv {

enum class KeyType {
  kNumber,      ///< QIV_NUMBER: a decimal number; text that begins with none is 0
  kDigits,      ///< QIV_DIGITS: a decimal number; text that is not all digits, or beyond 32 bits, is 0
  kFlag,        ///< QIV_FLAG, QIV_BODY, QIV_BODY_IF: on when the text is exactly "1"
  kText,        ///< QIV_TEXT: kept as it is
  kList,        ///< QIV_LIST, QIV_ADDRESSES: items separated by "|"
  kNames,       ///< QIV_NAMES: items separated by ","; held wrapped, as ",a,b,"
  kExtensions,  ///< QIV_EXTENSIONS: file name extensions separated by "," (or "|"); held lower-case and wrapped
  kRules,       ///< QIV_RULES: rule records, each ended by "{#}"
  kChoice,      ///< QIV_CHOICE: one of some names; held as a number
};

/// What acts on a key.
enum class KeyReader {
  kIdle,  ///< nothing in this version
  kLoader,
  kFacts,
  kLists,
  kInjection,
  kWebshell,
  kUpload,
  kCounters,
  kSmartBlocking,
  kHardening,
  kPages,
  kEvents,
  kRequestChecks,
  kAccessChecks,
  kBadCode,
  kWords,
  kScripts,
  kPassword,
};

/// "has no effect in this version" of an idle key, else empty.
std::string_view NoEffectText(KeyReader reader);

struct ConfigKey {
  std::string_view section;  ///< "website_base" ..., or a group of ScalarKeys()
  std::string_view name;
  KeyType type;
  KeyReader reader;
  std::string_view meaning;  ///< Markdown
  bool addresses = false;    ///< a list of address ranges, which other bytes than "|" divide as well
  bool needs_body = false;   ///< on, it has the request's body captured (QIV_BODY_IF: together with another switch)
};

/// The names of the seven JSON parts, in reading order.
std::span<const std::string_view> ConfigSections();

/// The keys of the seven JSON parts, grouped by section, in reading order.
std::span<const ConfigKey> ConfigKeys();
/// Those of one section.
std::span<const ConfigKey> ConfigKeys(std::string_view section);

/// The tagged values beside the JSON parts: section "" for the tags of their own, "website_other" for those inside it.
std::span<const ConfigKey> ScalarKeys();

/// One tagged part of the IP-list part.
struct IpSetKey {
  std::string_view name;
  bool is_key_list;  ///< a "|" list of user-agent keys; else addresses, in <ipv4> and <ipv6>
  KeyReader reader;
  std::string_view meaning;
};
std::span<const IpSetKey> IpSetKeys();

/// Null when there is no such key.
const ConfigKey* FindConfigKey(std::string_view section, std::string_view name);

/// What joins the entries of a value of this type when it is written as several lines: "|", ",", "{#}" or a line feed.
std::string_view KeySeparator(KeyType type);

/// "number", "digits", "flag", "text", "list", "names", "extensions", "rules", "choice".
std::string_view KeyTypeName(KeyType type);

}  // namespace qiv

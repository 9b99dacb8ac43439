// The one table of configuration keys: what the loader, lint, pack, unpack and the reference page know of them.
//
// It is made of the keys_*.def files (and engines/injection/injection_keys.def), one row a key:
//   QIV_<TYPE>(member, key, reader, meaning[, values])
// in the order in which keys are read. The reader is a KeyReader: the part that acts on the value. kIdle marks a key
// that nothing acts on yet; who builds that part puts its own name there. A repository check compares the mark with the
// sources, where a member is read as "section.member" or "section_.member". The meaning is English Markdown with its
// unit. What values there are beyond the type's follows as designated fields of KeyValues. The same files declare the
// members of the records in website_config.h, read their values in config_parser.cpp, and say there which flags have
// the body captured. All of this is thread safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

namespace qiv {

enum class KeyType {
  kNumber,      ///< QIV_NUMBER: a decimal number; text that begins with none is 0
  kSwitch,      ///< QIV_SWITCH: such a number; on when it is not 0
  kDigits,      ///< QIV_DIGITS: a decimal number; text that is not all digits, or beyond 32 bits, is 0
  kFlag,        ///< QIV_FLAG, QIV_BODY, QIV_BODY_IF: on when the text is exactly "1"
  kText,        ///< QIV_TEXT: kept as it is
  kList,        ///< QIV_LIST: items separated by "|"
  kAddresses,   ///< QIV_ADDRESSES: address ranges, separated by "|" and by other bytes (common/ip_ranges.h)
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

/// What a row says of its key's values. Left out: any value that fits the type is held as it is.
struct KeyValues {
  std::int32_t least = std::numeric_limits<std::int32_t>::min();  ///< of a number; what is below reads as this
  bool minutes = false;                                           ///< a number of minutes, held in seconds
  /// The values there are, divided by blanks, in lower case; the case of letters in settings does not matter. Of a
  /// choice each with the number that it is held as: "jump=1 click=2"; the first of a number is its usual name.
  std::string_view choices = {};
  std::int32_t none = 0;   ///< of a number, what 0 and less read as; of a choice, what an empty text does
  std::int32_t other = 0;  ///< with choices: what anything else reads as
  bool exact = false;      ///< the case of letters matters, and the choices are written in theirs
};

struct ConfigKey {
  std::string_view section;  ///< "website_base" ..., or a group of ScalarKeys()
  std::string_view name;
  KeyType type;
  KeyReader reader;
  std::string_view meaning;  ///< Markdown
  KeyValues values = {};
  bool needs_body = false;            ///< on, it has the request's body captured
  std::string_view body_switch = {};  ///< QIV_BODY_IF: but only while this key of its section is on, too
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

/// A number as it is held.
std::int32_t ReadNumber(std::string_view text, const KeyValues& values);

/// A choice as it is held.
std::int32_t ReadChoice(std::string_view text, const KeyValues& values);

/// Whether `text` is among the choices; so is an empty one.
bool IsChoice(std::string_view text, const KeyValues& values);

/// The choices as people read them: "jump, click, slide".
std::string ChoiceNames(const KeyValues& values);

/// What else reads as, in the same words.
std::string OtherName(const KeyValues& values);

/// What joins the entries of a value of this type when it is written as several lines: "|", ",", "{#}" or a line feed.
std::string_view KeySeparator(KeyType type);

/// "number", "switch", "digits", "flag", "text", "list", "addresses", "names", "extensions", "rules", "choice".
std::string_view KeyTypeName(KeyType type);

}  // namespace qiv

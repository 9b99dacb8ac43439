// How values come from UTF-8 into GBK without becoming something else.
//
// A character without a GBK form would become "?", and as an item of a list "?" matches every URL with a query. So an
// item with such a character is left out; the loader reports it, and lint and pack refuse it. A scalar text loses
// nothing: it stays in UTF-8 as a whole. Thread safe.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/state_recorder.h"
#include "config/config_keys.h"

namespace qiv {

/// Whether a load keeps an item of such a value, given in UTF-8. Of a rule record only the first fields count: they are
/// what is matched, the others are read by people. True for types that are no lists.
bool ItemSurvives(KeyType type, std::string_view item, std::size_t matched_fields = 1);

/// The value as the record holds it, from valid UTF-8. Of a list (kList, kNames, kExtensions, kRules) the items that do
/// not survive are left out and added to *lost, in UTF-8; what stays keeps its separators. Numbers, flags and choices
/// are converted whatever they hold: "?" is no value of theirs. kText stays in UTF-8 when it does not survive.
std::string ToLocalForm(KeyType type, std::string_view utf8, std::vector<std::string>* lost,
                        std::size_t matched_fields = 1);

/// The same for a tagged value or a library, whose text may already be GBK: then, and when it is shorter than a
/// character of three bytes, it is taken as it is.
std::string TaggedToLocalForm(KeyType type, std::string_view text, std::vector<std::string>* lost);

/// A deciphered library text: TaggedToLocalForm of the rule lists in `tags`, the tags around them kept. When all
/// records survive, the whole text.
std::string LibraryToLocalForm(std::string text, std::span<const std::string_view> tags, std::vector<std::string>* lost,
                               std::size_t matched_fields = 1);

/// What is to be reported about the items that a list ("website_lists.allow_urls"; empty: the file's only one) lost.
StateFault LostItems(std::string list, const std::vector<std::string>& lost);

}  // namespace qiv

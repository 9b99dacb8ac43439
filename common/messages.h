// Every user-visible text of the module, both languages in one row.
//
// Rows live in messages.def; Chinese is written there in UTF-8 and handed out in GBK. A test fails on an empty cell.
#pragma once

#include <string_view>

#include "common/language.h"

namespace qiv {

enum class MessageId {
#define QIV_MESSAGE(id, english, chinese) id,
#include "common/messages.def"
#undef QIV_MESSAGE
  kCount,
};

/// The text in the language asked for; Chinese in GBK. The view stays valid for the life of the process.
std::string_view Message(Language language, MessageId id);

}  // namespace qiv

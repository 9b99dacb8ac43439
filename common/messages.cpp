#include "common/messages.h"

#include <array>
#include <string>

#include "common/char_set.h"

namespace qiv {
namespace {

constexpr std::size_t kMessageCount = static_cast<std::size_t>(MessageId::kCount);

constexpr std::array<std::string_view, kMessageCount> kEnglish = {
#define QIV_MESSAGE(id, english, chinese) std::string_view(english),
#include "common/messages.def"
#undef QIV_MESSAGE
};

constexpr std::array<std::string_view, kMessageCount> kChineseUtf8 = {
#define QIV_MESSAGE(id, english, chinese) std::string_view(chinese),
#include "common/messages.def"
#undef QIV_MESSAGE
};

std::array<std::string, kMessageCount> ToGbk() {
  std::array<std::string, kMessageCount> texts;
  for (std::size_t i = 0; i < kMessageCount; ++i) texts[i] = CCharSet::Utf8ToLocal(kChineseUtf8[i]);
  return texts;
}

}  // namespace

std::string_view Message(Language language, MessageId id) {
  // Converted at the first use. Never destroyed, because a view may outlive static objects at the process's end.
  static const auto& chinese = *new const std::array<std::string, kMessageCount>(ToGbk());
  const auto index = static_cast<std::size_t>(id);
  return language == Language::kChinese ? std::string_view(chinese[index]) : kEnglish[index];
}

}  // namespace qiv

// The two languages of every user-visible text.
#pragma once

namespace qiv {

enum class Language { kEnglish, kChinese };

}  // namespace qiv

// What a response becomes, edit by edit.
#pragma once

#include <string>
#include <string_view>

#include "checks/check_result.h"

namespace qiv {

inline std::string Edited(std::string_view text, const TextEdits& edits) {
  std::string edited;
  std::size_t kept = 0;
  for (const TextEdits::Edit& edit : edits.edits) {
    edited.append(text.substr(kept, edit.offset - kept)).append(edits.texts[edit.text]);
    kept = edit.offset + edit.length;
  }
  return edited.append(text.substr(kept));
}

}  // namespace qiv

// Which encodings a response's text may be in: what it says, else what it looks like.
#pragma once

#include <vector>

#include "checks/check_context.h"
#include "config/sensitive_words.h"

namespace qiv {

struct ResponseEncodings {
  std::vector<TextEncoding> encodings;  ///< words are looked for in each
  bool only_ascii = false;              ///< in a charset of its own: only ASCII is what it looks like
};

/// By a mark at its beginning, by the type's charset, by the charset that a page's head names; without any by its
/// bytes. A charset that is not ASCII at heart, or in which a byte of a character may look like ASCII and is not GBK,
/// has none.
ResponseEncodings EncodingsOf(const ResponseText& response);

}  // namespace qiv

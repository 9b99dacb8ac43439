// Which encodings a response's text may be in: what it says, else what it looks like.
#pragma once

#include "checks/check_context.h"

namespace qiv {

/// By a mark at its beginning, by the type's charset, by the charset that a page's head names in a <meta> tag or an XML
/// declaration; without any, and where nobody knows the name, by its bytes. A charset that is not ASCII at heart, or in
/// which a byte of a character may look like ASCII and is not GBK, has none. Looked at once a response.
const ResponseEncodings& EncodingsOf(const ResponseText& response);

}  // namespace qiv

#include "module/server_text.h"

#include <cstring>
#include <limits>

namespace qiv {

char* CopyToRequestMemory(iis::IHttpContext& context, std::string_view text) {
  if (text.size() >= std::numeric_limits<iis::DWORD>::max()) return nullptr;
  char* copy = static_cast<char*>(context.AllocateRequestMemory(static_cast<iis::DWORD>(text.size() + 1)));
  if (!copy) return nullptr;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace qiv

#include "checks/response_charset.h"

#include <string_view>
#include <utility>

#include "common/charset_label.h"
#include "common/text.h"

namespace qiv {
namespace {

constexpr std::size_t kHead = 1024;  // where browsers look for a page's charset
constexpr std::size_t kNowhere = std::string_view::npos;

/// The charset that a tag "meta" names. What it calls its content is text, but where it stands for a header.
std::string_view NamedInMeta(std::string_view tag) {
  if (!BeginsNoCase(tag, "meta") || tag.size() == 4 || (!IsSpace(tag[4]) && tag[4] != '/')) return {};
  const std::string_view name = CharsetName(tag);
  if (name.empty() || FindNoCase(tag, "http-equiv") != kNowhere) return name;
  const auto at = static_cast<std::size_t>(name.data() - tag.data());
  return FindNoCase(tag.substr(0, at), "content") == kNowhere ? name : std::string_view();
}

/// The charset that the head of a page names: in an XML declaration or in a tag "meta". Text beside them names none.
std::string_view NamedInHead(std::string_view head) {
  for (std::size_t at = head.find('<'); at != kNowhere; at = head.find('<', at + 1)) {
    const std::string_view tag = head.substr(at + 1, head.find('>', at) - at - 1);
    if (tag.starts_with("!--")) {
      at = head.find("-->", at);
      if (at == kNowhere) break;
      continue;
    }
    const std::string_view name = BeginsNoCase(tag, "?xml") ? CharsetName(tag, "encoding") : NamedInMeta(tag);
    if (!name.empty()) return name;
  }
  return {};
}

ResponseEncodings ByName(CharsetKind kind) {
  switch (kind) {
    case CharsetKind::kUtf8:
      return {{TextEncoding::kUtf8}};
    case CharsetKind::kLocal:
      return {{TextEncoding::kLocal}};
    case CharsetKind::kWideLittle:
      return {{TextEncoding::kWideLittle}};
    case CharsetKind::kWideBig:
      return {{TextEncoding::kWideBig}};
    case CharsetKind::kSingle:
      return {{TextEncoding::kUtf8}, true};
    case CharsetKind::kWide:
    case CharsetKind::kDoubleByte:
    case CharsetKind::kUnreadable:
    case CharsetKind::kNone:
    case CharsetKind::kUnknown:
      break;
  }
  return {};
}

ResponseEncodings Find(const ResponseText& response) {
  const std::string_view text = response.text;
  if (text.starts_with("\xEF\xBB\xBF")) return {{TextEncoding::kUtf8}};
  if (text.starts_with("\xFF\xFE")) return {{TextEncoding::kWideLittle}};
  if (text.starts_with("\xFE\xFF")) return {{TextEncoding::kWideBig}};
  CharsetKind kind = KindOfCharset(CharsetName(response.type));
  const bool markup = !BeginsNoCase(response.type, "text/plain") && FindNoCase(response.type, "json") == kNowhere;
  if ((kind == CharsetKind::kNone || kind == CharsetKind::kUnknown) && markup) {
    kind = KindOfCharset(NamedInHead(text.substr(0, kHead)));
    // Who reads that in bytes does not read UTF-16.
    if (kind == CharsetKind::kWideLittle || kind == CharsetKind::kWideBig) kind = CharsetKind::kUtf8;
  }
  if (kind != CharsetKind::kNone && kind != CharsetKind::kUnknown) return ByName(kind);
  EncodingEvidence evidence;
  evidence.Add(text);
  ResponseEncodings found{{TextEncoding::kUtf8}, false, evidence.stray == 0};
  if (evidence.IsMostlyLocal()) found.encodings.push_back(TextEncoding::kLocal);
  return found;
}

}  // namespace

const ResponseEncodings& EncodingsOf(const ResponseText& response) {
  if (!response.encodings) response.encodings = Find(response);
  return *response.encodings;
}

}  // namespace qiv

// The texts of a request one by one, as an application gets them: values and names of parameters, strings of JSON,
// fields of multipart forms, header values, cookies.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "checks/request_facts.h"

namespace qiv {

/// One text. Views are valid during the visit.
struct RequestValue {
  enum Encoding {
    kPlain,
    kConverted,  ///< the text of a body in another charset: as kPlain, but not what was sent
    kPercent,    ///< "%XX", once
    kForm,       ///< "%XX" and "+", once
    kQuery,      ///< the same, twice if need be, as the query is normalised
    kCookie,     ///< as kForm; some servers hand it on as it was sent
    kJson,       ///< the inside of a JSON string
    kXml,        ///< text or attribute of XML: character and named references
  };

  std::string_view name;  ///< undecoded; empty: none
  std::string_view raw;
  Encoding encoding = kPlain;

  /// The first `most` bytes of `raw` decoded: a view of them where there is nothing to decode, else of *room.
  std::string_view Decoded(std::string* room, std::size_t most = std::string_view::npos) const;

  /// Whether the text of its place (query, body or header) holds this decoded form too, as the checks are given it. In
  /// forms it does, in queries but for character references, which are resolved there; elsewhere where there was
  /// nothing to decode.
  bool IsSent(std::string_view decoded) const {
    if (encoding == kQuery) return decoded.find('&') == std::string_view::npos;
    return encoding == kForm || encoding == kPlain || (encoding != kConverted && decoded.data() == raw.data());
  }
};

using ValueVisitor = std::function<bool(const RequestValue&)>;

/// What a body is taken for. By its type, and where the type says nothing true, by how it begins.
enum class BodyForm {
  kForm,
  kJson,
  kMultipart,
  kXml,
  kRaw,  ///< one text
};
BodyForm BodyFormOf(std::string_view content_type, std::string_view body);

/// Which texts of a body are handed out.
enum class BodyValues {
  kAll,
  kTelling,  ///< all but those that IsPlainValue (plain_value.h) lets go of, which are not looked at twice
};

/// Each calls visit for one text after the other until it returns false; a parameter's name is a text as well. Whether
/// they reached the end. Linear.
bool ForEachQueryValue(const RequestFacts& facts, const ValueVisitor& visit);
/// Of a multipart form the fields that are no files, and the names and file names that parts state.
bool ForEachBodyValue(std::string_view content_type, std::string_view body, const ValueVisitor& visit,
                      BodyValues values = BodyValues::kAll);
/// The same of every reading of the body: as it was sent, and where it may be UTF-16 or UTF-32 (body_charset.h)
/// converted as well, since what a page makes of such a body is the page's choice. Views of the converted text end with
/// the call.
bool ForEachReadBodyValue(std::string_view content_type, std::string_view body, const ValueVisitor& visit);
bool ForEachHeaderValue(const RequestFacts& facts, const ValueVisitor& visit);
/// Of one header.
bool ForEachValueOf(const HeaderEntry& header, const ValueVisitor& visit);
/// The path of the request as it was sent: each segment, and what stands from each segment on.
bool ForEachPathValue(const RequestFacts& facts, const ValueVisitor& visit);

/// Whether a text looks like JSON: it begins with "[", or with "{" and a string.
bool LooksLikeJson(std::string_view text);
/// The strings of a JSON text, names and values alike.
bool ForEachJsonValue(std::string_view text, const ValueVisitor& visit);

}  // namespace qiv

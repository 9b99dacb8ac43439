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
    kPercent,  ///< "%XX", once
    kForm,     ///< "%XX" and "+", once
    kQuery,    ///< the same, twice if need be, as the query is normalised
    kJson,     ///< the inside of a JSON string
  };

  std::string_view name;  ///< undecoded; empty: none
  std::string_view raw;
  Encoding encoding = kPlain;

  /// The first `most` bytes of `raw` decoded: a view of them where there is nothing to decode, else of *room.
  std::string_view Decoded(std::string* room, std::size_t most = std::string_view::npos) const;
};

using ValueVisitor = std::function<bool(const RequestValue&)>;

/// What a body is taken for. By its type, and where the type says nothing true, by how it begins.
enum class BodyForm {
  kForm,
  kJson,
  kMultipart,
  kRaw,  ///< one text
};
BodyForm BodyFormOf(const RequestFacts& facts);

/// Each calls visit for one text after the other until it returns false; a parameter's name is a text as well. Whether
/// they reached the end. Linear.
bool ForEachQueryValue(const RequestFacts& facts, const ValueVisitor& visit);
/// Reads facts.raw_body. Of a multipart form the fields that are no files.
bool ForEachBodyValue(const RequestFacts& facts, const ValueVisitor& visit);
/// The segments of the path as sent, path info among them. None when the URL is no path.
bool ForEachPathValue(const RequestFacts& facts, const ValueVisitor& visit);
bool ForEachHeaderValue(const RequestFacts& facts, const ValueVisitor& visit);

}  // namespace qiv

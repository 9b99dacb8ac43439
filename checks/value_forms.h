// The forms in which an application, or the database behind it, may read one value of a request.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "checks/request_values.h"

namespace qiv {

struct ValueForm {
  std::string_view text;  ///< valid during the visit
  bool is_sent = false;   ///< it stands in the place's whole text (query, body, header) as well, undecoded or not
};

/// What the forms of a value are made in; kept from value to value, so that few of them take memory.
struct ValueFormRoom {
  std::string decoded;
  std::string twice;
  std::string folded;
  std::string without;
};

/// Calls visit for each form, until it returns false; whether none did. First the value decoded as its place demands;
/// then, where they differ,
///  - with its escapes decoded once more, which a careless site does,
///  - as it was sent, where some servers do not decode (cookies, headers),
///  - without each "%" that begins no escape, which classic ASP drops ("un%ion"),
///  - with characters that western code pages fold to ASCII folded (full-width letters, no-break blanks, primes), and
///    overlong UTF-8 read as a careless decoder does.
/// Linear.
bool ForEachForm(const RequestValue& value, ValueFormRoom* room, const std::function<bool(const ValueForm&)>& visit);

/// The last form: whether the text holds such characters; then *folded is the text with them folded.
bool FoldWestern(std::string_view text, std::string* folded);

}  // namespace qiv

// Text helpers shared by facts, checks and engines. Thread safe; linear in the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qiv {

/// The six white-space bytes: blank, tab, line feed, vertical tab, form feed, carriage return.
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
/// ASCII letter, digit or "_".
constexpr bool IsWordByte(char c) { return IsLetter(c) || IsDigit(c) || c == '_'; }

/// A piece of a text, in bytes.
struct TextPlace {
  std::size_t offset = 0;
  std::size_t length = 0;

  /// What of it lies in the text.
  std::string_view In(std::string_view text) const {
    return offset < text.size() ? text.substr(offset, length) : std::string_view();
  }
};

/// Appends all of them.
void AppendAll(std::string* text, std::initializer_list<std::string_view> pieces);
/// Without leading and trailing white space.
std::string_view Trim(std::string_view text);
/// Without leading and trailing bytes that occur in `bytes`.
std::string_view TrimBytes(std::string_view text, std::string_view bytes);

/// Comparisons without regard to the case of ASCII letters, byte by byte; `lower` is in lower case.
bool EqualNoCase(std::string_view text, std::string_view lower);
bool BeginsNoCase(std::string_view text, std::string_view lower);
/// First position at or after `from` where `lower` (not empty) occurs, or npos.
std::size_t FindNoCase(std::string_view text, std::string_view lower, std::size_t from = 0);

/// Parts between single-byte separators that stand as characters of their own (a GBK trail byte equal to `separator`
/// does not split). An empty text has no part; empty parts are kept.
std::vector<std::string_view> Split(std::string_view text, char separator);
/// Parts between multi-byte ASCII separators such as "{#}" (found on character boundaries).
std::vector<std::string_view> Split(std::string_view text, std::string_view separator);

/// Every occurrence of `from` replaced, left to right, not rescanned. Byte-wise, because pages come in UTF-8 too.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);

/// "%XX" and "%uXXXX" (the latter to the local code page, surrogate pairs together); anything malformed stays as it is.
/// One pass: the result is not decoded again. "+" is left alone.
std::string PercentDecode(std::string_view text);

/// Named entities that stand for ASCII characters ("&lt;" "&amp;" "&quot;" "&colon;" "&lpar;" "&Tab;" "&NewLine;" ...,
/// compared without case) and "&nbsp;" (a blank); "&lt" "&gt" "&amp" "&quot" "&nbsp" also without ";" unless "=", a
/// letter or a digit follows. Decimal "&#NN;" and hexadecimal "&#xHH;" references with or without ";". Characters above
/// 0x7F go to the local code page. Unknown references, surrogates and "&#0;" stay. One pass.
std::string DecodeHtmlEntities(std::string_view text);

/// "&" "<" ">" "\"" "'" as character references, so that the text can stand in an element or a quoted attribute.
/// Byte-wise safe for GBK and UTF-8 (none of the five is a trail byte). A byte that is no part of a whole character and
/// could swallow the byte after it is replaced by "?" unless the text is valid UTF-8. Control bytes except tab and line
/// feed become "?".
std::string HtmlEscape(std::string_view text);

/// What requests' paths, queries and forwarded addresses go through before a check sees them: percent-decode if it
/// holds "%"; to the local code page if valid UTF-8 of at least 3 bytes; percent-decode again if it still holds "%"; if
/// it holds "&", lower-case its ASCII letters and decode HTML entities; last, every "+" becomes a blank.
std::string NormalizeText(std::string text);

/// A text with places in it that decoding moves along. They are in order, do not overlap, and begin and end where no
/// escape sequence or character goes on: beside "&", "=" or a quote, or at the ends of the text.
struct MarkedText {
  std::string text;
  std::vector<TextPlace> places;
};
/// The same as NormalizeText, with places, and without lower-casing: letters keep their case, so the result differs in
/// case alone.
void NormalizeMarked(MarkedText* marked);
/// What bodies go through: percent-decode, to the local code page if valid UTF-8 of at least 3 bytes, trim. Not
/// lower-cased.
std::string DecodeBody(std::string_view raw);
void DecodeBodyMarked(MarkedText* marked);
/// Takes white space off both ends.
void TrimMarked(MarkedText* marked);

/// strtol-like reading of a decimal number: optional blanks, sign, digits; anything after them is ignored; no digits is
/// 0; clamped to the range of int32.
std::int32_t ToNumber(std::string_view text);
/// The number when the text consists of digits only and fits uint32, else 0.
std::uint32_t DigitsToNumber(std::string_view text);

/// Text between the first `<name>` and the first `</name>` after it; empty when either is missing. `name` without
/// brackets.
std::string_view TaggedPart(std::string_view text, std::string_view name);
/// Whether the opening tag occurs.
bool HasTag(std::string_view text, std::string_view name);
/// Whether the part is opened and not closed after it, or closed and not opened.
bool IsTagDamaged(std::string_view text, std::string_view name);

/// One request parameter; views into the text that was split.
struct Parameter {
  std::string_view name;
  std::string_view value;
  bool is_file_name = false;  ///< the value is the file name that an uploaded part states
};

/// The shared parameter splitter: calls visit(parameter) for one parameter after the other, until it returns false.
/// Whether it reached the end. A text is taken as
///  - multipart when a line "--boundary" is followed by a part header ("Content-..."): each part is a parameter (its
///    Content-Disposition name, its content), after its file name, if it states one, as a parameter called "filename".
///    Text before the first and after the last boundary, and part headers that hold "&", are split like a form as
///    well, so that a form dressed up as multipart hides nothing;
///  - one value when its first non-blank byte is "{" or "[" (JSON);
///  - else a form, split at "&": name before the first "=", value after it; a piece without "=" has an empty name.
/// Empty pieces are left out. Linear; takes no memory for the parameters.
bool ForEachParameter(std::string_view text, const std::function<bool(const Parameter&)>& visit);

/// The same as a list: at most one parameter per byte of text, each of some 40 bytes. For large bodies visit instead.
std::vector<Parameter> SplitParameters(std::string_view text);

}  // namespace qiv

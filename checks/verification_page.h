// The pages that tell people from programs while a flood is on: jump, click, slide, select and cookie.
//
// Each is one page without outside resources. All are forms that are sent with GET to the path that was asked for, so
// that mouse, touch, keyboard and screen reader work alike and, save for the cookie page, also where a site's
// Content-Security-Policy keeps scripts out. What scripts and styles there are carry a nonce.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "checks/visitor_proof.h"
#include "common/ip_address.h"
#include "common/language.h"

namespace qiv {

/// Names of what a page sends back.
inline constexpr std::string_view kTagField = "qivcctag";
inline constexpr std::string_view kAnswerField = "qivanswer";
inline constexpr std::string_view kTargetField = "qivto";
/// The cookie that the cookie page's script sets, and the one that a client gets that passed.
inline constexpr std::string_view kTokenCookie = "qivcctag";
inline constexpr std::string_view kPassedCookie = "qivcc";

/// What a page is made of. Texts from the request are escaped here.
struct VerificationPage {
  std::int32_t kind;  ///< a VerifyType
  Language language;
  std::string_view token;   ///< of CVisitorProofs::MakePage
  std::uint32_t answer;     ///< where the right picture stands
  std::uint64_t nonce;      ///< draws the pictures
  std::string_view target;  ///< path and query to open afterwards: FormAction of the URL
  std::string_view client;  ///< address, for the visitor to read
  bool lost_form = false;   ///< the request was no GET: what it sent was not passed on
  bool wrong_answer = false;
  std::string_view script_nonce;
};

/// The whole page in UTF-8, "{{charset}}" left in it.
std::string RenderVerificationPage(const VerificationPage& page);

/// The Content-Security-Policy of such a page.
std::string VerificationPolicy(std::string_view script_nonce);

/// What a page sent back: in the query, or for the cookie page in a cookie.
struct VerificationAnswer {
  std::string token;
  std::string answer;
  std::string target;
};
/// Nothing when the request answers no page. `query`: as sent; `cookies`: the Cookie header.
std::optional<VerificationAnswer> ReadVerificationAnswer(std::int32_t kind, std::string_view query,
                                                         std::string_view cookies);

/// Whether an answer is right for a token that is genuine, at the time `now`.
bool IsRightAnswer(std::int32_t kind, const PageToken& token, std::string_view answer, std::int64_t now);

}  // namespace qiv

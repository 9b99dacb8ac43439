// The choices of keys that code tells apart: names in settings, and the numbers that they are held as. The key table
// lists them from here, and here the numbers get their names.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qiv {

/// The number of one of "name=number name=number".
constexpr std::optional<std::int32_t> FindChoice(std::string_view choices, std::string_view name) {
  for (std::size_t at = 0; at < choices.size();) {
    const std::size_t end = choices.find(' ', at) < choices.size() ? choices.find(' ', at) : choices.size();
    const std::string_view choice = choices.substr(at, end - at);
    at = end + 1;
    if (!choice.starts_with(name) || choice.substr(name.size(), 1) != "=") continue;
    std::int32_t number = 0;
    for (const char digit : choice.substr(name.size() + 1)) number = number * 10 + (digit - '0');
    return number;
  }
  return std::nullopt;
}

/// No constant where there is no such choice.
consteval std::int32_t ChoiceNumber(std::string_view choices, std::string_view name) {
  return FindChoice(choices, name).value();
}

inline constexpr std::string_view kVerifyChoices = "jump=1 click=2 slide=3 select=4 cookie=5";
/// Values of AttackSettings::cc_verify_type.
enum VerifyType : std::int32_t {
  kVerifyJump = ChoiceNumber(kVerifyChoices, "jump"),
  kVerifyClick = ChoiceNumber(kVerifyChoices, "click"),
  kVerifySlide = ChoiceNumber(kVerifyChoices, "slide"),
  kVerifySelect = ChoiceNumber(kVerifyChoices, "select"),
  kVerifyCookie = ChoiceNumber(kVerifyChoices, "cookie"),
};

inline constexpr std::string_view kSameSiteChoices = "0=0 lax=1 1=1 strict=2 2=2";
/// Values of RequestSettings::csrf_mode.
enum SameSiteMode : std::int32_t {
  kSameSiteLax = ChoiceNumber(kSameSiteChoices, "lax"),
  kSameSiteStrict = ChoiceNumber(kSameSiteChoices, "strict"),
};

inline constexpr std::string_view kFrameChoices = "deny=1 sameorigin=2 allow-from=3 allowfrom=3";
/// Values of RequestSettings::xframe_type; 0: none of them.
enum FrameMode : std::int32_t {
  kFrameDeny = ChoiceNumber(kFrameChoices, "deny"),
  kFrameSameOrigin = ChoiceNumber(kFrameChoices, "sameorigin"),
  kFrameAllowFrom = ChoiceNumber(kFrameChoices, "allow-from"),
};

inline constexpr std::string_view kStatusChoices = "200=200 302=302 403=403 404=404 500=500";
/// Values of ResponseSettings::ret_status that code tells apart.
enum BlockStatus : std::int32_t {
  kStatusFound = ChoiceNumber(kStatusChoices, "302"),
  kStatusForbidden = ChoiceNumber(kStatusChoices, "403"),
};

}  // namespace qiv

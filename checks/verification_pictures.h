// The pictures of the select page.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "checks/visitor_proof.h"
#include "common/messages.h"

namespace qiv {

struct VerificationPicture {
  MessageId name;         ///< what screen readers say
  MessageId riddle;       ///< says what it is for without its name
  std::string_view path;  ///< of an SVG, 64 by 64, lines only
};
std::span<const VerificationPicture> VerificationPictures();

/// The pictures of one page, no two alike.
std::array<std::size_t, CVisitorProofs::kAnswers> DrawnPictures(std::uint64_t nonce);

}  // namespace qiv

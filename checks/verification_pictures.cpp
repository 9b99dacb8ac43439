#include "checks/verification_pictures.h"

#include <numeric>
#include <utility>

namespace qiv {
namespace {

constexpr VerificationPicture kPictures[] = {
    {MessageId::kPictureHouse, MessageId::kRiddleHouse, "M8 32 32 10l24 22M14 28v26h36V28M26 54V38h12v16"},
    {MessageId::kPictureTree, MessageId::kRiddleTree,
     "M32 56V40M32 40C18 42 12 34 16 26 12 16 22 8 32 10c10-2 20 6 16 16 4 8-2 16-16 14ZM24 56h16"},
    {MessageId::kPictureSun, MessageId::kRiddleSun,
     "M32 22a10 10 0 1 0 .1 0ZM32 6v8M32 50v8M6 32h8M50 32h8M14 14l6 6M44 44l6 6M14 50l6-6M44 20l6-6"},
    {MessageId::kPictureMoon, MessageId::kRiddleMoon, "M40 8a24 24 0 1 0 14 36A20 20 0 0 1 40 8Z"},
    {MessageId::kPictureCar, MessageId::kRiddleCar,
     "M6 42v-8l8-2 6-12h22l10 12 6 2v8H6ZM18 42a5 5 0 1 0 .1 0ZM46 42a5 5 0 1 0 .1 0ZM32 20v12H14"},
    {MessageId::kPictureFish, MessageId::kRiddleFish,
     "M6 32c10-16 28-16 38 0-10 16-28 16-38 0ZM44 32l14-12v24L44 32ZM18 29v.1"},
    {MessageId::kPictureKey, MessageId::kRiddleKey, "M18 22a10 10 0 1 0 .1 0ZM28 32h30M50 32v10M42 32v7"},
    {MessageId::kPictureCup, MessageId::kRiddleCup,
     "M12 22h32v18c0 8-6 12-16 12s-16-4-16-12V22ZM44 26c12-2 12 16 0 16M22 14c0-4 4-4 4-8M32 14c0-4 4-4 4-8"},
    {MessageId::kPictureUmbrella, MessageId::kRiddleUmbrella,
     "M6 34c2-32 50-32 52 0-6-6-12-6-17 0-5-6-13-6-18 0-5-6-11-6-17 0ZM32 8V4M32 32v20c0 8-10 8-10 0"},
    {MessageId::kPictureBook, MessageId::kRiddleBook,
     "M32 16c-8-6-16-6-24-4v38c8-2 16-2 24 4 8-6 16-6 24-4V12c-8-2-16-2-24 4ZM32 16v38"},
    {MessageId::kPictureClock, MessageId::kRiddleClock, "M32 8a24 24 0 1 0 .1 0ZM32 18v14l10 8"},
    {MessageId::kPictureBoat, MessageId::kRiddleBoat, "M6 42h52l-8 14H14L6 42ZM30 36V6L12 36h18ZM36 36V14l16 22H36Z"},
};
constexpr std::size_t kPictureCount = std::size(kPictures);
static_assert(kPictureCount >= CVisitorProofs::kAnswers);

}  // namespace

std::span<const VerificationPicture> VerificationPictures() { return kPictures; }

std::array<std::size_t, CVisitorProofs::kAnswers> DrawnPictures(std::uint64_t nonce) {
  std::array<std::size_t, kPictureCount> order;
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::array<std::size_t, CVisitorProofs::kAnswers> drawn;
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    const std::size_t left = kPictureCount - i;
    std::swap(order[i], order[i + nonce % left]);
    nonce /= left;
    drawn[i] = order[i];
  }
  return drawn;
}

}  // namespace qiv

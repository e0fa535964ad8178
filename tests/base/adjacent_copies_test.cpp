#include "base/adjacent_copies.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <span>

namespace lidcam::base {
namespace {

using Bytes = std::array<std::uint8_t, 8>;

constexpr Bytes kSource{1, 2, 3, 4, 5, 6, 7, 8};

TEST(AdjacentCopies, OfPiecesSideBySideAreOneThatIsMadeAtItsEnd) {
  Bytes to{};
  AdjacentCopies copies;
  copies.Add(to.data(), std::span(kSource).subspan(0, 2));
  copies.Add(to.data() + 2, std::span(kSource).subspan(2, 3));
  copies.Add(to.data() + 5, {});
  copies.Add(to.data() + 5, std::span(kSource).subspan(5, 1));
  EXPECT_EQ(to, Bytes{});
  copies.Finish();
  EXPECT_EQ(to, (Bytes{1, 2, 3, 4, 5, 6, 0, 0}));
}

TEST(AdjacentCopies, OfPiecesWithAGapInSourceOrPlaceLeaveTheGapAlone) {
  Bytes to{};
  {
    AdjacentCopies copies;
    copies.Add(to.data(), std::span(kSource).subspan(0, 2));
    copies.Add(to.data() + 3, std::span(kSource).subspan(2, 1));
    copies.Add(to.data() + 4, std::span(kSource).subspan(6, 2));
  }
  EXPECT_EQ(to, (Bytes{1, 2, 0, 3, 7, 8, 0, 0}));
}

TEST(AdjacentCopies, GoOnAfterTheyWereFinished) {
  Bytes to{};
  AdjacentCopies copies;
  copies.Add(to.data(), std::span(kSource).subspan(0, 2));
  copies.Finish();
  to[0] = 9;
  copies.Add(to.data() + 2, std::span(kSource).subspan(2, 2));
  copies.Finish();
  EXPECT_EQ(to, (Bytes{9, 2, 3, 4, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace lidcam::base

// Which blocks of the reduced system stand side by side.

#include "linalg/reduced_system.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace vermo {
namespace {

// Blocks of one to six unknowns in a chain, each meeting the `reach` next ones.
struct Chain {
  explicit Chain(std::uint32_t blocks, std::uint32_t reach)
      : pattern(blocks), sizes(blocks), isRoot(blocks, false) {
    for (std::uint32_t a = 0; a < blocks; ++a) {
      sizes[a] = 1 + a % 6;
      for (std::uint32_t b = 0; b < blocks; ++b)
        if (a != b && (a < b ? b - a : a - b) <= reach) pattern[a].push_back(b);
    }
    isRoot[3] = true;
    system.Arrange(pattern, sizes, isRoot);
  }

  // Rows and columns of b follow those of a in the blocks that they have with each other.
  [[nodiscard]] bool Follows(std::uint32_t b, std::uint32_t a) const {
    const ReducedSystem::Place aa = system.PlaceOf(a, a);
    const ReducedSystem::Place ba = system.PlaceOf(b, a);
    const ReducedSystem::Place bb = system.PlaceOf(b, b);
    return ba.rowStride == 1 && ba.offset == aa.offset + sizes[a] &&
           bb.offset == ba.offset + std::size_t{sizes[a]} * ba.columnStride;
  }

  BlockPattern pattern;
  std::vector<std::uint32_t> sizes;
  std::vector<bool> isRoot;
  ReducedSystem system;
};

class Neighbours : public testing::TestWithParam<std::uint32_t> {};

TEST_P(Neighbours, AreThoseWhoseRowsAndColumnsFollowEachOther) {
  constexpr std::uint32_t kBlocks = 60;
  const Chain chain(kBlocks, GetParam());
  std::uint32_t count = 0;
  for (std::uint32_t a = 0; a < kBlocks; ++a)
    for (std::uint32_t b = 0; b < kBlocks; ++b) {
      const bool follows = a != b && chain.system.HasPlace(a, b) && chain.Follows(b, a);
      ASSERT_EQ(chain.system.AreNeighbours(a, b), follows) << a << ' ' << b;
      count += follows ? 1 : 0;
    }
  // The root has at most 12 blocks: the others are in panels of several blocks.
  EXPECT_GT(count, kBlocks / 2);
}

INSTANTIATE_TEST_SUITE_P(ReducedSystem, Neighbours, testing::Values(2U, 5U, 59U));

}  // namespace
}  // namespace vermo

#include "linalg/elimination_order.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <vector>

namespace vermo {
namespace {

class Pattern {
 public:
  explicit Pattern(std::uint32_t blocks) : fMeets(blocks, std::vector<bool>(blocks, false)) {}
  void Join(std::uint32_t a, std::uint32_t b) {
    if (a != b) fMeets[a][b] = fMeets[b][a] = true;
  }
  [[nodiscard]] std::uint32_t Blocks() const { return static_cast<std::uint32_t>(fMeets.size()); }
  [[nodiscard]] BlockPattern Lists() const {
    BlockPattern lists(Blocks());
    for (std::uint32_t i = 0; i < Blocks(); ++i)
      for (std::uint32_t j = 0; j < Blocks(); ++j)
        if (fMeets[i][j]) lists[i].push_back(j);
    return lists;
  }
  // What an elimination in this order leaves: every block joins all that it still meets.
  [[nodiscard]] BlockPattern Eliminate(const std::vector<std::uint32_t>& order) const {
    const std::uint32_t n = Blocks();
    auto meets = fMeets;
    BlockPattern structure(n);
    for (std::uint32_t p = 0; p < n; ++p) {
      for (std::uint32_t q = p + 1; q < n; ++q)
        if (meets[order[p]][order[q]]) structure[p].push_back(q);
      for (const std::uint32_t a : structure[p])
        for (const std::uint32_t b : structure[p])
          if (a != b) meets[order[a]][order[b]] = true;
    }
    return structure;
  }

 private:
  std::vector<std::vector<bool>> fMeets;
};

std::size_t Elements(const BlockPattern& structure) {
  std::size_t sum = 0;
  for (const auto& rows : structure) sum += rows.size();
  return sum;
}

std::vector<std::uint32_t> Natural(std::uint32_t n) {
  std::vector<std::uint32_t> order(n);
  std::iota(order.begin(), order.end(), 0U);
  return order;
}

// A permutation, the structure of a plain symbolic elimination, and every subtree of the
// elimination tree without a gap before its root.
EliminationOrder ExpectSound(const Pattern& pattern, const std::vector<std::uint32_t>& sizes) {
  EliminationOrder result = OrderByMinimumDegree(pattern.Lists(), sizes);
  std::vector<std::uint32_t> sorted = result.order;
  std::ranges::sort(sorted);
  EXPECT_EQ(sorted, Natural(pattern.Blocks()));
  EXPECT_EQ(result.structure, pattern.Eliminate(result.order));
  std::vector<std::uint32_t> descendants(pattern.Blocks(), 0);
  for (std::uint32_t p = 0; p < pattern.Blocks(); ++p) {
    if (result.structure[p].empty()) continue;
    const std::uint32_t parent = result.structure[p].front();
    descendants[parent] += descendants[p] + 1;
  }
  std::vector<std::uint32_t> first(pattern.Blocks());
  for (std::uint32_t p = 0; p < pattern.Blocks(); ++p) first[p] = p;
  for (std::uint32_t p = 0; p < pattern.Blocks(); ++p)
    if (!result.structure[p].empty()) {
      const std::uint32_t parent = result.structure[p].front();
      first[parent] = std::min(first[parent], first[p]);
    }
  for (std::uint32_t p = 0; p < pattern.Blocks(); ++p)
    EXPECT_EQ(p - first[p], descendants[p]) << "subtree of " << p;
  return result;
}

Pattern Grid(std::uint32_t rows, std::uint32_t columns) {
  Pattern pattern(rows * columns);
  for (std::uint32_t r = 0; r < rows; ++r)
    for (std::uint32_t c = 0; c < columns; ++c) {
      if (r + 1 < rows) pattern.Join(r * columns + c, (r + 1) * columns + c);
      if (c + 1 < columns) pattern.Join(r * columns + c, r * columns + c + 1);
    }
  return pattern;
}

TEST(OrderByMinimumDegree, NoBlockAndOneBlock) {
  EXPECT_TRUE(OrderByMinimumDegree({}, {}).order.empty());
  const EliminationOrder one = OrderByMinimumDegree({{}}, {6});
  EXPECT_EQ(one.order, std::vector<std::uint32_t>{0});
  EXPECT_EQ(one.structure, BlockPattern(1));
}

TEST(OrderByMinimumDegree, RandomPatternsAreSound) {
  std::mt19937_64 random(1);
  for (int repeat = 0; repeat < 80; ++repeat) {
    const auto n = static_cast<std::uint32_t>(1 + random() % 90);
    Pattern pattern(n);
    std::vector<std::uint32_t> sizes;
    for (std::uint32_t i = 0; i < n; ++i)
      sizes.push_back(1 + static_cast<std::uint32_t>(random() % 13));
    const std::uint64_t links = random() % (3 * n);
    for (std::uint64_t l = 0; l < links; ++l)
      pattern.Join(static_cast<std::uint32_t>(random() % n),
                   static_cast<std::uint32_t>(random() % n));
    ExpectSound(pattern, sizes);
  }
}

TEST(OrderByMinimumDegree, ChainHasNoFill) {
  const std::uint32_t n = 130;  // more than two words of bits
  Pattern pattern(n);
  // Numbered so that neighbours stand far apart.
  for (std::uint32_t i = 0; i + 1 < n; ++i) pattern.Join(i * 7 % n, (i + 1) * 7 % n);
  const EliminationOrder result = ExpectSound(pattern, std::vector<std::uint32_t>(n, 6));
  EXPECT_EQ(Elements(result.structure), n - 1);
}

TEST(OrderByMinimumDegree, HubOfAStarComesBehindItsLeaves) {
  const std::uint32_t n = 40;
  Pattern pattern(n);
  for (std::uint32_t i = 1; i < n; ++i) pattern.Join(0, i);
  const EliminationOrder result = ExpectSound(pattern, std::vector<std::uint32_t>(n, 3));
  EXPECT_EQ(Elements(result.structure), n - 1);
}

TEST(OrderByMinimumDegree, GridHasLessFillThanInItsNaturalOrder) {
  for (const std::uint32_t side : {6U, 10U, 14U}) {
    const Pattern pattern = Grid(side, side);
    const EliminationOrder result =
        ExpectSound(pattern, std::vector<std::uint32_t>(side * side, 6));
    EXPECT_LT(Elements(result.structure), Elements(pattern.Eliminate(Natural(side * side))));
  }
}

TEST(OrderByMinimumDegree, DegreesCountUnknowns) {
  // Two large blocks and two small ones in a ring: the ring is closed between the small ones.
  Pattern ring(4);
  for (std::uint32_t i = 0; i < 4; ++i) ring.Join(i, (i + 1) % 4);
  const EliminationOrder result = ExpectSound(ring, {10, 1, 10, 1});
  const auto place = [&result](std::uint32_t block) {
    return static_cast<std::uint32_t>(std::ranges::find(result.order, block) -
                                      result.order.begin());
  };
  const std::uint32_t earlier = std::min(place(0), place(2));
  const std::uint32_t later = std::max(place(0), place(2));
  EXPECT_FALSE(std::ranges::binary_search(result.structure[earlier], later));
}

}  // namespace
}  // namespace vermo

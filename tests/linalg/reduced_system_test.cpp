#include "linalg/reduced_system.h"

#include "checks/kl_exception.h"
#include "reference/real_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace vermo {
namespace {

using reference::Real;
using reference::RealMatrix;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::uint32_t Below(std::uint32_t n) { return static_cast<std::uint32_t>(fGenerator() % n); }

 private:
  std::mt19937_64 fGenerator;
};

// A block matrix told densely: positive definite blocks with a strong diagonal, and multipliers
// with an empty one.
class Problem {
 public:
  explicit Problem(std::vector<std::uint32_t> sizes)
      : fSizes(std::move(sizes)), fIsRoot(fSizes.size(), false), fMeets(fSizes.size()) {
    for (auto& row : fMeets) row.assign(fSizes.size(), false);
    std::uint32_t unknowns = 0;
    for (const std::uint32_t size : fSizes) {
      fStart.push_back(unknowns);
      unknowns += size;
    }
    fMatrix = RealMatrix(unknowns);
  }

  std::vector<bool>& IsRoot() { return fIsRoot; }
  RealMatrix& Matrix() { return fMatrix; }
  [[nodiscard]] std::uint32_t Blocks() const { return static_cast<std::uint32_t>(fSizes.size()); }
  [[nodiscard]] std::uint32_t Start(std::uint32_t block) const { return fStart[block]; }
  [[nodiscard]] std::uint32_t SizeOf(std::uint32_t block) const { return fSizes[block]; }
  [[nodiscard]] bool Meets(std::uint32_t a, std::uint32_t b) const { return fMeets[a][b]; }
  void Join(std::uint32_t a, std::uint32_t b) {
    if (a != b) fMeets[a][b] = fMeets[b][a] = true;
  }

  // Numbers for all blocks that meet. A diagonal element outweighs its row by little; blocks of the
  // root have an empty diagonal block when they are multipliers.
  void Fill(Draw& draw, const std::vector<bool>& isMultiplier) {
    for (std::uint32_t a = 0; a < Blocks(); ++a)
      for (std::uint32_t b = 0; b <= a; ++b) {
        if ((a != b && !fMeets[a][b]) || (a == b && isMultiplier[a])) continue;
        for (std::uint32_t i = 0; i < fSizes[a]; ++i)
          for (std::uint32_t j = 0; j < fSizes[b]; ++j)
            Set(fStart[a] + i, fStart[b] + j, draw.Uniform());
      }
    for (std::uint32_t a = 0; a < Blocks(); ++a) {
      if (isMultiplier[a]) continue;
      for (std::uint32_t i = fStart[a]; i < fStart[a] + fSizes[a]; ++i) {
        Real sum = 0;
        for (std::uint32_t j = 0; j < fMatrix.size; ++j)
          sum += i == j ? 0 : std::fabs(fMatrix[i][j]);
        fMatrix[i][i] = static_cast<double>(sum * 1.01L + 0.1L);
      }
    }
  }
  void Fill(Draw& draw) { Fill(draw, std::vector<bool>(Blocks(), false)); }

  void Arrange(ReducedSystem& system) const {
    BlockPattern pattern(Blocks());
    for (std::uint32_t a = 0; a < Blocks(); ++a)
      for (std::uint32_t b = 0; b < Blocks(); ++b)
        if (fMeets[a][b]) pattern[a].push_back(b);
    system.Arrange(pattern, fSizes, fIsRoot);
  }

  void Enter(ReducedSystem& system) const {
    system.Clear();
    for (std::uint32_t a = 0; a < Blocks(); ++a) {
      std::ranges::fill(system.Limits(a), 0.0);
      for (std::uint32_t b = 0; b <= a; ++b) {
        if (a != b && !fMeets[a][b]) continue;
        const ReducedSystem::Place place = system.PlaceOf(a, b);
        for (std::uint32_t i = 0; i < fSizes[a]; ++i)
          for (std::uint32_t j = 0; j < fSizes[b]; ++j)
            system.Values()[Offset(place, i, j)] =
                static_cast<double>(fMatrix[fStart[a] + i][fStart[b] + j]);
      }
    }
  }

  static std::size_t Offset(const ReducedSystem::Place& place, std::uint32_t i, std::uint32_t j) {
    return place.offset + std::size_t{i} * place.rowStride + std::size_t{j} * place.columnStride;
  }

 private:
  void Set(std::uint32_t i, std::uint32_t j, double value) {
    fMatrix[i][j] = fMatrix[j][i] = value;
  }

  std::vector<std::uint32_t> fSizes, fStart;
  std::vector<bool> fIsRoot;
  std::vector<std::vector<bool>> fMeets;
  RealMatrix fMatrix;
};

// The solution and every block of the inverse that has a place.
void ExpectSolved(const Problem& problem, ReducedSystem& system, RealMatrix matrix, Draw& draw) {
  const std::uint32_t n = matrix.size;
  const RealMatrix q = reference::Inverse(matrix);
  ASSERT_EQ(system.Unknowns(), n);
  ASSERT_EQ(system.Factorize(), ReducedSystem::kNoBlock);
  system.Invert();
  Real size = 0;
  Real inverseSize = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    Real sum = 0;
    Real inverseSum = 0;
    for (std::uint32_t j = 0; j < n; ++j) {
      sum += std::fabs(matrix[i][j]);
      inverseSum += std::fabs(q[i][j]);
    }
    size = std::max(size, sum);
    inverseSize = std::max(inverseSize, inverseSum);
  }
  // Rounding times the condition.
  const Real tolerance = 20 * static_cast<Real>(2.2e-16) * size * inverseSize * inverseSize;
  std::vector<double> x(n);
  for (double& value : x) value = draw.Uniform();
  std::vector<Real> expected(n, 0);
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = 0; j < n; ++j) expected[i] += q[i][j] * x[j];
  std::vector<double> ordered(n, std::numeric_limits<double>::quiet_NaN());
  const auto forEachUnknown = [&](auto use) {
    for (std::uint32_t a = 0; a < problem.Blocks(); ++a)
      for (std::uint32_t i = 0; i < problem.SizeOf(a); ++i)
        use(problem.Start(a) + i, system.Start(a) + i);
  };
  forEachUnknown([&](std::uint32_t i, std::uint32_t place) { ordered[place] = x[i]; });
  system.Solve(ordered);
  forEachUnknown([&](std::uint32_t i, std::uint32_t place) {
    ASSERT_LE(std::fabs(ordered[place] - expected[i]), tolerance * static_cast<Real>(n)) << i;
  });
  for (std::uint32_t a = 0; a < problem.Blocks(); ++a) {
    for (std::uint32_t b = 0; b < problem.Blocks(); ++b) {
      ASSERT_EQ(system.HasPlace(a, b), system.HasPlace(b, a));
      if (a == b || problem.Meets(a, b)) {
        ASSERT_TRUE(system.HasPlace(a, b));
      }
      if (!system.HasPlace(a, b)) continue;
      const ReducedSystem::Place place = system.PlaceOf(a, b);
      // One triangle of a diagonal block in a panel; of the root there are both.
      for (std::uint32_t i = 0; i < problem.SizeOf(a); ++i)
        for (std::uint32_t j = 0; j < problem.SizeOf(b); ++j)
          ASSERT_LE(std::fabs(system.Inverse()[Problem::Offset(place, i, j)] -
                              q[problem.Start(a) + i][problem.Start(b) + j]),
                    tolerance)
              << "blocks " << a << ' ' << b;
    }
  }
}

void ExpectSolved(Problem& problem, Draw& draw) {
  ReducedSystem system;
  problem.Arrange(system);
  problem.Enter(system);
  ExpectSolved(problem, system, problem.Matrix(), draw);
}

std::vector<std::uint32_t> MixedSizes(std::uint32_t blocks, Draw& draw) {
  std::vector<std::uint32_t> sizes;
  for (std::uint32_t b = 0; b < blocks; ++b) sizes.push_back(1 + draw.Below(9));
  return sizes;
}

TEST(ReducedSystem, NoBlockAndAFewUnknownsStandInTheRoot) {
  Draw draw(1);
  Problem none({});
  ExpectSolved(none, draw);
  Problem few({6, 6, 3});
  few.Fill(draw);
  ReducedSystem system;
  few.Arrange(system);
  for (std::uint32_t a = 0; a < 3; ++a)
    for (std::uint32_t b = 0; b < 3; ++b) EXPECT_TRUE(system.HasPlace(a, b));
  few.Enter(system);
  ExpectSolved(few, system, few.Matrix(), draw);
}

TEST(ReducedSystem, Chain) {
  Draw draw(2);
  Problem chain(std::vector<std::uint32_t>(40, 6));
  for (std::uint32_t b = 1; b < 40; ++b) chain.Join(b, b - 1);
  chain.Fill(draw);
  ExpectSolved(chain, draw);
  // Far parts of a chain have no place together.
  ReducedSystem system;
  chain.Arrange(system);
  std::uint32_t missing = 0;
  for (std::uint32_t b = 0; b < 40; ++b)
    if (!system.HasPlace(b, (b + 20) % 40)) ++missing;
  EXPECT_GT(missing, 10U);
}

TEST(ReducedSystem, BandOfMixedSizes) {
  Draw draw(3);
  Problem band(MixedSizes(45, draw));
  for (std::uint32_t b = 0; b < 45; ++b)
    for (std::uint32_t k = 1; k <= 4 && b + k < 45; ++k) band.Join(b, b + k);
  band.Fill(draw);
  ExpectSolved(band, draw);
}

TEST(ReducedSystem, Grid) {
  Draw draw(4);
  const std::uint32_t side = 7;
  Problem grid(std::vector<std::uint32_t>(side * side, 4));
  for (std::uint32_t r = 0; r < side; ++r)
    for (std::uint32_t c = 0; c < side; ++c) {
      if (r > 0) grid.Join(r * side + c, (r - 1) * side + c);
      if (c > 0) grid.Join(r * side + c, r * side + c - 1);
    }
  grid.Fill(draw);
  ExpectSolved(grid, draw);
}

TEST(ReducedSystem, Arrow) {
  Draw draw(5);
  // One block of 16, as a camera, meets all the others.
  std::vector<std::uint32_t> sizes(30, 6);
  sizes[11] = 16;
  Problem arrow(sizes);
  for (std::uint32_t b = 0; b < 30; ++b) arrow.Join(11, b);
  arrow.Fill(draw);
  ExpectSolved(arrow, draw);
}

TEST(ReducedSystem, FullPatternInWidePanels) {
  Draw draw(6);
  Problem full(std::vector<std::uint32_t>(40, 6));
  for (std::uint32_t a = 0; a < 40; ++a)
    for (std::uint32_t b = 0; b < a; ++b) full.Join(a, b);
  full.Fill(draw);
  ExpectSolved(full, draw);
}

// Two blocks that are eliminated one behind the other and whose structures are nearly the same
// share a panel, which then stores zeros: a few rows, or a small share of many.
TEST(ReducedSystem, PanelsWithZerosOfNeighboursThatMeetAFewBlocksMore) {
  for (const std::uint32_t more : {12U, 13U, 16U}) {
    // 0 meets 1 and the six large ones, 1 meets block 8 besides; the rest keeps all of these busy,
    // so that the two come first.
    constexpr std::uint32_t kLarge = 6;
    constexpr std::uint32_t kMore = 2 + kLarge;
    constexpr std::uint32_t kBlocks = kMore + 1 + 4;
    std::vector<std::uint32_t> sizes(kBlocks, 15);
    sizes[0] = sizes[1] = 6;
    sizes[kMore] = more;
    Draw draw(20 + more);
    Problem problem(sizes);
    problem.Join(0, 1);
    problem.Join(1, kMore);
    for (std::uint32_t a = 2; a < kBlocks; ++a) {
      if (a < kMore) {
        problem.Join(0, a);
        problem.Join(1, a);
      }
      for (std::uint32_t b = 2; b < a; ++b) problem.Join(a, b);
    }
    problem.Fill(draw);
    ASSERT_NO_FATAL_FAILURE(ExpectSolved(problem, draw)) << more;
  }
}

TEST(ReducedSystem, BlocksThatMeetNone) {
  Draw draw(7);
  Problem apart(MixedSizes(40, draw));
  apart.Fill(draw);
  ExpectSolved(apart, draw);
}

TEST(ReducedSystem, RandomPatternsWithMultipliersInTheRoot) {
  Draw draw(8);
  for (int repeat = 0; repeat < 40; ++repeat) {
    const std::uint32_t blocks = 5 + draw.Below(30);
    Problem problem(MixedSizes(blocks, draw));
    std::vector<bool> isMultiplier(blocks, false);
    std::uint32_t multipliers = draw.Below(4);
    for (std::uint32_t l = draw.Below(3 * blocks); l > 0; --l)
      problem.Join(draw.Below(blocks), draw.Below(blocks));
    while (multipliers > 0) {
      const std::uint32_t b = draw.Below(blocks);
      if (isMultiplier[b]) continue;
      isMultiplier[b] = true;
      --multipliers;
      // Enough unknowns for its rows.
      for (std::uint32_t other = 0; other < blocks; ++other)
        if (!isMultiplier[other] && other % 2 == b % 2) problem.Join(b, other);
    }
    // Constraints among each other meet nothing.
    problem.IsRoot() = isMultiplier;
    for (std::uint32_t b = 0; b < blocks; ++b)
      if (draw.Below(8) == 0) problem.IsRoot()[b] = true;  // forced
    problem.Fill(draw, isMultiplier);
    std::uint32_t constrained = 0;
    std::uint32_t free = 0;
    for (std::uint32_t b = 0; b < blocks; ++b)
      (isMultiplier[b] ? constrained : free) += problem.SizeOf(b);
    if (4 * constrained > free) continue;
    ASSERT_NO_FATAL_FAILURE(ExpectSolved(problem, draw)) << repeat;
  }
}

TEST(ReducedSystem, PlacesDoNotOverlapAndAPairHasOne) {
  Draw draw(9);
  Problem problem(MixedSizes(40, draw));
  for (int l = 0; l < 90; ++l) problem.Join(draw.Below(40), draw.Below(40));
  problem.IsRoot()[5] = problem.IsRoot()[17] = true;
  ReducedSystem system;
  problem.Arrange(system);
  std::vector<int> used(system.Values().size(), 0);
  for (std::uint32_t a = 0; a < 40; ++a)
    for (std::uint32_t b = 0; b <= a; ++b) {
      if (!system.HasPlace(a, b)) continue;
      const ReducedSystem::Place place = system.PlaceOf(a, b);
      const ReducedSystem::Place turned = system.PlaceOf(b, a);
      for (std::uint32_t i = 0; i < problem.SizeOf(a); ++i)
        for (std::uint32_t j = 0; j < problem.SizeOf(b); ++j) {
          const std::size_t offset = Problem::Offset(place, i, j);
          ASSERT_LT(offset, used.size());
          if (a != b) {
            ASSERT_EQ(offset, Problem::Offset(turned, j, i));
          }
          ASSERT_EQ(used[offset]++, 0) << a << ' ' << b;
        }
    }
}

TEST(ReducedSystem, InteriorBlockThatFailsIsNamed) {
  Draw draw(10);
  const std::uint32_t blocks = 30;
  std::uint32_t named = 0;
  for (std::uint32_t failing = 0; failing < blocks; ++failing)
    for (const double pivot : {-5.0, 0.0, std::numeric_limits<double>::quiet_NaN()}) {
      Problem problem(std::vector<std::uint32_t>(blocks, 6));
      problem.Fill(draw);
      ReducedSystem system;
      problem.Arrange(system);
      const std::uint32_t unknown = problem.Start(failing) + 4;
      for (std::uint32_t j = 0; j < problem.Matrix().size; ++j)
        problem.Matrix()[unknown][j] = problem.Matrix()[j][unknown] = 0;
      problem.Matrix()[unknown][unknown] = pivot;
      problem.Enter(system);
      std::uint32_t answer = ReducedSystem::kNoBlock;
      try {
        answer = system.Factorize();
      } catch (const KlException& failure) {
        EXPECT_EQ(failure.GetCode(), -39007);
        EXPECT_EQ(pivot, 0.0);
        continue;
      }
      if (answer == ReducedSystem::kNoBlock) continue;
      EXPECT_EQ(answer, failing);
      ++named;
      // In the root anything but an empty column passes.
      problem.IsRoot()[failing] = true;
      if (pivot != -5.0) continue;
      ExpectSolved(problem, draw);
    }
  EXPECT_GT(named, 60U);
}

TEST(ReducedSystem, PivotMustBeAboveItsLimit) {
  Draw draw(11);
  Problem problem(std::vector<std::uint32_t>(20, 6));
  problem.Fill(draw);
  ReducedSystem system;
  problem.Arrange(system);
  for (std::uint32_t b = 0; b < 20; ++b) {
    problem.Enter(system);
    system.Limits(b)[0] = 1e6;
    const std::uint32_t answer = system.Factorize();
    if (answer != ReducedSystem::kNoBlock) {
      EXPECT_EQ(answer, b);
    }
  }
}

TEST(ReducedSystem, SingularRootFails) {
  Draw draw(12);
  Problem problem(std::vector<std::uint32_t>(20, 6));
  std::vector<bool> isMultiplier(20, false);
  isMultiplier[7] = problem.IsRoot()[7] = true;
  problem.Fill(draw, isMultiplier);  // a multiplier that meets nothing
  ReducedSystem system;
  problem.Arrange(system);
  problem.Enter(system);
  try {
    static_cast<void>(system.Factorize());
    FAIL();
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -39007);
  }
}

TEST(ReducedSystem, CanBeFilledAndArrangedAgain) {
  Draw draw(13);
  ReducedSystem system;
  for (const std::uint32_t blocks : {30U, 12U, 40U}) {
    Problem problem(MixedSizes(blocks, draw));
    for (std::uint32_t b = 1; b < blocks; ++b) problem.Join(b, b - 1);
    problem.Arrange(system);
    for (int pass = 0; pass < 2; ++pass) {
      problem.Fill(draw);
      problem.Enter(system);
      ASSERT_NO_FATAL_FAILURE(ExpectSolved(problem, system, problem.Matrix(), draw));
    }
  }
}

}  // namespace
}  // namespace vermo

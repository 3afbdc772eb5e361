// The check that takes out groups whose own block of the normal matrix is close to singular.

#include "adjustment/linear_network.h"
#include "adjustment/scripted_loop.h"
#include "checks/failure_codes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace vermo::test {
namespace {

using testing::ElementsAre;

// Groups of two unknowns on a fake matrix. A further group without flaws keeps the run alive.
struct SolvabilityTest : testing::Test {
  SolvabilityTest() {
    adjustment.groups = {&first, &second, &sound};
    adjustment.messungen = {&messung};
    adjustment.Settings().fMaxIterations = 1;
    system->element = [this](std::uint32_t row, std::uint32_t column) {
      if (row == column) return diagonal(row);
      return row / 2 == column / 2 ? OffDiagonal(row, column) : 0.0;
    };
  }

  double OffDiagonal(std::uint32_t row, std::uint32_t column) const {
    if (row / 2 == static_cast<std::uint32_t>(first.FirstUnknown()) / 2 && first.IsActive())
      return row > column ? firstLower : firstUpper;
    if (row / 2 == static_cast<std::uint32_t>(second.FirstUnknown()) / 2 && second.IsActive())
      return row > column ? secondLower : secondUpper;
    return 0.0;
  }

  FakeNormalSystem* system = new FakeNormalSystem;
  TestAdjustment adjustment{std::unique_ptr<NormalSystem>(system)};
  LinearGroup first{{0.0, 0.0}};
  LinearGroup second{{0.0, 0.0}};
  LinearGroup sound{{0.0, 0.0}};
  LinearMessung messung{{}, 0.0};
  std::function<double(std::uint32_t)> diagonal = [](std::uint32_t) { return 1.0; };
  // The elements beside the diagonal.
  double firstLower = 0.0, firstUpper = 0.0;
  double secondLower = 0.0, secondUpper = 0.0;
};

// Off-diagonal element c of a block (1 c; c 1) of this solvability: with rows of unit length the
// determinant is (1 - c^2) / (1 + c^2), and the solvability its root.
double ElementOfSolvability(double v) { return std::sqrt((1.0 - v * v) / (1.0 + v * v)); }

using Solvability = SolvabilityTest;

TEST_F(Solvability, RegularGroupsStay) {
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_THAT(system->resets, ElementsAre(6U));
}

TEST_F(Solvability, GroupBelowTheThresholdIsTakenOut) {
  firstLower = ElementOfSolvability(0.99e-4);
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&first)));
  EXPECT_FALSE(first.IsActive());
  EXPECT_EQ(first.FirstUnknown(), Data::kNoColumn);
  EXPECT_THAT(system->resets, ElementsAre(6U, 4U));
  EXPECT_EQ(second.FirstUnknown(), 0);
}

TEST_F(Solvability, GroupAboveTheThresholdStays) {
  firstLower = ElementOfSolvability(1.01e-4);
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
}

TEST_F(Solvability, DeterminantIsTakenToTheRootOfTheSize) {
  // Determinant 1e-9: its square root lies below the threshold, its cube root above.
  LinearGroup three({0.0, 0.0, 0.0});
  adjustment.groups = {&three};
  const double c = std::sqrt((1.0 - 1e-9) / (1.0 + 1e-9));
  system->element = [c](std::uint32_t row, std::uint32_t column) {
    if (row == column) return 1.0;
    return row < 2 && column < 2 ? c : 0.0;
  };
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
}

TEST_F(Solvability, LengthOfTheRowsDoesNotMatter) {
  diagonal = [](std::uint32_t row) { return row == 0 ? 1e-30 : 1e30; };
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
}

TEST_F(Solvability, NegativeDeterminantCountsByItsMagnitude) {
  firstLower = 5.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
}

TEST_F(Solvability, EarliestGroupWinsATieAndOneGoesPerPass) {
  diagonal = [](std::uint32_t) { return 0.0; };
  // The last group of the pass has a block of zeros, too: all three go, one after another.
  EXPECT_EQ(adjustment.RunCode(), failure::kNoUnknowns);
  EXPECT_THAT(adjustment.disabled,
              ElementsAre(ElementsAre(&first), ElementsAre(&second), ElementsAre(&sound)));
  EXPECT_THAT(system->resets, ElementsAre(6U, 4U, 2U, 0U));
}

TEST_F(Solvability, WorstGroupGoesFirst) {
  firstLower = ElementOfSolvability(0.5e-4);
  secondLower = 1.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&second), ElementsAre(&first)));
}

TEST_F(Solvability, ElementAboveTheDiagonalCountsWhenItIsLarger) {
  firstUpper = -1.0;
  firstLower = 0.5;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&first)));
}

TEST_F(Solvability, ElementBelowTheDiagonalCountsWhenItIsLarger) {
  firstUpper = 0.5;
  firstLower = -1.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&first)));
}

TEST_F(Solvability, FixedAndInactiveGroupsAreNotJudged) {
  firstLower = secondLower = 1.0;
  first.SetVariable(false);
  second.SetActive(false);
  second.SetFirstUnknown(-5);
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(first.IsActive());
}

TEST_F(Solvability, GroupWithoutAColumnFails) {
  second.refusesColumns = true;
  EXPECT_EQ(adjustment.RunCode(), failure::kInternal);
  EXPECT_TRUE(adjustment.disabled.empty());
}

TEST_F(Solvability, GroupWithoutUnknownsFails) {
  second.claimsNothing = true;
  EXPECT_EQ(adjustment.RunCode(), failure::kInternal);
}

TEST_F(Solvability, FailureComesBeforeAnyGroupIsTakenOut) {
  firstLower = 1.0;
  sound.claimsNothing = true;
  EXPECT_EQ(adjustment.RunCode(), failure::kInternal);
  EXPECT_TRUE(first.IsActive());
}

TEST_F(Solvability, WithoutTheCheckNothingIsJudged) {
  adjustment.Settings().SetSolvabilityCheck(false);
  firstLower = 1.0;
  second.claimsNothing = true;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(first.IsActive());
}

TEST_F(Solvability, IsJudgedBeforeTheCountOfObservations) {
  firstLower = 1.0;
  messung.SetActive(false);
  EXPECT_EQ(adjustment.RunCode(), failure::kNoMessungen);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&first)));
}

TEST_F(Solvability, ObservationsOfARemovedGroupAreOutInTheNextPass) {
  LinearMessung lost({{&first, 0, 1.0}, {&sound, 0, 1.0}}, 0.0);
  adjustment.messungen = {&messung, &lost};
  firstLower = 1.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_FALSE(lost.IsActive());
  EXPECT_EQ(adjustment.Statistics().fBeobachtungen, 1U);
}

// |det|^(1/3) of a block by rows after its rows were made unit vectors, the determinant by
// Gram-Schmidt with the longest row first.
double PlainSolvability(std::array<double, 9> block) {
  const auto dot = [&block](std::size_t a, std::size_t b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < 3; ++i) sum += block[3 * a + i] * block[3 * b + i];
    return sum;
  };
  for (std::size_t r = 0; r < 3; ++r) {
    const double norm = std::sqrt(dot(r, r));
    if (norm == 0.0) return 0.0;
    for (std::size_t i = 0; i < 3; ++i) block[3 * r + i] /= norm;
  }
  double det = 1.0;
  for (std::size_t k = 0; k < 3; ++k) {
    double norm = std::sqrt(dot(k, k));
    for (std::size_t j = k + 1; j < 3; ++j) {
      const double candidate = std::sqrt(dot(j, j));
      if (!(candidate > norm)) continue;
      norm = candidate;
      for (std::size_t i = 0; i < 3; ++i) std::swap(block[3 * k + i], block[3 * j + i]);
    }
    if (norm < 1e-15) return 0.0;
    det *= norm;
    for (std::size_t j = k + 1; j < 3; ++j) {
      const double factor = dot(k, j) / (norm * norm);
      for (std::size_t i = 0; i < 3; ++i) block[3 * j + i] -= factor * block[3 * k + i];
    }
  }
  return std::pow(det, 1.0 / 3);
}

// Groups of three unknowns with drawn blocks: random ones, such of the form of two or three rays
// under small angles, ones about the threshold, singular ones, copies, others of extreme size and
// ones that are no numbers.
class ThreeUnknownsTest : public testing::Test {
 protected:
  using Block = std::array<double, 9>;

  double Uniform(double from, double to) {
    return std::uniform_real_distribution<double>(from, to)(fDraw);
  }

  // The sum of the squares of three rows, times a scale. The rows differ by so much.
  Block Sum(double spread, double scale) {
    std::array<double, 3> common{};
    for (double& x : common) x = Uniform(-1.0, 1.0);
    Block block{};
    for (int row = 0; row < 3; ++row) {
      std::array<double, 3> a = common;
      for (double& x : a) x += spread * Uniform(-1.0, 1.0);
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) block[3 * i + j] += scale * a[i] * a[j];
    }
    return block;
  }

  Block Drawn(int kind) {
    switch (kind) {
      case 0:
        return Sum(1.0, 1.0);
      case 1:
        return Sum(std::pow(10.0, Uniform(-5.0, 0.0)), std::pow(10.0, Uniform(-9.0, 9.0)));
      case 2: {
        // Two unknowns on one another: determinant (1 - c^2) / (1 + c^2), close to 1e-12. Large
        // ones: each row's length hangs on one or two elements.
        const double d = 1e-12 * Uniform(0.999, 1.001);
        const double c = std::sqrt((1.0 - d) / (1.0 + d));
        const double size = std::pow(10.0, Uniform(0.0, 12.0));
        // The second row has nothing but an element beside the diagonal: determinant x / sqrt(2).
        if (Uniform(0.0, 1.0) < 0.4) {
          const double x = std::sqrt(2.0) * d;
          return {x * size, 0.0, size, 0.0, 0.0, size, size, size, 0.0};
        }
        const auto first = std::size_t(Uniform(0.0, 2.999));
        const std::size_t second = (first + 1) % 3;
        Block block{};
        for (std::size_t i = 0; i < 9; i += 4) block[i] = size;
        block[3 * first + second] = block[3 * second + first] = c * size;
        return block;
      }
      case 3:
        return {1.0, 2.0, 3.0, 2.0, 4.0, 6.0, 3.0, 6.0, Uniform(8.9999, 9.0001)};
      case 4:
        return Sum(1.0, std::pow(10.0, Uniform(-300.0, 300.0)));
      case 5: {
        // Unknowns of very different size.
        Block block = Sum(0.1, 1.0);
        const double size[] = {1.0, std::pow(10.0, Uniform(-70.0, 70.0)), 1e-5};
        for (std::size_t i = 0; i < 9; ++i) block[i] *= size[i / 3] * size[i % 3];
        return block;
      }
      case 6:
        return Block{};
      case 8: {
        // The squares of short rows are 0, with them the block is singular.
        Block block{};
        for (std::size_t i = 0; i < 9; i += 4) block[i] = std::pow(10.0, Uniform(-250.0, 150.0));
        return block;
      }
      case 7: {
        Block block = Sum(1.0, 1.0);
        const std::size_t k = 4 * std::size_t(Uniform(0.0, 2.999));
        block[k] = Uniform(0.0, 1.0) < 0.5 ? std::numeric_limits<double>::quiet_NaN()
                                           : std::numeric_limits<double>::infinity();
        return block;
      }
      default: {
        // A tie with an earlier one; a power of two changes nothing.
        Block block = fBlocks[std::size_t(Uniform(0.0, double(fBlocks.size()) - 0.001))];
        const double scale = std::ldexp(1.0, int(Uniform(-3.0, 4.0)));
        for (double& x : block) x *= scale;
        return block;
      }
    }
  }

  // The elements of the groups that are left, in the order of their columns.
  void Answer() {
    system->element = [this](std::uint32_t row, std::uint32_t column) {
      if (row / 3 != column / 3) return 0.0;
      if (fPass != system->resets.size()) {
        fPass = system->resets.size();
        fLeft.clear();
        for (std::size_t g = 0; g < fBlocks.size(); ++g)
          if (groups[g].IsActive()) fLeft.push_back(g);
      }
      return fBlocks[fLeft[row / 3]][3 * (row % 3) + column % 3];
    };
  }

  std::mt19937_64 fDraw{20240611};
  std::vector<Block> fBlocks;
  std::deque<LinearGroup> groups;
  LinearMessung messung{{}, 0.0};
  FakeNormalSystem* system = new FakeNormalSystem;
  TestAdjustment adjustment{std::unique_ptr<NormalSystem>(system)};

 private:
  std::vector<std::size_t> fLeft;
  std::size_t fPass = 0;
};

using SolvabilityOfThree = ThreeUnknownsTest;

TEST_F(SolvabilityOfThree, GroupsGoInTheOrderOfThePlainFormula) {
  constexpr double kThreshold = 0.0001;
  std::vector<std::pair<double, Data*>> expected;
  for (int i = 0; i < 1200; ++i) {
    fBlocks.push_back(Drawn(i % 10));
    LinearGroup& group = groups.emplace_back(std::vector<double>(3, 0.0));
    adjustment.groups.push_back(&group);
    // As the engine answers: of two elements that mirror each other the larger one.
    Block& block = fBlocks.back();
    for (std::size_t r = 0; r < 3; ++r)
      for (std::size_t c = 0; c < r; ++c) {
        double& lower = block[3 * r + c];
        double& upper = block[3 * c + r];
        lower = upper = std::fabs(upper) > std::fabs(lower) ? upper : lower;
      }
    const double v = PlainSolvability(block);
    if (v < kThreshold) expected.emplace_back(v, &group);
  }
  std::ranges::stable_sort(expected, {}, [](const auto& entry) { return entry.first; });
  // Without ties and blocks on both sides of the threshold nothing would be shown.
  EXPECT_GT(expected.size(), 200U);
  EXPECT_LT(expected.size(), 1000U);
  EXPECT_NE(std::ranges::adjacent_find(
                expected,
                [](const auto& a, const auto& b) { return a.first == b.first && a.first > 0.0; }),
            expected.end());

  Answer();
  adjustment.messungen = {&messung};
  adjustment.Settings().fMaxIterations = 1;
  EXPECT_EQ(adjustment.RunCode(), 0);
  ASSERT_EQ(adjustment.disabled.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i)
    ASSERT_THAT(adjustment.disabled[i], ElementsAre(expected[i].second)) << i;
}

// A removed group changes the set of used elements: with the outlier test on the run goes through
// one more round. The test itself rejects nothing here: the observations are protected.
struct RemovalTest : testing::Test {
  RemovalTest() {
    loop.Settings().SetBlunderTest(true);
    loop.first.SetNoBlunderTest(true);
    loop.second.SetNoBlunderTest(true);
    loop.adjustment->groups = {&loop.group, &lost};
    const FakeNormalSystem* const system = loop.system;
    loop.system->element = [system](std::uint32_t row, std::uint32_t column) {
      if (row != column || system->resets.back() == 1) return row == column ? 1.0 : 0.0;
      return row == 0 ? 1.0 : 0.0;
    };
  }

  LinearGroup lost{{0.0}};
  ScriptedLoop loop{{Step{.t = kConverged}}};
};

using GroupRemoval = RemovalTest;

TEST_F(GroupRemoval, BringsAnotherRoundAndClearsTheWatch) {
  // With a window of 1 the equal figures of the second iteration would fail.
  loop.Settings().fProgressWindow = 1;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_THAT(loop.adjustment->disabled, ElementsAre(ElementsAre(&lost)));
  ASSERT_EQ(loop.adjustment->infos.size(), 2U);
  EXPECT_EQ(loop.adjustment->infos[0].ausreisserRunde, 0U);
  EXPECT_EQ(loop.adjustment->infos[1].ausreisserRunde, 1U);
  EXPECT_EQ(loop.adjustment->infos[1].iteration, 2U);
  EXPECT_EQ(loop.Statistics().fAusreisserRunde, 1U);
}

TEST_F(GroupRemoval, EndsTheRunAllTheSameWithoutOutlierTest) {
  loop.Settings().SetBlunderTest(false);
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 1U);
}

TEST_F(GroupRemoval, EndsTheRunWhenS0IsUnderTheFloor) {
  loop.steps = {{.s0 = 0.4, .t = kConverged}};
  loop.Settings().fS0Floor = 0.5;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 1U);
}

TEST_F(GroupRemoval, GoesOnWhenS0IsTheFloorItself) {
  loop.steps = {{.s0 = 0.5, .t = kConverged}};
  loop.Settings().fS0Floor = 0.5;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 2U);
}

TEST_F(GroupRemoval, TheLimitOfIterationsHoldsAcrossRounds) {
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 1U);
  EXPECT_TRUE(loop.HasAccuracy());
}

// On the envelope: rows that no observation touches are empty.
TEST(SolvabilityOnTheEnvelope, GroupWithoutObservationsIsTakenOut) {
  LinearGroup measured({0.0});
  LinearGroup idle({5.0});
  LinearMessung messung({{&measured, 0, 1.0}}, 2.0);
  TestAdjustment adjustment;
  adjustment.groups = {&idle, &measured};
  adjustment.messungen = {&messung};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&idle)));
  EXPECT_EQ(idle.values[0], 5.0);
  EXPECT_DOUBLE_EQ(measured.values[0], 2.0);
}

TEST(SolvabilityOnTheEnvelope, WithoutTheCheckTheFactorizationFails) {
  LinearGroup measured({0.0});
  LinearGroup idle({5.0});
  LinearMessung messung({{&measured, 0, 1.0}}, 2.0);
  TestAdjustment adjustment;
  adjustment.Settings().SetSolvabilityCheck(false);
  adjustment.groups = {&idle, &measured};
  adjustment.messungen = {&messung};
  EXPECT_EQ(adjustment.RunCode(), failure::kSingular);
}

TEST(SolvabilityOnTheEnvelope, DependentUnknownsOfAGroupAreFound) {
  // Only the sum of the two unknowns is measured.
  LinearGroup sum({0.0, 0.0});
  LinearGroup other({0.0});
  LinearMessung ofSum({{&sum, 0, 1.0}, {&sum, 1, 1.0}}, 3.0);
  LinearMessung ofOther({{&other, 0, 1.0}}, 3.0);
  TestAdjustment adjustment;
  adjustment.groups = {&sum, &other};
  adjustment.messungen = {&ofSum, &ofOther};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&sum)));
  EXPECT_FALSE(ofSum.IsActive());
}

TEST(SolvabilityOnTheEnvelope, RunThatLosesAllGroupsEndsForWantOfObservations) {
  LinearGroup group({0.0});
  LinearMessung messung({{&group, 0, 0.0}}, 3.0);
  TestAdjustment adjustment;
  adjustment.groups = {&group};
  adjustment.messungen = {&messung};
  EXPECT_EQ(adjustment.RunCode(), failure::kNoMessungen);
  EXPECT_FALSE(group.IsActive());
}

TEST(SolvabilityOnTheEnvelope, ObservationsStayOutWhenTheirGroupComesBack) {
  LinearGroup measured({0.0});
  LinearGroup weak({5.0});
  LinearMessung messung({{&measured, 0, 1.0}}, 2.0);
  LinearMessung without({{&weak, 0, 0.0}, {&measured, 0, 1.0}}, 2.0);
  TestAdjustment adjustment;
  adjustment.groups = {&measured, &weak};
  adjustment.messungen = {&messung, &without};
  adjustment.Settings().SetBlunderTest(false);
  adjustment.judge = [&](const IterationInfo& info) {
    if (info.iteration == 1) weak.SetActive(true);
    return false;
  };
  adjustment.Settings().fConvergenceLimit = 0.0;
  adjustment.Settings().fMaxIterations = 2;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&weak), ElementsAre(&weak)));
  EXPECT_FALSE(without.IsActive());
  EXPECT_EQ(adjustment.Statistics().fBeobachtungen, 1U);
}

}  // namespace
}  // namespace vermo::test

// The check that takes out groups whose own block of the normal matrix is close to singular.

#include "adjustment/linear_network.h"
#include "adjustment/scripted_loop.h"
#include "checks/failure_codes.h"

#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

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

// Whole runs on the envelope engine against closed solutions.

#include "adjustment/linear_network.h"
#include "checks/failure_codes.h"

#include <cmath>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// Well conditioned systems of order 1: some units in the last place.
constexpr double kRounding = 1e-14;

// So few observations are too much for the outlier test.
struct PlainAdjustment : TestAdjustment {
  PlainAdjustment() { Settings().SetBlunderTest(false); }
};

// Values 1 and 4 with weights 1 and 2: mean 3, residuals 2 and -1.
struct WeightedMeanTest : testing::Test {
  WeightedMeanTest() {
    adjustment.groups = {&mean};
    adjustment.messungen = {&one, &four};
  }

  PlainAdjustment adjustment;
  LinearGroup mean{{0.0}};
  LinearMessung one{{{&mean, 0, 1.0}}, 1.0, 1.0};
  LinearMessung four{{{&mean, 0, 1.0}}, 4.0, 2.0};
};

using WeightedMean = WeightedMeanTest;

TEST_F(WeightedMean, IsFoundWithItsAccuracy) {
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_NEAR(mean.values[0], 3.0, kRounding);
  EXPECT_NEAR(adjustment.Statistics().fS0, std::sqrt(6.0), kRounding);
  // S0 over the root of the sum of weights.
  EXPECT_NEAR(mean.sigmas[0], std::sqrt(2.0), kRounding);
  EXPECT_NEAR(one.Wert(0).Residuum(), 2.0, kRounding);
  EXPECT_NEAR(four.Wert(0).Residuum(), -1.0, kRounding);
}

TEST_F(WeightedMean, RedundancyNumbersAddUpToTheRedundancy) {
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_NEAR(one.Wert(0).Redundanz(), 2.0 / 3.0, kRounding);
  EXPECT_NEAR(four.Wert(0).Redundanz(), 1.0 / 3.0, kRounding);
  EXPECT_NEAR(adjustment.Statistics().fGesamtRedundanz, 1.0, kRounding);
  EXPECT_EQ(adjustment.Statistics().fRedundanz, 1);
}

TEST_F(WeightedMean, LinearProblemConvergesInTheSecondIteration) {
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_EQ(adjustment.Statistics().fIteration, 2U);
}

TEST_F(WeightedMean, S0BelongsToTheValuesBeforeTheIncrements) {
  adjustment.Settings().fMaxIterations = 1;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_NEAR(mean.values[0], 3.0, kRounding);
  // Residuals -1 and -4 at the start value 0.
  EXPECT_NEAR(adjustment.Statistics().fS0, std::sqrt(33.0), kRounding);
  // 3 over the cofactor 1/3.
  EXPECT_NEAR(adjustment.Statistics().fMittlereAenderung, 9.0, 4 * kRounding);
  EXPECT_EQ(mean.sigmas[0], 0.0);
  EXPECT_EQ(one.Wert(0).Redundanz(), 0.0);
}

TEST_F(WeightedMean, OutlierFollowsWithItsResidualOnly) {
  LinearMessung outlier({{&mean, 0, 1.0}}, 100.0);
  outlier.SetAusreisser();
  adjustment.messungen = {&outlier, &one, &four};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_NEAR(mean.values[0], 3.0, kRounding);
  EXPECT_NEAR(outlier.Wert(0).Residuum(), -97.0, 100 * kRounding);
  EXPECT_EQ(outlier.Wert(0).Redundanz(), 1.0);
  EXPECT_EQ(adjustment.Statistics().fBeobachtungen, 2U);
  EXPECT_NEAR(adjustment.RedundanzSumme(), 1.0, kRounding);
}

TEST_F(WeightedMean, InactiveObservationIsReset) {
  LinearMessung inactive({{&mean, 0, 1.0}}, 100.0);
  inactive.SetActive(false);
  inactive.CollectComponents()[0].SetResiduum(7.0);
  inactive.CollectComponents()[0].SetRedundanz(0.5);
  adjustment.messungen = {&inactive, &one, &four};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_EQ(inactive.Wert(0).Residuum(), 0.0);
  EXPECT_EQ(inactive.Wert(0).Redundanz(), 0.0);
  EXPECT_NEAR(adjustment.RedundanzSumme(), 1.0, kRounding);
}

TEST_F(WeightedMean, ConstantValuesConvergeInTheFirstIteration) {
  mean.values[0] = one.value = four.value = 4.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_EQ(adjustment.Statistics().fIteration, 1U);
  EXPECT_EQ(adjustment.Statistics().fS0, 0.0);
  EXPECT_EQ(mean.sigmas[0], 0.0);
  EXPECT_NEAR(one.Wert(0).Redundanz(), 2.0 / 3.0, kRounding);
}

TEST_F(WeightedMean, UniqueSolutionEndsOnceItRests) {
  adjustment.messungen = {&four};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_EQ(mean.values[0], 4.0);
  EXPECT_EQ(adjustment.Statistics().fRedundanz, 0);
  EXPECT_EQ(adjustment.Statistics().fS0, 0.0);
  EXPECT_EQ(adjustment.Statistics().fIteration, 2U);
}

// y = a + b x through (-1, 0), (0, 1), (1, 5): a = 2, b = 2.5, residuals -0.5, 1, -0.5.
TEST(LinearAdjustment, RegressionLine) {
  LinearGroup level({0.0});
  LinearGroup slope({0.0});
  LinearMessung left({{&level, 0, 1.0}, {&slope, 0, -1.0}}, 0.0);
  LinearMessung middle({{&level, 0, 1.0}}, 1.0);
  LinearMessung right({{&level, 0, 1.0}, {&slope, 0, 1.0}}, 5.0);
  PlainAdjustment adjustment;
  adjustment.groups = {&level, &slope};
  adjustment.messungen = {&left, &middle, &right};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_NEAR(level.values[0], 2.0, kRounding);
  EXPECT_NEAR(slope.values[0], 2.5, kRounding);
  EXPECT_NEAR(left.Wert(0).Residuum(), -0.5, kRounding);
  EXPECT_NEAR(middle.Wert(0).Residuum(), 1.0, kRounding);
  EXPECT_NEAR(right.Wert(0).Residuum(), -0.5, kRounding);
  EXPECT_NEAR(adjustment.Statistics().fS0, std::sqrt(1.5), kRounding);
  EXPECT_NEAR(level.sigmas[0], std::sqrt(1.5 / 3.0), kRounding);
  EXPECT_NEAR(slope.sigmas[0], std::sqrt(1.5 / 2.0), kRounding);
  EXPECT_NEAR(left.Wert(0).Redundanz(), 1.0 / 6.0, kRounding);
  EXPECT_NEAR(middle.Wert(0).Redundanz(), 2.0 / 3.0, kRounding);
  EXPECT_NEAR(right.Wert(0).Redundanz(), 1.0 / 6.0, kRounding);
}

TEST(LinearAdjustment, OrderOfTheGroupsChangesRoundingOnly) {
  LinearGroup level({0.0});
  LinearGroup slope({0.0});
  LinearMessung left({{&level, 0, 1.0}, {&slope, 0, -1.0}}, 0.0);
  LinearMessung middle({{&slope, 0, 3.0}}, 1.0);
  LinearMessung right({{&level, 0, 1.0}, {&slope, 0, 1.0}}, 5.0);
  PlainAdjustment forward;
  forward.groups = {&level, &slope};
  forward.messungen = {&left, &middle, &right};
  EXPECT_EQ(forward.RunCode(), 0);
  const double levelBefore = level.values[0];
  const double slopeBefore = slope.values[0];
  level.values[0] = slope.values[0] = 0.0;
  PlainAdjustment backward;
  backward.groups = {&slope, &level};
  backward.messungen = {&right, &middle, &left};
  EXPECT_EQ(backward.RunCode(), 0);
  EXPECT_NEAR(level.values[0], levelBefore, kRounding);
  EXPECT_NEAR(slope.values[0], slopeBefore, kRounding);
  EXPECT_NEAR(forward.Statistics().fS0, backward.Statistics().fS0, kRounding);
}

TEST(LinearAdjustment, FixedGroupKeepsItsValueAndEntersTheMisclosures) {
  LinearGroup fixed({10.0});
  LinearGroup free({0.0});
  fixed.SetVariable(false);
  LinearMessung difference({{&free, 0, 1.0}, {&fixed, 0, -1.0}}, 2.0);
  PlainAdjustment adjustment;
  adjustment.groups = {&fixed, &free};
  adjustment.messungen = {&difference};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_EQ(fixed.values[0], 10.0);
  EXPECT_NEAR(free.values[0], 12.0, 10 * kRounding);
  EXPECT_EQ(fixed.sigmas[0], 0.0);
}

TEST(LinearAdjustment, UnknownsThatOnlyDifferByADatumAreSingular) {
  // Each group is determined by itself, their sum is not.
  LinearGroup a({0.0});
  LinearGroup b({0.0});
  LinearMessung difference({{&a, 0, 1.0}, {&b, 0, -1.0}}, 2.0);
  PlainAdjustment adjustment;
  adjustment.groups = {&a, &b};
  adjustment.messungen = {&difference};
  EXPECT_EQ(adjustment.RunCode(), failure::kSingular);
  EXPECT_TRUE(adjustment.disabled.empty());
}

}  // namespace
}  // namespace vermo::test

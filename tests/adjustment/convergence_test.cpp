// The convergence test of the loop: |rhs times solution| of every row, seen against S0.

#include "adjustment/scripted_loop.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace vermo::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Whether one iteration of these figures converges.
bool Converges(ScriptedLoop& loop, double limit) {
  loop.Settings().fConvergenceLimit = limit;
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  return loop.HasAccuracy();
}

bool Converges(const Step& step, double limit) {
  ScriptedLoop loop({step});
  return Converges(loop, limit);
}

// Multipliers raise the redundancy to 40000: the mean change is 1/200 of the peak.
bool ConvergesWithHighRedundancy(double s0, double t, double limit) {
  ScriptedLoop loop({Step{.s0 = 200.0 * s0, .t = t}});
  loop.system->multipliers = 39999;
  return Converges(loop, limit);
}

TEST(Convergence, MeanMustBeBelowTheLimit) {
  // sqrt(0.25 / 1) over S0 1.
  EXPECT_FALSE(Converges({.t = 0.25}, 0.5));
  EXPECT_TRUE(Converges({.t = 0.25}, std::nextafter(0.5, 1.0)));
}

TEST(Convergence, MeanIsRelativeToS0) {
  EXPECT_FALSE(Converges({.s0 = 2.0, .t = 1.0}, 0.5));
  EXPECT_TRUE(Converges({.s0 = 4.0, .t = 1.0}, 0.5));
}

TEST(Convergence, SignOfTheProductDoesNotMatter) {
  EXPECT_FALSE(Converges({.t = -0.25}, 0.5));
  EXPECT_TRUE(Converges({.t = -0.25}, std::nextafter(0.5, 1.0)));
}

TEST(Convergence, RedundancyDividesTheSum) {
  ScriptedLoop loop({Step{.s0 = 2.0, .t = 1.0}});
  loop.system->multipliers = 3;
  // Redundancy 4: S0 is 1 and the mean sqrt(1 / 4).
  EXPECT_FALSE(Converges(loop, 0.5));
  EXPECT_EQ(loop.Statistics().fRedundanz, 4);
  EXPECT_TRUE(Converges(loop, std::nextafter(0.5, 1.0)));
}

TEST(Convergence, PeakMustBeBelowAHundredLimits) {
  // Peak 25 over S0 1; the mean is 0.125.
  EXPECT_FALSE(ConvergesWithHighRedundancy(1.0, 625.0, 0.25));
  EXPECT_TRUE(ConvergesWithHighRedundancy(1.0, 625.0, 0.2501));
  EXPECT_TRUE(ConvergesWithHighRedundancy(1.0, 624.0, 0.25));
}

TEST(Convergence, PeakIsRelativeToS0) {
  EXPECT_FALSE(ConvergesWithHighRedundancy(1.0, 900.0, 0.25));
  EXPECT_TRUE(ConvergesWithHighRedundancy(2.0, 900.0, 0.25));
}

TEST(Convergence, AMeanAboveS0TakesItsPlaceAsScale) {
  // Mean 2 over S0 1 would be 2; over itself it is 1.
  EXPECT_TRUE(Converges({.t = 4.0}, 1.5));
  EXPECT_FALSE(Converges({.t = 4.0}, 1.0));
}

TEST(Convergence, RowsOfMultipliersCount) {
  ScriptedLoop loop({Step{.t = 1.0, .row = 1}});
  loop.system->multipliers = 1;
  EXPECT_FALSE(Converges(loop, 0.5));
}

TEST(Convergence, LimitZeroNeverConverges) {
  EXPECT_FALSE(Converges({.t = 0.0}, 0.0));
  EXPECT_FALSE(Converges({.s0 = 0.0, .t = 0.0}, 0.0));
}

TEST(Convergence, NoIncrementsConverge) { EXPECT_TRUE(Converges({.t = 0.0}, 0.00032)); }

TEST(Convergence, ScaleAtTheFloorConverges) {
  ScriptedLoop loop({Step{.s0 = 0.5, .t = 0.16}});
  loop.Settings().fS0Floor = 0.5;
  EXPECT_TRUE(Converges(loop, 0.00032));
}

TEST(Convergence, ScaleAboveTheFloorIsJudged) {
  ScriptedLoop loop({Step{.s0 = 0.5, .t = 0.16}});
  loop.Settings().fS0Floor = 0.49;
  EXPECT_FALSE(Converges(loop, 0.00032));
}

TEST(Convergence, FloorIsHeldAgainstTheLargerOfMeanAndS0) {
  ScriptedLoop loop({Step{.s0 = 0.1, .t = 1.0}});
  loop.Settings().fS0Floor = 0.5;
  EXPECT_FALSE(Converges(loop, 0.00032));
}

TEST(Convergence, TinyScaleConvergesWhateverTheFloorIs) {
  // The mean is half of S0.
  ScriptedLoop tiny({Step{.s0 = 1e-21, .t = 0.25e-42}});
  tiny.Settings().fS0Floor = 0.0;
  EXPECT_TRUE(Converges(tiny, 0.00032));
  ScriptedLoop small({Step{.s0 = 1e-19, .t = 0.25e-38}});
  small.Settings().fS0Floor = 0.0;
  EXPECT_FALSE(Converges(small, 0.00032));
}

// Redundancy 0: one observation of one unknown.
TEST(Convergence, RedundancyZeroDoesNotConvergeWhileAnythingMoves) {
  ScriptedLoop loop({Step{.t = 1e-30}});
  loop.second.SetActive(false);
  EXPECT_FALSE(Converges(loop, 1e6));
  EXPECT_EQ(loop.Statistics().fRedundanz, 0);
}

TEST(Convergence, RedundancyZeroConvergesWhenNothingMoves) {
  ScriptedLoop loop({Step{.t = 0.0}});
  loop.second.SetActive(false);
  EXPECT_TRUE(Converges(loop, 0.00032));
}

// Redundancy -1 is read as 4294967295: the mean becomes the scale, and the peak is 65536 times it.
TEST(Convergence, NegativeRedundancyIsReadAsHuge) {
  ScriptedLoop loop({Step{.t = 1e6}}, 2);
  loop.second.SetActive(false);
  EXPECT_FALSE(Converges(loop, 655.0));
  EXPECT_EQ(loop.Statistics().fRedundanz, -1);
  EXPECT_TRUE(Converges(loop, 656.0));
}

TEST(Convergence, NegativeRedundancyLetsSmallIncrementsFallBelowTheFloor) {
  // sqrt(0.01 / 4294967295) = 1.5e-6
  ScriptedLoop loop({Step{.t = 0.01}}, 2);
  loop.second.SetActive(false);
  EXPECT_TRUE(Converges(loop, 0.00032));
}

TEST(Convergence, IncrementsThatAreNotNumbersDoNotConverge) {
  EXPECT_FALSE(Converges({.t = kNaN}, 1e6));
}

TEST(Convergence, IncrementsThatAreNotNumbersConvergeUnderTheFloor) {
  EXPECT_TRUE(Converges({.s0 = 1e-6, .t = kNaN}, 0.00032));
}

// No comparison holds for a NaN, so that both ratios stay 0.
TEST(Convergence, S0ThatIsNotANumberConverges) {
  EXPECT_TRUE(Converges({.s0 = kNaN, .t = 1.0}, 0.00032));
}

// --- what is expected of the next iteration -------------------------------------

// Hints of a run whose mean changes are these, at S0 and a limit.
std::vector<bool> Expectations(std::initializer_list<double> changes, double s0, double limit) {
  std::vector<Step> steps;
  for (const double change : changes) steps.push_back({.s0 = s0, .t = change * change});
  const std::size_t count = steps.size();
  ScriptedLoop loop(std::move(steps));
  loop.Settings().fConvergenceLimit = limit;
  loop.Settings().fMaxIterations = static_cast<std::int32_t>(count);
  EXPECT_EQ(loop.Run(), 0);
  return loop.system->expectations;
}

TEST(Convergence, CofactorsAreExpectedWhereChangesShrinkFastEnough) {
  // By the same factor again the third change would be 0.07^2 = 0.0049, below five limits.
  EXPECT_EQ(Expectations({1.0, 0.07, 0.01}, 1.0, 0.001), (std::vector{false, false, true}));
  EXPECT_EQ(Expectations({1.0, 0.071, 0.01}, 1.0, 0.001), (std::vector{false, false, false}));
  // Twice the change before, half the factor.
  EXPECT_EQ(Expectations({2.0, 0.071, 0.01}, 1.0, 0.001), (std::vector{false, false, true}));
}

TEST(Convergence, WhatIsExpectedIsRelativeToS0) {
  EXPECT_EQ(Expectations({1.0, 0.09, 0.01}, 2.0, 0.001), (std::vector{false, false, true}));
  EXPECT_EQ(Expectations({1.0, 0.07, 0.01}, 0.5, 0.001), (std::vector{false, false, false}));
}

TEST(Convergence, NothingIsExpectedOfChangesThatGrow) {
  EXPECT_EQ(Expectations({0.002, 0.003, 0.003}, 1.0, 0.001), (std::vector{false, false, false}));
}

}  // namespace
}  // namespace vermo::test

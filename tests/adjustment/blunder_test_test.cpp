// The outlier test: test values, threshold, who goes out and who comes back, and how the loop goes
// on from there.

#include "adjustment/blunder_scene.h"
#include "checks/failure_codes.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace vermo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// Far over any critical value of these scenes, which lie between 1.9 and 4.
constexpr double kGross = 20.0;

double Above(double x) { return std::nextafter(x, 1e300); }
double Below(double x) { return std::nextafter(x, -1e300); }

// The observations of a list of a round, in its order.
std::vector<const Messung*> Of(const std::deque<BlunderEntry>& entries) {
  std::vector<const Messung*> result;
  for (const BlunderEntry& entry : entries) result.push_back(entry.messung);
  return result;
}

// --- Test values ---

TEST(BlunderTestValue, ByInnerReliabilityDividesByTheRootOfTheRedundancy) {
  BlunderScene scene;
  scene.s0 = 2.0;
  const auto& messung = scene.Add({.v = -3.0, .q = 0.25, .w = 4.0});
  scene.Round();
  EXPECT_EQ(messung.Testwert(), 2.0 * 3.0 / 0.5 / 2.0);
}

TEST(BlunderTestValue, ByRedundancyDividesByTheRedundancyItself) {
  BlunderScene scene;
  scene.s0 = 2.0;
  scene.Settings().fTestMethod = static_cast<std::int32_t>(TestMethod::Redundancy);
  const auto& messung = scene.Add({.v = -3.0, .q = 0.25, .w = 4.0});
  scene.Round();
  EXPECT_EQ(messung.Testwert(), 2.0 * 3.0 / 0.25 / 2.0);
}

TEST(BlunderTestValue, AnyOtherMethodIsByRedundancy) {
  for (const std::int32_t method : {-1, 2, 7}) {
    BlunderScene scene;
    scene.Settings().fTestMethod = method;
    const auto& messung = scene.Add({.v = 3.0, .q = 0.25});
    scene.Round();
    EXPECT_EQ(messung.Testwert(), 12.0) << method;
  }
}

TEST(BlunderTestValue, MethodsAgreeForFullRedundancyAndPartBelowIt) {
  for (const double q : {0.15, 0.3, 0.7, 1.0}) {
    double values[2] = {};
    for (const std::int32_t method : {0, 1}) {
      BlunderScene scene;
      scene.Settings().fTestMethod = method;
      const auto& messung = scene.Add({.v = 1.5, .q = q});
      scene.Round();
      values[method] = messung.Testwert();
    }
    EXPECT_DOUBLE_EQ(values[0] * std::sqrt(q), values[1]) << q;
    EXPECT_EQ(values[0] > values[1], q < 1.0) << q;
  }
}

TEST(BlunderTestValue, ByRedundancyTheSameObservationsLoseMore) {
  std::uint32_t counts[2] = {};
  for (const std::int32_t method : {0, 1}) {
    BlunderScene scene;
    scene.ThresholdAtTau().Settings().fTestMethod = method;
    // By redundancy 8, 4, 2.67 and 2, by inner reliability 4, 2.83, 2.31 and 2.
    for (const double q : {0.25, 0.5, 0.75, 1.0}) scene.Add({.v = 2.0, .q = q});
    EXPECT_NEAR(scene.Round().testwertKritisch, 2.57, 0.005);
    counts[method] = scene.Statistics().fAusreisser;
  }
  EXPECT_EQ(counts[0], 3U);
  EXPECT_EQ(counts[1], 2U);
}

TEST(BlunderTestValue, WithoutRedundancyIsZero) {
  for (const double q : {0.0, -0.0, -0.1, kNaN}) {
    BlunderScene scene;
    const auto& messung = scene.ThresholdAtTau().Add({.v = kGross, .q = q});
    scene.Round();
    EXPECT_EQ(messung.Testwert(), 0.0) << q;
    EXPECT_FALSE(messung.IsAusreisser()) << q;
  }
}

TEST(BlunderTestValue, OfTheSmallestRedundancyIsComputed) {
  BlunderScene scene;
  const auto& messung = scene.Add({.v = 1.0, .q = 0x1p-40});
  scene.Round();
  EXPECT_EQ(messung.Testwert(), 0x1p20);
}

TEST(BlunderTestValue, NegativeWeightGivesZero) {
  BlunderScene scene;
  const auto& negative = scene.Add({.v = kGross, .w = -1.0});
  const auto& none = scene.Add({.v = kGross, .w = 0.0});
  scene.ThresholdAtTau().Round();
  EXPECT_EQ(negative.Testwert(), 0.0);
  EXPECT_EQ(none.Testwert(), 0.0);
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
}

TEST(BlunderTestValue, WithoutS0IsZeroAndNothingIsMarked) {
  BlunderScene scene;
  scene.s0 = 0.0;
  const auto& messung = scene.Add({.v = kGross}, {.v = -kGross, .q = 0.5});
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_EQ(scene.Statistics().fS0, 0.0);
  EXPECT_EQ(messung.Testwert(0), 0.0);
  EXPECT_EQ(messung.Testwert(1), 0.0);
  EXPECT_EQ(round.testwertAusreisser, round.testwertKritisch);
  EXPECT_THAT(round.ausreisser, IsEmpty());
  EXPECT_FALSE(messung.IsAusreisser());
}

TEST(BlunderTestValue, WithoutNetworkRedundancyTauIsOneAndNothingIsMarked) {
  for (const std::int32_t redundancy : {0, -7}) {
    BlunderScene scene;
    scene.redundancy = redundancy;
    scene.s0 = 0.0;
    const auto& messung = scene.Add({.v = kGross});
    const BlunderRoundInfo& round = scene.Round();
    EXPECT_EQ(round.redundanz, redundancy);
    EXPECT_EQ(round.testwertKritisch, 1.0);
    EXPECT_EQ(round.testwertAusreisser, 1.0);
    EXPECT_EQ(round.testwertReaktivierung, 1.0);
    EXPECT_EQ(messung.Testwert(), 0.0);
    EXPECT_FALSE(messung.IsAusreisser());
  }
}

TEST(BlunderTestValue, IsStoredForEveryComponentOfEveryActiveObservation) {
  BlunderScene scene;
  const auto& both = scene.Add({.v = 1.0}, {.v = -2.0, .q = 0.25});
  auto& shielded = scene.Add({.v = 1.5});
  shielded.SetNoBlunderTest(true);
  auto& rejected = scene.Add({.v = 8.0, .q = 0.25});
  rejected.SetAusreisser();
  auto& absent = scene.Add({.v = 1.0});
  absent.SetActive(false);
  scene.Round();
  EXPECT_EQ(both.Testwert(0), 1.0);
  EXPECT_EQ(both.Testwert(1), 4.0);
  EXPECT_EQ(shielded.Testwert(), 1.5);
  // A rejected observation has the redundancy 1: its residual is its misclosure.
  EXPECT_EQ(rejected.Testwert(), 8.0);
  EXPECT_EQ(absent.Testwert(), 0.0);
}

// --- Threshold ---

// The round that follows from a largest test value.
BlunderRoundInfo RoundOf(double lower, double upper, double damping, double top) {
  BlunderScene scene;
  scene.Range(lower, upper, damping).Add({.v = top});
  return scene.Round();
}

TEST(BlunderThreshold, TauIsTheCriticalValueOfTheNetwork) {
  const BlunderRoundInfo round = RoundOf(1.0, 4.0, 0.8, 1.0);
  EXPECT_EQ(round.beobachtungen, 2U);
  EXPECT_EQ(round.redundanz, 400);
  EXPECT_EQ(round.testwertKritisch, TauCritical(2, 400, 0.95));
}

TEST(BlunderThreshold, TopUpToTauLeavesAllThreeAtTau) {
  for (const double top : {0.0, 1.0, Below(BlunderScene().Tau())}) {
    const BlunderRoundInfo round = RoundOf(0.0, 0.0, 1.0, top);
    EXPECT_EQ(round.testwertAusreisser, round.testwertKritisch) << top;
    EXPECT_EQ(round.testwertReaktivierung, round.testwertKritisch) << top;
  }
}

TEST(BlunderThreshold, StaysAtTauUpToTheLowerLimit) {
  const double tau = TauCritical(2, 400, 0.95);
  for (const double factor : {1.1, 1.5, 1.99}) {
    const BlunderRoundInfo round = RoundOf(1.0, 4.0, 0.8, factor * tau);
    EXPECT_EQ(round.testwertAusreisser, tau) << factor;
  }
}

TEST(BlunderThreshold, ByDefaultRunsFromTwoTauToFiveTauWithFourFifths) {
  const double tau = TauCritical(2, 400, 0.95);
  for (const double factor : {1.5, 2.0, 2.3, 3.5, 4.9, 5.0, 6.0}) {
    BlunderScene scene;
    scene.Add({.v = factor * tau});
    const double d = 0.8 * std::clamp((factor - 2.0) / 3.0, 0.0, 1.0);
    const double expected = tau + (factor - 1.0) * tau * d;
    // S0 is 1 but for the rounding of the sum of squares.
    EXPECT_NEAR(scene.Round().testwertAusreisser, expected, 1e-13) << factor;
  }
}

TEST(BlunderThreshold, FromTheUpperLimitOnTakesTheFullDamping) {
  const double tau = TauCritical(2, 400, 0.95);
  for (const double top : {16.0, 17.0, 19.0}) {
    const BlunderRoundInfo round = RoundOf(1.0, 4.0, 0.5, top);
    EXPECT_EQ(round.testwertAusreisser, (top - tau) * 0.5 + tau) << top;
  }
}

TEST(BlunderThreshold, HalfwayBetweenTheLimitsTakesHalfTheDamping) {
  const double tau = TauCritical(2, 400, 0.95);
  const double top = 3.5 * tau;
  EXPECT_NEAR(RoundOf(1.0, 4.0, 1.0, top).testwertAusreisser, tau + (top - tau) * 0.5, 1e-13);
}

TEST(BlunderThreshold, TakesTheLimitsInEitherOrder) {
  for (const double top : {2.0, 6.0, 8.0, 11.0, 19.0})
    EXPECT_EQ(RoundOf(1.0, 4.0, 0.8, top).testwertAusreisser,
              RoundOf(4.0, 1.0, 0.8, top).testwertAusreisser)
        << top;
}

TEST(BlunderThreshold, TakesNegativeLimitsForZero) {
  for (const double top : {2.0, 4.0, 8.0, 11.0, 19.0}) {
    EXPECT_EQ(RoundOf(-3.0, 4.0, 0.8, top).testwertAusreisser,
              RoundOf(0.0, 4.0, 0.8, top).testwertAusreisser)
        << top;
    EXPECT_EQ(RoundOf(-3.0, -1.0, 0.8, top).testwertAusreisser,
              RoundOf(0.0, 0.0, 0.8, top).testwertAusreisser)
        << top;
  }
}

TEST(BlunderThreshold, EqualLimitsTakeTheFullDampingWhateverTopIs) {
  const double tau = TauCritical(2, 400, 0.95);
  for (const double limit : {0.0, 4.0, 1000.0})
    for (const double top : {3.0, 4.0, 8.0, 19.0})
      EXPECT_EQ(RoundOf(limit, limit, 0.75, top).testwertAusreisser, (top - tau) * 0.75 + tau)
          << limit << ' ' << top;
}

TEST(BlunderThreshold, FullDampingReachesTopWithoutRounding) {
  // (top - tau) + tau would miss some of these by a bit.
  for (int i = 0; i < 50; ++i) {
    const double top = 4.0 + i * 0x1p-4;
    EXPECT_EQ(RoundOf(0.0, 0.0, 1.0, top).testwertAusreisser, top);
  }
  EXPECT_EQ(RoundOf(1.0, 4.0, 1.0, 19.0).testwertAusreisser, 19.0);
}

TEST(BlunderThreshold, WithoutDampingIsTau) {
  for (const double top : {3.0, 19.0}) {
    const BlunderRoundInfo round = RoundOf(1.0, 4.0, 0.0, top);
    EXPECT_EQ(round.testwertAusreisser, round.testwertKritisch) << top;
  }
}

TEST(BlunderThreshold, ReactivationLiesHalfwayBetweenTauAndTheThreshold) {
  for (const double damping : {0.0, 0.3, 0.8, 1.0}) {
    const BlunderRoundInfo round = RoundOf(1.0, 4.0, damping, 18.0);
    const double tau = round.testwertKritisch;
    EXPECT_EQ(round.testwertReaktivierung, (round.testwertAusreisser - tau) * 0.5 + tau) << damping;
  }
}

TEST(BlunderThreshold, LimitsOfAThousandAndMinusAThousandAreNoFailure) {
  BlunderScene scene;
  scene.Range(-1e300, 1e300, 0.8).Add({.v = kGross});
  EXPECT_EQ(scene.Settings().fDynamicUpper, 1000.0);
  EXPECT_EQ(scene.Run(), 0);
}

// --- Who sets the largest test value ---

TEST(BlunderTop, NeedsMoreRedundancyThanAFifth) {
  for (const bool enough : {false, true}) {
    BlunderScene scene;
    const double q = enough ? Above(0.2) : 0.2;
    const auto& messung = scene.ThresholdAtTop().Add({.v = 4.0, .q = q});
    const BlunderRoundInfo& round = scene.Round();
    EXPECT_EQ(round.testwertAusreisser, enough ? messung.Testwert() : round.testwertKritisch);
    // Rejected it is in both cases.
    EXPECT_TRUE(messung.IsAusreisser());
  }
}

TEST(BlunderTop, IsNotSetByProtectedRejectedOrAbsentObservations) {
  BlunderScene scene;
  scene.ThresholdAtTop().Add({.v = 5.0});
  scene.Add({.v = 16.0}).SetNoBlunderTest(true);
  scene.Add({.v = 17.0}).SetAusreisser();
  scene.Add({.v = 18.0}).SetActive(false);
  EXPECT_EQ(scene.Round().testwertAusreisser, 5.0);
}

TEST(BlunderTop, IsNotSetByANegativeWeight) {
  BlunderScene scene;
  scene.ThresholdAtTop().Add({.v = 5.0});
  scene.Add({.v = 16.0, .w = -1.0});
  EXPECT_EQ(scene.Round().testwertAusreisser, 5.0);
}

TEST(BlunderTop, IsTheLargestOfAllComponents) {
  for (const std::uint32_t place : {0U, 1U}) {
    BlunderScene scene;
    scene.ThresholdAtTop().Add({.v = 5.0});
    scene.Add({.v = place == 0 ? -7.0 : 6.0}, {.v = place == 0 ? 6.0 : -7.0});
    scene.Add({.v = 4.0});
    EXPECT_EQ(scene.Round().testwertAusreisser, 7.0) << place;
  }
}

// --- Who goes out ---

TEST(BlunderTest, AtTheThresholdGoesOutAndJustBelowStays) {
  BlunderScene scene;
  const auto& top = scene.ThresholdAtTop().Add({.v = 8.0});
  const auto& equal = scene.Add({.v = -8.0});
  const auto& below = scene.Add({.v = 7.984375});
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_TRUE(top.IsAusreisser());
  EXPECT_TRUE(equal.IsAusreisser());
  EXPECT_FALSE(below.IsAusreisser());
  EXPECT_THAT(Of(round.ausreisser), ElementsAre(&top, &equal));
  EXPECT_EQ(scene.Statistics().fAusreisser, 2U);
}

TEST(BlunderTest, FullDampingTakesTheLeaderAlone) {
  BlunderScene scene;
  scene.Range(1.0, 4.0, 1.0).Add({.v = 16.0});
  const auto& top = scene.Add({.v = 18.0});
  scene.Add({.v = 17.0});
  EXPECT_THAT(Of(scene.Round().ausreisser), ElementsAre(&top));
}

TEST(BlunderTest, FullDampingTakesWeaklyControlledOnesAboveTheLeaderAsWell) {
  BlunderScene scene;
  const auto& top = scene.Range(1.0, 4.0, 1.0).Add({.v = 16.0});
  const auto& weak = scene.Add({.v = 4.5, .q = 0.125});       // 12.7
  const auto& weakAbove = scene.Add({.v = 6.0, .q = 0.125});  // 17.0
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_EQ(round.testwertAusreisser, 16.0);
  EXPECT_FALSE(weak.IsAusreisser());
  EXPECT_THAT(Of(round.ausreisser), ElementsAre(&top, &weakAbove));
}

TEST(BlunderTest, WithoutDampingTakesAllOverTheCriticalValueAtOnce) {
  BlunderScene scene;
  scene.ThresholdAtTau();
  std::vector<const Messung*> expected;
  for (const double v : {1.0, 2.0, 3.5, 4.0, 9.0, 2.25, 15.0}) {
    const auto& messung = scene.Add({.v = v});
    if (v > 3.25) expected.push_back(&messung);
  }
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_LT(round.testwertKritisch, 3.25);
  EXPECT_GT(round.testwertKritisch, 2.25);
  EXPECT_EQ(Of(round.ausreisser), expected);
}

TEST(BlunderTest, NeedsMoreRedundancyThanATenth) {
  BlunderScene scene;
  const auto& exactly = scene.ThresholdAtTau().Add({.v = 8.0, .q = 0.1});
  const auto& above = scene.Add({.v = 8.0, .q = Above(0.1)});
  const auto& below = scene.Add({.v = 8.0, .q = Below(0.1)});
  EXPECT_THAT(Of(scene.Round().ausreisser), ElementsAre(&above));
  EXPECT_FALSE(exactly.IsAusreisser());
  EXPECT_FALSE(below.IsAusreisser());
  // Its test value is told all the same.
  EXPECT_GT(below.Testwert(), 20.0);
}

TEST(BlunderTest, ComponentWithoutEnoughRedundancyDoesNotSpeakForTheObservation) {
  BlunderScene scene;
  const auto& saved = scene.ThresholdAtTau().Add({.v = 8.0, .q = 0.0625}, {.v = 1.0});
  const auto& judged = scene.Add({.v = 8.0, .q = 0.0625}, {.v = 6.0});
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_FALSE(saved.IsAusreisser());
  ASSERT_THAT(Of(round.ausreisser), ElementsAre(&judged));
  EXPECT_EQ(round.ausreisser[0].testwert, 6.0);
}

TEST(BlunderTest, LargestComponentSpeaksForTheObservation) {
  BlunderScene scene;
  const auto& first = scene.ThresholdAtTau().Add({.v = 9.0}, {.v = 4.0});
  const auto& second = scene.Add({.v = 4.0}, {.v = 10.0});
  const auto& one = scene.Add({.v = 1.0}, {.v = 5.0});
  const BlunderRoundInfo& round = scene.Round();
  ASSERT_THAT(Of(round.ausreisser), ElementsAre(&first, &second, &one));
  EXPECT_EQ(round.ausreisser[0].testwert, 9.0);
  EXPECT_EQ(round.ausreisser[1].testwert, 10.0);
  EXPECT_EQ(round.ausreisser[2].testwert, 5.0);
  // Once each, though two have both components over the threshold.
  EXPECT_EQ(scene.Statistics().fAusreisser, 3U);
  EXPECT_EQ(scene.Marked(0), 1U);
}

TEST(BlunderTest, ProtectedObservationIsPassedOver) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  messung.SetNoBlunderTest(true);
  const BlunderRoundInfo& round = scene.Round();
  EXPECT_EQ(messung.Testwert(), kGross);
  EXPECT_FALSE(messung.IsAusreisser());
  EXPECT_THAT(round.ausreisser, IsEmpty());
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
  EXPECT_EQ(scene.Marked(0), 0U);
}

TEST(BlunderTest, AllProtectedLeavesTheThresholdAtTauAndMarksNone) {
  BlunderScene scene;
  scene.ThresholdAtTop();
  for (const double v : {5.0, 8.0, 15.0}) scene.Add({.v = v}).SetNoBlunderTest(true);
  EXPECT_EQ(scene.Run(), 0);
  ASSERT_EQ(scene.Rounds().size(), 1U);
  EXPECT_EQ(scene.Rounds()[0].testwertAusreisser, scene.Rounds()[0].testwertKritisch);
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
}

TEST(BlunderTest, TellsTheMarkedInTheOrderOfTheList) {
  BlunderScene scene;
  std::vector<const Messung*> expected;
  for (const double v : {5.0, 9.0, 7.0, 11.0, 6.0}) {
    expected.push_back(&scene.ThresholdAtTau().Add({.v = v}));
    scene.Add({.v = 0.5});
  }
  EXPECT_EQ(Of(scene.Round().ausreisser), expected);
}

TEST(BlunderTest, AbsentObservationIsNotMarked) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  messung.SetActive(false);
  scene.Round();
  EXPECT_FALSE(messung.IsAusreisser());
}

TEST(BlunderTest, ObservationRejectedBeforeCountsAndChangesNothing) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  messung.SetAusreisser();
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 1U);
  EXPECT_EQ(scene.Statistics().fAusreisser, 1U);
  EXPECT_THAT(scene.Rounds().at(0).ausreisser, IsEmpty());
  EXPECT_TRUE(messung.IsAusreisser());
  EXPECT_EQ(scene.Marked(0), 0U);
}

TEST(BlunderTest, ProtectedObservationRejectedBeforeStaysOutUncounted) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  messung.SetAusreisser();
  messung.SetNoBlunderTest(true);
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 1U);
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
  EXPECT_TRUE(messung.IsAusreisser());
}

// --- Who comes back ---

TEST(BlunderReactivation, BelowTheReactivationThresholdComesBack) {
  BlunderScene scene;
  const auto& top = scene.ThresholdAtTop().Add({.v = 10.0});
  // Outliers are not counted: tau belongs to the leader and the rest.
  const double reactivation = (10.0 - scene.Tau()) * 0.5 + scene.Tau();
  auto& at = scene.Add({.v = reactivation});
  auto& below = scene.Add({.v = Below(reactivation)});
  auto& between = scene.Add({.v = 9.5});
  for (Messung* messung : {&at, &below, &between}) messung->SetAusreisser();
  const BlunderRoundInfo& round = scene.Round();
  ASSERT_EQ(round.testwertReaktivierung, reactivation);
  ASSERT_THAT(Of(round.reaktiviert), ElementsAre(&below));
  EXPECT_EQ(round.reaktiviert[0].testwert, Below(reactivation));
  EXPECT_FALSE(below.IsAusreisser());
  EXPECT_TRUE(at.IsAusreisser());
  // Between the two thresholds it stays out, and does not count.
  EXPECT_TRUE(between.IsAusreisser());
  EXPECT_THAT(Of(round.ausreisser), ElementsAre(&top));
  EXPECT_EQ(scene.Statistics().fAusreisser, 1U);
}

TEST(BlunderReactivation, TestValueZeroComesBack) {
  // Zero is a test value like any other: the first component that can be judged speaks.
  BlunderScene scene;
  auto& messung = scene.Add({.v = 0.0}, {.v = 0.0});
  messung.SetAusreisser();
  const BlunderRoundInfo& round = scene.Round();
  ASSERT_THAT(Of(round.reaktiviert), ElementsAre(&messung));
  EXPECT_EQ(round.reaktiviert[0].testwert, 0.0);
}

TEST(BlunderReactivation, WithoutS0ComesBack) {
  BlunderScene scene;
  scene.s0 = 0.0;
  auto& messung = scene.Add({.v = kGross});
  messung.SetAusreisser();
  scene.Round();
  EXPECT_EQ(messung.Testwert(), 0.0);
  EXPECT_FALSE(messung.IsAusreisser());
}

TEST(BlunderReactivation, ProtectedObservationComesBack) {
  BlunderScene scene;
  auto& messung = scene.Add({.v = 1.0});
  messung.SetAusreisser();
  messung.SetNoBlunderTest(true);
  EXPECT_THAT(Of(scene.Round().reaktiviert), ElementsAre(&messung));
  EXPECT_FALSE(messung.IsAusreisser());
}

TEST(BlunderReactivation, AbsentObservationStaysRejected) {
  BlunderScene scene;
  auto& messung = scene.Add({.v = 1.0});
  messung.SetAusreisser();
  messung.SetActive(false);
  EXPECT_THAT(scene.Round().reaktiviert, IsEmpty());
  EXPECT_TRUE(messung.IsAusreisser());
}

TEST(BlunderReactivation, TellsTheReadmittedInTheOrderOfTheList) {
  BlunderScene scene;
  std::vector<const Messung*> expected;
  for (const double v : {1.5, 0.5, 1.75, 1.0}) {
    auto& messung = scene.Add({.v = v});
    messung.SetAusreisser();
    expected.push_back(&messung);
  }
  EXPECT_EQ(Of(scene.Round().reaktiviert), expected);
}

TEST(BlunderReactivation, HappensOnceToAnObservationThatWasGood) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({});
  scene.script = [&](std::uint32_t iteration) {
    messung.components[0].v = iteration % 2 == 1 ? kGross : 0.0;
  };
  EXPECT_EQ(scene.Run(), 0);
  ASSERT_EQ(scene.Rounds().size(), 4U);
  EXPECT_THAT(Of(scene.Rounds()[0].ausreisser), ElementsAre(&messung));
  EXPECT_THAT(Of(scene.Rounds()[1].reaktiviert), ElementsAre(&messung));
  EXPECT_THAT(Of(scene.Rounds()[2].ausreisser), ElementsAre(&messung));
  EXPECT_THAT(scene.Rounds()[3].reaktiviert, IsEmpty());
  EXPECT_TRUE(messung.IsAusreisser());
  EXPECT_EQ(scene.Marked(0), 2U);
  // In the last round its test value was 0.
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
}

TEST(BlunderReactivation, HappensTwiceToAnObservationThatCameInRejected) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({});
  messung.SetAusreisser();
  scene.script = [&](std::uint32_t iteration) {
    messung.components[0].v = iteration % 2 == 0 ? kGross : 0.0;
  };
  EXPECT_EQ(scene.Run(), 0);
  ASSERT_EQ(scene.Rounds().size(), 5U);
  std::size_t readmitted = 0;
  for (const BlunderRoundInfo& round : scene.Rounds()) readmitted += round.reaktiviert.size();
  EXPECT_EQ(readmitted, 2U);
  EXPECT_EQ(scene.Marked(0), 2U);
  EXPECT_TRUE(messung.IsAusreisser());
}

// --- The loop ---

TEST(BlunderLoop, WithoutAChangeOneRoundIsEnough) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 1U);
  EXPECT_EQ(scene.Rounds().size(), 1U);
  EXPECT_EQ(scene.Statistics().fAusreisserRunde, 0U);
}

TEST(BlunderLoop, GoesOnUntilARoundChangesNothing) {
  BlunderScene scene;
  std::vector<GivenMessung<1>*> messungen;
  scene.ThresholdAtTop();
  for (const double v : {9.0, 8.0, 7.0, 1.0}) messungen.push_back(&scene.Add({.v = v}));
  EXPECT_EQ(scene.Run(), 0);
  ASSERT_EQ(scene.Rounds().size(), 4U);
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_THAT(Of(scene.Rounds()[i].ausreisser), ElementsAre(messungen[i])) << i;
  EXPECT_THAT(scene.Rounds()[3].ausreisser, IsEmpty());
  EXPECT_FALSE(messungen[3]->IsAusreisser());
  // Each round has one observation less than the one before, and one less than were run is told.
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(scene.Rounds()[i].beobachtungen, 5U - i);
    EXPECT_EQ(scene.Rounds()[i].ausreisserRunde, i);
    EXPECT_EQ(scene.Rounds()[i].iteration, i + 1);
  }
  EXPECT_EQ(scene.Statistics().fAusreisserRunde, 3U);
  EXPECT_EQ(scene.Statistics().fAusreisser, 3U);
}

TEST(BlunderLoop, IterationsThatDoNotConvergeHaveNoRound) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  scene.script = [&](std::uint32_t iteration) { scene.open = iteration % 3 == 0 ? 0.0 : 1e6; };
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 6U);
  ASSERT_EQ(scene.Rounds().size(), 2U);
  EXPECT_EQ(scene.Rounds()[0].iteration, 3U);
  EXPECT_EQ(scene.Rounds()[1].iteration, 6U);
  EXPECT_TRUE(messung.IsAusreisser());
}

TEST(BlunderLoop, RoundComesBehindTheAccuracy) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  EXPECT_EQ(scene.Run(), 0);
  const std::vector<std::string>& events = scene.adjustment->events;
  ASSERT_GE(events.size(), 4U);
  EXPECT_THAT(std::vector<std::string>(events.end() - 4, events.end()),
              ElementsAre("OnIteration", "InvertCofactors", "OnBlunderRound", "OnRunEnd"));
}

TEST(BlunderLoop, RoundTellsTheFiguresOfItsIteration) {
  BlunderScene scene;
  scene.s0 = 2.0;
  scene.ThresholdAtTop().Add({.v = 16.0});
  EXPECT_EQ(scene.Run(), 0);
  ASSERT_EQ(scene.Rounds().size(), scene.adjustment->infos.size());
  for (std::size_t i = 0; i < scene.Rounds().size(); ++i) {
    const BlunderRoundInfo& round = scene.Rounds()[i];
    const IterationInfo& info = scene.adjustment->infos[i];
    EXPECT_EQ(round.s0, 2.0);
    EXPECT_EQ(round.mittlereAenderung, info.mittlereAenderung);
    EXPECT_EQ(round.aufbauSekunden, info.aufbauSekunden);
    EXPECT_EQ(round.loesungSekunden, info.loesungSekunden);
    EXPECT_EQ(round.iterationGesamt, info.iterationGesamt);
    EXPECT_EQ(round.iteration, i + 1);
    EXPECT_EQ(round.ausreisserRunde, info.ausreisserRunde);
    EXPECT_EQ(round.beobachtungen, info.beobachtungen);
    EXPECT_EQ(round.unbekannte, info.unbekannte);
    EXPECT_EQ(round.bedingungen, info.bedingungen);
    EXPECT_EQ(round.redundanz, 400);
  }
}

TEST(BlunderLoop, StatisticsKeepTheValuesOfTheLastRound) {
  BlunderScene scene;
  scene.Range(1.0, 4.0, 0.8).Add({.v = 19.0});
  scene.Add({.v = 8.0});
  EXPECT_EQ(scene.Run(), 0);
  const BlunderRoundInfo& last = scene.Rounds().back();
  EXPECT_EQ(scene.Statistics().fTestwertKritisch, last.testwertKritisch);
  EXPECT_EQ(scene.Statistics().fTestwertAusreisser, last.testwertAusreisser);
  EXPECT_EQ(scene.Statistics().fTestwertReaktivierung, last.testwertReaktivierung);
  EXPECT_NE(scene.Rounds().front().testwertKritisch, last.testwertKritisch);
}

TEST(BlunderLoop, IterationsSeeTheCountOfTheRoundBefore) {
  BlunderScene scene;
  scene.ThresholdAtTau().Add({.v = kGross});
  scene.Add({.v = kGross}).SetAusreisser();
  std::vector<std::uint32_t> seen;
  scene.adjustment->judge = [&](const IterationInfo&) {
    seen.push_back(scene.Statistics().fAusreisser);
    return false;
  };
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_THAT(seen, ElementsAre(0U, 2U));
  EXPECT_EQ(scene.Statistics().fAusreisser, 2U);
}

TEST(BlunderLoop, HookThatStopsTheRunLeavesTheMarks) {
  BlunderScene scene;
  const auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  scene.adjustment->judgeBlunders = [](const BlunderRoundInfo&) { return true; };
  EXPECT_EQ(scene.Run(), failure::kAbortByUser);
  EXPECT_EQ(scene.Iterations(), 1U);
  EXPECT_TRUE(messung.IsAusreisser());
  EXPECT_EQ(scene.adjustment->events.back(), "OnBlunderRound");
}

TEST(BlunderLoop, HookMayStopALaterRound) {
  BlunderScene scene;
  scene.ThresholdAtTau().Add({.v = kGross});
  scene.adjustment->judgeBlunders = [](const BlunderRoundInfo& info) {
    return info.ausreisser.empty();
  };
  EXPECT_EQ(scene.Run(), failure::kAbortByUser);
  EXPECT_EQ(scene.Rounds().size(), 2U);
}

TEST(BlunderLoop, TestThatIsOffStillReportsOneEmptyRound) {
  BlunderScene scene;
  auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  auto& rejected = scene.Add({.v = 0.0});
  rejected.SetAusreisser();
  scene.Settings().SetBlunderTest(false);
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 1U);
  ASSERT_EQ(scene.Rounds().size(), 1U);
  const BlunderRoundInfo& round = scene.Rounds()[0];
  EXPECT_EQ(round.testwertKritisch, 0.0);
  EXPECT_EQ(round.testwertAusreisser, 0.0);
  EXPECT_EQ(round.testwertReaktivierung, 0.0);
  EXPECT_THAT(round.ausreisser, IsEmpty());
  EXPECT_THAT(round.reaktiviert, IsEmpty());
  // The figures of the iteration are told.
  EXPECT_EQ(round.iteration, 1U);
  EXPECT_EQ(round.s0, 1.0);
  EXPECT_EQ(messung.Testwert(), 0.0);
  EXPECT_FALSE(messung.IsAusreisser());
  EXPECT_TRUE(rejected.IsAusreisser());
  EXPECT_EQ(scene.Statistics().fAusreisserRunde, 0U);
  EXPECT_EQ(scene.Statistics().fAusreisser, 0U);
}

TEST(BlunderLoop, HookStopsTheRunWithTheTestOff) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  scene.Settings().SetBlunderTest(false);
  scene.adjustment->judgeBlunders = [](const BlunderRoundInfo&) { return true; };
  EXPECT_EQ(scene.Run(), failure::kAbortByUser);
}

TEST(BlunderLoop, S0BelowTheFloorEndsTheRunAfterTheRound) {
  BlunderScene scene;
  const auto& messung = scene.ThresholdAtTau().Add({.v = kGross});
  scene.Settings().fS0Floor = Above(1.0);
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 1U);
  EXPECT_TRUE(messung.IsAusreisser());
  EXPECT_EQ(scene.Statistics().fAusreisser, 1U);
}

TEST(BlunderLoop, S0EqualToTheFloorGoesOn) {
  BlunderScene scene;
  scene.ThresholdAtTau().Add({.v = kGross});
  scene.Settings().fS0Floor = 1.0;
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 2U);
}

TEST(BlunderLoop, LimitOfS0IsAskedAgainAfterTheRound) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  scene.adjustment->judgeBlunders = [&](const BlunderRoundInfo&) {
    scene.Settings().fS0Limit = 0.5;
    return false;
  };
  EXPECT_EQ(scene.Run(), failure::kS0TooLarge);
}

TEST(BlunderLoop, HookStopsBeforeTheLimitOfS0IsAskedAgain) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  scene.adjustment->judgeBlunders = [&](const BlunderRoundInfo&) {
    scene.Settings().fS0Limit = 0.5;
    return true;
  };
  EXPECT_EQ(scene.Run(), failure::kAbortByUser);
}

TEST(BlunderLoop, IterationLimitEndsTheRoundsWithoutFailure) {
  BlunderScene scene;
  scene.ThresholdAtTop();
  for (const double v : {9.0, 8.0, 7.0}) scene.Add({.v = v});
  scene.Settings().fMaxIterations = 2;
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Rounds().size(), 2U);
  EXPECT_EQ(scene.Statistics().fAusreisser, 2U);
  EXPECT_EQ(scene.adjustment->events.back(), "OnRunEnd");
}

TEST(BlunderLoop, ManyRoundsWithoutOtherProgressAreNoFailure) {
  // S0 and the mean change are the same in all twelve iterations; the watch looks at six.
  BlunderScene scene;
  scene.ThresholdAtTop();
  for (int i = 0; i < 11; ++i) scene.Add({.v = 15.0 - i});
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.Iterations(), 12U);
}

TEST(BlunderLoop, MissingProgressIsSeenWithinARound) {
  BlunderScene scene;
  scene.ThresholdAtTau().Add({.v = kGross});
  scene.script = [&](std::uint32_t iteration) { scene.open = iteration == 4 ? 0.0 : 1e6; };
  EXPECT_EQ(scene.Run(), failure::kNoProgress);
  // Three iterations and the round; from there on six.
  EXPECT_EQ(scene.Iterations(), 10U);
}

TEST(BlunderLoop, GroupTakenOutAsksForAnotherRound) {
  BlunderScene scene;
  scene.Add({.v = 1.0});
  LinearGroup loose(std::vector<double>(1, 0.0));
  scene.adjustment->groups.push_back(&loose);
  scene.Settings().SetSolvabilityCheck(true);
  // Its column comes behind those of the scene.
  scene.system->element = [](std::uint32_t row, std::uint32_t column) {
    return row == column && row < 64 ? 1.0 : 0.0;
  };
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_FALSE(loose.IsActive());
  EXPECT_EQ(scene.Iterations(), 2U);
}

TEST(BlunderLoop, RoundCarriesWhatTheIterationHookAddedToItsFigures) {
  class Naming : public TestAdjustment {
   protected:
    bool OnIteration(IterationInfo& info) override {
      info.s0APriori = 0.005;
      return TestAdjustment::OnIteration(info);
    }
  };
  LinearGroup x({0.0});
  LinearMessung a({{&x, 0, 1.0}}, 1.0);
  LinearMessung b({{&x, 0, 1.0}}, 2.0);
  LinearMessung c({{&x, 0, 1.0}}, 4.0);
  Naming adjustment;
  adjustment.groups = {&x};
  adjustment.messungen = {&a, &b, &c};
  EXPECT_EQ(adjustment.RunCode(), 0);
  ASSERT_FALSE(adjustment.rounds.empty());
  EXPECT_EQ(adjustment.rounds[0].s0APriori, 0.005);
}

// --- Real adjustments ---

// One unknown x, measured as 0 by four observations and as 100 by one; one of the four has the
// weight 4. A second unknown y, measured 146 times with small errors, gives the redundancy.
class Pulled {
 public:
  Pulled() {
    fY.reserve(kRest);
    for (int i = 0; i < kRest; ++i)
      fY.emplace_back(LinearMessung({{&y, 0, 1.0}}, i % 2 == 0 ? 1.0 : -1.0));
    adjustment.groups = {&x, &y};
    adjustment.messungen = {&wrong, &heavy, &good[0], &good[1], &good[2]};
    for (LinearMessung& messung : fY) adjustment.messungen.push_back(&messung);
  }
  Pulled(const Pulled&) = delete;
  Pulled& operator=(const Pulled&) = delete;

  static constexpr int kRest = 146;
  LinearGroup x{{0.0}};
  LinearGroup y{{0.0}};
  LinearMessung wrong{{{&x, 0, 1.0}}, 100.0};
  LinearMessung heavy{{{&x, 0, 1.0}}, 0.0, 4.0};
  LinearMessung good[3] = {LinearMessung({{&x, 0, 1.0}}, 0.0),
                           LinearMessung({{&x, 0, 1.0}}, 0.0),
                           LinearMessung({{&x, 0, 1.0}}, 0.0)};
  TestAdjustment adjustment;

 private:
  std::vector<LinearMessung> fY;
};

TEST(BlunderAdjustment, TestValuesHaveTheirClosedForm) {
  Pulled scene;
  scene.adjustment.Settings().SetDamping(0.0);
  // The first iteration moves x by 12.5, so it needs a second one to converge.
  scene.adjustment.Settings().fMaxIterations = 2;
  ASSERT_EQ(scene.adjustment.RunCode(), 0);
  // x = 100 / 8. Sum of squares 87.5^2 + 4 12.5^2 + 3 12.5^2 + 146 = 8896, redundancy 149.
  const double s0 = std::sqrt(8896.0 / 149.0);
  EXPECT_NEAR(scene.x.values[0], 12.5, 1e-12);
  EXPECT_NEAR(scene.adjustment.Statistics().fS0, s0, 1e-12);
  EXPECT_NEAR(scene.wrong.Wert(0).Testwert(), 87.5 / std::sqrt(1.0 - 1.0 / 8.0) / s0, 1e-12);
  EXPECT_NEAR(scene.heavy.Wert(0).Testwert(), 2.0 * 12.5 / std::sqrt(0.5) / s0, 1e-12);
  EXPECT_NEAR(scene.good[0].Wert(0).Testwert(), 12.5 / std::sqrt(7.0 / 8.0) / s0, 1e-12);
  ASSERT_EQ(scene.adjustment.rounds.size(), 1U);
  EXPECT_EQ(scene.adjustment.rounds[0].testwertKritisch, TauCritical(151, 149, 0.95));
  EXPECT_THAT(Of(scene.adjustment.rounds[0].ausreisser), ElementsAre(&scene.wrong, &scene.heavy));
}

TEST(BlunderAdjustment, GoodNeighbourOfAGrossErrorComesBack) {
  Pulled scene;
  scene.adjustment.Settings().SetDamping(0.0);
  ASSERT_EQ(scene.adjustment.RunCode(), 0);
  ASSERT_EQ(scene.adjustment.rounds.size(), 3U);
  EXPECT_THAT(Of(scene.adjustment.rounds[0].ausreisser), ElementsAre(&scene.wrong, &scene.heavy));
  EXPECT_THAT(Of(scene.adjustment.rounds[1].reaktiviert), ElementsAre(&scene.heavy));
  EXPECT_TRUE(scene.wrong.IsAusreisser());
  EXPECT_FALSE(scene.heavy.IsAusreisser());
  EXPECT_NEAR(scene.x.values[0], 0.0, 1e-12);
  EXPECT_EQ(scene.adjustment.Statistics().fBeobachtungen, 150U);
  EXPECT_EQ(scene.adjustment.Statistics().fAusreisser, 1U);
  // The rejected measurement keeps its residual and has the redundancy 1.
  EXPECT_NEAR(scene.wrong.Wert(0).Residuum(), -100.0, 1e-12);
  EXPECT_EQ(scene.wrong.Wert(0).Redundanz(), 1.0);
}

TEST(BlunderAdjustment, DampingSparesTheGoodNeighbour) {
  Pulled scene;
  ASSERT_EQ(scene.adjustment.RunCode(), 0);
  ASSERT_EQ(scene.adjustment.rounds.size(), 2U);
  EXPECT_THAT(Of(scene.adjustment.rounds[0].ausreisser), ElementsAre(&scene.wrong));
  EXPECT_THAT(scene.adjustment.rounds[1].ausreisser, IsEmpty());
  EXPECT_THAT(scene.adjustment.rounds[1].reaktiviert, IsEmpty());
}

TEST(BlunderAdjustment, NoTestValueExceedsTheRootOfTheRedundancy) {
  // |w v| / (s sqrt(q)) is a projection of the residual vector, whose length is s sqrt(r).
  Pulled scene;
  scene.wrong.value = 1e9;
  scene.adjustment.Settings().SetDamping(0.0);
  scene.adjustment.Settings().fMaxIterations = 2;
  ASSERT_EQ(scene.adjustment.RunCode(), 0);
  EXPECT_NEAR(scene.wrong.Wert(0).Testwert(), std::sqrt(149.0), 1e-6);
  for (const Messung* messung : scene.adjustment.messungen)
    EXPECT_LE(messung->CollectComponents()[0].Testwert(), std::sqrt(149.0) + 1e-9);
}

}  // namespace
}  // namespace vermo::test

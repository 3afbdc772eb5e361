// The loop of an adjustment along scripted figures: order of its steps, counters, exits, failures.

#include "adjustment/adjustment.h"
#include "adjustment/scripted_loop.h"
#include "checks/failure_codes.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace vermo::test {
namespace {

using testing::ElementsAre;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(AdjustmentLoop, StepsOfAConvergingIterationComeInOrder) {
  ScriptedLoop loop({Step{.t = kConverged}});
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_THAT(loop.adjustment->events,
              ElementsAre("CollectMessungen",
                          "CollectData",
                          "OnRunStart",
                          "ConnectAll",
                          "OnIterationStart",
                          "Reset",
                          "AddEquation",
                          "AddEquation",
                          "FactorizeAndSolve",
                          "ApplySolution",
                          "DiagonalCofactors",
                          "OnIteration",
                          "InvertCofactors",
                          "StoreAccuracy",
                          "OnBlunderRound",
                          "OnRunEnd"));
}

TEST(AdjustmentLoop, IterationThatDoesNotConvergeHasNoAccuracyStep) {
  ScriptedLoop loop({Step{}, Step{.t = kConverged}});
  EXPECT_EQ(loop.Run(), 0);
  const std::vector<std::string>& events = loop.adjustment->events;
  const auto second = std::find(events.rbegin(), events.rend(), "OnIterationStart").base();
  EXPECT_EQ(std::count(events.begin(), second, "InvertCofactors"), 0);
  EXPECT_EQ(std::count(second, events.end(), "InvertCofactors"), 1);
}

TEST(AdjustmentLoop, PassesThePivotSearchOn) {
  for (const std::uint8_t search : {std::uint8_t{0}, std::uint8_t{1}}) {
    ScriptedLoop loop({Step{.t = kConverged}});
    loop.Settings().fPivotSearch = search;
    EXPECT_EQ(loop.Run(), 0);
    EXPECT_THAT(loop.system->pivotSearches, ElementsAre(search == 1));
  }
}

TEST(AdjustmentLoop, LimitZeroRunsNoIterationAndIsNoFailure) {
  ScriptedLoop loop({Step{}});
  loop.Settings().fMaxIterations = 0;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_THAT(
      loop.adjustment->events,
      ElementsAre("CollectMessungen", "CollectData", "OnRunStart", "ConnectAll", "OnRunEnd"));
  EXPECT_EQ(loop.Statistics().fIteration, 0U);
}

TEST(AdjustmentLoop, LimitOneEndsWithoutAccuracyAndWithoutFailure) {
  ScriptedLoop loop({Step{}});
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 1U);
  EXPECT_FALSE(loop.HasAccuracy());
  EXPECT_EQ(loop.adjustment->events.back(), "OnRunEnd");
}

TEST(AdjustmentLoop, LastIterationOfTheLimitStillGetsAccuracyWhenItConverges) {
  ScriptedLoop loop({Step{}, Step{.t = kConverged}});
  loop.Settings().fMaxIterations = 2;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 2U);
  EXPECT_TRUE(loop.HasAccuracy());
}

TEST(AdjustmentLoop, NegativeLimitIsReadAsHuge) {
  ScriptedLoop loop({Step{}, Step{}, Step{.t = kConverged}});
  loop.Settings().fMaxIterations = -1;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 3U);
}

TEST(AdjustmentLoop, BothCountersRunFromOneAndAgree) {
  ScriptedLoop loop({Step{}, Step{}, Step{.t = kConverged}});
  EXPECT_EQ(loop.Run(), 0);
  ASSERT_EQ(loop.adjustment->infos.size(), 3U);
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(loop.adjustment->infos[i].iteration, i + 1);
    EXPECT_EQ(loop.adjustment->infos[i].iterationGesamt, i + 1);
  }
  EXPECT_EQ(loop.Statistics().fIteration, 3U);
  EXPECT_EQ(loop.Statistics().fIterationGesamt, 3U);
}

TEST(AdjustmentLoop, CounterIsStoredBeforeTheIterationStarts) {
  ScriptedLoop loop({Step{}});
  loop.Settings().fMaxIterations = 1;
  std::uint32_t seen = 0;
  const auto script = loop.adjustment->beforeIteration;
  loop.adjustment->beforeIteration = [&] {
    script();
    seen = loop.Statistics().fIteration;
  };
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(seen, 1U);
}

TEST(AdjustmentLoop, InfoTellsTheFiguresOfTheIteration) {
  ScriptedLoop loop({Step{.s0 = 2.0, .change = 3.0}});
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  ASSERT_EQ(loop.adjustment->infos.size(), 1U);
  const IterationInfo& info = loop.adjustment->infos[0];
  EXPECT_EQ(info.s0, 2.0);
  EXPECT_EQ(info.mittlereAenderung, 3.0);
  EXPECT_EQ(info.ausreisserRunde, 0U);
  EXPECT_EQ(info.beobachtungen, 2U);
  EXPECT_EQ(info.unbekannte, 1U);
  EXPECT_EQ(info.bedingungen, 0U);
  EXPECT_EQ(info.redundanz, 1);
  EXPECT_EQ(info.s0APriori, 0.0);
}

TEST(AdjustmentLoop, InfoCountsTheRowsBehindTheUnknownsAsConstraints) {
  ScriptedLoop loop({Step{}});
  loop.system->multipliers = 4;
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  ASSERT_EQ(loop.adjustment->infos.size(), 1U);
  EXPECT_EQ(loop.adjustment->infos[0].unbekannte, 1U);
  EXPECT_EQ(loop.adjustment->infos[0].bedingungen, 4U);
  EXPECT_EQ(loop.adjustment->infos[0].redundanz, 5);
}

TEST(AdjustmentLoop, HookThatStopsEndsTheRunAfterTheUpdate) {
  ScriptedLoop loop({Step{.t = kConverged}});
  loop.adjustment->judge = [](const IterationInfo&) { return true; };
  EXPECT_EQ(loop.Run(), failure::kAbortByUser);
  EXPECT_EQ(loop.group.values[0], 1.0);
  EXPECT_FALSE(loop.HasAccuracy());
  EXPECT_EQ(loop.adjustment->events.back(), "OnIteration");
}

TEST(AdjustmentLoop, HookStopsBeforeAnyTestOfS0) {
  ScriptedLoop loop({Step{.s0 = 1e21}});
  loop.adjustment->judge = [](const IterationInfo&) { return true; };
  EXPECT_EQ(loop.Run(), failure::kAbortByUser);
}

TEST(AdjustmentLoop, HookMayStopALaterIteration) {
  ScriptedLoop loop({Step{}});
  loop.adjustment->judge = [](const IterationInfo& info) { return info.iteration == 3; };
  EXPECT_EQ(loop.Run(), failure::kAbortByUser);
  EXPECT_EQ(loop.Iterations(), 3U);
}

TEST(AdjustmentLoop, S0AboveTheLimitFails) {
  ScriptedLoop loop({Step{.s0 = 10.0 + 1e-9, .t = kConverged}});
  loop.Settings().fS0Limit = 10.0;
  EXPECT_EQ(loop.Run(), failure::kS0TooLarge);
  EXPECT_FALSE(loop.HasAccuracy());
}

TEST(AdjustmentLoop, S0EqualToTheLimitPasses) {
  ScriptedLoop loop({Step{.s0 = 10.0, .t = kConverged}});
  loop.Settings().fS0Limit = 10.0;
  EXPECT_EQ(loop.Run(), 0);
}

TEST(AdjustmentLoop, NegativeLimitFailsEvenAnS0OfZero) {
  ScriptedLoop loop({Step{.s0 = 0.0, .t = kConverged}});
  loop.Settings().fS0Limit = -1.0;
  EXPECT_EQ(loop.Run(), failure::kS0TooLarge);
}

TEST(AdjustmentLoop, HugeS0FailsWhateverTheLimitIs) {
  ScriptedLoop loop({Step{.s0 = 1.01e20, .t = kConverged}});
  loop.Settings().fS0Limit = 1e30;
  EXPECT_EQ(loop.Run(), failure::kS0TooLarge);
}

TEST(AdjustmentLoop, TheLargestS0ItselfPasses) {
  ScriptedLoop loop({Step{.s0 = 1e20, .t = kConverged}});
  loop.Settings().fS0Limit = 1e30;
  EXPECT_EQ(loop.Run(), 0);
}

TEST(AdjustmentLoop, HugeS0IsFoundBeforeMissingProgress) {
  ScriptedLoop loop({Step{}, Step{.s0 = 1e21}});
  loop.Settings().fS0Limit = 1e30;
  loop.Settings().fProgressWindow = 1;
  EXPECT_EQ(loop.Run(), failure::kS0TooLarge);
  EXPECT_EQ(loop.Iterations(), 2U);
}

TEST(AdjustmentLoop, MissingProgressIsFoundBeforeTheLimitOfS0) {
  ScriptedLoop loop({Step{}, Step{.s0 = 1e9}});
  loop.Settings().fS0Limit = 10.0;
  loop.Settings().fProgressWindow = 1;
  EXPECT_EQ(loop.Run(), failure::kNoProgress);
}

TEST(AdjustmentLoop, MissingProgressIsFoundBeforeConvergence) {
  ScriptedLoop loop({Step{}, Step{.t = kConverged}});
  loop.Settings().fProgressWindow = 1;
  EXPECT_EQ(loop.Run(), failure::kNoProgress);
  EXPECT_FALSE(loop.HasAccuracy());
}

TEST(AdjustmentLoop, ConstantFiguresFailInTheSixthIterationByDefault) {
  ScriptedLoop loop({Step{}});
  EXPECT_EQ(loop.Run(), failure::kNoProgress);
  EXPECT_EQ(loop.Iterations(), 6U);
}

TEST(AdjustmentLoop, FallingChangeIsProgress) {
  // A factor of 0.8 per iteration is 0.33 within five.
  std::vector<Step> steps;
  for (double change = 1.0; steps.size() < 9; change *= 0.8) steps.push_back({.change = change});
  steps.push_back({.change = 0.1, .t = kConverged});
  ScriptedLoop loop(steps);
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 10U);
}

TEST(AdjustmentLoop, FallingS0IsProgress) {
  std::vector<Step> steps;
  for (double s0 = 1.0; steps.size() < 9; s0 *= 0.8) steps.push_back({.s0 = s0});
  steps.push_back({.s0 = 0.1, .t = kConverged});
  ScriptedLoop loop(steps);
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 10U);
}

TEST(AdjustmentLoop, WindowZeroNeverMissesProgress) {
  ScriptedLoop loop({Step{}});
  loop.Settings().fProgressWindow = 0;
  loop.Settings().fMaxIterations = 20;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 20U);
}

TEST(AdjustmentLoop, S0ThatIsNotANumberMakesNoProgress) {
  // The first five iterations shorten nothing: the watch has no history yet.
  ScriptedLoop loop({Step{.s0 = kNaN}});
  loop.Settings().fConvergenceLimit = 0.0;
  EXPECT_EQ(loop.Run(), failure::kNoProgress);
  EXPECT_EQ(loop.Iterations(), 6U);
}

TEST(AdjustmentLoop, WithoutOutlierTestTheFirstConvergenceEndsTheRun) {
  ScriptedLoop loop({Step{.t = kConverged}});
  loop.Settings().SetBlunderTest(false);
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Iterations(), 1U);
  EXPECT_TRUE(loop.HasAccuracy());
}

TEST(AdjustmentLoop, RedundancyIsADoubleDuringTheRunAndTheSumAtItsEnd) {
  ScriptedLoop loop({Step{.t = kConverged}});
  // A negative form gives redundancy numbers beyond 1, which are clamped.
  loop.system->form = -1.0;
  double during = 0.0;
  loop.adjustment->judge = [&](const IterationInfo&) {
    during = loop.Statistics().fGesamtRedundanz;
    return false;
  };
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(during, 1.0);
  EXPECT_EQ(loop.Statistics().fGesamtRedundanz, 2.0);
  EXPECT_EQ(loop.adjustment->RedundanzSumme(), 2.0);
  EXPECT_EQ(loop.Statistics().fRedundanz, 1);
}

TEST(AdjustmentLoop, WithoutAccuracyTheRedundancySumIsZero) {
  ScriptedLoop loop({Step{}});
  loop.Settings().fMaxIterations = 1;
  EXPECT_EQ(loop.Run(), 0);
  EXPECT_EQ(loop.Statistics().fGesamtRedundanz, 0.0);
  EXPECT_EQ(loop.Statistics().fRedundanz, 1);
}

TEST(AdjustmentLoop, StatisticsAreZeroedBeforeTheFirstIteration) {
  ScriptedLoop loop({Step{.t = kConverged}});
  EXPECT_EQ(loop.Run(), 0);
  ASSERT_NE(loop.Statistics().fS0, 0.0);
  loop.Settings().fMaxIterations = 0;
  EXPECT_EQ(loop.Run(), 0);
  const AdjustmentStatistics& statistics = loop.Statistics();
  EXPECT_EQ(statistics.fS0, 0.0);
  EXPECT_EQ(statistics.fMittlereAenderung, 0.0);
  EXPECT_EQ(statistics.fUnbekannte, 0U);
  EXPECT_EQ(statistics.fBeobachtungen, 0U);
  EXPECT_EQ(statistics.fRedundanz, 0);
  EXPECT_EQ(statistics.fIteration, 0U);
  EXPECT_EQ(statistics.fIterationGesamt, 0U);
}

TEST(AdjustmentLoop, OtherExceptionsLeaveTheRunAsTheyAre) {
  ScriptedLoop loop({Step{}});
  loop.adjustment->beforeIteration = [] { throw std::runtime_error("hook"); };
  EXPECT_THROW(static_cast<void>(loop.Run()), std::runtime_error);
}

TEST(AdjustmentLoop, NoUsedObservationFails) {
  ScriptedLoop loop({Step{}});
  loop.first.SetActive(false);
  loop.second.SetAusreisser();
  EXPECT_EQ(loop.Run(), failure::kNoMessungen);
  EXPECT_TRUE(loop.adjustment->infos.empty());
}

TEST(AdjustmentLoop, EmptyListsFailForWantOfObservations) {
  TestAdjustment adjustment;
  EXPECT_EQ(adjustment.RunCode(), failure::kNoMessungen);
}

TEST(AdjustmentLoop, AllUnknownsFixedFails) {
  ScriptedLoop loop({Step{}});
  loop.group.SetVariable(false);
  EXPECT_EQ(loop.Run(), failure::kNoUnknowns);
  EXPECT_TRUE(loop.system->pivotSearches.empty());
}

TEST(AdjustmentLoop, MissingObservationsAreFoundBeforeMissingUnknowns) {
  ScriptedLoop loop({Step{}});
  loop.group.SetVariable(false);
  loop.first.SetActive(false);
  loop.second.SetActive(false);
  EXPECT_EQ(loop.Run(), failure::kNoMessungen);
}

TEST(AdjustmentLoop, GroupWithoutColumnsIsFoundBeforeMissingObservations) {
  ScriptedLoop loop({Step{}});
  loop.group.claimsNothing = true;
  loop.first.SetActive(false);
  loop.second.SetActive(false);
  EXPECT_EQ(loop.Run(), failure::kInternal);
}

}  // namespace
}  // namespace vermo::test

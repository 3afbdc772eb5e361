// The rule that takes out object points with too few rays.

#include "adjustment/fake_normal_system.h"
#include "adjustment/linear_network.h"
#include "checks/failure_codes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace vermo::test {
namespace {

using testing::ElementsAre;

// A variable point under a rule of two rays, beside a group that keeps the run alive.
struct RayRuleTest : testing::Test {
  RayRuleTest() {
    point.ResetUnknowns();
    point.SetCoordinates({1.0, 2.0, 3.0});
    point.SetActive(true);
    point.SetVariable(true);
    adjustment.groups = {&point, &group};
    adjustment.messungen = {&messung};
    adjustment.Settings().fMinRays = 2;
    adjustment.Settings().fMaxIterations = 1;
    adjustment.Settings().SetSolvabilityCheck(false);
  }

  PointMessung& Ray(MessungKind kind = MessungKind::Biko) {
    PointMessung& ray = *rays.emplace_back(std::make_unique<PointMessung>(point, kind));
    adjustment.messungen.push_back(&ray);
    return ray;
  }

  FakeNormalSystem* system = new FakeNormalSystem;
  TestAdjustment adjustment{std::unique_ptr<NormalSystem>(system)};
  DataObko point;
  LinearGroup group{{0.0}};
  LinearMessung messung{{}, 0.0};
  std::vector<std::unique_ptr<PointMessung>> rays;
};

using RayRule = RayRuleTest;

TEST_F(RayRule, PointWithTooFewRaysIsTakenOut) {
  PointMessung& ray = Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&point)));
  EXPECT_FALSE(point.IsActive());
  EXPECT_FALSE(point.HasEnoughRays());
  EXPECT_FALSE(ray.IsActive());
  // The build is repeated without the point.
  EXPECT_THAT(system->resets, ElementsAre(4U, 1U));
  EXPECT_TRUE(adjustment.enabled.empty());
}

TEST_F(RayRule, PointWithJustEnoughRaysStays) {
  Ray();
  Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(point.IsActive());
  EXPECT_TRUE(point.HasEnoughRays());
  EXPECT_THAT(system->resets, ElementsAre(4U));
}

TEST_F(RayRule, OutliersAreNoRays) {
  Ray();
  Ray().SetAusreisser();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_FALSE(point.IsActive());
}

TEST_F(RayRule, OtherKindsAreNoRays) {
  Ray();
  Ray(MessungKind::Obko);
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_FALSE(point.IsActive());
}

TEST_F(RayRule, ExemptPointIsNotAsked) {
  point.SetExemptFromRayRule(true);
  Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(point.IsActive());
}

TEST_F(RayRule, FixedPointIsNotAsked) {
  point.SetVariable(false);
  Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(point.IsActive());
}

TEST_F(RayRule, OtherGroupsAreNotAsked) {
  Ray();
  Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(group.IsActive());
}

TEST_F(RayRule, ZeroSwitchesTheRuleOff) {
  adjustment.Settings().fMinRays = 0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(point.IsActive());
}

TEST_F(RayRule, NegativeNumberIsReadAsHuge) {
  adjustment.Settings().fMinRays = -1;
  for (int i = 0; i < 10; ++i) Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_FALSE(point.IsActive());
}

TEST_F(RayRule, EachPointIsReportedByItself) {
  DataObko other;
  other.SetCoordinates({0.0, 0.0, 0.0});
  other.SetActive(true);
  other.SetVariable(true);
  adjustment.groups = {&other, &point, &group};
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&other), ElementsAre(&point)));
  EXPECT_THAT(system->resets, ElementsAre(7U, 1U));
}

TEST_F(RayRule, InactivePointWithTooFewRaysIsNotReported) {
  point.SetActive(false);
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_THAT(system->resets, ElementsAre(1U));
}

TEST_F(RayRule, InactivePointWithEnoughRaysComesBack) {
  point.SetActive(false);
  point.SetEnoughRays(false);
  Ray().alwaysUsable = true;
  Ray().alwaysUsable = true;
  adjustment.Settings().fMaxIterations = 2;
  adjustment.Settings().fConvergenceLimit = 0.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.enabled, ElementsAre(ElementsAre(&point)));
  EXPECT_TRUE(adjustment.disabled.empty());
  EXPECT_TRUE(point.IsActive());
  EXPECT_TRUE(point.HasEnoughRays());
  // It does not repeat the build; its columns come with the next iteration.
  EXPECT_THAT(system->resets, ElementsAre(1U, 4U));
}

TEST_F(RayRule, PointThatComesBackHasNoColumnsForTheSolvabilityCheck) {
  point.SetActive(false);
  Ray().alwaysUsable = true;
  Ray().alwaysUsable = true;
  adjustment.Settings().SetSolvabilityCheck(true);
  EXPECT_EQ(adjustment.RunCode(), failure::kInternal);
  EXPECT_THAT(adjustment.enabled, ElementsAre(ElementsAre(&point)));
}

TEST_F(RayRule, UnusableObservationsAreGoneBeforeTheRaysAreCounted) {
  point.SetActive(false);
  Ray();
  Ray();
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_TRUE(adjustment.enabled.empty());
  EXPECT_FALSE(point.IsActive());
}

TEST_F(RayRule, RejectedRayTakesThePointOutInTheNextIterationForGood) {
  PointMessung& rejected = Ray();
  Ray();
  adjustment.Settings().fMaxIterations = 3;
  adjustment.judge = [&](const IterationInfo& info) {
    if (info.iteration == 1)
      rejected.SetAusreisser();
    else
      rejected.ClearAusreisser();
    return false;
  };
  adjustment.Settings().fConvergenceLimit = 0.0;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&point)));
  EXPECT_TRUE(adjustment.enabled.empty());
  EXPECT_THAT(system->resets, ElementsAre(4U, 4U, 1U, 1U));
  EXPECT_FALSE(point.IsActive());
}

TEST_F(RayRule, TakingAPointOutBringsNoFurtherRound) {
  Ray();
  adjustment.Settings().fMaxIterations = 5;
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&point)));
  EXPECT_EQ(adjustment.Statistics().fIteration, 1U);
}

TEST_F(RayRule, RunThatLosesItsLastPointEndsForWantOfUnknowns) {
  adjustment.groups = {&point};
  EXPECT_EQ(adjustment.RunCode(), failure::kNoUnknowns);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&point)));
}

TEST_F(RayRule, RepeatEndsWhenNothingMoreGoes) {
  // The check takes a group out in the same pass as the rule takes the point.
  adjustment.Settings().SetSolvabilityCheck(true);
  LinearGroup weak({0.0});
  adjustment.groups = {&point, &group, &weak};
  system->element = [&](std::uint32_t row, std::uint32_t column) {
    const bool isWeak = static_cast<std::int32_t>(row) == weak.FirstUnknown();
    return row == column && !isWeak ? 1.0 : 0.0;
  };
  EXPECT_EQ(adjustment.RunCode(), 0);
  EXPECT_THAT(adjustment.disabled, ElementsAre(ElementsAre(&point), ElementsAre(&weak)));
  EXPECT_THAT(system->resets, ElementsAre(5U, 1U));
}

}  // namespace
}  // namespace vermo::test

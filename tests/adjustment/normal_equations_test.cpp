// One build: numbering, filtering of observations, assembly, component count.

#include "adjustment/fake_normal_system.h"
#include "adjustment/linear_network.h"
#include "checks/failure_codes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace vermo::test {
namespace {

using testing::ElementsAre;

// An adjustment on a fake engine, for single builds.
struct BuildTest : testing::Test {
  FakeNormalSystem* system = new FakeNormalSystem;
  TestAdjustment adjustment{std::unique_ptr<NormalSystem>(system)};

  std::uint32_t Build() {
    adjustment.Collect();
    return adjustment.BuildNormalEquations();
  }
};

using NormalEquations = BuildTest;

TEST_F(NormalEquations, ActiveVariableGroupsAreNumberedInListOrder) {
  LinearGroup a({0.0, 0.0});
  LinearGroup b({0.0});
  LinearGroup c({0.0, 0.0, 0.0});
  adjustment.groups = {&b, &c, &a};
  Build();
  EXPECT_EQ(b.FirstUnknown(), 0);
  EXPECT_EQ(c.FirstUnknown(), 1);
  EXPECT_EQ(a.FirstUnknown(), 4);
  EXPECT_THAT(system->resets, ElementsAre(6U));
}

TEST_F(NormalEquations, FixedGroupGetsNoColumn) {
  LinearGroup fixed({0.0});
  LinearGroup variable({0.0});
  fixed.SetVariable(false);
  fixed.SetFirstUnknown(7);
  adjustment.groups = {&fixed, &variable};
  Build();
  EXPECT_EQ(fixed.FirstUnknown(), Data::kNoColumn);
  EXPECT_EQ(variable.FirstUnknown(), 0);
}

TEST_F(NormalEquations, InactiveGroupKeepsItsOldColumn) {
  LinearGroup inactive({0.0});
  LinearGroup active({0.0});
  inactive.SetActive(false);
  inactive.SetFirstUnknown(7);
  adjustment.groups = {&inactive, &active};
  Build();
  EXPECT_EQ(inactive.FirstUnknown(), 7);
  EXPECT_EQ(active.FirstUnknown(), 0);
  EXPECT_THAT(system->resets, ElementsAre(1U));
}

TEST_F(NormalEquations, UnusableObservationLosesItsActiveFlagForGood) {
  LinearGroup group({0.0});
  LinearMessung messung({{&group, 0, 1.0}}, 1.0);
  adjustment.groups = {&group};
  adjustment.messungen = {&messung};
  group.SetActive(false);
  EXPECT_EQ(Build(), 0U);
  EXPECT_FALSE(messung.IsActive());
  group.SetActive(true);
  EXPECT_EQ(Build(), 0U);
  EXPECT_FALSE(messung.IsActive());
  EXPECT_TRUE(system->misclosures.empty());
}

TEST_F(NormalEquations, ObservationOfAFixedGroupStaysUsed) {
  LinearGroup group({0.0});
  LinearMessung messung({{&group, 0, 1.0}}, 1.0);
  group.SetVariable(false);
  adjustment.groups = {&group};
  adjustment.messungen = {&messung};
  EXPECT_EQ(Build(), 1U);
  EXPECT_TRUE(messung.IsActive());
}

TEST_F(NormalEquations, ObservationsAreAssembledInListOrder) {
  LinearGroup group({0.0});
  LinearMessung one({{&group, 0, 1.0}}, 1.0);
  LinearMessung two({{&group, 0, 1.0}}, 2.0);
  LinearMessung three({{&group, 0, 1.0}}, 3.0);
  adjustment.groups = {&group};
  adjustment.messungen = {&three, &one, &two};
  Build();
  EXPECT_THAT(system->misclosures, ElementsAre(3.0, 1.0, 2.0));
}

TEST_F(NormalEquations, ComponentsOfUsedObservationsAreCounted) {
  DataObko point;
  point.SetActive(true);
  point.SetCoordinates({0.0, 0.0, 0.0});
  PointMessung threeComponents(point);
  PointMessung outlier(point);
  PointMessung inactive(point);
  outlier.SetAusreisser();
  inactive.SetActive(false);
  LinearMessung oneComponent({}, 1.0);
  adjustment.groups = {&point};
  adjustment.messungen = {&threeComponents, &outlier, &inactive, &oneComponent};
  EXPECT_EQ(Build(), 4U);
}

TEST_F(NormalEquations, ObservationThatIsNotConnectedIsLeftOut) {
  LinearMessung loose({}, 1.0);
  loose.connected = false;
  loose.alwaysUsable = true;
  LinearMessung tied({}, 2.0);
  adjustment.messungen = {&loose, &tied};
  EXPECT_EQ(Build(), 1U);
  EXPECT_THAT(system->misclosures, ElementsAre(2.0));
  EXPECT_TRUE(loose.IsActive());
}

TEST_F(NormalEquations, OutlierGetsFreshResidualsAndAddsNothing) {
  LinearGroup group({4.0});
  LinearMessung messung({{&group, 0, 1.0}}, 1.0);
  messung.SetAusreisser();
  adjustment.groups = {&group};
  adjustment.messungen = {&messung};
  EXPECT_EQ(Build(), 0U);
  EXPECT_EQ(messung.Wert(0).Residuum(), 3.0);
  EXPECT_TRUE(system->misclosures.empty());
  EXPECT_TRUE(messung.IsActive());
}

TEST_F(NormalEquations, EveryGroupMayContributeOncePerBuild) {
  LinearGroup active({0.0});
  LinearGroup inactive({0.0});
  inactive.SetActive(false);
  adjustment.groups = {&active, &inactive};
  Build();
  EXPECT_EQ(active.contributions, 1U);
  EXPECT_EQ(inactive.contributions, 1U);
}

TEST_F(NormalEquations, EachBuildStartsAfresh) {
  LinearGroup group({0.0});
  LinearMessung messung({{&group, 0, 1.0}}, 1.0);
  adjustment.groups = {&group};
  adjustment.messungen = {&messung};
  EXPECT_EQ(Build(), 1U);
  EXPECT_EQ(adjustment.BuildNormalEquations(), 1U);
  EXPECT_THAT(system->misclosures, ElementsAre(1.0));
  EXPECT_THAT(system->resets, ElementsAre(1U, 1U));
}

// The real engine adds what an empty system and repeated columns ask of it.
TEST(NormalEquationsOnTheEnvelope, WeightedProductsOfTheRows) {
  LinearGroup group({1.0, 0.0});
  LinearMessung first({{&group, 0, 1.0}, {&group, 1, 2.0}}, 2.0, 4.0);
  LinearMessung second({{&group, 1, 1.0}}, 5.0);
  TestAdjustment adjustment;
  adjustment.groups = {&group};
  adjustment.messungen = {&first, &second};
  adjustment.Collect();
  EXPECT_EQ(adjustment.BuildNormalEquations(), 2U);
  const NormalSystem& system = adjustment.System();
  EXPECT_EQ(system.Element(0, 0), 4.0);
  EXPECT_EQ(system.Element(1, 0), 8.0);
  EXPECT_EQ(system.Element(1, 1), 17.0);
  // Misclosures 1 and 5.
  EXPECT_EQ(system.Rhs()[0], 4.0);
  EXPECT_EQ(system.Rhs()[1], 13.0);
}

}  // namespace
}  // namespace vermo::test

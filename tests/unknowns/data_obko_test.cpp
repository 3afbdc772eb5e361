#include "unknowns/data_obko.h"

#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/fake_observation.h"
#include "support/language_guard.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

std::array<double, 3> Elements(const DataObko::Vector& v) { return {v[0], v[1], v[2]}; }

DataObko VariablePoint() {
  DataObko point;
  point.SetCoordinates({1.0, 2.0, 3.0});
  point.SetActive(true);
  point.SetVariable(true);
  return point;
}

TEST(DataObko, StartsWithoutReferenceAndWithZeros) {
  const DataObko point;
  EXPECT_EQ(point.Id(), 0U);
  EXPECT_EQ(point.ReferenceEorId(), 0xFFFFFFFFU);
  EXPECT_EQ(point.ReferenceEor(), nullptr);
  EXPECT_FALSE(point.IsReferencePoint());
  EXPECT_FALSE(point.HasEnoughRays());
  EXPECT_FALSE(point.IsExemptFromRayRule());
  EXPECT_EQ(Elements(point.Initial()), (std::array<double, 3>{}));
  EXPECT_EQ(Elements(point.Current()), (std::array<double, 3>{}));
  EXPECT_EQ(Elements(point.Sigma()), (std::array<double, 3>{}));
}

TEST(DataObko, HasThreeUnknownsOnlyWhenVariable) {
  DataObko point = VariablePoint();
  EXPECT_EQ(point.UnknownCount(), 3U);
  point.SetVariable(false);
  EXPECT_EQ(point.UnknownCount(), 0U);
}

TEST(DataObko, CorrectionMovesTheCurrentCoordinatesOnly) {
  DataObko point = VariablePoint();
  point.AssignUnknowns(2);
  point.ApplySolution(std::vector<double>{9.0, 9.0, 0.5, -0.25, 2.0, 9.0});
  EXPECT_EQ(Elements(point.Current()), (std::array<double, 3>{1.5, 1.75, 5.0}));
  EXPECT_EQ(Elements(point.Initial()), (std::array<double, 3>{1.0, 2.0, 3.0}));
}

TEST(DataObko, FixedOrInactivePointIgnoresSolutionAndCofactors) {
  for (const bool active : {true, false}) {
    DataObko point = VariablePoint();
    point.SetActive(active);
    point.SetVariable(!active);
    EXPECT_EQ(point.AssignUnknowns(0), 0U);
    point.ApplySolution(std::vector<double>{9.0, 9.0, 9.0});
    DenseSystem system(3);
    for (std::uint32_t i = 0; i < 3; ++i) system.cofactors(i, i) = 1.0;
    point.StoreAccuracy(system, 1.0);
    EXPECT_EQ(Elements(point.Current()), (std::array<double, 3>{1.0, 2.0, 3.0})) << active;
    EXPECT_EQ(Elements(point.Sigma()), (std::array<double, 3>{})) << active;
  }
}

TEST(DataObko, SigmasAreTheRootsOfS0SquaredTimesTheCofactors) {
  DataObko point = VariablePoint();
  point.AssignUnknowns(1);
  DenseSystem system(4);
  system.cofactors(0, 0) = 100.0;
  system.cofactors(1, 1) = 4.0;
  system.cofactors(2, 2) = 9.0;
  system.cofactors(3, 3) = 0.25;
  point.StoreAccuracy(system, 0.5);
  EXPECT_TRUE(ElementsNear(Elements(point.Sigma()), std::array<double, 3>{1.0, 1.5, 0.25}, 1e-15));
}

TEST(DataObko, NegativeCofactorGivesASigmaOfZeroAndNoFailure) {
  DataObko point = VariablePoint();
  point.AssignUnknowns(0);
  DenseSystem system(3);
  system.cofactors(0, 0) = 4.0;
  system.cofactors(1, 1) = -1e-18;
  system.cofactors(2, 2) = 1.0;
  EXPECT_NO_THROW(point.StoreAccuracy(system, 1.0));
  EXPECT_EQ(Elements(point.Sigma()), (std::array<double, 3>{2.0, 0.0, 1.0}));
}

TEST(DataObko, RaysAreImageCoordinatesThatTakePart) {
  DataObko point = VariablePoint();
  FakeObservation first(MessungKind::Biko);
  FakeObservation second(MessungKind::Biko);
  FakeObservation distance(MessungKind::Strecke, 1);
  for (FakeObservation* observation : {&first, &second, &distance}) point.AddMessung(observation);
  EXPECT_EQ(point.RayCount(), 2U);
  EXPECT_TRUE(point.HasRays(2));
  EXPECT_FALSE(point.HasRays(3));
  second.SetAusreisser();
  EXPECT_EQ(point.RayCount(), 1U);
  EXPECT_TRUE(point.HasRays(1));
  EXPECT_FALSE(point.HasRays(2));

  point.AssignUnknowns(0);
  EXPECT_EQ(point.StoredRayCount(), 0U);
  point.StoreAccuracy(DenseSystem(3), 1.0);
  EXPECT_EQ(point.StoredRayCount(), 1U);
  second.ClearAusreisser();
  EXPECT_EQ(point.StoredRayCount(), 1U);
  EXPECT_EQ(point.RayCount(), 2U);
}

TEST(DataObko, ResetForgetsTheRayCountAndMarksThePointAsSeen) {
  DataObko point = VariablePoint();
  FakeObservation ray(MessungKind::Biko);
  point.AddMessung(&ray);
  point.AssignUnknowns(0);
  point.StoreAccuracy(DenseSystem(3), 1.0);
  ASSERT_EQ(point.StoredRayCount(), 1U);
  EXPECT_FALSE(point.HasEnoughRays());
  point.SetReferencePoint(true);
  point.SetExemptFromRayRule(true);
  point.ResetUnknowns();
  EXPECT_EQ(point.FirstUnknown(), -1);
  EXPECT_EQ(point.StoredRayCount(), 0U);
  EXPECT_TRUE(point.HasEnoughRays());
  EXPECT_TRUE(point.IsReferencePoint());
  EXPECT_TRUE(point.IsExemptFromRayRule());
}

TEST(DataObko, PointFlagsDoNotTouchEachOther) {
  DataObko point = VariablePoint();
  point.SetReferencePoint(true);
  point.SetExemptFromRayRule(true);
  point.SetEnoughRays(true);
  point.SetReferencePoint(false);
  EXPECT_TRUE(point.IsExemptFromRayRule());
  EXPECT_TRUE(point.HasEnoughRays());
  point.SetReferencePoint(true);
  point.SetEnoughRays(false);
  EXPECT_TRUE(point.IsReferencePoint());
  EXPECT_TRUE(point.IsExemptFromRayRule());
  point.SetExemptFromRayRule(false);
  EXPECT_TRUE(point.IsReferencePoint());
  EXPECT_FALSE(point.IsExemptFromRayRule());
}

TEST(DataObko, IsAReferencePointOnlyWhileActive) {
  DataObko point = VariablePoint();
  point.SetReferencePoint(true);
  EXPECT_TRUE(point.IsReferencePoint());
  point.SetActive(false);
  EXPECT_FALSE(point.IsReferencePoint());
  point.SetActive(true);
  EXPECT_TRUE(point.IsReferencePoint());
}

TEST(DataObko, WorldCoordinatesGoOutOfTheFrameOfTheImage) {
  DataObko point = VariablePoint();
  EXPECT_EQ(Elements(point.WorldCoordinates()), (std::array<double, 3>{1.0, 2.0, 3.0}));

  DataEor body;
  body.fRotation = OmegaPhiKappa(0.3, -0.4, 1.1);
  body.fTranslation = {10.0, -20.0, 30.0};
  point.SetReferenceEor(&body);
  const Vector3 expected = ForwardBy(body.fRotation, {10.0, -20.0, 30.0}, {1.0, 2.0, 3.0});
  // Three products and three sums of numbers up to 30.
  EXPECT_TRUE(ElementsNear(Elements(point.WorldCoordinates()), expected, 2e-14));
  EXPECT_EQ(Elements(point.Current()), (std::array<double, 3>{1.0, 2.0, 3.0}));
}

TEST(DataObko, DescribesItselfInBothLanguages) {
  DataObko point;
  point.SetId(4294967294U);
  EXPECT_EQ(point.GetIdentText(), "4294967294");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(point.GetDescription(), "Objektkoordinate 4294967294");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(point.GetDescription(), "Object coordinate 4294967294");
}

}  // namespace
}  // namespace vermo::test

#include "unknowns/data_eor.h"

#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/fake_observation.h"
#include "support/group_moves.h"
#include "support/language_guard.h"
#include "support/plane_rotations.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_projektion.h"
#include "unknowns/network_settings.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

constexpr Matrix3 kUnit{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};

DataEor VariableImage() {
  DataEor image;
  image.fRotation = OmegaPhiKappa(0.2, -0.3, 0.9);
  image.fTranslation = {10.0, 20.0, 30.0};
  image.SetActive(true);
  image.SetVariable(true);
  image.AssignUnknowns(0);
  return image;
}

// Turns by the angle 2 atan(|d| / 2) about d (Rodrigues): what the quaternion (d / 2, 1) means.
Matrix3 TurnAbout(const Vector3& d) {
  const double length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
  const double angle = 2.0 * std::atan(length / 2.0);
  const Vector3 n{d[0] / length, d[1] / length, d[2] / length};
  const Matrix3 skew{0.0, -n[2], n[1], n[2], 0.0, -n[0], -n[1], n[0], 0.0};
  const Matrix3 square = Product(skew, skew);
  Matrix3 turn = kUnit;
  for (unsigned e = 0; e < 9; ++e)
    turn[e] += std::sin(angle) * skew[e] + (1.0 - std::cos(angle)) * square[e];
  return turn;
}

TEST(DataEor, StartsAtTheOriginUnrotatedAndUnlinked) {
  const DataEor image;
  EXPECT_EQ(image.fRotation, kUnit);
  for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(image.fTranslation[i], 0.0);
  EXPECT_EQ(image.Id(), 0xFFFFFFFFU);
  EXPECT_EQ(image.IorId(), 0xFFFFFFFFU);
  EXPECT_EQ(image.ProjektionId(), 0xFFFFFFFFU);
  EXPECT_EQ(image.Ior(), nullptr);
  EXPECT_EQ(image.Projektion(), nullptr);
  EXPECT_EQ(image.Sigma(), (std::array<double, 6>{}));
  EXPECT_EQ(image.SigmaRotation(), (std::array<double, 9>{}));
}

TEST(DataEor, HasSixUnknownsOnlyWhenVariable) {
  DataEor image = VariableImage();
  EXPECT_EQ(image.UnknownCount(), 6U);
  image.SetVariable(false);
  EXPECT_EQ(image.UnknownCount(), 0U);
}

TEST(DataEor, ResetForgetsTheLinksAndKeepsTheNumbers) {
  DataEor image = VariableImage();
  DataIor camera;
  DataProjektion projection;
  image.SetIor(&camera);
  image.SetProjektion(&projection);
  image.SetProjektionId(4);
  image.SetIorId(5);
  image.ResetUnknowns();
  EXPECT_EQ(image.Ior(), nullptr);
  EXPECT_EQ(image.Projektion(), nullptr);
  EXPECT_EQ(image.FirstUnknown(), -1);
  EXPECT_EQ(image.ProjektionId(), 4U);
  EXPECT_EQ(image.IorId(), 5U);
}

TEST(DataEor, TranslationsComeFirstAndAreAdded) {
  DataEor image = VariableImage();
  const Matrix3 before = image.fRotation;
  image.AssignUnknowns(1);
  image.ApplySolution(std::vector<double>{9.0, 1.0, -2.0, 0.5, 0.0, 0.0, 0.0});
  EXPECT_EQ(image.fTranslation[0], 11.0);
  EXPECT_EQ(image.fTranslation[1], 18.0);
  EXPECT_EQ(image.fTranslation[2], 30.5);
  EXPECT_EQ(image.fRotation, before);
}

TEST(DataEor, RotationIncrementsTurnFromTheLeft) {
  const Vector3 increments[] = {
      {0.3, -0.2, 0.5}, {1e-4, 0.0, 0.0}, {0.0, 2.0, 0.0}, {-1e-9, 2e-9, 1e-9}};
  for (const Vector3& d : increments) {
    DataEor image = VariableImage();
    const Matrix3 expected = Product(TurnAbout(d), image.fRotation);
    image.ApplySolution(std::vector<double>{0.0, 0.0, 0.0, d[0], d[1], d[2]});
    // A dozen products of numbers up to 1.
    EXPECT_TRUE(ElementsNear(image.fRotation, expected, 1e-15)) << d[0];
    EXPECT_EQ(image.fTranslation[0], 10.0);
  }
}

TEST(DataEor, SmallRotationIsSkewTimesTheMatrix) {
  for (unsigned axis = 0; axis < 3; ++axis) {
    DataEor image = VariableImage();
    Matrix3 skew{};
    skew[3 * ((axis + 2) % 3) + (axis + 1) % 3] = 1.0;
    skew[3 * ((axis + 1) % 3) + (axis + 2) % 3] = -1.0;
    const Matrix3 expected = Product(skew, image.fRotation);
    const Matrix3 derivative =
        DerivativeBy(image, 3 + axis, 1e-3, [&] { return Matrix3(image.fRotation); });
    // h^4 of the difference formula.
    EXPECT_TRUE(ElementsNear(derivative, expected, 1e-11)) << axis;
  }
}

TEST(DataEor, RotationStaysOrthonormalOverManyIncrements) {
  DataEor image = VariableImage();
  for (int i = 0; i < 1000; ++i)
    image.ApplySolution(std::vector<double>{0.0, 0.0, 0.0, 0.01, -0.02 * (i % 3), 0.03});
  // A thousand roundings that may all add up.
  EXPECT_TRUE(ElementsNear(
      Product(Transposed(image.fRotation), image.fRotation), kUnit, 1000 * 2.3e-16 * 3.0));
}

TEST(DataEor, FixedOrInactiveImageIgnoresSolutionAndCofactors) {
  for (const bool active : {true, false}) {
    DataEor image = VariableImage();
    const Matrix3 before = image.fRotation;
    image.SetActive(active);
    image.SetVariable(!active);
    image.AssignUnknowns(0);
    image.ApplySolution(std::vector<double>(6, 0.5));
    DenseSystem system(6);
    for (std::uint32_t i = 0; i < 6; ++i) system.cofactors(i, i) = 1.0;
    image.StoreAccuracy(system, 1.0);
    EXPECT_EQ(image.fRotation, before);
    EXPECT_EQ(image.fTranslation[0], 10.0);
    EXPECT_EQ(image.Sigma(), (std::array<double, 6>{}));
    EXPECT_EQ(image.SigmaRotation(), (std::array<double, 9>{}));
  }
}

TEST(DataEor, SigmasAreTheRootsOfS0SquaredTimesTheCofactorsAndNeverFail) {
  DataEor image = VariableImage();
  image.AssignUnknowns(2);
  DenseSystem system(8);
  for (std::uint32_t i = 0; i < 6; ++i) system.cofactors(2 + i, 2 + i) = (1.0 + i) * (1.0 + i);
  system.cofactors(3, 3) = -1e-20;
  EXPECT_NO_THROW(image.StoreAccuracy(system, 0.5));
  EXPECT_EQ(image.Sigma(), (std::array<double, 6>{0.5, 0.0, 1.5, 2.0, 2.5, 3.0}));
}

TEST(DataEor, MatrixElementsGetTheirSigmasFromTheThreeRotations) {
  DataEor image = VariableImage();
  DenseSystem system(6);
  const double sigma[] = {1e-3, 3e-3, 2e-3};
  for (std::uint32_t k = 0; k < 3; ++k) system.cofactors(3 + k, 3 + k) = sigma[k] * sigma[k] / 4.0;
  // The elements are propagated from the standard deviations alone.
  system.cofactors(3, 4) = system.cofactors(4, 3) = 0.9 * sigma[0] * sigma[1] / 4.0;
  image.StoreAccuracy(system, 2.0);

  std::array<double, 9> expected{};
  for (std::uint32_t k = 0; k < 3; ++k) {
    const Matrix3 derivative =
        DerivativeBy(image, 3 + k, 1e-3, [&] { return Matrix3(image.fRotation); });
    for (unsigned e = 0; e < 9; ++e)
      expected[e] += derivative[e] * derivative[e] * sigma[k] * sigma[k];
  }
  for (double& element : expected) element = std::sqrt(element);
  // sigma times the error of the difference formula.
  EXPECT_TRUE(ElementsNear(image.SigmaRotation(), expected, 1e-13));
}

TEST(DataEor, DescribesItselfInBothLanguages) {
  DataEor image;
  image.SetId(23);
  EXPECT_EQ(image.GetIdentText(), "23");
  {
    const LanguageGuard german(Language::German);
    // The first letter is one byte of ISO 8859-1.
    EXPECT_EQ(image.GetDescription(), "\xC4ussere Orientierung 23");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(image.GetDescription(), "Exterior Orientation 23");
}

// An image with a camera of principal distance 100 and one ray along the axis, whose computed
// place lies off by an angle.
class DataEorConnect : public testing::Test {
 protected:
  DataEorConnect() {
    fCamera.SetParameter(DataIor::kCk, 100.0);
    fImage.SetIor(&fCamera);
    fImage.AddMessung(&fRay);
    fSettings.SetAngleLimit(0.5);
  }

  void PutComputedAt(double angle, double ck = 100.0) {
    fRay.model = ImagePointPair{0.0, 0.0, 0.0, ck * std::tan(angle)};
  }

  DataIor fCamera;
  DataEor fImage = VariableImage();
  FakeObservation fRay{MessungKind::Biko};
  NetworkSettings fSettings;
};

TEST_F(DataEorConnect, MarksARayThatLiesFurtherOffThanTheLimit) {
  PutComputedAt(0.5 + 1e-9);
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
  EXPECT_TRUE(fRay.IsActive());
}

TEST_F(DataEorConnect, KeepsARayWithinTheLimit) {
  PutComputedAt(0.5 - 1e-9);
  fImage.Connect(fSettings);
  EXPECT_FALSE(fRay.IsAusreisser());
  EXPECT_EQ(fRay.evaluations, 1U);
}

TEST_F(DataEorConnect, MeasuresTheAngleBetweenTwoObliqueDirections) {
  // (60, 0, 100) and (0, 80, 100): cosine = 10000 / (sqrt(13600) sqrt(16400)).
  fRay.model = ImagePointPair{60.0, 0.0, 0.0, 80.0};
  const double angle = std::acos(10000.0 / std::sqrt(13600.0 * 16400.0));
  fSettings.SetAngleLimit(angle + 1e-9);
  fImage.Connect(fSettings);
  EXPECT_FALSE(fRay.IsAusreisser());
  fSettings.SetAngleLimit(angle - 1e-9);
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, SignOfThePrincipalDistanceDoesNotMatter) {
  fCamera.SetParameter(DataIor::kCk, -100.0);
  PutComputedAt(0.5 - 1e-9);
  fImage.Connect(fSettings);
  EXPECT_FALSE(fRay.IsAusreisser());
  PutComputedAt(0.5 + 1e-9);
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, TakesThePrincipalDistanceOfAProjection) {
  DataProjektion projection;
  projection.SetValues(1000.0, 0.0, 0.0);
  fImage.SetProjektion(&projection);
  PutComputedAt(0.5 + 1e-9);  // less than a tenth of that at ten times the distance
  fImage.Connect(fSettings);
  EXPECT_FALSE(fRay.IsAusreisser());
  PutComputedAt(0.5 + 1e-9, 1000.0);
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, MarksARayWithoutAModelValue) {
  fImage.Connect(fSettings);
  EXPECT_EQ(fRay.evaluations, 1U);
  EXPECT_TRUE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, AsksOnlyActiveImageCoordinates) {
  FakeObservation inactive(MessungKind::Biko);
  inactive.SetActive(false);
  FakeObservation coordinates(MessungKind::Obko, 3);
  fImage.AddMessung(&inactive);
  fImage.AddMessung(&coordinates);
  PutComputedAt(0.0);
  fImage.Connect(fSettings);
  EXPECT_EQ(fRay.evaluations, 1U);
  EXPECT_EQ(inactive.evaluations, 0U);
  EXPECT_EQ(coordinates.evaluations, 0U);
  EXPECT_FALSE(inactive.IsAusreisser());
  EXPECT_FALSE(coordinates.IsAusreisser());
}

TEST_F(DataEorConnect, ARejectedRayIsNotReadmitted) {
  PutComputedAt(0.0);
  fRay.SetAusreisser();
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, DoesNothingForAnInactiveImage) {
  fImage.SetActive(false);
  fImage.Connect(fSettings);
  EXPECT_EQ(fRay.evaluations, 0U);
  EXPECT_FALSE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, DoesNothingWithoutACamera) {
  fImage.SetIor(nullptr);
  fImage.Connect(fSettings);
  EXPECT_EQ(fRay.evaluations, 0U);
  EXPECT_FALSE(fRay.IsAusreisser());
}

TEST_F(DataEorConnect, ChecksFixedImagesAsWell) {
  fImage.SetVariable(false);
  PutComputedAt(0.6);
  fImage.Connect(fSettings);
  EXPECT_TRUE(fRay.IsAusreisser());
}

}  // namespace
}  // namespace vermo::test

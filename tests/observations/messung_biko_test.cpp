#include "observations/messung_biko.h"

#include "support/comma_locale.h"
#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/image_scene.h"
#include "support/language_guard.h"
#include "unknowns/network_settings.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace vermo::test {
namespace {

TEST(MessungBiko, StartsUnlinkedAndWithoutNumbers) {
  MessungBiko messung;
  EXPECT_EQ(messung.Nummer(), 0xFFFFFFFFU);
  EXPECT_EQ(messung.BildNummer(), 0xFFFFFFFFU);
  EXPECT_EQ(messung.Punkt(), nullptr);
  EXPECT_EQ(messung.GetEor(), nullptr);
  EXPECT_EQ(messung.GetIor(), nullptr);
  EXPECT_EQ(messung.EorBasis(), nullptr);
  EXPECT_EQ(messung.Projektion(), nullptr);
  EXPECT_FALSE(messung.IsConnected());
  EXPECT_FALSE(messung.IsUsable());
}

// A camera at the origin that looks along its negative third axis; numbers made by hand.
TEST(MessungBiko, ProjectsAPointByHand) {
  ImageScene scene;
  scene.eor.fRotation = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  scene.eor.fTranslation = {10.0, 20.0, 100.0};
  scene.point.SetCoordinates({11.0, 22.0, 90.0});  // (1, 2, -10) in the camera
  for (unsigned p = 0; p < DataIor::kParameters; ++p)
    scene.ior.SetParameter(static_cast<DataIor::Parameter>(p), 0.0);
  scene.ior.SetParameter(DataIor::kCk, -30.0);
  scene.ior.SetParameter(DataIor::kXh, 0.5);
  scene.ior.SetParameter(DataIor::kYh, -0.25);
  scene.ior.SetR0(0.0);
  EXPECT_TRUE(ElementsNear(scene.Computed(), Image{3.5, 5.75}, 2e-15));
  // x = 3, y = 6, r2 = 45: K = 0.0045.
  scene.ior.SetParameter(DataIor::kA1, 1e-4);
  EXPECT_TRUE(ElementsNear(scene.Computed(), Image{3.5135, 5.777}, 2e-15));
  // At the radius where it vanishes there is none.
  scene.ior.SetR0(std::sqrt(45.0));
  EXPECT_TRUE(ElementsNear(scene.Computed(), Image{3.5, 5.75}, 2e-15));
}

TEST(MessungBiko, WeightsAreThoseOfTheTwoSigmas) {
  ImageScene scene;
  NetworkSettings settings;
  settings.SetS0Apriori(0.004);
  scene.biko.SetWeights(settings);
  EXPECT_DOUBLE_EQ(scene.biko.Wert(0).Gewicht(), 16.0);
  EXPECT_DOUBLE_EQ(scene.biko.Wert(1).Gewicht(), 4.0);
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(equations.weights[0], scene.biko.Wert(0).EffectiveWeight());
  EXPECT_EQ(equations.weights[1], scene.biko.Wert(1).EffectiveWeight());
  ASSERT_EQ(equations.count, 2U);
  EXPECT_EQ(equations.misclosures[0], -scene.biko.Wert(0).Residuum());
  EXPECT_EQ(equations.misclosures[1], -scene.biko.Wert(1).Residuum());
}

TEST(MessungBiko, TakesTheProjectionOfTheBaseImageInARelativePair) {
  ImageScene scene;
  scene.RelativePair().WithProjektion();
  DataProjektion other;
  other.SetValues(-1000.0, 50.0, 60.0);
  scene.eor.SetProjektion(&other);
  const Image expected = scene.Transcribed();
  EXPECT_TRUE(ElementsNear(scene.Computed(), expected, 1e-13));

  scene.basis.SetProjektion(nullptr);
  scene.biko.SetProjektion(nullptr);
  EXPECT_TRUE(ElementsNear(scene.Computed(), scene.Transcribed(), 1e-13));
}

// A block full of another observation's equations.
EquationBlock UsedBlock() {
  EquationBlock equations;
  equations.Reset(3);
  for (DesignRow& row : equations.rows) row.push(0, 1.0);
  for (unsigned i = 0; i < 3; ++i) equations.Append(1.0, 1.0);
  return equations;
}

TEST(MessungBiko, EquationsReplaceWhatTheBlockHeld) {
  ImageScene scene;
  EquationBlock used = UsedBlock();
  EquationBlock fresh;
  ASSERT_TRUE(scene.biko.ObservationEquations(used));
  ASSERT_TRUE(scene.biko.ObservationEquations(fresh));
  EXPECT_EQ(used.rowCount, 2U);
  EXPECT_EQ(used.count, 2U);
  for (unsigned i = 0; i < 2; ++i) {
    EXPECT_EQ(Dense(used.rows[i], scene.unknowns), Dense(fresh.rows[i], scene.unknowns));
    EXPECT_EQ(used.rows[i].size(), fresh.rows[i].size());
  }
}

TEST(MessungBiko, IsRefusedWhenInactiveOrWithoutANeededLink) {
  const std::function<void(MessungBiko&)> faults[] = {
      [](MessungBiko& biko) { biko.SetActive(false); },
      [](MessungBiko& biko) { biko.SetPunkt(nullptr); },
      [](MessungBiko& biko) { biko.SetEor(nullptr); },
      [](MessungBiko& biko) { biko.SetIor(nullptr); }};
  for (const auto& fault : faults) {
    ImageScene scene;
    for (MessungWert& wert : scene.biko.CollectComponents()) wert.SetResiduum(7.0);
    fault(scene.biko);
    EquationBlock equations = UsedBlock();
    EXPECT_FALSE(scene.biko.ObservationEquations(equations));
    EXPECT_EQ(equations.count, 0U);
    ASSERT_EQ(equations.rowCount, 2U);
    for (unsigned i = 0; i < 2; ++i) {
      EXPECT_TRUE(equations.rows[i].empty());
      EXPECT_EQ(scene.biko.Wert(i).Residuum(), 7.0);
    }
    ImagePointPair point{};
    EXPECT_FALSE(scene.biko.EvaluateImagePoint(point));
  }
}

TEST(MessungBiko, IsConnectedWithPointImageAndCamera) {
  ImageScene scene;
  EXPECT_TRUE(scene.biko.IsConnected());
  scene.biko.SetIor(nullptr);
  EXPECT_FALSE(scene.biko.IsConnected());
  scene.biko.SetIor(&scene.ior);
  scene.biko.SetEor(nullptr);
  EXPECT_FALSE(scene.biko.IsConnected());
  scene.biko.SetEor(&scene.eor);
  scene.biko.SetPunkt(nullptr);
  EXPECT_FALSE(scene.biko.IsConnected());
}

TEST(MessungBiko, IsUsableOnlyWhenEveryLinkedGroupIsActive) {
  ImageScene scene;
  scene.RelativePair().WithProjektion();
  EXPECT_TRUE(scene.biko.IsUsable());
  for (Data* group : std::initializer_list<Data*>{
           &scene.point, &scene.eor, &scene.ior, &scene.basis, &scene.projektion}) {
    group->SetActive(false);
    EXPECT_FALSE(scene.biko.IsUsable()) << group->GetDescription();
    EXPECT_TRUE(scene.biko.IsConnected());
    group->SetActive(true);
    EXPECT_TRUE(scene.biko.IsUsable());
  }
}

TEST(MessungBiko, FixedActiveGroupsAreUsable) {
  ImageScene scene;
  for (Data* group : scene.groups) group->SetVariable(false);
  EXPECT_TRUE(scene.biko.IsUsable());
}

TEST(MessungBiko, OutlierFollowsTheUnknownsAndAddsNothing) {
  ImageScene scene;
  scene.biko.SetAusreisser();
  DenseSystem system(scene.unknowns);
  EquationBlock equations;
  scene.biko.AddToNormals(system, equations);
  EXPECT_TRUE(system.equations.empty());
  EXPECT_EQ(scene.biko.UsedCount(), 0U);
  const double before = scene.biko.Wert(0).Residuum();
  scene.point.SetCoordinates({181.0, -140.0, 50.0});
  scene.biko.AddToNormals(system, equations);
  EXPECT_NE(scene.biko.Wert(0).Residuum(), before);
  EXPECT_TRUE(system.equations.empty());
}

TEST(MessungBiko, AddsADenseProductOfItsRows) {
  ImageScene scene;
  scene.RelativePair().BodyBound().WithProjektion();
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  SquareMatrix expected(scene.unknowns);
  for (unsigned k = 0; k < 2; ++k) {
    const std::vector<double> a = Dense(equations.rows[k], scene.unknowns);
    for (std::uint32_t i = 0; i < scene.unknowns; ++i)
      for (std::uint32_t j = 0; j < scene.unknowns; ++j) expected(i, j) += a[i] * a[j];
  }
  DenseSystem system(scene.unknowns);
  scene.biko.AddToNormals(system, equations);
  // Rounding of squares of coefficients up to 50.
  EXPECT_TRUE(ElementsNear(system.normals.elements, expected.elements, 1e-12));
}

TEST(MessungBiko, ImagePointIsMeasuredAndMeasuredPlusResidual) {
  ImageScene scene;
  ImagePointPair point{};
  ASSERT_TRUE(scene.biko.EvaluateImagePoint(point));
  const Image expected = scene.Transcribed();
  EXPECT_EQ(point.measuredX, 1.25);
  EXPECT_EQ(point.measuredY, -0.5);
  EXPECT_NEAR(point.computedX, expected[0], 1e-13);
  EXPECT_NEAR(point.computedY, expected[1], 1e-13);
  EXPECT_NEAR(scene.biko.Wert(0).Residuum(), expected[0] - 1.25, 1e-13);
}

TEST(MessungBiko, ConnectOfTheImageRejectsAGrossError) {
  ImageScene scene;
  scene.eor.SetIor(&scene.ior);
  scene.eor.AddMessung(&scene.biko);
  const Image computed = scene.Computed();
  scene.biko[0] = computed[0];
  scene.biko[1] = computed[1];
  scene.eor.Connect(NetworkSettings());
  EXPECT_FALSE(scene.biko.IsAusreisser());
  // Beyond a half radian as seen from a distance of 30.
  scene.biko[0] = computed[0] - 40.0;
  scene.eor.Connect(NetworkSettings());
  EXPECT_TRUE(scene.biko.IsAusreisser());
  EXPECT_TRUE(scene.biko.IsActive());
}

TEST(MessungBiko, AngleLimitBelowZeroRejectsEvenAnExactCoordinate) {
  ImageScene scene;
  scene.eor.SetIor(&scene.ior);
  scene.eor.AddMessung(&scene.biko);
  const Image computed = scene.Computed();
  scene.biko[0] = computed[0];
  scene.biko[1] = computed[1];
  NetworkSettings settings;
  settings.SetAngleLimit(1e-3);
  scene.eor.Connect(settings);
  EXPECT_FALSE(scene.biko.IsAusreisser());
  settings.SetAngleLimit(-1e-3);
  scene.eor.Connect(settings);
  EXPECT_TRUE(scene.biko.IsAusreisser());
}

TEST(MessungBiko, ConnectOfTheImageRejectsWhatLacksALink) {
  ImageScene scene;
  scene.eor.SetIor(&scene.ior);
  scene.eor.AddMessung(&scene.biko);
  scene.biko.SetPunkt(nullptr);
  scene.eor.Connect(NetworkSettings());
  EXPECT_TRUE(scene.biko.IsAusreisser());
}

TEST(MessungBiko, PointInThePlaneOfTheCentreGivesInfinitiesAndNoFailure) {
  ImageScene scene;
  scene.eor.fRotation = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  scene.eor.fTranslation = {0.0, 0.0, 50.0};
  EquationBlock equations;
  EXPECT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_FALSE(std::isfinite(equations.misclosures[0]));
  EXPECT_FALSE(std::isfinite(equations.misclosures[1]));
  const std::vector<double> row = Dense(equations.rows[0], scene.unknowns);
  for (unsigned p = DataIor::kAz1; p <= DataIor::kAz3; ++p)
    EXPECT_EQ(row[static_cast<std::uint32_t>(scene.ior.FirstUnknown()) + p], 0.0) << p;
}

TEST(MessungBiko, DescribesItselfInBothLanguages) {
  const ImageScene scene;
  EXPECT_EQ(scene.biko.GetIdentText(), "101");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(scene.biko.GetDescription(), "Bildkoordinate Punkt 101 ,Bild 7");
  }
  const LanguageGuard english(Language::English);
  // Without a blank behind "point".
  EXPECT_EQ(scene.biko.GetDescription(), "Image coordinate point101 ,Image 7");
}

MessungBiko Printed() {
  MessungBiko messung;
  messung.SetNummer(101);
  messung.SetBildNummer(7);
  messung[0] = -12.3456784;
  messung[1] = 1.5;
  messung.SetSigma(0.0005, 0.00025);
  const double residuals[] = {-0.000125, 0.25};
  const double redundancies[] = {0.75, 1.0};
  const double tests[] = {2.5, 12.25};
  for (unsigned i = 0; i < 2; ++i) {
    messung.CollectComponents()[i].SetResiduum(residuals[i]);
    messung.CollectComponents()[i].SetRedundanz(redundancies[i]);
    messung.CollectComponents()[i].SetTestwert(tests[i]);
  }
  return messung;
}

constexpr const char* kNumbers =
    "   -12.345678      1.500000 "
    "  -0.000125    0.250000 "
    "   0.000500    0.000250 "
    "  0.75   1.00 "
    " 2.50 12.25 ";

TEST(MessungBiko, ProtocolLineIsExact) {
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("   101      7     ") + kNumbers + "\n");
}

TEST(MessungBiko, ProtocolLineCarriesOrdinalAndMark) {
  MessungBiko messung = Printed();
  messung.SetOrdinal(8);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("   101      7 (8) ") + kNumbers + "\n");
  messung.SetNoBlunderTest(true);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("   101      7 (8) ") + kNumbers + " ---\n");
  messung.SetAusreisser();
  EXPECT_EQ(messung.GetProtocolLine(), std::string("   101      7 (8) ") + kNumbers + " ***\n");
}

TEST(MessungBiko, ProtocolLineIgnoresTheLocaleOfTheProcess) {
  const CommaLocale comma;
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("   101      7     ") + kNumbers + "\n");
}

}  // namespace
}  // namespace vermo::test

#include "observations/messung_obko.h"

#include "support/comma_locale.h"
#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/group_moves.h"
#include "support/language_guard.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_obko.h"
#include "unknowns/network_settings.h"

#include <array>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace vermo::test {
namespace {

// A measured point, by choice in the frame of a body and by choice measured in that of an image.
class ObkoScene {
 public:
  ObkoScene(bool inBody, bool inImage) {
    point.SetCoordinates({1.5, -2.0, 4.0});
    body.fRotation = OmegaPhiKappa(0.4, -0.2, 1.3);
    body.fTranslation = {3.0, -5.0, 2.0};
    image.fRotation = OmegaPhiKappa(-0.7, 0.5, 0.1);
    image.fTranslation = {-1.0, 4.0, 6.0};
    std::uint32_t next = 1;
    for (Data* group : std::initializer_list<Data*>{&image, &point, &body}) {
      group->SetActive(true);
      group->SetVariable(true);
      next = group->AssignUnknowns(next);
    }
    unknowns = next;
    if (inBody) point.SetReferenceEor(&body);
    if (inImage) messung.SetBezug(&image);
    for (unsigned i = 0; i < 3; ++i) messung[i] = 0.5 * i;
    messung.SetPunkt(&point);
    messung.SetNummer(101);
    messung.SetSigma({0.5, 0.25, 2.0});
    messung.SetActive(true);
  }
  ObkoScene(const ObkoScene&) = delete;
  ObkoScene& operator=(const ObkoScene&) = delete;

  Vector3 Residuals() {
    EquationBlock equations;
    messung.ObservationEquations(equations);
    return {messung.Wert(0).Residuum(), messung.Wert(1).Residuum(), messung.Wert(2).Residuum()};
  }

  // transpose(R2) (R1 X + t1 - t2), each step only when its frame is there.
  [[nodiscard]] Vector3 Expected() const {
    Vector3 x{1.5, -2.0, 4.0};
    if (point.ReferenceEor() != nullptr) x = ForwardBy(body.fRotation, {3.0, -5.0, 2.0}, x);
    if (messung.HasBezug()) x = BackBy(image.fRotation, {-1.0, 4.0, 6.0}, x);
    return x;
  }

  DataObko point;
  DataEor body;
  DataEor image;
  MessungObko messung;
  std::uint32_t unknowns = 0;
};

template <typename Group>
void ExpectRowsMatchDifferences(ObkoScene& scene, Group& group) {
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  for (std::uint32_t u = 0; u < group.UnknownCount(); ++u) {
    const Vector3 expected = DerivativeBy(group, u, 1e-3, [&] { return scene.Residuals(); });
    for (unsigned i = 0; i < 3; ++i)
      // Truncation of a rotation, ten lengths times h^4, and rounding over the step.
      EXPECT_NEAR(Dense(equations.rows[i],
                        scene.unknowns)[static_cast<std::uint32_t>(group.FirstUnknown()) + u],
                  expected[i],
                  2e-11)
          << "row " << i << ", unknown " << u;
  }
}

TEST(MessungObko, ValueIsThePointInTheFrameOfTheMeasurement) {
  for (const bool inBody : {false, true})
    for (const bool inImage : {false, true}) {
      ObkoScene scene(inBody, inImage);
      const Vector3 expected = scene.Expected();
      const Vector3 v = scene.Residuals();
      EXPECT_TRUE(
          ElementsNear(v, Vector3{expected[0], expected[1] - 0.5, expected[2] - 1.0}, 1e-14))
          << inBody << inImage;
    }
}

TEST(MessungObko, RowsMatchCentralDifferencesInAllFrames) {
  for (const bool inBody : {false, true})
    for (const bool inImage : {false, true}) {
      SCOPED_TRACE(testing::Message() << inBody << inImage);
      ObkoScene scene(inBody, inImage);
      ExpectRowsMatchDifferences(scene, scene.point);
      ExpectRowsMatchDifferences(scene, scene.body);
      ExpectRowsMatchDifferences(scene, scene.image);
    }
}

TEST(MessungObko, RowsHoldEveryGroupOfTheChain) {
  const std::uint32_t expected[2][2] = {{3, 9}, {9, 15}};
  for (const unsigned inBody : {0U, 1U})
    for (const unsigned inImage : {0U, 1U}) {
      ObkoScene scene(inBody == 1, inImage == 1);
      EquationBlock equations;
      ASSERT_TRUE(scene.messung.ObservationEquations(equations));
      for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(equations.rows[i].size(), expected[inBody][inImage]);
    }
}

TEST(MessungObko, MisclosureIsMeasuredMinusComputedAndResidualsAreItsOpposite) {
  ObkoScene scene(false, false);
  NetworkSettings settings;
  settings.SetS0Apriori(0.5);
  scene.messung.SetWeights(settings);
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.count, 3U);
  EXPECT_EQ(equations.rowCount, 3U);
  const double expected[] = {-1.5, 2.5, -3.0};
  const double weights[] = {1.0, 4.0, 0.0625};
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(equations.misclosures[i], expected[i]) << i;
    EXPECT_EQ(equations.weights[i], weights[i]) << i;
    EXPECT_EQ(scene.messung.Wert(i).Residuum(), -expected[i]) << i;
    EXPECT_EQ(scene.messung[i], 0.5 * i) << i;
  }
}

TEST(MessungObko, FixedPointHasEmptyRowsAndStillResiduals) {
  ObkoScene scene(false, false);
  scene.point.SetVariable(false);
  scene.point.AssignUnknowns(0);
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  for (unsigned i = 0; i < 3; ++i) EXPECT_TRUE(equations.rows[i].empty());
  EXPECT_EQ(equations.count, 3U);
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), 1.5);
}

// A block full of another observation's equations.
EquationBlock UsedBlock() {
  EquationBlock equations;
  equations.Reset(3);
  for (DesignRow& row : equations.rows) row.push(0, 1.0);
  equations.Append(1.0, 1.0);
  return equations;
}

void ExpectRefused(ObkoScene& scene) {
  for (MessungWert& wert : scene.messung.CollectComponents()) wert.SetResiduum(7.0);
  EquationBlock equations = UsedBlock();
  EXPECT_FALSE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.count, 0U);
  ASSERT_EQ(equations.rowCount, 3U);
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_TRUE(equations.rows[i].empty()) << i;
    EXPECT_EQ(scene.messung.Wert(i).Residuum(), 7.0) << i;
  }
}

TEST(MessungObko, IsRefusedWhenInactiveOrWithoutItsPoint) {
  ObkoScene inactive(true, true);
  inactive.messung.SetActive(false);
  ExpectRefused(inactive);
  ObkoScene unlinked(true, true);
  unlinked.messung.SetPunkt(nullptr);
  ExpectRefused(unlinked);
}

TEST(MessungObko, IsRefusedWhenTheImageOfTheMeasurementIsNoLongerActive) {
  ObkoScene scene(true, true);
  scene.image.SetActive(false);
  ExpectRefused(scene);
  EXPECT_TRUE(scene.messung.IsUsable());
}

TEST(MessungObko, OutlierIsEvaluatedLikeTheRest) {
  ObkoScene scene(false, false);
  scene.messung.SetAusreisser();
  EquationBlock equations;
  EXPECT_TRUE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 3U);
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), 1.5);
}

TEST(MessungObko, IsUsableWithAnActivePoint) {
  ObkoScene scene(false, false);
  EXPECT_TRUE(scene.messung.IsConnected());
  EXPECT_TRUE(scene.messung.IsUsable());
  scene.point.SetActive(false);
  EXPECT_TRUE(scene.messung.IsConnected());
  EXPECT_FALSE(scene.messung.IsUsable());
  scene.messung.SetPunkt(nullptr);
  EXPECT_FALSE(scene.messung.IsConnected());
  EXPECT_FALSE(scene.messung.IsUsable());
}

TEST(MessungObko, NamesItsFrameApartFromTheLink) {
  MessungObko messung;
  EXPECT_EQ(messung.BezugNummer(), 0xFFFFFFFFU);
  EXPECT_FALSE(messung.NamesBezug());
  EXPECT_FALSE(messung.HasBezug());
  messung.SetBezugNummer(0);
  EXPECT_TRUE(messung.NamesBezug());
  EXPECT_FALSE(messung.HasBezug());
  DataEor image;
  messung.SetBezug(&image);
  EXPECT_TRUE(messung.HasBezug());
  EXPECT_EQ(messung.Bezug(), &image);
}

TEST(MessungObko, HasNoImagePoint) {
  ObkoScene scene(false, false);
  ImagePointPair point{};
  EXPECT_FALSE(scene.messung.EvaluateImagePoint(point));
}

TEST(MessungObko, DescribesItselfInBothLanguages) {
  MessungObko messung;
  messung.SetNummer(4294967294U);
  EXPECT_EQ(messung.GetIdentText(), "4294967294");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(messung.GetDescription(), "Objektkoordinate Punkt 4294967294");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(messung.GetDescription(), "Object coordinate point 4294967294");
}

MessungObko Printed() {
  MessungObko messung;
  messung.SetNummer(101);
  messung[0] = 1234.5;
  messung[1] = -2.25;
  messung[2] = 3.00006;
  const double residuals[] = {0.0012, -0.0034, 10.0};
  const double redundancies[] = {0.5, 1.0, 0.25};
  const double tests[] = {2.5, 0.125, 12.0};
  for (unsigned i = 0; i < 3; ++i) {
    messung.CollectComponents()[i].SetResiduum(residuals[i]);
    messung.CollectComponents()[i].SetRedundanz(redundancies[i]);
    messung.CollectComponents()[i].SetTestwert(tests[i]);
  }
  return messung;
}

// The width goes to the first number of a run only; the others stand next to it.
constexpr const char* kNumbers =
    "   1234.5000-2.25003.0001"
    "   0.0012-0.003410.0000"
    "0.50001.00000.2500"
    "2.50000.125012.0000";

TEST(MessungObko, ProtocolLineRunsItsNumbersTogether) {
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("     101     ") + kNumbers + "\n");
}

TEST(MessungObko, ProtocolLineCarriesOrdinalAndMark) {
  MessungObko messung = Printed();
  messung.SetOrdinal(0);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("     101 (0) ") + kNumbers + "\n");
  messung.SetOrdinal(1234);
  messung.SetNoBlunderTest(true);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("     101 (1234) ") + kNumbers + " ---\n");
  messung.SetAusreisser();
  EXPECT_EQ(messung.GetProtocolLine(), std::string("     101 (1234) ") + kNumbers + " ***\n");
  messung.SetNoBlunderTest(false);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("     101 (1234) ") + kNumbers + " ***\n");
}

TEST(MessungObko, ProtocolLineIgnoresTheLocaleOfTheProcess) {
  const CommaLocale comma;
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("     101     ") + kNumbers + "\n");
}

}  // namespace
}  // namespace vermo::test

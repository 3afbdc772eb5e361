#include "observations/messung_linko.h"

#include "checks/kl_exception.h"
#include "checks/language.h"
#include "linalg/tensor_exception.h"
#include "observations/linien_abbildung.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"
#include "unknowns/network_settings.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace vermo {
namespace {

using Vector = ostra_bundle::VektorD<3>;

// A line seen by an image, by itself or through a relative pair. Columns: line 0, orientation 4,
// base 10, camera 16.
struct Scene {
  DataLinie line;
  DataEor eor;
  DataEor base;
  DataIor ior;
  MessungLinko linko;
  EquationBlock block;

  explicit Scene(bool relative = false, unsigned mask = 0) {
    line.SetPoints({-0.4, 0.1, 0.2}, {0.7, 0.5, -0.1});
    line.PrepareDerivatives();
    eor.fTranslation = {0.1, -0.2, 5.0};
    eor.fRotation = ostra_bundle::RotationFromAngles(0.05, -0.1, 0.3);
    base.fTranslation = {0.3, 0.1, -0.2};
    base.fRotation = ostra_bundle::RotationFromAngles(-0.04, 0.06, -0.2);
    ior.SetParameter(DataIor::kCk, -30.0);
    ior.SetParameterMask(DataIor::Mask(mask));
    Number(line, 0);
    Number(eor, 4);
    if (relative) Number(base, 10);
    Number(ior, 16);
    linko.SetLinie(&line);
    linko.SetEor(&eor);
    linko.SetIor(&ior);
    if (relative) linko.SetEorBasis(&base);
    linko.SetSigma(0.01, 0.02);
    linko[0] = 0.8;
    linko[1] = -0.5;
    linko.SetActive(true);
  }

  static void Number(Data& group, std::uint32_t column) {
    group.SetActive(true);
    group.SetVariable(true);
    group.SetFirstUnknown(static_cast<std::int32_t>(column));
  }

  void Distort(double share = 1.0) {
    ior.SetParameter(DataIor::kXh, 0.05 * share);
    ior.SetParameter(DataIor::kYh, -0.03 * share);
    ior.SetParameter(DataIor::kA1, 2e-5 * share);
    ior.SetParameter(DataIor::kB1, 1e-5 * share);
    ior.SetParameter(DataIor::kC1, 1e-4 * share);
    ior.SetR0(5.0);
  }

  double Distance() {
    EXPECT_TRUE(linko.ObservationEquations(block));
    return linko.Wert(0).Residuum();
  }

  std::map<std::uint32_t, double> Row() {
    Distance();
    std::map<std::uint32_t, double> row;
    for (const DesignEntry& entry : block.rows[0]) row[entry.column] += entry.coefficient;
    return row;
  }

  // Moves one unknown of a group through the group's own update.
  template <typename Group>
  double Difference(Group Scene::*member, std::uint32_t column, double step) {
    const Group kept = this->*member;
    std::vector<double> solution(40, 0.0);
    solution[column] = step;
    (this->*member).ApplySolution(solution);
    const double plus = Distance();
    this->*member = kept;
    solution[column] = -step;
    (this->*member).ApplySolution(solution);
    const double minus = Distance();
    this->*member = kept;
    return (plus - minus) / (2.0 * step);
  }
};

TEST(MessungLinko, RowsMatchDifferencesWithoutDistortion) {
  // The step error of a central difference is of order step^2 times the third derivative.
  for (const bool relative : {false, true}) {
    Scene scene(relative, 0x1);
    const auto row = scene.Row();
    for (std::uint32_t c = 0; c < 4; ++c)
      EXPECT_NEAR(row.at(c), scene.Difference(&Scene::line, c, 1e-5), 1e-6) << "line " << c;
    for (std::uint32_t c = 4; c < 10; ++c)
      EXPECT_NEAR(row.at(c), scene.Difference(&Scene::eor, c, 1e-5), 1e-6) << "eor " << c;
    for (std::uint32_t c = 10; relative && c < 16; ++c)
      EXPECT_NEAR(row.at(c), scene.Difference(&Scene::base, c, 1e-5), 1e-6) << "base " << c;
    EXPECT_NEAR(row.at(16), scene.Difference(&Scene::ior, 16, 1e-5), 1e-6) << "Ck";
  }
}

// The largest difference between the row and central differences, with a share of the distortion.
double RowErrorUnderDistortion(double share) {
  Scene scene(true, 0x7);
  scene.Distort(share);
  const auto row = scene.Row();
  double error = 0.0;
  for (std::uint32_t c = 0; c < 4; ++c)
    error = std::max(error, std::fabs(row.at(c) - scene.Difference(&Scene::line, c, 1e-5)));
  for (std::uint32_t c = 4; c < 10; ++c)
    error = std::max(error, std::fabs(row.at(c) - scene.Difference(&Scene::eor, c, 1e-5)));
  for (std::uint32_t c = 10; c < 16; ++c)
    error = std::max(error, std::fabs(row.at(c) - scene.Difference(&Scene::base, c, 1e-5)));
  for (std::uint32_t c = 16; c < 19; ++c)
    error = std::max(error, std::fabs(row.at(c) - scene.Difference(&Scene::ior, c, 1e-6)));
  return error;
}

// The derivative is that of the ideal distance at the measured point, times the stretch of the
// distortion: what it leaves out is of the first order of distortion and principal point, so a
// tenth of these leaves a tenth of the difference.
TEST(MessungLinko, RowsUnderDistortionAreOffInProportionToTheDistortion) {
  const double full = RowErrorUnderDistortion(1.0);
  EXPECT_GT(full, 1e-3);
  EXPECT_LT(full, 0.2);
  EXPECT_LT(RowErrorUnderDistortion(0.1), 0.15 * full);
  EXPECT_LT(RowErrorUnderDistortion(0.01), 0.015 * full);
}

TEST(MessungLinko, WithoutDistortionTheDistanceIsThatOfTheIdealLine) {
  Scene scene;
  const double distance = scene.Distance();
  // Two points of the line, projected; the distance of the measured point from their connection.
  const auto project = [&](const Vector& p) {
    const Vector c = scene.eor.Back(p);
    return ImagePoint{-30.0 * c[0] / c[2], -30.0 * c[1] / c[2]};
  };
  const ImagePoint a = project(scene.line.Point());
  const ImagePoint b = project(ostra_bundle::Add(scene.line.Point(), scene.line.Direction()));
  const double dx = b.x - a.x;
  const double dy = b.y - a.y;
  const double expected =
      ((scene.linko[0] - a.x) * dy - (scene.linko[1] - a.y) * dx) / std::hypot(dx, dy);
  EXPECT_NEAR(std::fabs(distance), std::fabs(expected), 1e-12);
  EXPECT_GT(std::fabs(distance), 0.1);
}

TEST(MessungLinko, PointOnTheDistortedLineHasNoDistanceAndFullCoefficients) {
  Scene scene(false, 0x317);
  scene.Distort();
  const Vector c = scene.eor.Back(
      ostra_bundle::Add(scene.line.Point(), ostra_bundle::Scale(scene.line.Direction(), 0.6)));
  Verzeichnung v;
  v.SetParameters(scene.ior);
  v.SetPoint(-30.0 * c[0] / c[2], -30.0 * c[1] / c[2], 0.0);
  scene.linko[0] = v.x + v.Correction().x + 0.05;
  scene.linko[1] = v.y + v.Correction().y - 0.03;
  EXPECT_NEAR(scene.Distance(), 0.0, 1e-9);
  EXPECT_EQ(scene.block.count, 1U);
  EXPECT_NEAR(scene.block.misclosures[0], 0.0, 1e-9);
  EXPECT_EQ(scene.Row().size(), 4U + 6U + 6U);
}

TEST(MessungLinko, PrincipalPointCoefficientIsMinusTheRealNormal) {
  Scene scene(false, 0x7);
  scene.Distort();
  const auto row = scene.Row();
  const double xh = row.at(17);
  const double yh = row.at(18);
  EXPECT_NEAR(std::hypot(xh, yh), 1.0, 1e-12);
  // The distortion here turns normals by less than 1e-3.
  EXPECT_NEAR(xh, scene.Difference(&Scene::ior, 17, 1e-6), 1e-3);
  EXPECT_NEAR(yh, scene.Difference(&Scene::ior, 18, 1e-6), 1e-3);
}

TEST(MessungLinko, OnlyThePrincipalDistanceCarriesNoMinusSign) {
  Scene scene(false, 0x1);
  const auto row = scene.Row();
  const Vector normal = ostra_bundle::MultiplyTransposed(
      scene.eor.fRotation,
      ostra_bundle::Cross(scene.line.Direction(),
                          ostra_bundle::Subtract(scene.line.Point(), scene.eor.fTranslation)));
  const double q = 1.0 / std::hypot(normal[0], normal[1]);
  EXPECT_NEAR(row.at(16), q * normal[2], 1e-12);
}

TEST(MessungLinko, DistortionCoefficientsUseTheRadiusOfTheRealFoot) {
  Scene scene(false, 0x3F8);
  scene.Distort();
  const auto row = scene.Row();
  // A1 A2 A3 B1 B2 C1 C2 in scaled units.
  ASSERT_TRUE(row.contains(22));
  const double ratio21 = (row.at(17) / 1e-6) / (row.at(16) / 1e-4);
  const double ratio32 = (row.at(18) / 1e-8) / (row.at(16) / 1e-4);
  // With D1 = r2 - 25: D2 / D1 = r2 + 25, D3 / D1 = r4 + 25 r2 + 625.
  const double r2 = ratio21 - 25.0;
  EXPECT_GT(r2, 0.0);
  EXPECT_NEAR(ratio32, r2 * r2 + 25.0 * r2 + 625.0, 1e-6 * std::fabs(ratio32));
}

TEST(MessungLinko, AffinityCoefficientsUseTheFirstNormalComponentOnly) {
  Scene scene(false, 0x306);  // Xh, Yh, C1, C2
  scene.Distort();
  const auto row = scene.Row();
  const double w1 = -row.at(16);
  const double c1 = row.at(18) / 1e-4;
  const double c2 = row.at(19) / 1e-4;
  const double fx = -c1 / w1;
  const double fy = -c2 / w1;
  // F lies on the normal through the measured point, so within its distance of it.
  EXPECT_NEAR(
      std::hypot(fx - scene.linko[0], fy - scene.linko[1]), std::fabs(scene.Distance()), 0.2);
}

TEST(MessungLinko, DepthTermsTakeAColumnAndNoCoefficient) {
  Scene scene(false, 0);
  scene.ior.SetParameterMask(DataIor::Mask(0x1C01));  // Ck, AZ1, AZ2, AZ3
  scene.ior.SetParameter(DataIor::kAz1, 0.5);
  const auto row = scene.Row();
  EXPECT_TRUE(row.contains(16));
  EXPECT_FALSE(row.contains(17));
  Scene without(false, 0x1);
  EXPECT_EQ(scene.Distance(), without.Distance());
}

TEST(MessungLinko, GroupsWithoutColumnsWriteNothing) {
  Scene scene(true, 0x1);
  scene.line.SetVariable(false);
  scene.base.SetFirstUnknown(-1);
  const auto row = scene.Row();
  EXPECT_EQ(row.size(), 7U);
  EXPECT_EQ(row.begin()->first, 4U);
}

TEST(MessungLinko, VariableGroupsThatAreNotNumberedWriteNothing) {
  for (int left = 0; left < 4; ++left) {
    Scene scene(true, 0x1);
    const std::map<std::uint32_t, double> with = scene.Row();
    Data* const groups[] = {&scene.line, &scene.eor, &scene.base, &scene.ior};
    const auto first = static_cast<std::uint32_t>(groups[left]->FirstUnknown());
    groups[left]->SetFirstUnknown(Data::kNoColumn);
    std::map<std::uint32_t, double> expected = with;
    std::erase_if(expected, [&](const auto& entry) {
      return entry.first - first < groups[left]->UnknownCount();
    });
    EXPECT_EQ(scene.Row(), expected) << left;
    EXPECT_LT(expected.size(), with.size()) << left;
  }
}

TEST(MessungLinko, LinePointInTheCameraPlaneFailsWithItsCode) {
  Scene scene;
  scene.eor.fRotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  scene.line.SetPoints({0.0, 0.0, 5.0}, {0.3, 0.4, 4.0});
  try {
    scene.linko.ObservationEquations(scene.block);
    FAIL();
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -41001);
  }
  // The second point in the plane: the direction is of unit length.
  scene.line.SetPoints({0.0, 0.0, 4.0}, {0.0, 0.0, 7.0});
  EXPECT_THROW(scene.linko.ObservationEquations(scene.block), KlException);
}

TEST(MessungLinko, LineThroughTheProjectionCentreHasNoNormal) {
  Scene scene;
  scene.eor.fRotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  scene.eor.fTranslation = {0.0, 0.0, 5.0};
  scene.line.SetPoints({0.0, 0.0, 1.0}, {0.0, 0.0, 0.0});
  EXPECT_THROW(scene.linko.ObservationEquations(scene.block),
               ostra_bundle::TensorExceptDivisionByZero);
}

TEST(MessungLinko, InactiveOrUnlinkedGivesNoEquationAndKeepsTheResidual) {
  Scene scene;
  const double kept = scene.Distance();
  scene.linko[0] = 3.0;
  scene.linko.SetActive(false);
  EXPECT_FALSE(scene.linko.ObservationEquations(scene.block));
  EXPECT_EQ(scene.block.count, 0U);
  EXPECT_EQ(scene.block.rowCount, 1U);
  EXPECT_TRUE(scene.block.rows[0].empty());
  EXPECT_EQ(scene.linko.Wert(0).Residuum(), kept);
  scene.linko.SetActive(true);
  scene.linko.SetIor(nullptr);
  EXPECT_FALSE(scene.linko.ObservationEquations(scene.block));
}

TEST(MessungLinko, UsableAsksLineImageAndCameraButNotTheBase) {
  Scene scene(true);
  EXPECT_TRUE(scene.linko.IsUsable());
  scene.base.SetActive(false);
  EXPECT_TRUE(scene.linko.IsUsable());
  scene.ior.SetActive(false);
  EXPECT_FALSE(scene.linko.IsUsable());
}

TEST(MessungLinko, WeightComesFromTheFirstSigmaAlone) {
  Scene scene;
  NetworkSettings settings;
  settings.SetS0Apriori(0.005);
  scene.linko.SetWeights(settings);
  EXPECT_DOUBLE_EQ(scene.linko.Wert(0).Gewicht(), 0.25);
}

TEST(MessungLinko, DescribesItselfInBothLanguages) {
  MessungLinko linko;
  linko.SetNummer(7);
  linko.SetLinienNummer(3);
  linko.SetBildNummer(12);
  SetLanguage(Language::German);
  EXPECT_EQ(linko.GetDescription(), "Linienkoordinate 7 ,Linie 3 ,Bild 12");
  SetLanguage(Language::English);
  EXPECT_EQ(linko.GetDescription(), "Linie coordinate 7 ,Linie 3 ,Image 12");
  EXPECT_EQ(linko.GetIdentText(), "7");
  SetLanguage(Language::German);
}

TEST(MessungLinko, ProtocolLineHasItsWidths) {
  MessungLinko linko;
  linko.SetNummer(7);
  linko.SetLinienNummer(3);
  linko.SetBildNummer(12);
  linko[0] = 1.5;
  linko[1] = -2.25;
  linko.SetOrdinal(4);
  EXPECT_EQ(linko.GetProtocolLine(),
            "     7     12      3 (4)      1.5000     -2.2500   0.0000   0.0000  0.00 \n");
}

}  // namespace
}  // namespace vermo

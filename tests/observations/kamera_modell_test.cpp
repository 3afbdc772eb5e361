#include "observations/kamera_modell.h"

#include "support/elements_near.h"
#include "support/image_scene.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// Distortion of one parameter at (3, 4), r2 = 25.
Verzeichnung OneTerm(DataIor::Parameter parameter, double value, double r0, double z = 10.0) {
  DataIor camera;
  camera.SetParameter(parameter, value);
  camera.SetR0(r0);
  Verzeichnung v;
  v.SetParameters(camera);
  v.SetPoint(3.0, 4.0, z);
  return v;
}

void ExpectCorrection(const Verzeichnung& v, double dx, double dy) {
  EXPECT_DOUBLE_EQ(v.Correction().x, dx);
  EXPECT_DOUBLE_EQ(v.Correction().y, dy);
}

TEST(Verzeichnung, PowersOfTheRadiusComeWithThePoint) {
  Verzeichnung v;
  v.SetPoint(3.0, 4.0, -7.0);
  EXPECT_EQ(v.r2, 25.0);
  EXPECT_EQ(v.r4, 625.0);
  EXPECT_EQ(v.r6, 15625.0);
  EXPECT_EQ(v.z, -7.0);
  EXPECT_EQ(v.D1(), 25.0);
  EXPECT_EQ(v.D2(), 625.0);
  EXPECT_EQ(v.D3(), 15625.0);
  v.r0 = NormalisingRadius::Of(2.0);
  EXPECT_EQ(v.D1(), 21.0);
  EXPECT_EQ(v.D2(), 609.0);
  EXPECT_EQ(v.D3(), 15561.0);
}

TEST(Verzeichnung, EachTermIsWhatItsFormulaSays) {
  ExpectCorrection(OneTerm(DataIor::kA1, 1e-3, 2.0), 3.0 * 0.021, 4.0 * 0.021);
  ExpectCorrection(OneTerm(DataIor::kA2, 1e-3, 2.0), 3.0 * 0.609, 4.0 * 0.609);
  ExpectCorrection(OneTerm(DataIor::kA3, 1e-3, 2.0), 3.0 * 15.561, 4.0 * 15.561);
  ExpectCorrection(OneTerm(DataIor::kB1, 1e-3, 2.0), 0.018 + 0.025, 0.024);
  ExpectCorrection(OneTerm(DataIor::kB2, 1e-3, 2.0), 0.024, 0.032 + 0.025);
  ExpectCorrection(OneTerm(DataIor::kC1, 1e-3, 2.0), 0.003, 0.0);
  ExpectCorrection(OneTerm(DataIor::kC2, 1e-3, 2.0), 0.004, 0.0);
  ExpectCorrection(OneTerm(DataIor::kAz1, 1e-2, 2.0), 3.0 * 0.021, 4.0 * 0.021);
  ExpectCorrection(OneTerm(DataIor::kAz2, 1e-2, 2.0), 3.0 * 0.609, 4.0 * 0.609);
  ExpectCorrection(OneTerm(DataIor::kAz3, 1e-2, 2.0), 3.0 * 15.561, 4.0 * 15.561);
}

TEST(Verzeichnung, SecondDepthSetDividesByTheSquaredDepth) {
  Verzeichnung v;
  v.SetPoint(3.0, 4.0, -2.0);
  v.e1 = 0.004;
  ExpectCorrection(v, 3.0 * 0.025, 4.0 * 0.025);
  v.e1 = 0.0;
  v.e2 = 0.004;
  ExpectCorrection(v, 3.0 * 0.625, 4.0 * 0.625);
  v.e2 = 0.0;
  v.e3 = 0.004;
  ExpectCorrection(v, 3.0 * 15.625, 4.0 * 15.625);
}

TEST(Verzeichnung, CameraNeverSetsTheSecondDepthSet) {
  Verzeichnung v;
  DataIor camera;
  for (unsigned p = 0; p < DataIor::kParameters; ++p)
    camera.SetParameter(static_cast<DataIor::Parameter>(p), 1.0);
  v.SetParameters(camera);
  EXPECT_EQ(v.e1, 0.0);
  EXPECT_EQ(v.e2, 0.0);
  EXPECT_EQ(v.e3, 0.0);
}

TEST(Verzeichnung, AtTheNormalisingRadiusThereIsNoRadialCorrection) {
  for (const DataIor::Parameter p :
       {DataIor::kA1, DataIor::kA2, DataIor::kA3, DataIor::kAz1, DataIor::kAz2, DataIor::kAz3}) {
    ExpectCorrection(OneTerm(p, 1.0, 5.0), 0.0, 0.0);
    EXPECT_NE(OneTerm(p, 1.0, 0.0).Correction().x, 0.0);
  }
}

TEST(Verzeichnung, DepthOfZeroLeavesTheDepthTermsOut) {
  for (const DataIor::Parameter p : {DataIor::kAz1, DataIor::kAz2, DataIor::kAz3}) {
    Verzeichnung v = OneTerm(p, 1.0, 0.0, 0.0);
    v.e1 = v.e2 = v.e3 = 1.0;
    ExpectCorrection(v, 0.0, 0.0);
    const ImageJacobian m = v.CorrectionJacobian();
    EXPECT_EQ(m.xx, 0.0);
    EXPECT_EQ(m.xy, 0.0);
    EXPECT_EQ(m.yx, 0.0);
    EXPECT_EQ(m.yy, 0.0);
  }
  ExpectCorrection(OneTerm(DataIor::kA1, 1e-3, 0.0, 0.0), 0.075, 0.1);
}

TEST(Verzeichnung, JacobianMatchesDifferencesOfTheCorrection) {
  const ImageScene scene;
  for (const double z : {-900.0, 0.0, 12.0})
    for (const double r0 : {0.0, 5.0}) {
      DataIor camera = scene.ior;
      camera.SetR0(r0);
      Verzeichnung v;
      v.SetParameters(camera);
      v.e1 = 0.3;
      v.e2 = 2e-3;
      v.e3 = 1e-5;
      const auto at = [&](double x, double y) {
        v.SetPoint(x, y, z);
        return std::array<double, 2>{v.Correction().x, v.Correction().y};
      };
      const double x = 4.0;
      const double y = -3.0;
      const double h = 1e-3;
      std::array<double, 4> expected{};
      for (unsigned i = 0; i < 2; ++i) {
        expected[2 * i] = (8.0 * (at(x + h, y)[i] - at(x - h, y)[i]) -
                           (at(x + 2.0 * h, y)[i] - at(x - 2.0 * h, y)[i])) /
                          (12.0 * h);
        expected[2 * i + 1] = (8.0 * (at(x, y + h)[i] - at(x, y - h)[i]) -
                               (at(x, y + 2.0 * h)[i] - at(x, y - 2.0 * h)[i])) /
                              (12.0 * h);
      }
      v.SetPoint(x, y, z);
      const ImageJacobian m = v.CorrectionJacobian();
      // Rounding of a correction below 1 over the step.
      EXPECT_TRUE(ElementsNear(std::array<double, 4>{m.xx, m.xy, m.yx, m.yy}, expected, 1e-12))
          << z << ", " << r0;
    }
}

TEST(KameraModell, UndistortedImageIsTheCentralProjectionWithoutAMinusSign) {
  DataIor camera;
  camera.SetParameter(DataIor::kCk, -30.0);
  const KameraModell model(camera, {-30.0, 0.5, -0.25}, 1.0, 2.0, -10.0);
  EXPECT_DOUBLE_EQ(model.Image().x, 3.5);
  EXPECT_DOUBLE_EQ(model.Image().y, 5.75);
  camera.SetParameter(DataIor::kCk, 30.0);
  const KameraModell turned(camera, {30.0, 0.5, -0.25}, 1.0, 2.0, -10.0);
  EXPECT_DOUBLE_EQ(turned.Image().x, -2.5);
  EXPECT_DOUBLE_EQ(turned.Image().y, -6.25);
}

TEST(KameraModell, FrameScalesTheDistortedImage) {
  DataIor camera;
  camera.SetParameter(DataIor::kCk, -30.0);
  camera.SetParameter(DataIor::kXh, 100.0);  // plays no part
  camera.SetParameter(DataIor::kA1, 1e-3);
  const KameraModell model(camera, {-60.0, 1.0, 2.0}, 1.0, 2.0, -10.0);
  // x = 3, y = 6, r2 = 45, K = 0.045.
  EXPECT_DOUBLE_EQ(model.Image().x, 2.0 * 3.135 + 1.0);
  EXPECT_DOUBLE_EQ(model.Image().y, 2.0 * 6.27 + 2.0);
}

TEST(KameraModell, PointInThePlaneOfTheCentreIsNotGuarded) {
  DataIor camera;
  camera.SetParameter(DataIor::kCk, -30.0);
  camera.SetParameter(DataIor::kAz1, 1.0);
  const KameraModell model(camera, {-30.0, 0.0, 0.0}, 1.0, 2.0, 0.0);
  EXPECT_FALSE(std::isfinite(model.Image().x));
  EXPECT_FALSE(std::isfinite(model.Image().y));
  for (const DataIor::Parameter p : {DataIor::kAz1, DataIor::kAz2, DataIor::kAz3}) {
    EXPECT_EQ(model.ByDistortion(p).x, 0.0);
    EXPECT_EQ(model.ByDistortion(p).y, 0.0);
  }
}

}  // namespace
}  // namespace vermo::test

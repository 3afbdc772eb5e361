// The camera's coefficients of a line coordinate hang together: all are made of the foot point f
// and the normal w of the image line.

#include "observations/messung_linko.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>

namespace vermo {
namespace {

void Number(Data& group, std::uint32_t column) {
  group.SetActive(true);
  group.SetVariable(true);
  group.SetFirstUnknown(static_cast<std::int32_t>(column));
}

TEST(MessungLinkoCamera, DistortionCoefficientsAreThoseOfTheFootPoint) {
  DataLinie line;
  line.SetPoints({-0.4, 0.1, 0.2}, {0.7, 0.5, -0.1});
  line.PrepareDerivatives();
  DataEor eor;
  eor.fTranslation = {0.1, -0.2, 5.0};
  eor.fRotation = ostra_bundle::RotationFromAngles(0.05, -0.1, 0.3);
  DataIor camera;
  camera.SetParameter(DataIor::kCk, -30.0);
  camera.SetParameterMask(DataIor::Mask(0x3FF));  // Ck to C2
  camera.SetR0(2.0);
  Number(line, 0);
  Number(eor, 4);
  Number(camera, 10);
  MessungLinko linko;
  linko.SetLinie(&line);
  linko.SetEor(&eor);
  linko.SetIor(&camera);
  linko.SetSigma(0.01, 0.02);
  linko[0] = 0.8;
  linko[1] = -0.5;
  linko.SetActive(true);
  EquationBlock block;
  ASSERT_TRUE(linko.ObservationEquations(block));

  std::array<double, DataIor::kParameters> by{};  // the coefficients, unscaled
  for (const DesignEntry& entry : block.rows[0])
    if (entry.column >= 10)
      by[entry.column - 10] += entry.coefficient / DataIor::kUnknownScale[entry.column - 10];
  const double wx = -by[DataIor::kXh];
  const double wy = -by[DataIor::kYh];
  const double fx = -by[DataIor::kC1] / wx;
  const double fy = -by[DataIor::kC2] / wx;
  const double r2 = fx * fx + fy * fy;
  // The scene leaves no term small beside the others.
  ASSERT_GT(std::fabs(fx * fy * wx * wy), 1e-3 * r2);
  const double along = fx * wx + fy * wy;
  const double tolerance = 1e-12 * r2 * r2 * r2;
  EXPECT_NEAR(wx * wx + wy * wy, 1.0, 1e-12);
  EXPECT_NEAR(by[DataIor::kA1], -(r2 - 4.0) * along, tolerance);
  EXPECT_NEAR(by[DataIor::kA2], -(r2 * r2 - 16.0) * along, tolerance);
  EXPECT_NEAR(by[DataIor::kA3], -(r2 * r2 * r2 - 64.0) * along, tolerance);
  EXPECT_NEAR(by[DataIor::kB1], -((2.0 * fx * fx + r2) * wx + 2.0 * fx * fy * wy), tolerance);
  EXPECT_NEAR(by[DataIor::kB2], -(2.0 * fx * fy * wx + (2.0 * fy * fy + r2) * wy), tolerance);
}

}  // namespace
}  // namespace vermo

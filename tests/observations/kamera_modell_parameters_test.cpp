#include "observations/kamera_modell.h"
#include "support/image_scene.h"

#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// Position and principal distance do not enter the distortion.
TEST(KameraModell, DistortionDependsOnItsOwnParametersOnly) {
  DataIor camera;
  camera.SetParameter(DataIor::kCk, 20.0);
  camera.SetParameter(DataIor::kA1, 1e-4);
  camera.SetParameter(DataIor::kB1, 1e-5);
  const KameraModell model(camera, ImageFrame{20.0, 0.5, -0.5}, 1.0, 2.0, -5.0);
  for (const DataIor::Parameter parameter : {DataIor::kCk, DataIor::kXh, DataIor::kYh}) {
    EXPECT_EQ(model.ByDistortion(parameter).x, 0.0);
    EXPECT_EQ(model.ByDistortion(parameter).y, 0.0);
  }
  EXPECT_NE(model.ByDistortion(DataIor::kA1).x, 0.0);
}

}  // namespace
}  // namespace vermo::test

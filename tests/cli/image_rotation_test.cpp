#include "image_rotation.h"

#include "cli/job_scene.h"
#include "csv_writer.h"
#include "image_records.h"
#include "result_files.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <xyz_api.h>

namespace cardo {
namespace {

using ::testing::IsEmpty;

TEST(ImageRotation, IsTheLibrarysForEveryTypeAndUnit) {
  const BundleJob job;
  std::int32_t id = 0;
  for (const std::uint32_t type : {kOmegaPhiKappa, kArc, kTtg}) {
    for (const std::uint32_t unit : {kRadians, kGon, kDegrees}) {
      sXYZ_ExteriorOrient2 image{};
      image.Id = id++;
      image.Flags = 0x01;
      image.Format = type | unit;
      image.ProjectionId = -1;
      image.Rotation[0] = 0.3;
      image.Rotation[1] = -0.7;
      image.Rotation[2] = 2.1;
      ASSERT_EQ(XYZ_SetExteriorOrientation2(job.Handle(), &image), eXYZ_Ok);
      const sXYZ_ExteriorOrient2 read = ReadImagesAsMatrices(job.Handle()).back();
      Matrix3 matrix;
      std::copy(std::begin(read.Rotation), std::end(read.Rotation), matrix.begin());
      // Products of a few sines and cosines.
      EXPECT_LT(LargestDifference(matrix, RotationFromAngles(image.Format, image.Rotation)), 1e-14)
          << "format " << image.Format;
    }
  }
}

TEST(ImageRotation, HasNoAnglesWithoutUnit) {
  const double angles[3] = {1, 2, 3};
  EXPECT_EQ(RotationFromAngles(kOmegaPhiKappa, angles), Matrix3{});
  EXPECT_EQ(RotationFromAngles(kMatrix | kDegrees, angles), Matrix3{});
}

TEST(ImageRotation, ReadingMatricesKeepsTheFormatOfTheJob) {
  const BundleJob job;
  XYZ_SetParam(job.Handle(), eXYZ_ParamEorFormat, 0x204);
  static_cast<void>(ReadImagesAsMatrices(job.Handle()));
  int format = 0;
  XYZ_GetParam(job.Handle(), eXYZ_ParamEorFormat, &format);
  EXPECT_EQ(format, 0x204);
}

// Whatever the format of the results, they mean the rotation that was given.
TEST(ImageRotation, WrittenRotationsMeanTheSameInEveryFormat) {
  const std::string images =
      "id,camera,x0,y0,z0,omega,phi,kappa,fixed\n"
      "1,1,0,0,5,-38.5,-1.38,-179.89,0\n"
      "2,1,1,0,5,100,60,-120,1\n";
  for (const std::string format : {"own",
                                   "matrix",
                                   "omega-phi-kappa gon",
                                   "arc degrees",
                                   "arc radians",
                                   "ttg gon",
                                   "ttg degrees"}) {
    test::JobScene scene;
    scene.Write("images.csv", images);
    ASSERT_THAT(scene.Messages(), IsEmpty());
    scene.Write("job.toml", "eor_format = \"" + format + "\"\n");
    ASSERT_THAT(scene.Messages(), IsEmpty());
    ApplyParameters(scene.Job(), scene.File().parameters);
    const auto before = ReadImagesAsMatrices(scene.Job());
    for (const auto& table : scene.Tables().tables) {
      if (table->Name() != "images") continue;
      ResultFile file(scene.Folder().Path() / "images.csv");
      CsvWriter writer(file);
      table->Write(writer, {scene.Job(), [] {}});
      file.Close();
    }
    ASSERT_THAT(scene.Messages(), IsEmpty()) << format;
    const auto after = ReadImagesAsMatrices(scene.Job());
    ASSERT_EQ(after.size(), 2U);
    for (std::size_t i = 0; i < after.size(); ++i) {
      for (std::size_t k = 0; k < 9; ++k) {
        // The library's pi has twelve digits; the writer takes matrices beyond 1e-9.
        EXPECT_NEAR(after[i].Rotation[k], before[i].Rotation[k], 2e-9) << format;
      }
    }
  }
}

}  // namespace
}  // namespace cardo

#include "networks/comparison.h"
#include "networks/library_run.h"
#include "reference/network_builder.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using reference::Shape;

// Far below the tolerance, as an increment that is left over counts as a deviation, and above what
// the rounding of coordinates leaves: at 1e-11 slowly converging networks end by luck.
constexpr double kConvergenceLimit = 2e-11;

// Adjusted values and residuals to 1e-9 of their standard deviations, standard deviations to 1e-9
// of themselves, redundancy numbers and correlations to 1e-9, also in a free network.
constexpr double kTolerance = 1e-9;

void ExpectAgreement(const Shape& shape) {
  const Network network = reference::Build(shape);
  const Result expected = reference::Adjust(network);
  ASSERT_TRUE(expected.converged);
  const LibraryRun run = RunThroughLibrary(network, kConvergenceLimit);
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(run.unknowns, expected.unknowns);
  EXPECT_EQ(run.observations, expected.observations);
  EXPECT_EQ(run.constraints, expected.constraints);
  EXPECT_EQ(run.redundancy, expected.observations - expected.unknowns + expected.constraints);
  EXPECT_NEAR(run.redundancySum, run.redundancy, kTolerance * run.observations);
  EXPECT_NEAR(run.s0 / static_cast<double>(expected.s0), 1.0, kTolerance);
  Comparison c;
  ComparePoints(c, run.adjusted, expected.adjusted);
  CompareImages(c, run.adjusted, expected.adjusted);
  CompareCameras(c, run.adjusted, expected.adjusted);
  CompareObservations(c, run.adjusted, expected);
  c.Expect(kTolerance);
}

TEST(NetworkComparison, PlainBundleWithFixedControl) {
  for (const std::uint64_t seed : {1U, 2U, 3U}) ExpectAgreement({.seed = seed});
}

TEST(NetworkComparison, PositivePrincipalDistance) { ExpectAgreement({.seed = 4, .ck = 30.0}); }

TEST(NetworkComparison, MeasuredControlInsteadOfFixedPoints) {
  ExpectAgreement({.seed = 5, .fixedControl = false});
}

TEST(NetworkComparison, FixedCameraAndFixedImages) {
  ExpectAgreement({.seed = 6, .freeCameras = false, .distortion = true, .fixedImages = 2});
}

// Every single parameter beside the principal distance, with and without a normalising radius.
TEST(NetworkComparison, EveryCameraParameter) {
  const std::uint32_t bits[] = {
      0x2, 0x4, 0x10, 0x20, 0x40, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000};
  std::uint64_t seed = 20;
  for (const std::uint32_t bit : bits) {
    SCOPED_TRACE(bit);
    ExpectAgreement(
        {.seed = seed++, .mask = 0x1 | bit, .distortion = true, .r0 = seed % 2 == 0 ? 0.0 : 4.0});
  }
}

TEST(NetworkComparison, ParameterMasksWithGaps) {
  for (const std::uint32_t mask : {0x7U, 0x77U, 0x317U, 0xF06U, 0x1011U, 0xF10U, 0x6U}) {
    SCOPED_TRACE(mask);
    ExpectAgreement(
        {.seed = 40 + mask, .images = 5, .points = 14, .mask = mask, .distortion = true});
  }
}

TEST(NetworkComparison, AllParametersAndTwoCameras) {
  ExpectAgreement({.seed = 60,
                   .cameras = 2,
                   .images = 6,
                   .points = 18,
                   .mask = 0xF77,
                   .distortion = true,
                   .r0 = 5.0});
}

TEST(NetworkComparison, CameraWithoutEstimatedParameterCountsAsFixed) {
  ExpectAgreement({.seed = 61, .mask = 0});
}

TEST(NetworkComparison, DepthDependentDistortionMovesTheSolutionAsTheRowsSay) {
  ExpectAgreement({.seed = 62, .images = 5, .points = 14, .mask = 0x3001, .distortion = true});
}

TEST(NetworkComparison, ProjectionsBesideAFixedCamera) {
  ExpectAgreement({.seed = 70, .freeCameras = false, .projections = true});
  ExpectAgreement({.seed = 71, .freeCameras = false, .distortion = true, .projections = true});
}

TEST(NetworkComparison, ProjectionsBesideAFreeCamera) {
  ExpectAgreement({.seed = 72,
                   .images = 6,
                   .points = 14,
                   .mask = 0x117,
                   .distortion = true,
                   .projections = true});
}

TEST(NetworkComparison, FixedProjections) {
  ExpectAgreement({.seed = 73,
                   .mask = 0x17,
                   .distortion = true,
                   .projections = true,
                   .fixedProjections = true});
}

TEST(NetworkComparison, RelativeOrientations) {
  ExpectAgreement({.seed = 80, .relative = true});
  ExpectAgreement({.seed = 81, .ck = 25.0, .mask = 0x17, .distortion = true, .relative = true});
}

TEST(NetworkComparison, PointsInTheFrameOfAnImage) {
  ExpectAgreement({.seed = 82, .bodyPoints = true});
}

TEST(NetworkComparison, MeasuredCoordinatesInTheFrameOfAnImage) {
  ExpectAgreement({.seed = 83, .measuredInImages = true});
  ExpectAgreement({.seed = 84, .bodyPoints = true, .measuredInImages = true});
}

TEST(NetworkComparison, Distances) {
  ExpectAgreement({.seed = 85, .distances = 3});
  ExpectAgreement({.seed = 86, .fixedControl = false, .bodyPoints = true, .distances = 3});
}

TEST(NetworkComparison, EverythingAtOnce) {
  for (const std::uint64_t seed : {90U, 91U, 92U})
    ExpectAgreement({.seed = seed,
                     .cameras = 2,
                     .images = 5,
                     .points = 14,
                     .mask = 0x115,
                     .distortion = true,
                     .r0 = 3.0,
                     .fixedControl = seed != 91U,
                     .relative = true,
                     .bodyPoints = true,
                     .measuredInImages = true,
                     .distances = 2});
}

TEST(NetworkComparison, MoreImagesThanPointsNumbersTheImagesFirst) {
  ExpectAgreement({.seed = 93, .images = 12, .points = 14});
}

TEST(NetworkComparison, FreeNetworkByTranslationRotationAndScale) {
  for (const std::uint64_t seed : {101U, 102U, 103U})
    ExpectAgreement({.seed = seed, .images = 4, .points = 12, .freeNetwork = true});
  ExpectAgreement({.seed = 104, .ck = 30.0, .mask = 0x17, .distortion = true, .freeNetwork = true});
}

TEST(NetworkComparison, FreeNetworkWithItsScaleFromDistances) {
  ExpectAgreement({.seed = 105, .distances = 3, .freeNetwork = true});
}

TEST(NetworkComparison, FreeNetworkWithMoreImagesThanPoints) {
  ExpectAgreement({.seed = 106, .images = 14, .points = 12, .freeNetwork = true});
}

TEST(NetworkProperties, OrderOfRecordsChangesResultsByRoundingOnly) {
  Network network = reference::Build({.seed = 95, .mask = 0x17, .distortion = true});
  const LibraryRun first = RunThroughLibrary(network, kConvergenceLimit);
  std::reverse(network.imagePoints.begin(), network.imagePoints.end());
  std::reverse(network.points.begin(), network.points.end());
  std::reverse(network.images.begin(), network.images.end());
  LibraryRun second = RunThroughLibrary(network, kConvergenceLimit);
  std::reverse(second.adjusted.points.begin(), second.adjusted.points.end());
  std::reverse(second.adjusted.images.begin(), second.adjusted.images.end());
  Comparison c;
  ComparePoints(c, second.adjusted, first.adjusted);
  CompareImages(c, second.adjusted, first.adjusted);
  CompareCameras(c, second.adjusted, first.adjusted);
  c.Expect(kTolerance);
  EXPECT_NEAR(first.s0 / second.s0, 1.0, 1e-12);
}

TEST(NetworkProperties, ShiftedNetworkKeepsResidualsAndSigmas) {
  Network network = reference::Build({.seed = 96});
  const LibraryRun first = RunThroughLibrary(network);
  const double shift[3] = {100.0, -250.0, 40.0};
  for (auto& p : network.points) {
    p.X += shift[0];
    p.Y += shift[1];
    p.Z += shift[2];
  }
  for (auto& e : network.images) {
    e.X0 += shift[0];
    e.Y0 += shift[1];
    e.Z0 += shift[2];
  }
  const LibraryRun second = RunThroughLibrary(network);
  EXPECT_NEAR(second.s0 / first.s0, 1.0, 1e-9);
  for (std::size_t i = 0; i < first.adjusted.imagePoints.size(); ++i) {
    EXPECT_NEAR(second.adjusted.imagePoints[i].Vx, first.adjusted.imagePoints[i].Vx, 1e-9);
    EXPECT_NEAR(second.adjusted.imagePoints[i].Rx, first.adjusted.imagePoints[i].Rx, 1e-9);
  }
}

}  // namespace

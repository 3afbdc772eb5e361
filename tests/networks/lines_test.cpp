// Lines from line image coordinates: exact measurements give the line back, whatever the camera
// does to its image, and noisy ones scatter as the standard deviations say.

#include "networks/library_run.h"
#include "reference/network_builder.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace {

using reference::Network;
using reference::Shape;
using Vec = std::array<double, 3>;

Vec Into(const sXYZ_ExteriorOrient2& e, const Vec& x) {
  const Vec d = {x[0] - e.X0, x[1] - e.Y0, x[2] - e.Z0};
  Vec y{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k) y[i] += e.Rotation[3 * k + i] * d[k];
  return y;
}

const Vec kPoint = {0.1, -0.2, 0.3};
const Vec kDirection = {2.0 / 7.0, 6.0 / 7.0, 3.0 / 7.0};

Vec OnLine(double t) {
  return {
      kPoint[0] + t * kDirection[0], kPoint[1] + t * kDirection[1], kPoint[2] + t * kDirection[2]};
}

// Images stand fixed at their true places; a camera with distortion and principal point.
Network TrueImages(double ck) {
  Network network = reference::Build(
      {.seed = 5, .images = 4, .points = 5, .ck = ck, .freeCameras = false, .fixedImages = 4});
  network.imagePoints.clear();
  network.points.clear();
  auto& c = network.cameras[0];
  c.Xh = 0.05;
  c.Yh = -0.08;
  c.A1 = 2e-5;
  c.B1 = 1e-5;
  c.C1 = 1e-4;
  c.C2 = -2e-4;
  return network;
}

std::array<double, 2> Project(const sXYZ_InteriorOrient& c, const Vec& x) {
  const double px = c.Ck * x[0] / x[2];
  const double py = c.Ck * x[1] / x[2];
  const double r2 = px * px + py * py;
  const double q = c.R0 * c.R0;
  const double k = c.A1 * (r2 - q);
  return {
      px + px * k + c.B1 * (2 * px * px + r2) + 2 * c.B2 * px * py + c.C1 * px + c.C2 * py + c.Xh,
      py + py * k + c.B2 * (2 * py * py + r2) + 2 * c.B1 * px * py + c.Yh};
}

struct LineRun {
  int status = -1;
  sXYZ_Line line{};
  double s0 = 0.0;
  int redundancy = 0;
  double redundancySum = 0.0;
};

// Line image coordinates in all images, ten points each; imageIds name images or pairs.
LineRun AdjustLine(const Network& network,
                   const std::vector<int>& imageIds,
                   double noise,
                   std::uint64_t seed) {
  reference::Random random(seed);
  const Job job = MakeJob(network, 1e-6);
  sXYZ_Line line{};
  line.Id = 3;
  line.Flags = 0x01;
  const Vec a = OnLine(-0.4);
  const Vec b = OnLine(0.9);
  for (std::size_t k = 0; k < 3; ++k) {
    line.P1[k] = a[k] + 0.01 * (k == 0 ? 1.0 : -0.5);
    line.P2[k] = b[k] - 0.01 * (k == 2 ? 1.0 : 0.3);
  }
  EXPECT_EQ(XYZ_SetLine(job.get(), &line), 0);
  int count = 0;
  for (const int id : imageIds)
    for (int i = 0; i < 10; ++i) {
      const Vec x = OnLine(-0.5 + 0.12 * i);
      Vec camera{};
      for (const auto& e : network.images)
        if (e.Id == id) camera = Into(e, x);
      for (const auto& pair : network.pairs) {
        if (pair.Id != id) continue;
        for (const auto& e : network.images)
          if (e.Id == pair.EorId) camera = Into(e, x);
        for (const auto& e : network.images)
          if (e.Id == pair.BaseEorId) camera = Into(e, camera);
      }
      const auto image = Project(network.cameras[0], camera);
      sXYZ_PictureLineCoord o{};
      o.Sx = o.Sy = 0.001;
      o.X = image[0] + noise * random.Normal();
      o.Y = image[1] + noise * random.Normal();
      o.Id = ++count;
      o.LineId = 3;
      o.EorId = id;
      o.Flags = 0x01;
      EXPECT_EQ(XYZ_SetPictureLineCoord(job.get(), &o), 0);
    }
  LineRun run;
  run.status = XYZ_CalcBundle(job.get());
  XYZ_GetLineAt(job.get(), 0, &run.line);
  XYZ_GetResult(job.get(), eXYZ_ResultS0, &run.s0);
  XYZ_GetResult(job.get(), eXYZ_ResultRedundancy, &run.redundancy);
  XYZ_GetResult(job.get(), eXYZ_ResultRedundancyValue, &run.redundancySum);
  return run;
}

// A run on exact data ends when S0 falls under its floor of 1e-5, in image units; an image unit is
// a sixth of an object unit here.
constexpr double kExact = 1e-5 / 6.0;

// Distance of the base point from the true line, and angle of the directions.
void ExpectTrueLine(const sXYZ_Line& line, double tolerance) {
  Vec d{};
  double along = 0.0;
  for (std::size_t k = 0; k < 3; ++k) {
    d[k] = line.P1[k] - kPoint[k];
    along += d[k] * kDirection[k];
  }
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_NEAR(d[k] - along * kDirection[k], 0.0, tolerance);
    EXPECT_NEAR(line.P2[k], kDirection[k], tolerance);
  }
}

TEST(Lines, ExactMeasurementsGiveTheLineBackThroughAnyDistortion) {
  for (const double ck : {-30.0, 30.0}) {
    const LineRun run = AdjustLine(TrueImages(ck), {10, 11, 12, 13}, 0.0, 1);
    ASSERT_EQ(run.status, 0);
    EXPECT_EQ(run.redundancy, 36);
    ExpectTrueLine(run.line, kExact);
  }
}

TEST(Lines, ExactMeasurementsThroughRelativeOrientations) {
  Network network = TrueImages(-30.0);
  sXYZ_ExteriorOrient2 base{};
  base.Id = 50;
  base.IorId = network.cameras[0].Id;
  base.ProjectionId = -1;
  base.Format = 0x101;
  base.Flags = 0x11;
  base.X0 = 0.4;
  base.Y0 = -0.1;
  base.Z0 = 0.05;
  base.Rotation[0] = 0.02;
  base.Rotation[2] = 0.3;
  // The same as a matrix, for the projection here.
  const double a = 0.02, c = 0.3;
  const double r[9] = {std::cos(c),
                       -std::sin(c),
                       0.0,
                       std::cos(a) * std::sin(c),
                       std::cos(a) * std::cos(c),
                       -std::sin(a),
                       std::sin(a) * std::sin(c),
                       std::sin(a) * std::cos(c),
                       std::cos(a)};
  std::copy_n(r, 9, base.Rotation);
  base.Format = 3;
  network.images.push_back(base);
  for (int i = 0; i < 4; ++i) network.pairs.push_back({60 + i, 10 + i, 50});
  const LineRun run = AdjustLine(network, {60, 61, 62, 63}, 0.0, 1);
  ASSERT_EQ(run.status, 0);
  ExpectTrueLine(run.line, kExact);
}

TEST(Lines, NoiseScattersTheLineAsItsStandardDeviationsSay) {
  // The spread of n draws has a relative standard deviation of 1 / sqrt(2 n); four of these.
  constexpr int kDraws = 400;
  const double bound = 4.0 / std::sqrt(2.0 * kDraws);
  const Network network = TrueImages(-30.0);
  double squares[6] = {};
  double variances[6] = {};
  double s0 = 0.0;
  for (int draw = 0; draw < kDraws; ++draw) {
    const LineRun run =
        AdjustLine(network, {10, 11, 12, 13}, 0.001, 100 + static_cast<std::uint64_t>(draw));
    ASSERT_EQ(run.status, 0);
    ASSERT_NEAR(run.redundancySum, run.redundancy, 1e-3);
    s0 += run.s0 * run.s0;
    // The base point slides along the line freely: what counts is its place across it.
    double along = 0.0;
    for (std::size_t k = 0; k < 3; ++k) along += (run.line.P1[k] - kPoint[k]) * kDirection[k];
    for (std::size_t k = 0; k < 3; ++k) {
      const double d = run.line.P1[k] - kPoint[k] - along * kDirection[k];
      squares[k] += d * d;
      squares[3 + k] += (run.line.P2[k] - kDirection[k]) * (run.line.P2[k] - kDirection[k]);
      // Scaled to the true S0, which is 0.001 by the weights.
      const double scale = 0.001 / run.s0;
      variances[k] += std::pow(run.line.SP1[k] * scale, 2);
      variances[3 + k] += std::pow(run.line.SP2[k] * scale, 2);
    }
  }
  EXPECT_NEAR(std::sqrt(s0 / kDraws) / 0.001, 1.0, bound);
  for (std::size_t k = 0; k < 6; ++k)
    EXPECT_NEAR(std::sqrt(squares[k] / variances[k]), 1.0, bound) << k;
}

}  // namespace

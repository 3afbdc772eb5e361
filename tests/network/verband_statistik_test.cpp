// Figures of a network against values computed by hand.

#include "network/verband_statistik.h"

#include "adjustment/fake_normal_system.h"
#include "network/network_scene.h"

#include <cmath>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// --- cameras ------------------------------------------------------------------

TEST(CameraCounts, ActiveOnesByWhetherTheyAreEstimated) {
  TestBundel job;
  job.Ior(1);
  job.Ior(2).SetVariable(true);
  job.Ior(3).SetVariable(true);
  job.Ior(4).SetActive(false);
  // Variable without an estimated parameter counts as fixed.
  DataIor& masked = job.Ior(5);
  masked.SetVariable(true);
  masked.SetParameterMask({});
  const CameraFigures cameras = VerbandStatistik(job).CameraCounts();
  EXPECT_EQ(cameras.fixed, 2U);
  EXPECT_EQ(cameras.variable, 2U);
}

// --- distances ----------------------------------------------------------------

MessungStrecke& StreckeWithResidual(TestBundel& job, double v) {
  MessungStrecke& strecke = job.Strecke(1, 2);
  strecke.CollectComponents()[0].SetResiduum(v);
  return strecke;
}

TEST(DistanceStatistics, RmsAndLargestOfThoseThatTakePart) {
  TestBundel job;
  StreckeWithResidual(job, 1.0);
  StreckeWithResidual(job, -2.0);
  StreckeWithResidual(job, 0.5);
  StreckeWithResidual(job, 100.0).SetAusreisser();
  StreckeWithResidual(job, 100.0).SetActive(false);
  const DistanceFigures distances = VerbandStatistik(job).DistanceStatistics();
  EXPECT_EQ(distances.count, 3U);
  EXPECT_DOUBLE_EQ(distances.rms, std::sqrt(5.25 / 3.0));
  EXPECT_EQ(distances.largest, -2.0);
}

TEST(DistanceStatistics, EarlierOneOfEqualMagnitudeIsTheLargest) {
  TestBundel first;
  StreckeWithResidual(first, -2.0);
  StreckeWithResidual(first, 2.0);
  EXPECT_EQ(VerbandStatistik(first).DistanceStatistics().largest, -2.0);
  TestBundel second;
  StreckeWithResidual(second, 2.0);
  StreckeWithResidual(second, -2.0);
  EXPECT_EQ(VerbandStatistik(second).DistanceStatistics().largest, 2.0);
}

TEST(DistanceStatistics, EmptySetIsZero) {
  TestBundel job;
  StreckeWithResidual(job, 5.0).SetActive(false);
  const DistanceFigures distances = VerbandStatistik(job).DistanceStatistics();
  EXPECT_EQ(distances.count, 0U);
  EXPECT_EQ(distances.rms, 0.0);
  EXPECT_EQ(distances.largest, 0.0);
}

// --- object points ------------------------------------------------------------

// Standard deviations as an adjustment leaves them.
void SetSigma(DataObko& point, double x, double y, double z) {
  FakeNormalSystem cofactors;
  const double sigma[] = {x, y, z};
  cofactors.cofactor = [&sigma](std::uint32_t row, std::uint32_t column) {
    return row == column ? sigma[row] * sigma[row] : 0.0;
  };
  point.SetFirstUnknown(0);
  point.StoreAccuracy(cofactors, 1.0);
}

TEST(ObjectPointStatistics, EstimatedPointsGiveRmsAndLargestPerAxis) {
  TestBundel job;
  SetSigma(job.Point(1), 1.0, 5.0, 2.0);
  SetSigma(job.Point(2), 7.0, 1.0, 2.0);
  job.Point(3).SetVariable(false);
  DataObko& inactive = job.Point(4);
  SetSigma(inactive, 100.0, 100.0, 100.0);
  inactive.SetActive(false);
  const ObjectPointFigures points = VerbandStatistik(job).ObjectPointStatistics();
  EXPECT_EQ(points.estimated, 2U);
  EXPECT_EQ(points.fixed, 1U);
  EXPECT_DOUBLE_EQ(points.rms[0], 5.0);
  EXPECT_DOUBLE_EQ(points.rms[1], std::sqrt(13.0));
  EXPECT_DOUBLE_EQ(points.rms[2], 2.0);
  EXPECT_EQ(points.largest[0], 7.0);
  EXPECT_EQ(points.largest[1], 5.0);
  EXPECT_EQ(points.largest[2], 2.0);
}

TEST(ObjectPointStatistics, FixedPointsLeaveTheDeviationsAtZero) {
  TestBundel job;
  DataObko& point = job.Point(1);
  SetSigma(point, 3.0, 3.0, 3.0);
  point.SetVariable(false);
  const ObjectPointFigures points = VerbandStatistik(job).ObjectPointStatistics();
  EXPECT_EQ(points.fixed, 1U);
  EXPECT_EQ(points.rms[0], 0.0);
  EXPECT_EQ(points.largest[0], 0.0);
}

TEST(ObjectPointStatistics, RaysAreUsedImageCoordinatesOfActivePoints) {
  TestBundel job;
  DataObko& first = job.Point(1);
  DataObko& second = job.Point(2);
  second.SetVariable(false);
  DataObko& inactive = job.Point(3);
  inactive.SetActive(false);
  for (int i = 0; i < 3; ++i) first.AddMessung(&job.Biko(1, 10));
  MessungBiko& outlier = job.Biko(1, 10);
  outlier.SetAusreisser();
  first.AddMessung(&outlier);
  MessungBiko& off = job.Biko(1, 10);
  off.SetActive(false);
  first.AddMessung(&off);
  first.AddMessung(&job.Strecke(1, 2));
  first.AddMessung(&job.Obko(1));
  second.AddMessung(&job.Biko(2, 10));
  second.AddMessung(&job.Biko(2, 11));
  inactive.AddMessung(&job.Biko(3, 10));
  EXPECT_DOUBLE_EQ(VerbandStatistik(job).ObjectPointStatistics().meanRays, 2.5);
}

TEST(ObjectPointStatistics, NoActivePointMeansZero) {
  TestBundel job;
  job.Point(1).SetActive(false);
  const ObjectPointFigures points = VerbandStatistik(job).ObjectPointStatistics();
  EXPECT_EQ(points.fixed, 0U);
  EXPECT_EQ(points.estimated, 0U);
  EXPECT_EQ(points.meanRays, 0.0);
  EXPECT_EQ(points.rms[0], 0.0);
}

// --- images -------------------------------------------------------------------

// A ray of this image id and residuals, linked to a group.
MessungBiko& Ray(TestBundel& job, Data& group, std::uint32_t imageId, double vx, double vy) {
  MessungBiko& biko = job.Biko(1, imageId);
  biko.CollectComponents()[0].SetResiduum(vx);
  biko.CollectComponents()[1].SetResiduum(vy);
  group.AddMessung(&biko);
  return biko;
}

TEST(ImageResiduals, RmsAndLargestWithTheirSigns) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 1);
  Ray(job, eor, 10, 3.0, 1.0);
  Ray(job, eor, 10, -4.0, 2.0);
  Ray(job, eor, 10, 4.0, -2.0);
  const ImageResiduals row = ResidualsOf(eor);
  EXPECT_EQ(row.id, 10U);
  EXPECT_EQ(row.rays, 3U);
  EXPECT_DOUBLE_EQ(row.rmsVx, std::sqrt(41.0 / 3.0));
  EXPECT_DOUBLE_EQ(row.rmsVy, std::sqrt(3.0));
  EXPECT_EQ(row.maxVx, -4.0);
  EXPECT_EQ(row.maxVy, 2.0);
}

TEST(ImageResiduals, RejectedInactiveAndOtherObservationsAreNoRays) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 1);
  Ray(job, eor, 10, 1.0, 1.0);
  Ray(job, eor, 10, 9.0, 9.0).SetAusreisser();
  Ray(job, eor, 10, 9.0, 9.0).SetActive(false);
  eor.AddMessung(&job.Obko(1));
  const ImageResiduals row = ResidualsOf(eor);
  EXPECT_EQ(row.rays, 1U);
  EXPECT_EQ(row.rmsVx, 1.0);
  EXPECT_EQ(row.maxVx, 1.0);
}

TEST(ImageResiduals, WithoutRaysAllIsZero) {
  TestBundel job;
  const ImageResiduals row = ResidualsOf(job.Eor(10, 1));
  EXPECT_EQ(row.id, 10U);
  EXPECT_EQ(row.rays, 0U);
  EXPECT_EQ(row.rmsVx, 0.0);
  EXPECT_EQ(row.maxVy, 0.0);
}

TEST(ImageResiduals, RaysThroughAPairCountForThePairOnly) {
  TestBundel job;
  job.Ior(1);
  DataEor& base = job.Eor(10, 1);
  DataEor& other = job.Eor(11, 1);
  DoppelOrientierung& pair = job.Pair(20, 11, 10);
  job.Point(1);
  job.Biko(1, 20);
  job.Biko(1, 20);
  job.Biko(1, 11);
  job.fNetworkSettings.SetAngleLimit(4.0);
  EXPECT_EQ(job.LinkOnly(), 0);
  ASSERT_EQ(base.Messungen().size(), 2U);
  ASSERT_EQ(other.Messungen().size(), 3U);
  EXPECT_EQ(ResidualsOf(base).rays, 0U);
  EXPECT_EQ(ResidualsOf(other).rays, 1U);
  EXPECT_EQ(ResidualsOf(pair).rays, 2U);
  EXPECT_EQ(ResidualsOf(pair).id, 20U);
}

TEST(ImageResiduals, PairCountsAllItsRaysWhateverTheirImage) {
  TestBundel job;
  DoppelOrientierung& pair = job.Pair(20, 11, 10);
  Ray(job, pair, 20, 1.0, 0.0);
  Ray(job, pair, 99, -3.0, 0.0);
  EXPECT_EQ(ResidualsOf(pair).rays, 2U);
  EXPECT_EQ(ResidualsOf(pair).maxVx, -3.0);
}

TEST(ImageStatistics, OrientationsThenPairsEachWithARow) {
  TestBundel job;
  DataEor& first = job.Eor(30, 1);
  DataEor& second = job.Eor(10, 1);
  DoppelOrientierung& pair = job.Pair(20, 30, 10);
  job.Eor(40, 1).SetActive(false);
  job.Pair(50, 30, 10).SetActive(false);
  for (int i = 0; i < 4; ++i) Ray(job, first, 30, 1.0, 0.0);
  for (int i = 0; i < 3; ++i) Ray(job, second, 10, 2.0, 0.0);
  Ray(job, second, 20, 100.0, 0.0);
  Ray(job, pair, 20, -3.0, 0.0);
  const ImageFigures images = VerbandStatistik(job).ImageStatistics();
  EXPECT_EQ(images.count, 3U);
  EXPECT_DOUBLE_EQ(images.meanRays, 8.0 / 3.0);
  EXPECT_EQ(images.fewest, 1U);
  EXPECT_EQ(images.fewestId, 20U);
  ASSERT_EQ(images.rows.size(), 3U);
  EXPECT_EQ(images.rows[0].id, 30U);
  EXPECT_EQ(images.rows[0].rays, 4U);
  EXPECT_EQ(images.rows[1].id, 10U);
  EXPECT_EQ(images.rows[1].rays, 3U);
  EXPECT_EQ(images.rows[1].maxVx, 2.0);
  EXPECT_EQ(images.rows[2].id, 20U);
  EXPECT_EQ(images.rows[2].maxVx, -3.0);
}

TEST(ImageStatistics, FirstImageOfTheFewestRaysIsNamed) {
  TestBundel job;
  Ray(job, job.Eor(30, 1), 30, 0.0, 0.0);
  job.Eor(40, 1);
  job.Eor(10, 1);
  job.Pair(20, 30, 10);
  const ImageFigures images = VerbandStatistik(job).ImageStatistics();
  EXPECT_EQ(images.fewest, 0U);
  EXPECT_EQ(images.fewestId, 40U);
}

TEST(ImageStatistics, NoActiveImageMeansNoRows) {
  TestBundel job;
  job.Eor(10, 1).SetActive(false);
  const ImageFigures images = VerbandStatistik(job).ImageStatistics();
  EXPECT_EQ(images.count, 0U);
  EXPECT_EQ(images.meanRays, 0.0);
  EXPECT_EQ(images.fewest, 0xFFFFFFFF);
  EXPECT_EQ(images.fewestId, 0xFFFFFFFF);
  EXPECT_TRUE(images.rows.empty());
}

TEST(VerbandStatistik, SeesTheNetworkAsItIsNow) {
  TestBundel job;
  const VerbandStatistik statistics(job);
  EXPECT_EQ(statistics.CameraCounts().fixed, 0U);
  job.Ior(1);
  EXPECT_EQ(statistics.CameraCounts().fixed, 1U);
}

}  // namespace
}  // namespace vermo::test

// Networks that determine nothing, contradict themselves or lie where the model has no value.

#include "hostile/complete_network.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace hostile {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

constexpr int kFree = 0x01;
constexpr int kFixed = 0x11;

sXYZ_ExteriorOrient2 ImageAt(int id, double x, double y, double z) {
  sXYZ_ExteriorOrient2 image{};
  image.Id = id;
  image.IorId = 1;
  image.ProjectionId = -1;
  image.X0 = x;
  image.Y0 = y;
  image.Z0 = z;
  image.Rotation[0] = image.Rotation[4] = image.Rotation[8] = 1.0;
  image.Format = 3;
  image.Flags = kFree;
  return image;
}

TEST(Empty, NetworkFailsWithoutObservations) { EXPECT_EQ(Survive({}).status, 8); }

TEST(Empty, ListOfAnyTypeIsSurvived) {
  const auto without = [](auto clear) {
    Records records = CompleteNetwork();
    clear(records);
    return Survive(records).status;
  };
  without([](Records& r) { r.images.clear(); });
  without([](Records& r) { r.points.clear(); });
  EXPECT_EQ(without([](Records& r) {
              r.rays.clear();
              r.lineRays.clear();
              r.measured.clear();
              r.distances.clear();
            }),
            8);
  without([](Records& r) { r.cameras.clear(); });
  without([](Records& r) { r.projections.clear(); });
  without([](Records& r) { r.pairs.clear(); });
  without([](Records& r) { r.lines.clear(); });
  without([](Records& r) { r.planes.clear(); });
  without([](Records& r) { r.rays.clear(); });
  without([](Records& r) { r.lineRays.clear(); });
  without([](Records& r) { r.measured.clear(); });
  without([](Records& r) { r.distances.clear(); });
  without([](Records& r) { r.onLine.clear(); });
  without([](Records& r) { r.onPlane.clear(); });
}

TEST(Images, AnyNumberOfThemIsSurvived) {
  for (std::ptrdiff_t count = 0; count <= 5; ++count) {
    SCOPED_TRACE(count);
    Records records = CompleteNetwork();
    records.images.erase(records.images.begin() + count, records.images.end());
    Survive(records);
  }
}

TEST(Images, OneAloneIsSurvived) {
  Records records = CompleteNetwork();
  records.images.erase(records.images.begin() + 1, records.images.end());
  records.pairs.clear();
  Survive(records);
}

TEST(Images, IdenticalOnesAreSurvived) {
  for (const std::size_t other : {1U, 2U, 3U, 4U}) {
    SCOPED_TRACE(other);
    Records records = CompleteNetwork();
    const int id = records.images[other].Id;
    records.images[other] = records.images[0];
    records.images[other].Id = id;
    for (auto& ray : records.rays)
      if (ray.EorId == id)
        for (const auto& first : records.rays)
          if (first.EorId == 1 && first.PointId == ray.PointId) {
            ray.X = first.X;
            ray.Y = first.Y;
          }
    Survive(records);
  }
  // All of them, and nothing else to hold the points.
  Records records = CompleteNetwork();
  for (std::size_t i = 1; i < 5; ++i) {
    const int id = records.images[i].Id;
    records.images[i] = records.images[0];
    records.images[i].Id = id;
  }
  records.measured.clear();
  records.distances.clear();
  records.pairs.clear();
  Survive(records);
}

TEST(Points, InTheCameraPlaneAreSurvived) {
  for (const int flags : {kFree, kFixed}) {
    Records records = CompleteNetwork();
    records.images[0] = ImageAt(1, 0.0, 0.0, 0.0);
    for (auto& point : records.points) {
      point.Z = 0.0;
      point.Flags = static_cast<std::uint16_t>(flags);
    }
    Survive(records);
    // And at the projection centre itself.
    for (auto& point : records.points) point.X = point.Y = point.Z = 0.0;
    Survive(records);
  }
}

TEST(Points, BehindTheCameraAreSurvived) {
  Records records = CompleteNetwork();
  for (auto& image : records.images)
    for (unsigned i = 0; i < 3; ++i) {
      image.Rotation[3 * i + 1] = -image.Rotation[3 * i + 1];
      image.Rotation[3 * i + 2] = -image.Rotation[3 * i + 2];
    }
  Survive(records);
}

TEST(Points, ThatCoincideAreSurvived) {
  Records records = CompleteNetwork();
  for (auto& point : records.points) {
    point.X = 1.0;
    point.Y = 2.0;
    point.Z = 3.0;
  }
  Survive(records);
  for (auto& image : records.images) image.X0 = 1.0, image.Y0 = 2.0, image.Z0 = 3.0;
  Survive(records);
}

TEST(Points, OnOneLineAreSurvived) {
  for (const bool isFree : {false, true}) {
    Records records = CompleteNetwork();
    double s = -50.0;
    for (auto& point : records.points) {
      point.X = 2.0 * s;
      point.Y = 50.0 + s;
      point.Z = 20.0 + s;
      s += 10.0;
      if (isFree) point.Flags = kFree;
    }
    Survive(records);
    // In a plane through the projection centres they are on a line in every image.
    for (auto& image : records.images) image.Y0 = 50.0, image.Z0 = 20.0;
    Survive(records);
  }
}

TEST(Datum, OfEveryKindOverEveryKindOfPointsIsSurvived) {
  for (const int datum : {0x700, 0x3800, 0x4000, 0x3F00, 0x7F00})
    for (const bool isFree : {false, true})
      for (const int datumPoints : {0, 1, 2, 11})
        for (const bool isLine : {false, true}) {
          SCOPED_TRACE(std::to_string(datum) + ' ' + std::to_string(isFree) + ' ' +
                       std::to_string(datumPoints) + ' ' + std::to_string(isLine));
          Records records = CompleteNetwork();
          int count = 0;
          for (auto& point : records.points) {
            point.PointFlags = count++ < datumPoints ? 1 : 0;
            if (isFree) point.Flags = kFree;
            if (isLine) point.X = point.Y = point.Z;
          }
          Job job;
          job.Feed(records);
          ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamDatum, datum), 0);
          SurviveRuns(job);
        }
}

TEST(Coordinates, ShiftedByAnyLengthAreSurvived) {
  for (const double shift : {5e6, 1e9, 1e15, 1e16, 1e30, 1e100, 1e154, 1e200, 1e300, 1.7e308}) {
    SCOPED_TRACE(shift);
    Records records = CompleteNetwork();
    for (auto& point : records.points)
      if (point.ReferenceEor == -1) point.X += shift;
    for (auto& image : records.images)
      if (image.Id != 5) image.X0 += shift;
    for (auto& line : records.lines) line.P1[0] += shift, line.P2[0] += shift;
    for (auto& plane : records.planes) plane.Point[0] += shift;
    for (auto& measured : records.measured)
      if (measured.ReferenceEor == -1) measured.X += shift;
    const Outcome run = Survive(records);
    if (shift == 5e6) {
      EXPECT_EQ(run.status, 0);
    }
  }
}

TEST(Coordinates, ScaledByAnyFactorAreSurvived) {
  for (const double factor : {0.0, -1.0, 1e-300, 1e-100, 1e-20, 1e20, 1e100, 1e150, 1e300}) {
    SCOPED_TRACE(factor);
    Records records = CompleteNetwork();
    for (auto& point : records.points) point.X *= factor, point.Y *= factor, point.Z *= factor;
    for (auto& image : records.images) image.X0 *= factor, image.Y0 *= factor, image.Z0 *= factor;
    Survive(records);
  }
}

TEST(PrincipalDistance, OfZeroOrAnyExtremeIsSurvivedInCameraAndProjection) {
  for (const double ck : {0.0, -0.0, 5e-324, 1e-300, -30.0, 1e300, kNaN})
    for (const int flags : {kFree, kFixed})
      for (const std::uint32_t mask : {0x0U, 0x1U, 0x7U, 0x3F77U}) {
        SCOPED_TRACE(std::to_string(ck) + ' ' + std::to_string(flags) + ' ' + std::to_string(mask));
        Records records = CompleteNetwork();
        for (auto& camera : records.cameras) {
          camera.Ck = ck;
          camera.Flags = static_cast<std::uint16_t>(flags);
          camera.ParameterMask = mask;
        }
        records.projections[0].Ck = ck;
        Survive(records);
      }
}

// Such a camera has no unknowns and is as good as fixed.
TEST(Camera, VariableWithoutAnyParameterIsSurvivedWithAndWithoutTheCheck) {
  for (const int check : {0, 1})
    for (const bool hasConstraints : {false, true})
      for (const std::uint32_t mask : {0x0U, 0x8U, 0x80U, 0xFFFFC088U}) {
        SCOPED_TRACE(std::to_string(check) + ' ' + std::to_string(mask));
        Records records = CompleteNetwork();
        for (auto& camera : records.cameras) {
          camera.Flags = kFree;
          camera.ParameterMask = mask;
        }
        if (!hasConstraints) {
          records.onLine.clear();
          records.onPlane.clear();
          records.planes.clear();
        }
        Job job;
        job.Feed(records);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamSolvabilityCheck, check), 0);
        const Outcome run = SurviveRuns(job);
        EXPECT_EQ(run.status, 0);
      }
}

TEST(Rotation, MatrixThatIsNoneIsRefusedOrSurvived) {
  struct Case {
    const char* name;
    double factor;
    bool isReflected;
    int expected;
  };
  for (const Case& c : {Case{"zero", 0.0, false, 4},
                        Case{"doubled", 2.0, false, 4},
                        Case{"denormal", 5e-324, false, 4},
                        Case{"huge", 1e300, false, 4},
                        Case{"infinite", std::numeric_limits<double>::infinity(), false, 4},
                        Case{"not a number", kNaN, false, 4},
                        Case{"negated", -1.0, false, 0},
                        Case{"nearly right", 1.001, false, 0},
                        Case{"reflected", 1.0, true, 0}}) {
    SCOPED_TRACE(c.name);
    Records records = CompleteNetwork();
    for (auto& image : records.images) {
      for (double& element : image.Rotation) element *= c.factor;
      if (c.isReflected)
        for (unsigned i = 0; i < 3; ++i) image.Rotation[i] = -image.Rotation[i];
    }
    Job job;
    EXPECT_EQ(XYZ_SetExteriorOrientation2(job.Handle(), records.images.data()), c.expected);
    EXPECT_EQ(XYZ_GetExteriorOrientCnt(job.Handle()), c.expected == 0 ? 1 : 0);
    Survive(records);
  }
}

TEST(Ids, TwiceInEveryListAreRefusedOrSurvived) {
  Records records = CompleteNetwork();
  const auto twice = [](auto& list) {
    const auto copy = list;
    list.insert(list.end(), copy.begin(), copy.end());
  };
  twice(records.cameras);
  twice(records.projections);
  twice(records.images);
  twice(records.pairs);
  twice(records.points);
  twice(records.lines);
  EXPECT_EQ(Survive(records).status, 0);
  twice(records.rays);
  twice(records.lineRays);
  twice(records.measured);
  twice(records.distances);
  EXPECT_EQ(Survive(records).status, 0);
  // Of two planes with one id the constraints hold the later; nothing holds the other.
  Records planes = records;
  twice(planes.planes);
  EXPECT_EQ(Survive(planes).status, 23);
  // The same row twice in the border.
  twice(records.onLine);
  twice(records.onPlane);
  Survive(records);
}

TEST(Ids, SharedByImageAndPairAreRefusedInEitherOrder) {
  const Records good = CompleteNetwork();
  Job job;
  sXYZ_RelativeOrientation pair{1, 1, 5};
  ASSERT_EQ(XYZ_SetExteriorOrientation2(job.Handle(), good.images.data()), 0);
  EXPECT_EQ(XYZ_SetRelativeOrientation(job.Handle(), &pair), 18);
  pair.Id = 2;
  ASSERT_EQ(XYZ_SetRelativeOrientation(job.Handle(), &pair), 0);
  EXPECT_EQ(XYZ_SetExteriorOrientation2(job.Handle(), &good.images[1]), 18);
}

TEST(Pairs, OfEveryTwoIdsAreSurvived) {
  for (const int eor : {INT_MIN, -1, 0, 1, 2, 4, 5, 50, 51, 99})
    for (const int base : {INT_MIN, -1, 0, 1, 2, 4, 5, 50, 51, 99}) {
      SCOPED_TRACE(std::to_string(eor) + ' ' + std::to_string(base));
      Records records = CompleteNetwork();
      records.pairs[0] = {50, eor, base};
      // A pair of pairs, and one that refers back.
      records.pairs.push_back({51, 50, eor});
      records.pairs.push_back({52, base, 51});
      for (std::size_t i = 0; i < records.rays.size(); i += 9) records.rays[i].EorId = 51;
      for (auto& ray : records.lineRays)
        if (ray.EorId == 2) ray.EorId = 50;
      Survive(records);
    }
}

TEST(Frames, OfPointsInAnyImageAreSurvived) {
  for (const int reference : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 50, 99})
    for (const bool isAll : {false, true}) {
      SCOPED_TRACE(reference);
      Records records = CompleteNetwork();
      for (auto& point : records.points)
        if (isAll || point.Id > 8) point.ReferenceEor = reference;
      for (auto& measured : records.measured) measured.ReferenceEor = reference;
      Survive(records);
    }
}

TEST(Distances, OfAPointToItselfOrToNoneAreSurvived) {
  for (const int first : {-1, 0, 4, 11, 99})
    for (const int second : {-1, 0, 4, 11, 99})
      for (const double s : {-1.0, 0.0, 1.0, 1e300}) {
        Records records = CompleteNetwork();
        records.distances[0].Point1 = first;
        records.distances[0].Point2 = second;
        records.distances[0].S = s;
        Survive(records);
      }
}

TEST(Sigmas, OfAnySizeAgainstEachOtherAreSurvived) {
  for (const double sigma : {5e-324,
                             1e-300,
                             1e-160,
                             1e-20,
                             1e20,
                             1e160,
                             1e300,
                             1.7e308,
                             std::numeric_limits<double>::infinity()}) {
    SCOPED_TRACE(sigma);
    Records records = CompleteNetwork();
    for (auto& ray : records.rays) ray.Sx = sigma;
    Survive(records);
    for (auto& ray : records.rays) ray.Sy = sigma;
    for (auto& ray : records.lineRays) ray.Sx = ray.Sy = sigma;
    Survive(records);
    for (auto& measured : records.measured) measured.Sx = measured.Sy = measured.Sz = sigma;
    for (auto& distance : records.distances) distance.Sigma = sigma;
    Survive(records);
    // And the unit of weight.
    Job job;
    job.Feed(records);
    ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamS0Apriori, sigma), 0);
    SurviveRuns(job);
  }
}

TEST(Lines, ThroughProjectionCentresOrAlongAxesAreSurvived) {
  for (std::size_t image = 0; image < 3; ++image) {
    Records records = CompleteNetwork();
    auto& line = records.lines[0];
    line.P1[0] = records.images[image].X0;
    line.P1[1] = records.images[image].Y0;
    line.P1[2] = records.images[image].Z0;
    Survive(records);
  }
  for (unsigned axis = 0; axis < 3; ++axis)
    for (const double length : {1e-9, 1.0, -1.0, 1e150, 1e300}) {
      Records records = CompleteNetwork();
      auto& line = records.lines[0];
      std::fill_n(line.P1, 3, 0.0);
      std::fill_n(line.P2, 3, 0.0);
      line.P2[axis] = length;
      Survive(records);
    }
}

TEST(Constraints, BetweenFixedElementsAreSurvived) {
  Records records = CompleteNetwork();
  for (auto& line : records.lines) line.Flags = kFixed;
  for (auto& plane : records.planes) plane.Flags = kFixed;
  Survive(records);
  for (auto& point : records.points) point.Flags = kFixed;
  EXPECT_EQ(Survive(records).status, 23);
}

TEST(Constraints, OfEveryPointOnLineAndPlaneAtOnceAreSurvived) {
  Records records = CompleteNetwork();
  for (int id = 1; id <= 11; ++id) {
    records.onLine.push_back({100 + id, id, 20, 1});
    records.onPlane.push_back({200 + id, id, 30, 1});
  }
  Survive(records);
}

// Every way in which a first run may end, then one that only writes what is there: the tables must
// not read a system that the first one left half built.
TEST(RunWithoutIterations, IsSurvivedAfterARunThatTookAllPointsOut) {
  for (const int minRays : {1, 2, 5, 6, 100, -1, INT_MIN})
    for (const int check : {0, 1})
      for (const bool hasOthers : {false, true}) {
        SCOPED_TRACE(std::to_string(minRays) + ' ' + std::to_string(check));
        Records records = CompleteNetwork();
        for (auto& point : records.points) point.Flags = kFree;
        for (auto& camera : records.cameras) camera.Flags = kFree, camera.ParameterMask = 0x7;
        if (!hasOthers) {
          records.lineRays.clear();
          records.measured.clear();
          records.distances.clear();
        }
        Job job;
        job.Feed(records);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamMinRays, minRays), 0);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamSolvabilityCheck, check), 0);
        SurviveRuns(job);
      }
}

// Elements that come to a job between two runs.
TEST(SecondRun, WithElementsThatCameInBetweenIsSurvived) {
  Records records = CompleteNetwork();
  Records late;
  late.points.push_back(records.points.back());
  records.points.pop_back();
  late.images.push_back(records.images[3]);
  records.images.erase(records.images.begin() + 3);
  late.planes.swap(records.planes);
  late.rays.assign(records.rays.begin(), records.rays.begin() + 10);
  Job job;
  job.Feed(records);
  job.Calc();
  job.Feed(late);
  job.Calc(0);
  job.ReadBack();
  job.Calc();
  job.ReadBack();
}

}  // namespace
}  // namespace hostile

// The networks of the Monte Carlo tests, and a test that their truth is the library's too.

#include "monte_carlo/scene.h"

#include "support/job.h"
#include "support/network_records.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <utility>

namespace monte_carlo {
namespace {

using reference::Network;
using reference::Random;
using Vec = std::array<double, 3>;

// --- The truth ---

Vec Into(const sXYZ_ExteriorOrient2& e, const Vec& x) {
  const Vec d = {x[0] - e.X0, x[1] - e.Y0, x[2] - e.Z0};
  Vec y{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k) y[i] += e.Rotation[3 * k + i] * d[k];
  return y;
}

Vec OutOf(const sXYZ_ExteriorOrient2& e, const Vec& x) {
  Vec y = {e.X0, e.Y0, e.Z0};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k) y[i] += e.Rotation[3 * i + k] * x[k];
  return y;
}

double Dot(const Vec& a, const Vec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vec Along(const Vec& from, const Vec& direction, double t) {
  return {from[0] + t * direction[0], from[1] + t * direction[1], from[2] + t * direction[2]};
}

Vec Array(const double (&v)[3]) { return {v[0], v[1], v[2]}; }

template <typename Record>
const Record* Find(const std::vector<Record>& records, int id) {
  const auto found =
      std::find_if(records.begin(), records.end(), [id](const Record& r) { return r.Id == id; });
  return found == records.end() ? nullptr : &*found;
}

Vec World(const Network& network, const sXYZ_ObjectCoord& p) {
  const Vec x = {p.X, p.Y, p.Z};
  return p.ReferenceEor == -1 ? x : OutOf(*Find(network.images, p.ReferenceEor), x);
}

// Where an image, or a relative orientation, sees a point of the object.
std::array<double, 2> Seen(const Network& network, int id, const Vec& world) {
  const auto* pair = Find(network.pairs, id);
  Vec x = Into(*Find(network.images, pair != nullptr ? pair->EorId : id), world);
  const auto& owner = *Find(network.images, pair != nullptr ? pair->BaseEorId : id);
  if (pair != nullptr) x = Into(owner, x);
  const auto& c = *Find(network.cameras, owner.IorId);
  const double px = c.Ck * x[0] / x[2];
  const double py = c.Ck * x[1] / x[2];
  const double r2 = px * px + py * py;
  const double q = c.R0 * c.R0;
  const double k = c.A1 * (r2 - q) + c.A2 * (r2 * r2 - q * q) + c.A3 * (r2 * r2 * r2 - q * q * q) +
                   (c.AZ1 * (r2 - q) + c.AZ2 * (r2 * r2 - q * q)) / x[2];
  const double dx = px * k + c.B1 * (2 * px * px + r2) + 2 * c.B2 * px * py + c.C1 * px + c.C2 * py;
  const double dy = py * k + c.B2 * (2 * py * py + r2) + 2 * c.B1 * px * py;
  const auto* p = Find(network.projections, owner.ProjectionId);
  if (p == nullptr) return {px + dx + c.Xh, py + dy + c.Yh};
  return {(px + dx) / c.Ck * p->Ck + p->Xh, (py + dy) / c.Ck * p->Ck + p->Yh};
}

void Place(Network& network, sXYZ_ObjectCoord& p, const Vec& world) {
  const Vec x = p.ReferenceEor == -1 ? world : Into(*Find(network.images, p.ReferenceEor), world);
  p.X = x[0];
  p.Y = x[1];
  p.Z = x[2];
}

sXYZ_Line MakeLine(int id, const Vec& point, Vec direction) {
  const double length = std::sqrt(Dot(direction, direction));
  sXYZ_Line line{};
  line.Id = id;
  line.Flags = 0x01;
  for (std::size_t k = 0; k < 3; ++k) {
    line.P1[k] = point[k];
    line.P2[k] = direction[k] / length;
  }
  return line;
}

void AddLines(Scene& scene, double noise) {
  scene.lines.push_back(MakeLine(3, {0.1, -0.2, 0.3}, {2.0, 6.0, 3.0}));
  scene.lines.push_back(MakeLine(4, {-0.3, 0.4, -0.1}, {6.0, -3.0, 2.0}));
  std::vector<int> places;
  for (const auto& e : scene.network.images)
    if (scene.network.pairs.empty() || e.Id != scene.network.pairs[0].BaseEorId)
      places.push_back(e.Id);
  for (const auto& pair : scene.network.pairs) places.push_back(pair.Id);
  int count = 0;
  for (const auto& line : scene.lines)
    for (const int place : places)
      for (int i = 0; i < 4; ++i) {
        const Vec x = Along(Array(line.P1), Array(line.P2), -0.8 + 0.5 * i + 0.01 * place);
        const auto image = Seen(scene.network, place, x);
        sXYZ_PictureLineCoord o{};
        o.X = image[0];
        o.Y = image[1];
        o.Sx = o.Sy = noise * (1.0 + 0.5 * (count % 3));
        o.Id = ++count;
        o.LineId = line.Id;
        o.EorId = place;
        o.Flags = 0x01;
        scene.lineCoords.push_back(o);
      }
}

// Points that are no control are moved onto a plane and a line.
void AddConstraints(Scene& scene) {
  sXYZ_Plane plane{};
  plane.Id = 7;
  plane.Flags = 0x01;
  const Vec normal = {2.0 / 7.0, -3.0 / 7.0, 6.0 / 7.0};
  for (std::size_t k = 0; k < 3; ++k) plane.Normal[k] = normal[k];
  plane.Point[0] = 0.1;
  plane.Point[1] = -0.1;
  plane.Point[2] = 0.2;
  scene.planes.push_back(plane);
  scene.lines.push_back(MakeLine(8, {0.2, 0.1, -0.3}, {3.0, 2.0, -6.0}));
  const sXYZ_Line& line = scene.lines.back();
  auto& points = scene.network.points;
  for (std::size_t i = 4; i < 15; ++i) {
    const Vec x = World(scene.network, points[i]);
    // A constraint to a line takes points of the object only.
    if (i >= 11 && points[i].ReferenceEor == -1) {
      const Vec from = Array(line.P1);
      const double t = Dot({x[0] - from[0], x[1] - from[1], x[2] - from[2]}, Array(line.P2));
      Place(scene.network, points[i], Along(from, Array(line.P2), t));
      scene.pointsOnLines.push_back({static_cast<int>(i), points[i].Id, line.Id, 0x01});
    } else {
      const Vec from = Array(plane.Point);
      const double t = Dot({x[0] - from[0], x[1] - from[1], x[2] - from[2]}, normal);
      Place(scene.network, points[i], Along(x, normal, -t));
      scene.pointsOnPlanes.push_back({static_cast<int>(i), points[i].Id, plane.Id, 0x01});
    }
  }
}

void MeasureTruth(Network& network) {
  for (auto& o : network.imagePoints) {
    const auto image = Seen(network, o.EorId, World(network, *Find(network.points, o.PointId)));
    o.X = image[0];
    o.Y = image[1];
  }
  for (auto& o : network.measured) {
    Vec x = World(network, *Find(network.points, o.PointId));
    if (o.ReferenceEor != -1) x = Into(*Find(network.images, o.ReferenceEor), x);
    o.X = x[0];
    o.Y = x[1];
    o.Z = x[2];
  }
  for (auto& o : network.distances) {
    const Vec a = World(network, *Find(network.points, o.Point1));
    const Vec b = World(network, *Find(network.points, o.Point2));
    o.S = std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
  }
}

// --- A run ---

using vermo::test::Job;

template <typename Record>
void SetAll(void* job, const std::vector<Record>& records, int (*set)(void*, const Record*)) {
  for (const Record& record : records) ASSERT_EQ(set(job, &record), 0);
}

template <typename Record>
void GetAll(void* job, std::vector<Record>& records, int (*get)(void*, int, Record*)) {
  for (std::size_t i = 0; i < records.size(); ++i)
    EXPECT_EQ(get(job, static_cast<int>(i), &records[i]), 0);
}

Job MakeJob(const Scene& scene) {
  // Tens of thousands of protocols that nobody reads.
  Job job(XYZ_CreateJob("/dev/null"));
  void* handle = job.get();
  const Network& network = scene.network;
  XYZ_SetParam(handle, eXYZ_ParamBlunderTest, 0);
  XYZ_SetParam(handle, eXYZ_ParamS0Apriori, network.s0Apriori);
  // The last increments are far below a thousandth of the standard deviations, and are applied.
  XYZ_SetParam(handle, eXYZ_ParamConvergenceLimit, 1e-4);
  // The scenes without noise are to be adjusted, too.
  XYZ_SetParam(handle, eXYZ_ParamS0Floor, 1e-12);
  XYZ_SetParam(handle, eXYZ_ParamDatum, vermo::test::DatumOf(network));
  vermo::test::HandOver(network,
                        [&](const auto& records, auto set) { SetAll(handle, records, set); });
  for (sXYZ_Line line : scene.lines) {
    for (std::size_t k = 0; k < 3; ++k) line.P2[k] += line.P1[k];
    EXPECT_EQ(XYZ_SetLine(handle, &line), 0);
  }
  SetAll(handle, scene.planes, XYZ_SetPlane);
  SetAll(handle, scene.lineCoords, XYZ_SetPictureLineCoord);
  SetAll(handle, scene.pointsOnLines, XYZ_SetConstraintPointOnLine);
  SetAll(handle, scene.pointsOnPlanes, XYZ_SetConstraintPointOnPlane);
  return job;
}

std::vector<sXYZ_ExteriorOrient2> ReadImages(void* job, std::size_t count, std::uint32_t format) {
  XYZ_SetParam(job, eXYZ_ParamEorFormat, static_cast<int>(format));
  std::vector<sXYZ_ExteriorOrient2> images(count);
  GetAll(job, images, XYZ_GetExteriorOrientAt);
  return images;
}

// --- What a run tells, in one order ---

template <typename Group>
bool IsEstimated(const Group& group) {
  return (group.Flags & 0x11) == 0x01;
}

double FullCircle(std::uint32_t format) {
  return (format & 0x200) != 0 ? 400.0 : ((format & 0x400) != 0 ? 360.0 : 2.0 * std::numbers::pi);
}

constexpr const char* kAxes[3] = {" x", " y", " z"};

// Calls visit(kind, id, which, value, true value, standard deviation, is a residual).
template <typename Visit>
class Teller {
 public:
  Teller(const Scene& truth, const Scene& told, Visit visit)
      : fTruth(truth), fTold(told), fVisit(std::move(visit)) {}

  void Unknowns(const std::vector<sXYZ_ExteriorOrient2>& trueAngles,
                const std::vector<sXYZ_ExteriorOrient2>& angles,
                std::uint32_t format) {
    Points();
    Images(trueAngles, angles, format);
    Cameras();
    LinesAndPlanes();
  }

  void Residuals() {
    const Network& told = fTold.network;
    for (const auto& o : told.imagePoints) {
      Residual("residual of image point", o.PointId, " x", o.Vx, o.Sx, o.Rx);
      Residual("residual of image point", o.PointId, " y", o.Vy, o.Sy, o.Ry);
    }
    for (const auto& o : told.measured) {
      const char* kind =
          o.ReferenceEor == -1 ? "residual of coordinate" : "residual of coordinate in image";
      Residual(kind, o.PointId, " x", o.Vx, o.Sx, o.Rx);
      Residual(kind, o.PointId, " y", o.Vy, o.Sy, o.Ry);
      Residual(kind, o.PointId, " z", o.Vz, o.Sz, o.Rz);
    }
    for (const auto& o : told.distances)
      Residual("residual of distance", o.Point1, "", o.V, o.Sigma, o.R);
    for (const auto& o : fTold.lineCoords)
      Residual("residual of line coordinate", o.Id, "", o.V, o.Sx, o.R);
  }

 private:
  void Residual(const char* kind, int id, const char* which, double v, double sigma, double r) {
    fVisit(kind, id, which, v, 0.0, sigma * std::sqrt(r), true);
  }
  void Unknown(const char* kind, int id, const char* which, double told, double truth, double s) {
    fVisit(kind, id, which, told, truth, s, false);
  }

  void Points() {
    for (std::size_t i = 0; i < fTold.network.points.size(); ++i) {
      const auto& a = fTold.network.points[i];
      const auto& b = fTruth.network.points[i];
      if (!IsEstimated(b)) continue;
      const auto on = [&b](const auto& constraint) { return constraint.PointId == b.Id; };
      const char* kind = "point";
      if (b.ReferenceEor != -1) kind = "body point";
      if (std::any_of(fTruth.pointsOnLines.begin(), fTruth.pointsOnLines.end(), on))
        kind = "point on line";
      if (std::any_of(fTruth.pointsOnPlanes.begin(), fTruth.pointsOnPlanes.end(), on))
        kind = b.ReferenceEor == -1 ? "point on plane" : "body point on plane";
      Unknown(kind, b.Id, " x", a.X, b.X, a.Sx);
      Unknown(kind, b.Id, " y", a.Y, b.Y, a.Sy);
      Unknown(kind, b.Id, " z", a.Z, b.Z, a.Sz);
    }
  }

  void Images(const std::vector<sXYZ_ExteriorOrient2>& trueAngles,
              const std::vector<sXYZ_ExteriorOrient2>& angles,
              std::uint32_t format) {
    for (std::size_t i = 0; i < fTold.network.images.size(); ++i) {
      const auto& a = fTold.network.images[i];
      const auto& b = fTruth.network.images[i];
      if (!IsEstimated(b)) continue;
      const bool isBase = std::any_of(fTruth.network.pairs.begin(),
                                      fTruth.network.pairs.end(),
                                      [&](const auto& pair) { return pair.BaseEorId == b.Id; });
      const char* centre = isBase ? "relative centre" : "projection centre";
      Unknown(centre, b.Id, " x", a.X0, b.X0, a.SPosition[0]);
      Unknown(centre, b.Id, " y", a.Y0, b.Y0, a.SPosition[1]);
      Unknown(centre, b.Id, " z", a.Z0, b.Z0, a.SPosition[2]);
      // The small rotation about the axes that turns the true matrix into this one, from the left:
      // half the skew part of their quotient, to second order.
      double turn[3] = {};
      for (std::size_t k = 0; k < 3; ++k) {
        const std::size_t p = (k + 1) % 3;
        const std::size_t q = (k + 2) % 3;
        for (std::size_t l = 0; l < 3; ++l)
          turn[k] += 0.5 * (a.Rotation[3 * q + l] * b.Rotation[3 * p + l] -
                            a.Rotation[3 * p + l] * b.Rotation[3 * q + l]);
        Unknown(isBase ? "relative rotation" : "rotation",
                b.Id,
                kAxes[k],
                turn[k],
                0.0,
                a.SRotation[k]);
      }
      // The elements of the matrix are left out: their standard deviations are made of those of the
      // three rotations as if these were independent, and do not tell the spread.
      for (std::size_t k = 0; k < 3; ++k)
        Unknown(
            isBase ? "relative angle" : "angle",
            b.Id,
            kAxes[k],
            std::remainder(angles[i].Rotation[k] - trueAngles[i].Rotation[k], FullCircle(format)),
            0.0,
            angles[i].SMatrix[k]);
    }
  }

  void Cameras() {
    static constexpr const char* kNames[12] = {"camera ck",
                                               "camera xh",
                                               "camera yh",
                                               "camera a1",
                                               "camera a2",
                                               "camera a3",
                                               "camera b1",
                                               "camera b2",
                                               "camera c1",
                                               "camera c2",
                                               "camera az1",
                                               "camera az2"};
    static constexpr std::uint32_t kBits[12] = {
        0x1, 0x2, 0x4, 0x10, 0x20, 0x40, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000};
    const auto values = [](const sXYZ_InteriorOrient& c) {
      return std::array{c.Ck, c.Xh, c.Yh, c.A1, c.A2, c.A3, c.B1, c.B2, c.C1, c.C2, c.AZ1, c.AZ2};
    };
    for (std::size_t i = 0; i < fTold.network.cameras.size(); ++i) {
      const auto& b = fTruth.network.cameras[i];
      const auto told = values(fTold.network.cameras[i]);
      const auto truth = values(b);
      if (!IsEstimated(b)) continue;
      for (std::size_t k = 0; k < 12; ++k)
        if ((b.ParameterMask & kBits[k]) != 0)
          Unknown(kNames[k], b.Id, "", told[k], truth[k], fTold.network.cameras[i].Sigma[k]);
    }
    for (std::size_t i = 0; i < fTold.network.projections.size(); ++i) {
      const auto& a = fTold.network.projections[i];
      const auto& b = fTruth.network.projections[i];
      if (!IsEstimated(b)) continue;
      Unknown("projection ck", b.Id, "", a.Ck, b.Ck, a.SCk);
      Unknown("projection xh", b.Id, "", a.Xh, b.Xh, a.SXh);
      Unknown("projection yh", b.Id, "", a.Yh, b.Yh, a.SYh);
    }
  }

  void LinesAndPlanes() {
    for (std::size_t i = 0; i < fTold.lines.size(); ++i)
      for (std::size_t k = 0; k < 3; ++k) {
        const auto& a = fTold.lines[i];
        const auto& b = fTruth.lines[i];
        Unknown("line base point", b.Id, kAxes[k], a.P1[k], b.P1[k], a.SP1[k]);
        Unknown("line direction", b.Id, kAxes[k], a.P2[k], b.P2[k], a.SP2[k]);
      }
    for (std::size_t i = 0; i < fTold.planes.size(); ++i)
      for (std::size_t k = 0; k < 3; ++k) {
        const auto& a = fTold.planes[i];
        const auto& b = fTruth.planes[i];
        Unknown("plane point", b.Id, kAxes[k], a.Point[k], b.Point[k], a.SPlane[k]);
        Unknown("plane normal", b.Id, kAxes[k], a.Normal[k], b.Normal[k], a.SPlane[3 + k]);
      }
  }

  const Scene& fTruth;
  const Scene& fTold;
  Visit fVisit;
};

}  // namespace

Scene MakeScene(const reference::Shape& shape, const Extras& extras) {
  Scene scene;
  scene.network = reference::Build(shape);
  Network& network = scene.network;
  if (extras.constraints) AddConstraints(scene);
  MeasureTruth(network);
  if (extras.lines) AddLines(scene, shape.noise);
  return scene;
}

Scene WithNoise(const Scene& scene, std::uint64_t seed, double multiple) {
  Random random(seed);
  Scene noisy = scene;
  const auto add = [&](double& value, double sigma) {
    value += multiple * sigma * random.Normal();
  };
  for (auto& o : noisy.network.imagePoints) {
    add(o.X, o.Sx);
    add(o.Y, o.Sy);
  }
  for (auto& o : noisy.network.measured) {
    add(o.X, o.Sx);
    add(o.Y, o.Sy);
    add(o.Z, o.Sz);
  }
  for (auto& o : noisy.network.distances) add(o.S, o.Sigma);
  for (auto& o : noisy.lineCoords) {
    add(o.X, o.Sx);
    add(o.Y, o.Sy);
  }
  return noisy;
}

Experiment::Experiment(Scene truth, std::uint32_t angles)
    : fTruth(std::move(truth)), fAngles(angles) {
  const Job job = MakeJob(fTruth);
  fTrueAngles = ReadImages(job.get(), fTruth.network.images.size(), fAngles);
  Teller teller(
      fTruth,
      fTruth,
      [this](const char* kind, int id, const char* which, double, double, double, bool isResidual) {
        fNames.push_back({kind, std::to_string(id) + which, isResidual});
      });
  teller.Unknowns(fTrueAngles, fTrueAngles, fAngles);
  teller.Residuals();
}

Outcome Experiment::Run(const Scene& noisy) const {
  const Job job = MakeJob(noisy);
  void* handle = job.get();
  Outcome outcome;
  outcome.status = XYZ_CalcBundle(handle);
  XYZ_GetResult(handle, eXYZ_ResultS0, &outcome.s0);
  XYZ_GetResult(handle, eXYZ_ResultRedundancy, &outcome.redundancy);
  XYZ_GetResult(handle, eXYZ_ResultRedundancyValue, &outcome.redundancySum);
  Scene told = noisy;
  GetAll(handle, told.network.cameras, XYZ_GetInteriorOrientAt);
  told.network.images = ReadImages(handle, told.network.images.size(), 3);
  const auto angles = ReadImages(handle, told.network.images.size(), fAngles);
  GetAll(handle, told.network.points, XYZ_GetObjectCoordAt);
  GetAll(handle, told.network.projections, XYZ_GetProjectionAt);
  GetAll(handle, told.lines, XYZ_GetLineAt);
  GetAll(handle, told.planes, XYZ_GetPlaneAt);
  GetAll(handle, told.network.imagePoints, XYZ_GetPictureCoordsAt);
  GetAll(handle, told.network.measured, XYZ_GetMeasuredObjectCoordAt);
  GetAll(handle, told.network.distances, XYZ_GetDistanceAt);
  GetAll(handle, told.lineCoords, XYZ_GetLinePictureCoordAt);
  outcome.deviations.reserve(fNames.size());
  Teller teller(
      fTruth,
      told,
      [&outcome](const char*, int, const char*, double value, double truth, double sigma, bool) {
        outcome.deviations.push_back({value - truth, sigma});
      });
  teller.Unknowns(fTrueAngles, angles, fAngles);
  teller.Residuals();
  return outcome;
}

namespace {

TEST(Scene, ObservationsWithoutNoiseGiveTheTruthBack) {
  const Scene scene = MakeScene({.seed = 221,
                                 .images = 3,
                                 .points = 16,
                                 .mask = 0x17,
                                 .distortion = true,
                                 .r0 = 4.0,
                                 .fixedControl = false,
                                 .relative = true,
                                 .bodyPoints = true,
                                 .measuredInImages = true,
                                 .distances = 2},
                                {.lines = true, .constraints = true});
  const Experiment experiment(scene, 0x201);
  const Outcome outcome = experiment.Run(scene);
  ASSERT_EQ(outcome.status, 0);
  // What rounding leaves, in standard deviations of the S0 that was given.
  EXPECT_LT(outcome.s0, 1e-9 * scene.network.s0Apriori);
  for (std::size_t i = 0; i < outcome.deviations.size(); ++i) {
    const Deviation& d = outcome.deviations[i];
    const double sigma =
        experiment.Names()[i].isResidual ? d.sigma : d.sigma * scene.network.s0Apriori / outcome.s0;
    EXPECT_LT(std::fabs(d.value), 1e-6 * sigma)
        << experiment.Names()[i].kind << " " << experiment.Names()[i].place;
  }
}

TEST(Scene, NoiseIsOfItsSeedAndSize) {
  const Scene scene = MakeScene({.seed = 222});
  const Scene once = WithNoise(scene, 5);
  const Scene twice = WithNoise(scene, 5, 2.0);
  const Scene other = WithNoise(scene, 6);
  for (std::size_t i = 0; i < scene.network.imagePoints.size(); ++i) {
    const double truth = scene.network.imagePoints[i].X;
    EXPECT_NE(once.network.imagePoints[i].X, truth);
    EXPECT_NE(once.network.imagePoints[i].X, other.network.imagePoints[i].X);
    EXPECT_NEAR(twice.network.imagePoints[i].X - truth,
                2.0 * (once.network.imagePoints[i].X - truth),
                1e-14);
  }
}

}  // namespace
}  // namespace monte_carlo

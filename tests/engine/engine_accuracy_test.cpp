// Engines on the same linearised systems of whole networks, against a dense solution in extended
// precision: what is left between them is the linear algebra alone.

#include "checks/kl_exception.h"
#include "engine/taped_network.h"
#include "linalg/block_system.h"
#include "linalg/envelope_system.h"
#include "reference/network_builder.h"
#include "support/dense_solution.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vermo::test {
namespace {

using reference::Network;
using reference::Shape;

// Lengths of the object and of the image in other units, the same network moved, and S0 a priori.
struct Units {
  double object = 1.0;
  double image = 1.0;
  double s0 = 1.0;
  double shift = 0.0;
};

void Change(Network& n, const Units& units) {
  const double f = units.object;
  const double g = units.image;
  const double shift[3] = {units.shift, -0.8 * units.shift, 1e-4 * units.shift};
  const auto move = [&](double& x, double& y, double& z, bool isWorld) {
    x = f * x + (isWorld ? shift[0] : 0.0);
    y = f * y + (isWorld ? shift[1] : 0.0);
    z = f * z + (isWorld ? shift[2] : 0.0);
  };
  for (auto& p : n.points) move(p.X, p.Y, p.Z, p.ReferenceEor == -1);
  for (auto& e : n.images) {
    bool isBase = false;
    for (const auto& pair : n.pairs) isBase = isBase || pair.BaseEorId == e.Id;
    move(e.X0, e.Y0, e.Z0, !isBase);
  }
  for (auto& o : n.measured) {
    move(o.X, o.Y, o.Z, o.ReferenceEor == -1);
    o.Sx *= f;
    o.Sy *= f;
    o.Sz *= f;
  }
  for (auto& o : n.distances) {
    o.S *= f;
    o.Sigma *= f;
  }
  for (auto& p : n.projections) {
    p.Ck *= g;
    p.Xh *= g;
    p.Yh *= g;
  }
  for (auto& o : n.imagePoints) {
    o.X *= g;
    o.Y *= g;
    o.Sx *= g;
    o.Sy *= g;
  }
  for (auto& c : n.cameras) {
    const double g2 = g * g;
    c.Ck *= g;
    c.Xh *= g;
    c.Yh *= g;
    c.R0 *= g;
    c.A1 /= g2;
    c.A2 /= g2 * g2;
    c.A3 /= g2 * g2 * g2;
    c.B1 /= g;
    c.B2 /= g;
    c.AZ1 *= f / g2;
    c.AZ2 *= f / (g2 * g2);
  }
  n.s0Apriori *= g * units.s0;
}

// The worst deviations of one engine from the dense solution.
struct Deviations {
  double value = 0.0;       // increments, in standard deviations
  double step = 0.0;        // the same beside the largest increment
  double sigma = 0.0;       // standard deviations, relative
  double cofactor = 0.0;    // all cofactors of unknowns, as correlations
  double redundancy = 0.0;  // absolute
  double s0 = 0.0;          // relative
};

void Note(Real deviation, double& worst) {
  if (!(static_cast<double>(deviation) <= worst))
    worst = std::isnan(static_cast<double>(deviation)) ? 1e300 : static_cast<double>(deviation);
}

Deviations Compare(const SystemTape& tape, const DenseSolution& expected, NormalSystem& engine) {
  tape.Assemble(engine);
  engine.FactorizeAndSolve(true);
  const std::span<const double> q = engine.DiagonalCofactors();
  const std::span<const double> x = engine.Solution();
  const std::uint32_t u = tape.Unknowns();
  Deviations worst;
  Real step = 1;
  std::vector<Real> sigma(u);
  for (std::uint32_t i = 0; i < u; ++i) {
    sigma[i] = std::sqrt(expected.q[i][i]);
    step = std::max(step, std::fabs(expected.x[i]) / (expected.s0 * sigma[i]));
  }
  for (std::uint32_t i = 0; i < u; ++i) {
    const Real deviation = std::fabs(x[i] - expected.x[i]) / (expected.s0 * sigma[i]);
    Note(deviation, worst.value);
    Note(deviation / step, worst.step);
    Note(std::fabs(std::sqrt(Real{q[i]}) / sigma[i] - 1), worst.sigma);
  }
  engine.InvertCofactors();
  std::size_t component = 0;
  Real sum = 0;
  for (const SystemTape::Observation& o : tape.observations) {
    std::vector<DesignRow> rows = o.rows;
    double forms[3];
    engine.CofactorForms(rows, forms);
    for (std::size_t r = 0; r < rows.size(); ++r) {
      Note(std::fabs(1 - o.weights[r] * forms[r] - expected.redundancy[component++]),
           worst.redundancy);
      Real v = -Real{o.misclosures[r]};
      for (const DesignEntry& e : o.rows[r]) v += e.coefficient * Real{x[e.column]};
      sum += o.weights[r] * v * v;
    }
  }
  const Real surplus = static_cast<Real>(component) + static_cast<Real>(tape.Size()) - 2 * Real(u);
  Note(std::fabs(std::sqrt(sum / surplus) / expected.s0 - 1), worst.s0);
  ostra_bundle::Matrix all;
  engine.CofactorBlock(all, 0, u, 0, u);
  for (std::uint32_t i = 0; i < u; ++i)
    for (std::uint32_t j = 0; j < u; ++j)
      Note(std::fabs(all.At(i, j) - expected.q[i][j]) / (sigma[i] * sigma[j]), worst.cofactor);
  return worst;
}

constexpr double kTolerance = 1e-9;
constexpr double kStepTolerance = 1e-10;
// Iterations from the approximate values to rounding.
constexpr int kToConvergence = 8;

// At the approximate values an increment counts beside the largest one, as its error is taken back
// by the next iteration; at the adjusted values it counts beside its standard deviation.
void ExpectAccurate(const SystemTape& tape, bool isAdjusted) {
  const DenseSolution expected(tape);
  BlockSystem engine;
  const Deviations worst = Compare(tape, expected, engine);
  if (isAdjusted) {
    EXPECT_LE(worst.value, kTolerance);
  }
  EXPECT_LE(worst.step, kStepTolerance);
  EXPECT_LE(worst.sigma, kTolerance);
  EXPECT_LE(worst.cofactor, kTolerance);
  EXPECT_LE(worst.redundancy, kTolerance);
  EXPECT_LE(worst.s0, kTolerance);
}

void ExpectAccurate(const TapedScene& scene, const Units& units) {
  SCOPED_TRACE("object " + std::to_string(units.object) + ", image " + std::to_string(units.image) +
               ", S0 " + std::to_string(units.s0) + ", shift " + std::to_string(units.shift));
  TapedScene changed = scene;
  Change(changed.network, units);
  ExpectAccurate(TapeOf(changed, 1), false);
  ExpectAccurate(TapeOf(changed, kToConvergence), true);
}

constexpr Units kUnits[] = {
    {},
    {.s0 = 1e-3},
    {.s0 = 500.0},
    {.s0 = 1e3},
    {.object = 1e3},
    {.object = 1e3, .image = 1e-3, .s0 = 1e3},
    {.object = 1e-3, .image = 1e3},
    {.object = 1e6, .s0 = 1e-3},
    {.object = 1e6, .s0 = 1e3},
    {.shift = 5e6},
    {.object = 1e3, .s0 = 1e3, .shift = 5e9},
    {.object = 1e6, .image = 1e3, .shift = 5e12},
};

void ExpectAccurate(const Shape& shape) {
  SCOPED_TRACE("seed " + std::to_string(shape.seed));
  const TapedScene scene{.network = reference::Build(shape)};
  for (const Units& units : kUnits) ExpectAccurate(scene, units);
}

TEST(EngineAccuracy, ControlFixedOrMeasured) {
  ExpectAccurate({.seed = 1});
  ExpectAccurate({.seed = 4, .ck = 30.0});
  ExpectAccurate({.seed = 5, .fixedControl = false});
  ExpectAccurate({.seed = 6, .freeCameras = false, .distortion = true, .fixedImages = 2});
}

TEST(EngineAccuracy, CameraParameters) {
  ExpectAccurate({.seed = 21, .mask = 0x11, .distortion = true, .r0 = 4.0});
  ExpectAccurate({.seed = 22, .images = 5, .points = 14, .mask = 0x317, .distortion = true});
  ExpectAccurate({.seed = 60,
                  .cameras = 2,
                  .images = 6,
                  .points = 18,
                  .mask = 0xF77,
                  .distortion = true,
                  .r0 = 5.0});
  ExpectAccurate({.seed = 62, .images = 5, .points = 14, .mask = 0x3001, .distortion = true});
}

TEST(EngineAccuracy, Projections) {
  ExpectAccurate({.seed = 71, .freeCameras = false, .distortion = true, .projections = true});
  ExpectAccurate({.seed = 72,
                  .images = 6,
                  .points = 14,
                  .mask = 0x117,
                  .distortion = true,
                  .projections = true});
}

TEST(EngineAccuracy, RelativeOrientationsAndBodyPoints) {
  ExpectAccurate({.seed = 81, .ck = 25.0, .mask = 0x17, .distortion = true, .relative = true});
  ExpectAccurate({.seed = 84, .bodyPoints = true, .measuredInImages = true});
}

TEST(EngineAccuracy, DistancesJoinLeadingPoints) {
  ExpectAccurate({.seed = 86, .fixedControl = false, .bodyPoints = true, .distances = 3});
  ExpectAccurate({.seed = 90,
                  .cameras = 2,
                  .images = 5,
                  .points = 14,
                  .mask = 0x115,
                  .distortion = true,
                  .r0 = 3.0,
                  .relative = true,
                  .bodyPoints = true,
                  .measuredInImages = true,
                  .distances = 2});
}

TEST(EngineAccuracy, FreeNetworks) {
  ExpectAccurate({.seed = 101, .freeNetwork = true});
  ExpectAccurate({.seed = 104, .ck = 30.0, .mask = 0x17, .distortion = true, .freeNetwork = true});
  ExpectAccurate({.seed = 105, .distances = 3, .freeNetwork = true});
}

TEST(EngineAccuracy, MoreImagesThanTheRootHolds) {
  const Shape large{.seed = 108, .images = 16, .points = 35, .mask = 0x17, .distortion = true};
  Shape free = large;
  free.freeNetwork = true;
  for (const Shape& shape : {large, free}) {
    const TapedScene scene{.network = reference::Build(shape)};
    for (const Units& units : {Units{}, Units{.s0 = 1e3, .shift = 5e6}})
      ExpectAccurate(scene, units);
  }
}

TEST(EngineAccuracy, LeadingImages) {
  ExpectAccurate({.seed = 93, .images = 12, .points = 14});
  ExpectAccurate({.seed = 106, .images = 14, .points = 12, .freeNetwork = true});
}

// A line through two points of the cloud, seen in all images, and points that lie on it and on a
// plane.
TapedScene LinesAndPlanes(std::uint64_t seed) {
  TapedScene scene{.network = reference::Build({.seed = seed, .images = 5, .points = 16})};
  Network& n = scene.network;
  sXYZ_Line line{};
  line.Id = 3;
  line.Flags = 0x01;
  const auto& a = n.points[6];
  const auto& b = n.points[9];
  const double ends[2][3] = {{a.X, a.Y, a.Z}, {b.X, b.Y, b.Z}};
  for (std::size_t k = 0; k < 3; ++k) {
    line.P1[k] = ends[0][k];
    line.P2[k] = ends[1][k];
  }
  scene.lines.push_back(line);
  int id = 0;
  for (const auto& e : n.images)
    for (const double t : {-0.2, 0.1, 0.5, 0.9}) {
      double camera[3] = {};
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k)
          camera[i] += e.Rotation[3 * k + i] * (ends[0][k] + t * (ends[1][k] - ends[0][k]) -
                                                (k == 0   ? e.X0
                                                 : k == 1 ? e.Y0
                                                          : e.Z0));
      sXYZ_PictureLineCoord o{};
      o.X = n.cameras[0].Ck * camera[0] / camera[2];
      o.Y = n.cameras[0].Ck * camera[1] / camera[2];
      o.Sx = o.Sy = 0.001;
      o.Id = ++id;
      o.LineId = 3;
      o.EorId = e.Id;
      o.Flags = 0x01;
      scene.linePoints.push_back(o);
    }
  scene.onLines.push_back({.Id = 1, .PointId = a.Id, .LineId = 3, .Flags = 0x01});
  sXYZ_Plane plane{};
  plane.Id = 4;
  plane.Flags = 0x01;
  plane.Normal[2] = 1.0;
  scene.planes.push_back(plane);
  for (int k = 0; k < 5; ++k) {
    auto& p = n.points[static_cast<std::size_t>(10 + k)];
    scene.onPlanes.push_back({.Id = 10 + k, .PointId = p.Id, .PlaneId = 4, .Flags = 0x01});
  }
  return scene;
}

TEST(EngineAccuracy, LinesPlanesAndTheirConstraints) {
  for (const std::uint64_t seed : {120U, 121U}) {
    const TapedScene scene = LinesAndPlanes(seed);
    for (const double s0 : {1e-3, 1.0, 1e3}) {
      TapedScene changed = scene;
      changed.network.s0Apriori *= s0;
      const SystemTape tape = TapeOf(changed, 1);
      ASSERT_GE(tape.Size(), tape.Unknowns() + 6);
      ExpectAccurate(tape, false);
    }
  }
}

TEST(EngineAccuracy, RejectedObservationsAndGroupsThatWereTakenOut) {
  TapedScene scene{.network = reference::Build({.seed = 130, .images = 6, .points = 20})};
  Network& n = scene.network;
  for (std::size_t i = 0; i < n.imagePoints.size(); i += 9) n.imagePoints[i].Flags = 0x03;
  n.points[12].Flags = 0;
  n.images[4].Flags = 0;
  for (const Units& units : kUnits) ExpectAccurate(scene, units);
  // A point with a single ray cannot be determined: the solvability check takes it out.
  std::erase_if(n.imagePoints, [&n](const sXYZ_PictureCoord& o) {
    return o.PointId == n.points[8].Id && o.EorId != n.images[0].Id;
  });
  const SystemTape checked = TapeOf(scene, kToConvergence, true);
  EXPECT_EQ(checked.Unknowns(), TapeOf(scene, 1).Unknowns() - 3);
  ExpectAccurate(checked, true);
}

// The engine lays out its blocks by what the observations say that they will meet.
TEST(Couplings, CoverTheEquations) {
  Shape body{.seed = 90, .cameras = 2, .images = 5, .points = 14, .mask = 0x115};
  body.distortion = body.relative = body.bodyPoints = body.measuredInImages = true;
  body.distances = 2;
  for (const TapedScene& scene :
       {TapedScene{.network = reference::Build({.seed = 1})},
        TapedScene{.network = reference::Build(
                       {.seed = 72, .images = 6, .mask = 0x117, .projections = true})},
        TapedScene{.network = reference::Build({.seed = 81, .mask = 0x17, .relative = true})},
        TapedScene{.network = reference::Build(body)},
        LinesAndPlanes(120)}) {
    TapedBundel run("engine_test.htm");
    Record(scene, 1, false, run);
    const SystemTape& tape = run.tape;
    ASSERT_EQ(run.couplings.size(), tape.observations.size());
    for (std::size_t k = 0; k < run.couplings.size(); ++k)
      for (const DesignRow& row : tape.observations[k].rows)
        for (const DesignEntry& entry : row) {
          const auto group = std::ranges::upper_bound(tape.layout.starts, entry.column) - 1;
          ASSERT_NE(std::ranges::find(run.couplings[k], *group), run.couplings[k].end())
              << "observation " << k << ", column " << entry.column;
        }
  }
}

TEST(Couplings, LeaveOutInactiveGroups) {
  TapedScene scene{.network = reference::Build({.seed = 84, .measuredInImages = true})};
  for (const auto& o : scene.network.measured)
    for (auto& image : scene.network.images)
      if (image.Id == o.ReferenceEor) image.Flags = 0;
  TapedBundel run("engine_test.htm");
  Record(scene, 2, false, run);
  for (const std::vector<std::uint32_t>& columns : run.couplings)
    for (const std::uint32_t column : columns) ASSERT_LT(column, run.tape.Unknowns());
}

TEST(EngineAccuracy, EnvelopeAgreesWhereItKeepsItsDigits) {
  for (const Shape& shape : {Shape{.seed = 1},
                             Shape{.seed = 72, .images = 6, .points = 14, .projections = true},
                             Shape{.seed = 84, .bodyPoints = true, .measuredInImages = true},
                             Shape{.seed = 93, .images = 12, .points = 14}}) {
    const SystemTape tape = TapeOf({.network = reference::Build(shape)}, kToConvergence);
    const DenseSolution expected(tape);
    EnvelopeSystem envelope;
    const Deviations worst = Compare(tape, expected, envelope);
    EXPECT_LE(worst.value, kTolerance) << shape.seed;
    EXPECT_LE(worst.sigma, kTolerance) << shape.seed;
    EXPECT_LE(worst.redundancy, kTolerance) << shape.seed;
  }
}

TEST(EngineAccuracy, SingularNetworksFail) {
  // No datum at all stays the matter of rounding; a point without a ray and an image without a
  // point do not.
  TapedScene scene{.network = reference::Build({.seed = 140})};
  const auto drop = [](TapedScene s, int pointId, int imageId) {
    std::erase_if(s.network.imagePoints, [=](const sXYZ_PictureCoord& o) {
      return o.PointId == pointId || o.EorId == imageId;
    });
    return s;
  };
  for (const TapedScene& singular : {drop(scene, 1007, -1), drop(scene, -1, 12)}) {
    const SystemTape tape = TapeOf(singular, 1);
    BlockSystem engine;
    tape.Assemble(engine);
    try {
      engine.FactorizeAndSolve(true);
      ADD_FAILURE() << "a singular network was solved";
    } catch (const KlException& failure) {
      EXPECT_EQ(failure.GetCode(), -39007);
    }
  }
}

}  // namespace
}  // namespace vermo::test

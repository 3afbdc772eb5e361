// A long strip of images that see their neighbours only: the sparse solution against that of one
// dense block, and against solutions that are refined in extended precision.

#include "engine/taped_network.h"
#include "linalg/block_system.h"
#include "reference/network_builder.h"
#include "support/system_tape.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <span>
#include <vector>

namespace vermo::test {
namespace {

using Real = long double;
using reference::Network;
using reference::Random;

// Images stand at unit distances along a road and look aside and a little onwards; every one of
// them sees ten points that its neighbours on both sides see, too.
Network Strip(int images, bool isFree) {
  Random random(7);
  Network n;
  sXYZ_InteriorOrient camera{};
  camera.Id = 100;
  camera.Ck = -30.0;
  camera.Flags = 0x11;
  n.cameras.push_back(camera);
  for (int i = 0; i < images; ++i) {
    sXYZ_ExteriorOrient2 e{};
    e.Id = 10 + i;
    e.IorId = 100;
    e.ProjectionId = -1;
    e.Format = 3;
    e.Flags = 0x01;
    e.X0 = i;
    e.Y0 = 0.2 * std::sin(0.7 * i);
    e.Z0 = 4.0 + 0.3 * std::cos(1.3 * i);
    const double kappa = 0.4 * i;
    const double rotation[9] = {std::cos(kappa),
                                -std::sin(kappa),
                                0.0,
                                std::sin(kappa),
                                std::cos(kappa),
                                0.0,
                                0.0,
                                0.0,
                                1.0};
    std::copy_n(rotation, 9, e.Rotation);
    n.images.push_back(e);
  }
  for (int i = 0; i < 10 * images; ++i) {
    sXYZ_ObjectCoord p{};
    p.Id = 10000 + i;
    p.X = 0.1 * i;
    p.Y = 2.0 * random.Uniform();
    p.Z = 1.2 * random.Uniform();
    p.ReferenceEor = -1;
    const bool isControl = !isFree && i % 200 < 4;
    p.Flags = static_cast<std::uint16_t>(isControl ? 0x11 : 0x01);
    p.PointFlags = isFree ? 1 : 0;
    n.points.push_back(p);
    for (int k = i / 10 - 2; k <= i / 10 + 3; ++k) {
      if (k < 0 || k >= images) continue;
      const auto& e = n.images[static_cast<std::size_t>(k)];
      const double d[3] = {p.X - e.X0, p.Y - e.Y0, p.Z - e.Z0};
      double y[3] = {};
      for (std::size_t a = 0; a < 3; ++a)
        for (std::size_t b = 0; b < 3; ++b) y[a] += e.Rotation[3 * b + a] * d[b];
      sXYZ_PictureCoord o{};
      o.Sx = o.Sy = 0.001;
      o.X = camera.Ck * y[0] / y[2] + o.Sx * random.Normal();
      o.Y = camera.Ck * y[1] / y[2] + o.Sy * random.Normal();
      o.PointId = p.Id;
      o.EorId = e.Id;
      o.Flags = 0x01;
      n.imagePoints.push_back(o);
    }
  }
  n.datumTranslation = n.datumRotation = n.datumScale = isFree;
  return n;
}

// The bordered matrix times a vector, in extended precision.
std::vector<Real> Times(const SystemTape& tape, const std::vector<Real>& x) {
  std::vector<Real> product(tape.Size(), 0);
  for (const SystemTape::Observation& o : tape.observations)
    for (std::size_t r = 0; r < o.rows.size(); ++r) {
      Real sum = 0;
      for (const DesignEntry& e : o.rows[r]) sum += e.coefficient * x[e.column];
      for (const DesignEntry& e : o.rows[r])
        product[e.column] += o.weights[r] * e.coefficient * sum;
    }
  for (const SystemTape::Stored& e : tape.elements) {
    product[e.row] += e.value * x[e.column];
    product[e.column] += e.value * x[e.row];
  }
  return product;
}

void Note(double deviation, double& worst) {
  if (!(deviation <= worst)) worst = std::isnan(deviation) ? 1e300 : deviation;
}

std::vector<Real> Rhs(const SystemTape& tape) {
  std::vector<Real> rhs(tape.Size(), 0);
  for (const SystemTape::Observation& o : tape.observations)
    for (std::size_t r = 0; r < o.rows.size(); ++r)
      for (const DesignEntry& e : o.rows[r])
        rhs[e.column] += Real{o.weights[r]} * e.coefficient * o.misclosures[r];
  for (const auto& [row, value] : tape.rhs) rhs[row] = value;
  return rhs;
}

// Plays a tape to an engine. Trailing unknowns that are told as multipliers stand in the dense
// root.
enum class Root { Small, All };
void Assemble(const SystemTape& tape, NormalSystem& engine, Root root) {
  const std::uint32_t unknowns =
      root == Root::All ? tape.layout.starts[tape.layout.leading] : tape.Unknowns();
  engine.SetLayout(tape.layout);
  for (bool isSealed = false; !isSealed; isSealed = engine.Seal()) {
    engine.Reset(unknowns, tape.Size() - unknowns);
    for (const SystemTape::Observation& o : tape.observations) {
      std::vector<DesignRow> rows = o.rows;
      engine.AddEquations(rows, o.weights.data(), o.misclosures.data());
    }
    for (const SystemTape::Stored& e : tape.elements) engine.StoreElement(e.row, e.column, e.value);
    for (const auto& [row, value] : tape.rhs) engine.SetRhs(row, value);
  }
}

// A free strip bends: the condition of its images beside those that hold the rest in place grows
// with its length, and cofactors lose as many digits with all of them in one pivoted block.
void ExpectLikeDense(bool isFree, double tolerance) {
  const SystemTape tape = TapeOf({.network = Strip(100, isFree)}, 1);
  BlockSystem sparse;
  Assemble(tape, sparse, Root::Small);
  sparse.FactorizeAndSolve(true);
  BlockSystem dense;
  Assemble(tape, dense, Root::All);
  dense.FactorizeAndSolve(true);
  double step = 0.0;
  double solution = 0.0;
  double sigmas = 0.0;
  for (std::uint32_t i = 0; i < tape.Unknowns(); ++i) {
    const double sigma = std::sqrt(dense.DiagonalCofactors()[i]);
    step = std::max(step, std::fabs(dense.Solution()[i]) / sigma);
    Note(std::fabs(sparse.Solution()[i] - dense.Solution()[i]) / sigma, solution);
    Note(std::fabs(std::sqrt(sparse.DiagonalCofactors()[i]) / sigma - 1.0), sigmas);
  }
  EXPECT_LE(solution, tolerance * step);
  EXPECT_LE(sigmas, tolerance);
  sparse.InvertCofactors();
  dense.InvertCofactors();
  double forms = 0.0;
  for (const SystemTape::Observation& o : tape.observations) {
    std::vector<DesignRow> rows = o.rows;
    double a[3];
    double b[3];
    sparse.CofactorForms(rows, a);
    dense.CofactorForms(rows, b);
    for (std::size_t r = 0; r < rows.size(); ++r)
      Note(o.weights[r] * std::fabs(a[r] - b[r]), forms);
  }
  EXPECT_LE(forms, tolerance);
}

TEST(Strip, SparseAndDenseSolutionsAgreeWithControl) { ExpectLikeDense(false, 1e-10); }

TEST(Strip, SparseAndDenseSolutionsAgreeOfAFreeNetwork) { ExpectLikeDense(true, 1e-9); }

// M^-1 b refined with residuals in extended precision until nothing is left to refine.
std::vector<Real> Refined(const SystemTape& tape, const std::vector<Real>& b) {
  BlockSystem engine;
  std::vector<Real> x(tape.Size(), 0);
  std::vector<Real> residual = b;
  for (int step = 0; step < 4; ++step) {
    Assemble(tape, engine, Root::Small);
    for (std::uint32_t i = 0; i < tape.Size(); ++i)
      engine.SetRhs(i, static_cast<double>(residual[i]));
    engine.FactorizeAndSolve(true);
    for (std::uint32_t i = 0; i < tape.Size(); ++i) x[i] += engine.Solution()[i];
    const std::vector<Real> product = Times(tape, x);
    for (std::uint32_t i = 0; i < tape.Size(); ++i) residual[i] = b[i] - product[i];
  }
  return x;
}

// The solution and columns of the inverse from one end to the other.
void ExpectAccurate(bool isFree, Real tolerance) {
  const SystemTape tape = TapeOf({.network = Strip(300, isFree)}, 1);
  const std::uint32_t u = tape.Unknowns();
  ASSERT_GT(u, 10000U);
  BlockSystem engine;
  Assemble(tape, engine, Root::Small);
  engine.FactorizeAndSolve(true);
  const std::span<const double> q = engine.DiagonalCofactors();
  const std::vector<Real> solution = Refined(tape, Rhs(tape));
  Real step = 0;
  double worst = 0.0;
  for (std::uint32_t i = 0; i < u; ++i)
    step = std::max(step, std::fabs(solution[i]) / std::sqrt(Real{q[i]}));
  for (std::uint32_t i = 0; i < u; ++i)
    Note(static_cast<double>(std::fabs(engine.Solution()[i] - solution[i]) /
                             (step * std::sqrt(Real{q[i]}))),
         worst);
  EXPECT_LE(worst, tolerance);
  for (const std::uint32_t column : {0U, u / 2, u - 900}) {
    std::vector<Real> unit(tape.Size(), 0);
    unit[column] = 1;
    const std::vector<Real> expected = Refined(tape, unit);
    EXPECT_LE(std::fabs(q[column] / expected[column] - 1), tolerance) << column;
    ostra_bundle::Matrix block;
    engine.CofactorBlock(block, 0, u, column, 1);
    worst = 0.0;
    for (std::uint32_t i = 0; i < u; ++i)
      Note(static_cast<double>(std::fabs(block.At(i, 0) - expected[i]) /
                               std::sqrt(Real{q[i]} * expected[column])),
           worst);
    EXPECT_LE(worst, tolerance) << column;
  }
}

TEST(Strip, LongStripWithControlKeepsItsDigits) { ExpectAccurate(false, 1e-10L); }

TEST(Strip, LongFreeStripKeepsItsDigits) { ExpectAccurate(true, 1e-8L); }

}  // namespace
}  // namespace vermo::test

#include "checks/kl_exception.h"
#include "checks/language.h"
#include "linalg/envelope_system.h"
#include "linalg/tensor_exception.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_plane.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace vermo {
namespace {

using Vector = ostra_bundle::VektorD<3>;

DataLinie MakeLine() {
  DataLinie line;
  line.SetPoints({1.0, -2.0, 0.5}, {1.6, -1.7, 2.5});
  line.PrepareDerivatives();
  line.SetActive(true);
  line.SetVariable(true);
  line.SetFirstUnknown(0);
  return line;
}

DataPlane MakePlane() {
  DataPlane plane;
  plane.SetPointAndNormal({1.0, -2.0, 0.5}, {0.3, -0.7, 2.0});
  plane.SetActive(true);
  plane.SetVariable(true);
  plane.SetFirstUnknown(0);
  return plane;
}

// A solved system of n unknowns whose cofactor block is given by its inverse N = transpose(L) L.
template <std::size_t N>
void FillSystem(EnvelopeSystem& system, const std::array<std::array<double, N>, N>& rows) {
  system.Reset(N, 0);
  for (const auto& coefficients : rows) {
    DesignRow row;
    for (std::uint32_t c = 0; c < N; ++c) row.push(c, coefficients[c]);
    system.AddEquation(row, 1.0, 0.0);
  }
  system.FactorizeAndSolve(true);
  system.InvertCofactors();
}

// The spread of six values over seeded draws of the unknowns from N^-1: with N = A^T A, the draw
// A^-1 z has that covariance. A is solved by elimination here.
template <std::size_t N>
std::array<double, N> DrawUnknowns(std::array<std::array<double, N>, N> a,
                                   std::array<double, N> z) {
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = i + 1; j < N; ++j) {
      const double f = a[j][i] / a[i][i];
      for (std::size_t k = i; k < N; ++k) a[j][k] -= f * a[i][k];
      z[j] -= f * z[i];
    }
  for (std::size_t i = N; i-- > 0;) {
    for (std::size_t k = i + 1; k < N; ++k) z[i] -= a[i][k] * z[k];
    z[i] /= a[i][i];
  }
  return z;
}

class Normal {
 public:
  explicit Normal(std::uint64_t seed) : fGenerator(seed) {}
  double operator()() {
    const double u1 = (static_cast<double>(fGenerator() >> 11U) + 1.0) * 0x1p-53;
    const double u2 = static_cast<double>(fGenerator() >> 11U) * 0x1p-53;
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
  }

 private:
  std::mt19937_64 fGenerator;
};

constexpr int kDraws = 20000;
// A standard deviation from n draws spreads by sigma / sqrt(2 n); four of these is a bound that
// 1 in 16,000 tests would miss by chance, and the seeds are fixed.
const double kSpread = 4.0 / std::sqrt(2.0 * kDraws);

template <typename Group, std::size_t N, typename Values>
void ExpectSigmasMatchSimulation(const Group& group,
                                 const std::array<std::array<double, N>, N>& rows,
                                 double s0,
                                 const std::array<double, 6>& sigmas,
                                 Values values) {
  Normal normal(4711);
  const std::array<double, 6> centre = values(group);
  std::array<double, 6> sum{};
  for (int draw = 0; draw < kDraws; ++draw) {
    std::array<double, N> z;
    for (double& element : z) element = normal();
    z = DrawUnknowns(rows, z);
    std::vector<double> increments(z.begin(), z.end());
    for (double& element : increments) element *= s0;
    Group moved = group;
    moved.ApplySolution(increments);
    const std::array<double, 6> now = values(moved);
    for (std::size_t i = 0; i < 6; ++i) sum[i] += (now[i] - centre[i]) * (now[i] - centre[i]);
  }
  for (std::size_t i = 0; i < 6; ++i) {
    const double simulated = std::sqrt(sum[i] / kDraws);
    EXPECT_NEAR(sigmas[i], simulated, kSpread * simulated) << "value " << i;
    EXPECT_GT(sigmas[i], 0.0);
  }
}

std::array<double, 6> Values(const Vector& a, const Vector& b) {
  return {a[0], a[1], a[2], b[0], b[1], b[2]};
}

TEST(DataLinie, SigmasOfPointAndDirectionMatchSimulationWithCorrelations) {
  // Strongly correlated unknowns: the diagonal alone would miss.
  const std::array<std::array<double, 4>, 4> rows = {
      {{2.0, 1.5, 0.3, 0.0}, {0.0, 1.0, 0.7, -0.9}, {0.0, 0.0, 1.5, 1.2}, {0.0, 0.0, 0.0, 0.8}}};
  EnvelopeSystem system;
  FillSystem(system, rows);
  DataLinie line = MakeLine();
  const double s0 = 1e-4;
  line.StoreAccuracy(system, s0);
  ExpectSigmasMatchSimulation(line, rows, s0, line.Sigma(), [](const DataLinie& l) {
    return Values(l.Point(), l.Direction());
  });
}

TEST(DataPlane, SigmasOfPointAndNormalMatchSimulationWithCorrelations) {
  const std::array<std::array<double, 3>, 3> rows = {
      {{2.0, 1.5, 0.6}, {0.0, 1.0, 0.7}, {0.0, 0.0, 1.5}}};
  EnvelopeSystem system;
  FillSystem(system, rows);
  DataPlane plane = MakePlane();
  const double s0 = 1e-4;
  plane.StoreAccuracy(system, s0);
  ExpectSigmasMatchSimulation(plane, rows, s0, plane.Sigma(), [](const DataPlane& p) {
    return Values(p.Point(), p.Normal());
  });
}

TEST(DataLinie, ThroughTwoPointsHasUnitDirectionAndTheFirstPoint) {
  const DataLinie line = MakeLine();
  EXPECT_EQ(line.Point()[0], 1.0);
  EXPECT_NEAR(ostra_bundle::Length(line.Direction()), 1.0, 1e-15);
  EXPECT_NEAR(line.Direction()[2] / line.Direction()[0], 2.0 / 0.6, 1e-14);
}

TEST(DataLinie, PointsCloserThanTheLimitFailAndLeaveTheLine) {
  DataLinie line = MakeLine();
  try {
    line.SetPoints({5.0, 5.0, 5.0}, {5.0, 5.0, 5.0 + 9e-11});
    FAIL();
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -42001);
  }
  EXPECT_EQ(line.Point()[0], 1.0);
  EXPECT_NO_THROW(line.SetPoints({0.0, 0.0, 0.0}, {0.0, 0.0, 1.1e-10}));
}

TEST(DataLinie, DirectionStaysAUnitVectorAndThirdRowOfTheFrame) {
  DataLinie line = MakeLine();
  line.ApplySolution(std::vector<double>{0.1, -0.2, 0.3, 0.4});
  EXPECT_NEAR(ostra_bundle::Length(line.Direction()), 1.0, 1e-15);
  for (unsigned i = 0; i < 3; ++i)
    EXPECT_NEAR(line.LocalFrame()[6 + i], line.Direction()[i], 1e-15);
}

// The second point of a step is the first one plus the direction. The coordinates keep 1e-9 of it.
TEST(DataLinie, DirectionKeepsItsDigitsFarFromTheOrigin) {
  const std::vector<double> step = {0.1, -0.2, 0.003, 0.004};
  DataLinie near;
  DataLinie far;
  near.SetPoints({0.0, 0.0, 0.0}, {3.0, 1.0, 0.5});
  far.SetPoints({5e6, -5e6, 5e6}, {5e6 + 3.0, -5e6 + 1.0, 5e6 + 0.5});
  for (DataLinie* line : {&near, &far}) {
    line->SetActive(true);
    line->SetVariable(true);
    line->SetFirstUnknown(0);
    line->PrepareDerivatives();
    line->ApplySolution(step);
  }
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_NEAR(far.Direction()[i], near.Direction()[i], 1e-15) << i;
    EXPECT_NEAR(far.Point()[i] - (i == 1 ? -5e6 : 5e6), near.Point()[i], 1e-9) << i;
  }
}

TEST(DataLinie, StepsThatAreNoNumbersFailWithTheCodeOfAShortDirection) {
  for (const std::size_t which : {0U, 3U}) {
    DataLinie line = MakeLine();
    std::vector<double> step(4, 0.0);
    step[which] = std::numeric_limits<double>::quiet_NaN();
    try {
      line.ApplySolution(step);
      ADD_FAILURE() << which;
    } catch (const KlException& failure) {
      EXPECT_EQ(failure.GetCode(), -42001);
    }
  }
}

TEST(DataLinie, ShiftsMoveAcrossTheLineAndTiltsTurnByTwiceTheirValue) {
  const DataLinie line = MakeLine();
  DataLinie shifted = line;
  shifted.ApplySolution(std::vector<double>{0.1, -0.2, 0.0, 0.0});
  const Vector step = ostra_bundle::Subtract(shifted.Point(), line.Point());
  EXPECT_NEAR(ostra_bundle::Dot(step, line.Direction()), 0.0, 1e-15);
  EXPECT_NEAR(ostra_bundle::Length(step), std::hypot(0.1, 0.2), 1e-15);
  DataLinie tilted = line;
  tilted.ApplySolution(std::vector<double>{0.0, 0.0, 1e-4, 0.0});
  EXPECT_NEAR(ostra_bundle::AngleBetween(tilted.Direction(), line.Direction()), 2e-4, 1e-11);
}

TEST(DataLinie, FrameTakesTheAxisOfTheSmallestComponentAndTheEarlierOfEquals) {
  // The second row lies across the direction and that axis.
  const auto secondRow = [](const Vector& direction) {
    DataLinie line;
    line.SetPoints({0.0, 0.0, 0.0}, direction);
    line.PrepareDerivatives();
    const auto& m = line.LocalFrame();
    return Vector{m[3], m[4], m[5]};
  };
  EXPECT_EQ(secondRow({0.0, 0.0, 1.0})[1], 1.0);   // z cross x = y
  EXPECT_EQ(secondRow({1.0, 0.0, 0.0})[2], 1.0);   // x cross y = z
  EXPECT_EQ(secondRow({0.0, 1.0, 0.0})[2], -1.0);  // y cross x = -z
  const Vector equal = secondRow({1.0, 1.0, 1.0});
  EXPECT_EQ(equal[0], 0.0);  // across the first axis
}

TEST(DataLinie, NegativeVarianceFailsWithItsCode) {
  EnvelopeSystem system;
  system.Reset(4, 0);
  for (std::uint32_t i = 0; i < 4; ++i) {
    DesignRow row;
    row.push(i, 1.0);
    system.AddEquation(row, i == 2 ? -1.0 : 1.0, 0.0);
  }
  system.FactorizeAndSolve(false);
  system.InvertCofactors();
  DataLinie line = MakeLine();
  DataPlane plane = MakePlane();
  for (Data* group : {static_cast<Data*>(&line), static_cast<Data*>(&plane)}) {
    try {
      group->StoreAccuracy(system, 1.0);
      FAIL();
    } catch (const KlException& failure) {
      EXPECT_EQ(failure.GetCode(), -13001);
    }
  }
}

TEST(DataLinie, CountsAndTexts) {
  DataLinie line = MakeLine();
  DataPlane plane = MakePlane();
  line.SetId(8);
  plane.SetId(9);
  EXPECT_EQ(line.UnknownCount(), 4U);
  EXPECT_EQ(plane.UnknownCount(), 3U);
  line.SetVariable(false);
  plane.SetVariable(false);
  EXPECT_EQ(line.UnknownCount(), 0U);
  EXPECT_EQ(plane.UnknownCount(), 0U);
  SetLanguage(Language::German);
  EXPECT_EQ(line.GetDescription(), "Linie8");
  EXPECT_EQ(plane.GetDescription(), "Ebene 9");
  SetLanguage(Language::English);
  EXPECT_EQ(line.GetDescription(), "Line8");
  EXPECT_EQ(plane.GetDescription(), "Plane 9");
  SetLanguage(Language::German);
  EXPECT_EQ(line.GetIdentText(), "8");
}

TEST(DataPlane, NormalIsStoredWithUnitLength) {
  DataPlane plane;
  plane.SetPointAndNormal({0.0, 0.0, 0.0}, {0.0, 3.0, 4.0});
  EXPECT_NEAR(plane.Normal()[1], 0.6, 1e-15);
  EXPECT_NEAR(plane.LocalFrame()[8], 0.8, 1e-15);
  EXPECT_THROW(plane.SetPointAndNormal({0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}),
               ostra_bundle::TensorExceptDivisionByZero);
}

TEST(DataPlane, ShiftMovesAlongTheNormalOfBeforeTheTilt) {
  DataPlane plane = MakePlane();
  const Vector normal = plane.Normal();
  const Vector point = plane.Point();
  plane.ApplySolution(std::vector<double>{0.1, -0.05, 0.3});
  const Vector step = ostra_bundle::Subtract(plane.Point(), point);
  for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(step[i], 0.3 * normal[i], 1e-15);
  EXPECT_NEAR(ostra_bundle::Length(plane.Normal()), 1.0, 1e-15);
  EXPECT_GT(ostra_bundle::AngleBetween(plane.Normal(), normal), 0.2);
}

}  // namespace
}  // namespace vermo

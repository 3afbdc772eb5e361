#include "linalg/indefinite_factor.h"

#include "checks/kl_exception.h"
#include "reference/real_matrix.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace vermo {
namespace {

using reference::Real;
using reference::RealMatrix;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::uint32_t Below(std::uint32_t n) { return static_cast<std::uint32_t>(fGenerator() % n); }

 private:
  std::mt19937_64 fGenerator;
};

// A symmetric matrix column-major.
struct Symmetric {
  std::uint32_t n;
  std::vector<double> elements;

  explicit Symmetric(std::uint32_t size) : n(size), elements(std::size_t{size} * size, 0.0) {}
  double operator()(std::uint32_t i, std::uint32_t j) const {
    return elements[i + std::size_t{j} * n];
  }
  void Set(std::uint32_t i, std::uint32_t j, double value) {
    elements[i + std::size_t{j} * n] = elements[j + std::size_t{i} * n] = value;
  }
};

// | A B^T | with A positive definite of u unknowns, or with all zero beside B.
// | B  0  |
Symmetric Bordered(std::uint32_t u, std::uint32_t b, Draw& draw) {
  Symmetric a(u + b);
  std::vector<double> rows(std::size_t{2} * u * u);
  for (double& value : rows) value = draw.Uniform();
  for (std::uint32_t i = 0; i < u; ++i)
    for (std::uint32_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (std::uint32_t r = 0; r < 2 * u; ++r)
        sum += rows[r * std::size_t{u} + i] * rows[r * std::size_t{u} + j];
      a.Set(i, j, sum);
    }
  for (std::uint32_t k = 0; k < b; ++k)
    for (std::uint32_t j = 0; j < u; ++j) a.Set(u + k, j, draw.Uniform());
  return a;
}

// The same unknowns in other units and another order.
Symmetric Scaled(const Symmetric& a, double decades, Draw& draw) {
  std::vector<double> scale(a.n);
  std::vector<std::uint32_t> place(a.n);
  for (std::uint32_t i = 0; i < a.n; ++i) {
    scale[i] = std::pow(10.0, decades * draw.Uniform());
    place[i] = i;
    std::swap(place[i], place[draw.Below(i + 1)]);
  }
  Symmetric scaled(a.n);
  for (std::uint32_t i = 0; i < a.n; ++i)
    for (std::uint32_t j = 0; j <= i; ++j)
      scaled.Set(place[i], place[j], a(i, j) * scale[i] * scale[j]);
  return scaled;
}

// Inverse and solution against extended precision. Both may deviate by rounding times the
// condition of the equilibrated matrix, in the units of each unknown.
void ExpectInverse(const Symmetric& a, Draw& draw) {
  RealMatrix exact(a.n);
  for (std::uint32_t i = 0; i < a.n; ++i)
    for (std::uint32_t j = 0; j < a.n; ++j) exact[i][j] = a(i, j);
  const RealMatrix q = reference::Inverse(exact);
  const std::vector<Real> scale = Equilibrate(exact);
  Real size = 0;
  Real inverseSize = 0;
  for (std::uint32_t i = 0; i < a.n; ++i) {
    Real sum = 0;
    Real inverseSum = 0;
    for (std::uint32_t j = 0; j < a.n; ++j) {
      sum += std::fabs(exact[i][j]);
      inverseSum += std::fabs(q[i][j] / (scale[i] * scale[j]));
    }
    size = std::max(size, sum);
    inverseSize = std::max(inverseSize, inverseSum);
  }
  const Real tolerance = 10 * static_cast<Real>(2.2e-16) * size * inverseSize * inverseSize;

  IndefiniteFactor factor;
  factor.Factorize(a.elements, a.n);
  std::vector<double> inverse;
  factor.Inverse(inverse);
  ASSERT_EQ(inverse.size(), a.elements.size());
  std::vector<double> x(a.n);
  for (double& value : x) value = draw.Uniform();
  std::vector<Real> expected(a.n, 0);
  for (std::uint32_t i = 0; i < a.n; ++i) {
    x[i] /= static_cast<double>(scale[i]);
    for (std::uint32_t j = 0; j <= i; ++j) {
      EXPECT_EQ(inverse[i + std::size_t{j} * a.n], inverse[j + std::size_t{i} * a.n]);
      EXPECT_LE(std::fabs(inverse[i + std::size_t{j} * a.n] - q[i][j]),
                tolerance * scale[i] * scale[j])
          << i << ' ' << j;
    }
  }
  for (std::uint32_t i = 0; i < a.n; ++i)
    for (std::uint32_t j = 0; j < a.n; ++j) expected[i] += q[i][j] * x[j];
  factor.Solve(x.data());
  for (std::uint32_t i = 0; i < a.n; ++i)
    EXPECT_LE(std::fabs(x[i] - expected[i]), static_cast<Real>(a.n) * tolerance * scale[i]) << i;
}

TEST(IndefiniteFactor, InvertsBorderedSystems) {
  Draw draw(1);
  for (std::uint32_t u = 1; u <= 25; ++u)
    for (const std::uint32_t b : {0U, 1U, 3U, 7U})
      if (b <= u) ExpectInverse(Bordered(u, b, draw), draw);
}

TEST(IndefiniteFactor, UnitsDoNotMatter) {
  Draw draw(2);
  for (int repeat = 0; repeat < 60; ++repeat) {
    const std::uint32_t u = 2 + draw.Below(20);
    ExpectInverse(Scaled(Bordered(u, draw.Below(u), draw), 8.0, draw), draw);
  }
}

TEST(IndefiniteFactor, ZeroDiagonalsTakePairsOfColumns) {
  Draw draw(3);
  for (std::uint32_t n = 2; n <= 20; n += 2) {
    // As many constraints as unknowns and a positive part that is empty.
    Symmetric a(n);
    for (std::uint32_t i = 0; i < n / 2; ++i)
      for (std::uint32_t j = 0; j < n / 2; ++j)
        a.Set(n / 2 + i, j, draw.Uniform() + (i == j ? 3.0 : 0.0));
    ExpectInverse(a, draw);
    ExpectInverse(Scaled(a, 6.0, draw), draw);
    // Nothing on the diagonal and everything beside it.
    for (std::uint32_t i = 0; i < n; ++i)
      for (std::uint32_t j = 0; j < i; ++j) a.Set(i, j, draw.Uniform());
    ExpectInverse(a, draw);
  }
}

TEST(IndefiniteFactor, NegativeAndMixedDiagonals) {
  Draw draw(4);
  for (int repeat = 0; repeat < 60; ++repeat) {
    Symmetric a(1 + draw.Below(15));
    for (std::uint32_t i = 0; i < a.n; ++i)
      for (std::uint32_t j = 0; j <= i; ++j) a.Set(i, j, draw.Uniform());
    ExpectInverse(a, draw);
  }
}

TEST(IndefiniteFactor, ReadsTheLowerTriangleOnly) {
  Draw draw(5);
  const Symmetric a = Bordered(8, 3, draw);
  std::vector<double> lower = a.elements;
  for (std::uint32_t j = 0; j < a.n; ++j)
    for (std::uint32_t i = 0; i < j; ++i)
      lower[i + std::size_t{j} * a.n] = std::numeric_limits<double>::quiet_NaN();
  IndefiniteFactor full;
  IndefiniteFactor half;
  full.Factorize(a.elements, a.n);
  half.Factorize(lower, a.n);
  std::vector<double> expected;
  std::vector<double> inverse;
  full.Inverse(expected);
  half.Inverse(inverse);
  EXPECT_EQ(inverse, expected);
}

TEST(IndefiniteFactor, OneUnknownAndNone) {
  IndefiniteFactor factor;
  std::vector<double> inverse(3, 1.0);
  factor.Factorize({}, 0);
  factor.Solve(nullptr);
  factor.Inverse(inverse);
  EXPECT_TRUE(inverse.empty());
  for (const double value : {4.0, -0.25, 1e300, 1e-300}) {
    factor.Factorize(std::span(&value, 1), 1);
    factor.Inverse(inverse);
    ASSERT_EQ(inverse.size(), 1U);
    EXPECT_DOUBLE_EQ(inverse[0], 1.0 / value);
  }
}

std::int32_t CodeOf(const Symmetric& a) {
  IndefiniteFactor factor;
  try {
    factor.Factorize(a.elements, a.n);
  } catch (const KlException& failure) {
    return failure.GetCode();
  }
  return 0;
}

TEST(IndefiniteFactor, EmptyColumnFails) {
  EXPECT_EQ(CodeOf(Symmetric(1)), -39007);
  EXPECT_EQ(CodeOf(Symmetric(5)), -39007);
  Draw draw(6);
  for (std::uint32_t empty = 0; empty < 9; ++empty) {
    Symmetric a = Bordered(6, 3, draw);
    for (std::uint32_t j = 0; j < a.n; ++j) a.Set(empty, j, 0.0);
    EXPECT_EQ(CodeOf(a), -39007) << empty;
  }
}

TEST(IndefiniteFactor, EqualRowsOfSmallIntegersFail) {
  Symmetric a(3);
  for (std::uint32_t i = 0; i < 3; ++i)
    for (std::uint32_t j = 0; j < 3; ++j) a.Set(i, j, 1.0);
  EXPECT_EQ(CodeOf(a), -39007);
}

TEST(IndefiniteFactor, NotANumberAndInfinityEnd) {
  for (const double bad :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
    for (std::uint32_t i = 0; i < 6; ++i)
      for (std::uint32_t j = 0; j <= i; ++j) {
        Draw draw(7);
        Symmetric a = Bordered(4, 2, draw);
        a.Set(i, j, bad);
        IndefiniteFactor factor;
        std::vector<double> inverse;
        try {
          factor.Factorize(a.elements, a.n);
          factor.Inverse(inverse);
        } catch (const KlException& failure) {
          EXPECT_EQ(failure.GetCode(), -39007);
          continue;
        }
        bool isFinite = true;
        for (const double value : inverse) isFinite = isFinite && std::isfinite(value);
        EXPECT_FALSE(isFinite && std::isnan(bad)) << i << ' ' << j;
      }
}

TEST(IndefiniteFactor, CanBeUsedAgain) {
  Draw draw(8);
  const Symmetric large = Bordered(12, 4, draw);
  const Symmetric small = Bordered(3, 1, draw);
  IndefiniteFactor reused;
  IndefiniteFactor fresh;
  std::vector<double> a;
  std::vector<double> b;
  reused.Factorize(large.elements, large.n);
  EXPECT_THROW(reused.Factorize(Symmetric(2).elements, 2), KlException);
  reused.Factorize(small.elements, small.n);
  fresh.Factorize(small.elements, small.n);
  reused.Inverse(a);
  fresh.Inverse(b);
  EXPECT_EQ(a, b);
}

}  // namespace
}  // namespace vermo

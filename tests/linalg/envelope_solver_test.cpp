#include "linalg/envelope_solver.h"

#include "checks/kl_exception.h"
#include "reference/naive_envelope.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace vermo {
namespace {

using Dense = std::vector<std::vector<double>>;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::size_t Below(std::size_t n) { return static_cast<std::size_t>(fGenerator() % n); }

 private:
  std::mt19937_64 fGenerator;
};

// A bordered system: u unknowns with sparse observations, b multipliers with a zero diagonal.
// Every row ends at its diagonal.
Dense RandomSystem(std::uint64_t seed, std::size_t u, std::size_t b) {
  Draw draw(seed);
  const std::size_t size = u + b;
  Dense n(size, std::vector<double>(size, 0.0));
  for (std::size_t observation = 0; observation < 2 * u; ++observation) {
    std::vector<std::pair<std::size_t, double>> row;
    for (int entry = 0; entry < 4; ++entry) row.emplace_back(draw.Below(u), draw.Uniform());
    for (const auto& [i, x] : row)
      for (const auto& [j, y] : row) n[i][j] += x * y;
  }
  for (std::size_t k = 0; k < b; ++k)
    for (std::size_t c = 0; c < u; ++c)
      n[u + k][c] = n[c][u + k] = draw.Below(2) == 0 ? draw.Uniform() * 1e-3 : 0.0;
  return n;
}

void Fill(CEnvelopeMatrix& matrix, const Dense& dense) {
  const auto size = static_cast<std::uint32_t>(dense.size());
  matrix.Resize(size);
  for (std::uint32_t r = 0; r < size; ++r) {
    std::uint32_t first = 0;
    while (first <= r && dense[r][first] == 0.0) ++first;
    if (first > r) continue;
    matrix.Row(r).Widen(first, r - first + 1);
    for (std::uint32_t c = first; c <= r; ++c) matrix.Row(r).Element(c) = dense[r][c];
  }
}

reference::NaiveMatrix Naive(const CEnvelopeMatrix& matrix) {
  reference::NaiveMatrix naive(matrix.Rows());
  for (std::uint32_t r = 0; r < matrix.Rows(); ++r) {
    const CEnvelopeRow& row = matrix.Row(r);
    naive.Widen(r, row.First(), row.End());
    for (std::uint32_t c = row.First(); c < row.End(); ++c) naive.value[r][c] = row.At(c);
  }
  return naive;
}

// Gauss-Jordan with row pivoting.
Dense Inverse(Dense a) {
  const std::size_t n = a.size();
  Dense inverse(n, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i) inverse[i][i] = 1.0;
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t p = i;
    for (std::size_t j = i; j < n; ++j)
      if (std::fabs(a[j][i]) > std::fabs(a[p][i])) p = j;
    std::swap(a[i], a[p]);
    std::swap(inverse[i], inverse[p]);
    const double pivot = a[i][i];
    for (std::size_t k = 0; k < n; ++k) {
      a[i][k] /= pivot;
      inverse[i][k] /= pivot;
    }
    for (std::size_t j = 0; j < n; ++j) {
      if (j == i) continue;
      const double factor = a[j][i];
      for (std::size_t k = 0; k < n; ++k) {
        a[j][k] -= factor * a[i][k];
        inverse[j][k] -= factor * inverse[i][k];
      }
    }
  }
  return inverse;
}

double LargestElement(const Dense& a) {
  double largest = 0.0;
  for (const auto& row : a)
    for (const double x : row) largest = std::max(largest, std::fabs(x));
  return largest;
}

bool SameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

struct Factored {
  CEnvelopeMatrix n;
  CEnvelopeMatrix f;
  CVektor d;
  FactorizeWorkspace workspace;

  void Run(const Dense& dense, bool pivotSearch) {
    Fill(n, dense);
    Factorize(n, f, d, pivotSearch, workspace);
  }
};

void ExpectSameAsNaive(const Dense& dense, bool pivotSearch) {
  Factored fast;
  Fill(fast.n, dense);
  const auto naive = reference::Factorize(Naive(fast.n), pivotSearch);
  if (naive.failedAt) {
    EXPECT_THROW(Factorize(fast.n, fast.f, fast.d, pivotSearch, fast.workspace), KlException);
    return;
  }
  Factorize(fast.n, fast.f, fast.d, pivotSearch, fast.workspace);
  for (std::uint32_t r = 0; r < fast.n.Rows(); ++r) {
    EXPECT_TRUE(SameBits(fast.d[r], naive.d[r])) << "pivot " << r;
    EXPECT_EQ(fast.f.Row(r).First(), naive.f.first[r]);
    EXPECT_EQ(fast.f.Row(r).End(), naive.f.end[r]);
    for (std::uint32_t c = 0; c < fast.n.Rows(); ++c) {
      ASSERT_TRUE(SameBits(fast.f.At(r, c), naive.f.value[r][c])) << r << ' ' << c;
      ASSERT_TRUE(SameBits(fast.n.At(r, c), naive.n.value[r][c])) << r << ' ' << c;
    }
  }
}

TEST(Factorize, IsBitForBitThePlainElimination) {
  for (std::uint64_t seed = 0; seed < 60; ++seed)
    for (const bool pivotSearch : {false, true})
      ExpectSameAsNaive(RandomSystem(seed, 3 + seed % 17, seed % 5), pivotSearch);
}

TEST(Factorize, IsThePlainEliminationAlsoWithWeakAndNegativeDiagonals) {
  for (std::uint64_t seed = 100; seed < 160; ++seed) {
    Dense n = RandomSystem(seed, 10, 3);
    Draw draw(seed);
    n[draw.Below(10)][0] = 0.0;
    const std::size_t weak = draw.Below(10);
    n[weak][weak] *= 1e-9;
    const std::size_t negative = draw.Below(10);
    n[negative][negative] *= -1.0;
    for (std::size_t r = 0; r < n.size(); ++r)
      for (std::size_t c = r + 1; c < n.size(); ++c) n[r][c] = n[c][r];
    ExpectSameAsNaive(n, true);
    ExpectSameAsNaive(n, false);
  }
}

TEST(Factorize, TransformsTheMatrixToItsPivots) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    const Dense n = RandomSystem(seed, 12, 3);
    Factored s;
    s.Run(n, true);
    const std::size_t size = n.size();
    // F N F^T against the pivots, relative to the size of the terms that are summed.
    for (std::uint32_t r = 0; r < size; ++r)
      for (std::uint32_t c = 0; c < size; ++c) {
        double sum = 0.0;
        double terms = 0.0;
        for (std::uint32_t k = 0; k < size; ++k)
          for (std::uint32_t l = 0; l < size; ++l) {
            const double term = s.f.At(r, k) * n[k][l] * s.f.At(c, l);
            sum += term;
            terms += std::fabs(term);
          }
        const double expected = r == c ? 1.0 / s.d[r] : 0.0;
        EXPECT_NEAR(sum, expected, 1e-12 * (terms + 1e-12)) << r << ' ' << c;
      }
  }
}

TEST(Factorize, SolutionAndInverseMatchGaussJordan) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    const Dense n = RandomSystem(seed, 15, 4);
    const Dense inverse = Inverse(n);
    Factored s;
    s.Run(n, true);
    const auto size = static_cast<std::uint32_t>(n.size());
    // Rounding times the condition, which the inverse shows: entries of N are of size 10.
    const double tolerance = 1e-12 * std::pow(LargestElement(inverse), 2);
    CVektor b;
    ASSERT_EQ(b.Allocate(size), 0);
    Draw draw(seed + 1000);
    for (std::uint32_t i = 0; i < size; ++i) b[i] = draw.Uniform();
    const CVektor x = Solve(s.f, s.d, b);
    for (std::uint32_t i = 0; i < size; ++i) {
      double expected = 0.0;
      for (std::uint32_t j = 0; j < size; ++j) {
        expected += inverse[i][j] * b[j];
        EXPECT_NEAR(InverseElement(s.f, s.d, i, j), inverse[i][j], tolerance);
      }
      EXPECT_NEAR(x[i], expected, size * tolerance);
    }
  }
}

TEST(Factorize, EmptySystemIsNoFailure) {
  Factored s;
  EXPECT_NO_THROW(s.Run({}, true));
  EXPECT_EQ(s.d.Size(), 0U);
}

std::int32_t CodeOf(const Dense& n, bool pivotSearch) {
  Factored s;
  try {
    s.Run(n, pivotSearch);
  } catch (const KlException& failure) {
    return failure.GetCode();
  }
  return 0;
}

TEST(Factorize, EmptyColumnFails) {
  EXPECT_EQ(CodeOf({{1.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 0.0, 1.0}}, true), -39007);
  EXPECT_EQ(CodeOf({{0.0}}, true), -39007);
}

TEST(Factorize, MultiplierRowNeedsThePivotSearch) {
  const Dense n = {{0.0, 2.0}, {2.0, 5.0}};
  EXPECT_EQ(CodeOf(n, false), -39007);
  EXPECT_EQ(CodeOf(n, true), 0);
  const Dense inverse = Inverse(n);
  Factored s;
  s.Run(n, true);
  for (std::uint32_t i = 0; i < 2; ++i)
    for (std::uint32_t j = 0; j < 2; ++j)
      EXPECT_NEAR(InverseElement(s.f, s.d, i, j), inverse[i][j], 1e-15);
}

TEST(Factorize, ZeroDiagonalInTheLastRowFails) {
  EXPECT_EQ(CodeOf({{1.0, 1.0}, {1.0, 1.0}}, true), -39007);
}

TEST(Factorize, PivotBelowTheLimitFailsAndAtTheLimitPasses) {
  EXPECT_EQ(CodeOf({{0.99e-20}}, true), -39007);
  EXPECT_EQ(CodeOf({{1e-20}}, true), 0);
}

TEST(Factorize, DominatedDiagonalGetsARowAddedThoughItsPivotWouldPass) {
  Factored s;
  s.Run({{1e-3, 2e3}, {2e3, 1.0}}, true);
  EXPECT_EQ(s.f.At(0, 1), 1.0);
  // N00 + 2 N10 + N11
  EXPECT_NEAR(1.0 / s.d[0], 1e-3 + 4e3 + 1.0, 1e-9);
  Factored without;
  without.Run({{1e-3, 2e3}, {2e3, 1.0}}, false);
  EXPECT_EQ(without.f.At(0, 1), 0.0);
}

TEST(Factorize, RatioOfExactlyTheLimitAddsNothing) {
  // q = 1 / 2^20 is below 1e-6 and q = 1 / 5e5 is not; both exceed the factor 1e5.
  Factored below;
  below.Run({{1.0, 1048576.0}, {1048576.0, 1e13}}, true);
  EXPECT_EQ(below.f.At(0, 1), 1.0);
  Factored above;
  above.Run({{1.0, 5e5}, {5e5, 1e13}}, true);
  EXPECT_EQ(above.f.At(0, 1), 0.0);
}

TEST(Factorize, WeakDiagonalOfTheOtherRowStartsTheSearchToo) {
  // Of column 0 q is 2e-6 in both. q2 = 1e5 / 5e5^2 = 4e-7 is below 1e-6 and 1e6 / 5e5^2 is not.
  Factored below;
  below.Run({{1.0, 5e5}, {5e5, 1e5}}, true);
  EXPECT_EQ(below.f.At(0, 1), 1.0);
  Factored above;
  above.Run({{1.0, 5e5}, {5e5, 1e6}}, true);
  EXPECT_EQ(above.f.At(0, 1), 0.0);
}

TEST(Factorize, RowBesideItsDiagonalIsNoPivot) {
  for (const bool pivotSearch : {false, true}) {
    Factored s;
    s.n.Resize(2);
    s.n.Row(0).Widen(1, 1);
    s.n.Row(0).Element(1) = 5.0;
    s.n.Row(1).Widen(1, 1);
    s.n.Row(1).Element(1) = 1.0;
    EXPECT_THROW(Factorize(s.n, s.f, s.d, pivotSearch, s.workspace), KlException);
  }
}

TEST(Factorize, NegativeDiagonalIsBeatenByASmallerElementOnceASearchIsOn) {
  // Row 1 starts the search; row 2 stores column 0 with the larger magnitude and is taken.
  Factored s;
  s.Run({{-1.0, 2e6, 3e6}, {2e6, 1e14, 0.0}, {3e6, 0.0, 1e14}}, true);
  EXPECT_EQ(s.f.At(0, 2), 1.0);
  EXPECT_EQ(s.f.At(0, 1), 0.0);
}

TEST(Factorize, NotANumberPassesOn) {
  Factored s;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NO_THROW(s.Run({{nan, 1.0}, {1.0, 2.0}}, true));
  EXPECT_TRUE(std::isnan(s.d[0]));
}

TEST(Solve, DifferentSizesFail) {
  Factored s;
  s.Run({{1.0}}, true);
  CVektor b;
  ASSERT_EQ(b.Allocate(2), 0);
  try {
    static_cast<void>(Solve(s.f, s.d, b));
    FAIL();
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -39004);
  }
  CEnvelopeMatrix other;
  other.Resize(3);
  EXPECT_THROW(ComputeInverse(other, s.f, s.d, 1), KlException);
}

TEST(DiagonalOfInverse, IsBitForBitTheSingleElements) {
  const Dense n = RandomSystem(7, 20, 4);
  Factored s;
  s.Run(n, true);
  std::vector<double> diagonal(n.size());
  DiagonalOfInverse(s.f, s.d, diagonal);
  for (std::uint32_t i = 0; i < n.size(); ++i)
    EXPECT_TRUE(SameBits(diagonal[i], InverseElement(s.f, s.d, i, i))) << i;
}

TEST(ComputeInverse, FillsTheEnvelopeOfTheUnknownsOnly) {
  const std::size_t u = 14;
  const Dense n = RandomSystem(9, u, 3);
  Factored s;
  s.Run(n, true);
  ComputeInverse(s.n, s.f, s.d, u);
  for (std::uint32_t r = 0; r < n.size(); ++r)
    for (std::uint32_t c = 0; c <= r; ++c) {
      const double element = s.n.At(r, c);
      if (r >= u || !s.n.Row(r).Stores(c)) {
        EXPECT_EQ(element, 0.0);
      } else {
        const double expected = InverseElement(s.f, s.d, r, c);
        EXPECT_NEAR(element, expected, 1e-12 * (1.0 + std::fabs(expected)));
      }
    }
}

TEST(InverseBlock, ResizesItsTargetAndHoldsTheElements) {
  const Dense n = RandomSystem(11, 9, 2);
  Factored s;
  s.Run(n, true);
  ostra_bundle::Matrix block(1, 1);
  const ostra_bundle::Matrix shared = block;
  InverseBlock(block, s.f, s.d, 2, 3, 5, 4);
  ASSERT_EQ(block.Rows(), 3U);
  ASSERT_EQ(block.Cols(), 4U);
  for (std::uint32_t r = 0; r < 3; ++r)
    for (std::uint32_t c = 0; c < 4; ++c)
      EXPECT_EQ(block.At(r, c), InverseElement(s.f, s.d, 2 + r, 5 + c));
  EXPECT_EQ(shared.Rows(), 1U);
}

}  // namespace
}  // namespace vermo

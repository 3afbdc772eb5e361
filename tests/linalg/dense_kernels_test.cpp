#include "linalg/dense_kernels.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace vermo::dense {
namespace {

constexpr Variant kVariants[] = {Variant::Portable, Variant::Avx2, Variant::Avx512};
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::vector<double> Block(Size elements) {
    std::vector<double> block(elements);
    for (double& value : block) value = Uniform();
    return block;
  }

 private:
  std::mt19937_64 fGenerator;
};

// Index of the first element whose bits differ, or the size.
Size FirstDifference(const std::vector<double>& a, const std::vector<double>& b) {
  for (Size i = 0; i < a.size(); ++i)
    if (std::bit_cast<std::uint64_t>(a[i]) != std::bit_cast<std::uint64_t>(b[i])) return i;
  return a.size();
}

// Every element from its old value on, in the order of k, rounded once for each k or twice.
void PlainProduct(bool isFused,
                  double* c,
                  Size ldc,
                  const double* a,
                  Size lda,
                  const double* b,
                  Size ldb,
                  Size m,
                  Size n,
                  Size k) {
  for (Size j = 0; j < n; ++j)
    for (Size i = 0; i < m; ++i)
      for (Size p = 0; p < k; ++p) {
        double& sum = c[i + j * ldc];
        const double x = a[i + p * lda];
        const double y = b[j + p * ldb];
        sum = isFused ? std::fma(-x, y, sum) : sum - x * y;
      }
}

struct Shape {
  Size m, n, k;
  Size ldc, lda, ldb;
};

void ExpectSameBits(const Shape& s, Draw& draw) {
  // One element more than the blocks need: nothing behind them may change either.
  const std::vector<double> a = draw.Block(s.lda * s.k + 1);
  const std::vector<double> b = draw.Block(s.ldb * s.k + 1);
  const std::vector<double> before = draw.Block(s.ldc * s.n + 1);
  const auto plain = [&](bool isFused) {
    std::vector<double> c = before;
    PlainProduct(isFused, c.data(), s.ldc, a.data(), s.lda, b.data(), s.ldb, s.m, s.n, s.k);
    return c;
  };
  // A build without optimisation fuses nothing.
  const auto expect = [&](const std::vector<double>& c, Variant variant) {
    const bool isPlain = FirstDifference(c, plain(false)) == c.size();
    const bool isFused = FirstDifference(c, plain(true)) == c.size();
    ASSERT_TRUE(isPlain || (isFused && variant != Variant::Portable))
        << "variant " << static_cast<int>(variant) << ", m " << s.m << " n " << s.n << " k " << s.k;
  };
  Variant best = Variant::Portable;
  for (const Variant variant : kVariants) {
    if (!IsAvailable(variant)) continue;
    std::vector<double> c = before;
    SubtractProduct(variant, c.data(), s.ldc, a.data(), s.lda, b.data(), s.ldb, s.m, s.n, s.k);
    expect(c, variant);
    best = variant;
  }
  std::vector<double> c = before;
  SubtractProduct(c.data(), s.ldc, a.data(), s.lda, b.data(), s.ldb, s.m, s.n, s.k);
  expect(c, best);
}

TEST(SubtractProduct, BestVariantIsThereAndNoWiderOneIs) {
  bool isBehind = false;
  for (const Variant variant : kVariants) {
    if (isBehind) {
      EXPECT_FALSE(IsAvailable(variant));
    }
    if (variant != BestVariant()) continue;
    isBehind = true;
    EXPECT_TRUE(IsAvailable(variant));
  }
  EXPECT_TRUE(isBehind);
}

TEST(SubtractProduct, PortableVariantIsAlwaysThere) { EXPECT_TRUE(IsAvailable(Variant::Portable)); }

TEST(SubtractProduct, EveryVariantIsBitForBitThePlainLoopForAllRemainders) {
  Draw draw(1);
  for (Size m = 0; m <= 40; ++m)
    for (Size n = 0; n <= 40; ++n)
      for (const Size k : {0U, 1U, 2U, 7U}) ExpectSameBits({m, n, k, m, m, n}, draw);
}

TEST(SubtractProduct, EveryVariantKeepsToItsBlockWithinLongerColumns) {
  Draw draw(2);
  for (Size m = 1; m <= 40; m += 3)
    for (Size n = 1; n <= 20; ++n)
      for (const Size k : {1U, 6U, 40U}) ExpectSameBits({m, n, k, m + 5, m + 3, n + 7}, draw);
}

TEST(SubtractProduct, EveryVariantIsBitForBitThePlainLoopOnLongSums) {
  Draw draw(3);
  ExpectSameBits({65, 67, 300, 70, 65, 80}, draw);
}

TEST(SubtractProduct, EveryVariantPassesInfinitiesAndNotANumberToTheirElementsOnly) {
  Draw draw(4);
  const Size m = 19;
  const Size n = 13;
  for (const Variant variant : kVariants) {
    if (!IsAvailable(variant)) continue;
    std::vector<double> a = draw.Block(m);
    const std::vector<double> b = draw.Block(n);
    a[3] = kNaN;
    a[17] = std::numeric_limits<double>::infinity();
    std::vector<double> c(m * n, 1.0);
    SubtractProduct(variant, c.data(), m, a.data(), m, b.data(), n, m, n, 1);
    for (Size j = 0; j < n; ++j)
      for (Size i = 0; i < m; ++i) {
        if (i == 3)
          EXPECT_TRUE(std::isnan(c[i + j * m]));
        else if (i == 17)
          EXPECT_TRUE(std::isinf(c[i + j * m]));
        else
          EXPECT_DOUBLE_EQ(c[i + j * m], 1.0 - a[i] * b[j]);
      }
  }
}

// A unit lower triangle of -1, 0 and 1, small enough that L D transpose(L) is exact.
std::vector<double> SmallTriangle(Size n, Size ld, Draw& draw) {
  std::vector<double> l(ld * n, 0.0);
  for (Size j = 0; j < n; ++j) {
    l[j + j * ld] = 1.0;
    for (Size i = j + 1; i < n; ++i) l[i + j * ld] = std::round(draw.Uniform());
  }
  return l;
}

// The lower triangle of L D transpose(L); NaN above, which no kernel may read.
std::vector<double> Square(const std::vector<double>& l,
                           const std::vector<double>& d,
                           Size n,
                           Size ld) {
  std::vector<double> a(ld * n, kNaN);
  for (Size j = 0; j < n; ++j)
    for (Size i = j; i < n; ++i) {
      double sum = 0.0;
      for (Size k = 0; k <= j; ++k) sum += l[i + k * ld] * d[k] * l[j + k * ld];
      a[i + j * ld] = sum;
    }
  return a;
}

TEST(Cholesky, GivesTheTriangleBack) {
  Draw draw(5);
  for (Size n = 0; n <= 70; ++n) {
    const Size ld = n + n % 3;
    const std::vector<double> l = SmallTriangle(n, ld, draw);
    const std::vector<double> d(n, 4.0);
    std::vector<double> a = Square(l, d, n, ld);
    const std::vector<double> limits(n, 3.9);
    ASSERT_EQ(Cholesky(a.data(), ld, n, limits.data()), n);
    // Integers and powers of two all along: exact.
    for (Size j = 0; j < n; ++j)
      for (Size i = j; i < n; ++i) ASSERT_EQ(a[i + j * ld], 2.0 * l[i + j * ld]) << i << ' ' << j;
  }
}

TEST(Cholesky, NamesTheFirstPivotThatIsNotAboveItsLimit) {
  Draw draw(6);
  const Size n = 50;
  const std::vector<double> l = SmallTriangle(n, n, draw);
  for (Size failing = 0; failing < n; ++failing) {
    for (const double pivot : {0.0, -1.0, kNaN}) {
      std::vector<double> d(n, 1.0);
      d[failing] = pivot;
      std::vector<double> a = Square(l, d, n, n);
      const std::vector<double> limits(n, 0.0);
      EXPECT_EQ(Cholesky(a.data(), n, n, limits.data()), failing) << pivot;
    }
    // A pivot at its limit fails and one just above it passes; later limits do not matter.
    std::vector<double> limits(n, 0.0);
    limits[failing] = 1.0;
    if (failing + 1 < n) limits[failing + 1] = 2.0;
    std::vector<double> a = Square(l, std::vector<double>(n, 1.0), n, n);
    EXPECT_EQ(Cholesky(a.data(), n, n, limits.data()), failing);
    limits.assign(n, 0.0);
    limits[failing] = std::nextafter(1.0, 0.0);
    a = Square(l, std::vector<double>(n, 1.0), n, n);
    EXPECT_EQ(Cholesky(a.data(), n, n, limits.data()), n);
  }
}

// A well-conditioned lower triangle; NaN above its diagonal.
std::vector<double> Triangle(Size n, Size ld, Draw& draw) {
  std::vector<double> l(ld * n, kNaN);
  for (Size j = 0; j < n; ++j) {
    l[j + j * ld] = 2.0 + draw.Uniform();
    for (Size i = j + 1; i < n; ++i) l[i + j * ld] = draw.Uniform() / static_cast<double>(n);
  }
  return l;
}

// Rounding of n terms of size 3.
double Tolerance(Size n) { return 4.0 * static_cast<double>(n + 1) * 2.2e-16; }

TEST(SolveTransposedRight, TimesTheTriangleIsTheRightHandSide) {
  Draw draw(7);
  for (const Size m : {0U, 1U, 5U, 33U})
    for (Size n = 0; n <= 40; ++n) {
      const Size ld = n + 2;
      const Size ldb = m + 3;
      const std::vector<double> l = Triangle(n, ld, draw);
      const std::vector<double> before = draw.Block(ldb * n + 1);
      std::vector<double> x = before;
      SolveTransposedRight(x.data(), ldb, l.data(), ld, m, n);
      for (Size j = 0; j < n; ++j)
        for (Size i = 0; i < ldb; ++i) {
          if (i >= m) {
            ASSERT_EQ(x[i + j * ldb], before[i + j * ldb]);
            continue;
          }
          double sum = 0.0;
          for (Size p = 0; p <= j; ++p) sum += x[i + p * ldb] * l[j + p * ld];
          ASSERT_NEAR(sum, before[i + j * ldb], Tolerance(n));
        }
    }
}

TEST(InvertLower, TimesTheTriangleIsTheIdentityAndTheUpperTriangleIsZero) {
  Draw draw(8);
  for (Size n = 0; n <= 40; ++n) {
    const Size ld = n + 1;
    const std::vector<double> l = Triangle(n, ld, draw);
    std::vector<double> inverse = l;
    InvertLower(inverse.data(), ld, n);
    for (Size j = 0; j < n; ++j)
      for (Size i = 0; i < n; ++i) {
        if (i < j) {
          ASSERT_EQ(inverse[i + j * ld], 0.0);
          continue;
        }
        double sum = 0.0;
        for (Size p = j; p <= i; ++p) sum += l[i + p * ld] * inverse[p + j * ld];
        ASSERT_NEAR(sum, i == j ? 1.0 : 0.0, Tolerance(n));
      }
  }
}

TEST(SolveLower, TimesTheTriangleIsTheRightHandSide) {
  Draw draw(9);
  for (Size n = 0; n <= 40; ++n) {
    const Size ld = n + 4;
    const std::vector<double> l = Triangle(n, ld, draw);
    const std::vector<double> b = draw.Block(n);
    std::vector<double> x = b;
    std::vector<double> y = b;
    SolveLower(x.data(), l.data(), ld, n);
    SolveLowerTransposed(y.data(), l.data(), ld, n);
    for (Size i = 0; i < n; ++i) {
      double sum = 0.0;
      for (Size p = 0; p <= i; ++p) sum += l[i + p * ld] * x[p];
      ASSERT_NEAR(sum, b[i], Tolerance(n));
      sum = 0.0;
      for (Size p = i; p < n; ++p) sum += l[p + i * ld] * y[p];
      ASSERT_NEAR(sum, b[i], Tolerance(n));
    }
  }
}

}  // namespace
}  // namespace vermo::dense

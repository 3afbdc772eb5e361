#include "linalg/dense_kernels.h"

#include <algorithm>
#include <cmath>

namespace vermo::dense {
namespace {

// A tile of C stays in registers while the products of all k are subtracted from it: R vectors of
// W rows by N columns.
template <Size W>
struct Vector {
  typedef double Type
      __attribute__((vector_size(W * sizeof(double)), aligned(alignof(double)), may_alias));
};

template <Size W, Size R, Size N>
[[gnu::always_inline]] inline void Tile(
    double* c, Size ldc, const double* a, Size lda, const double* b, Size ldb, Size k) {
  using V = typename Vector<W>::Type;
  V sum[R][N];
#pragma GCC unroll 16
  for (Size j = 0; j < N; ++j)
#pragma GCC unroll 16
    for (Size r = 0; r < R; ++r) sum[r][j] = *reinterpret_cast<const V*>(c + j * ldc + r * W);
  for (Size p = 0; p < k; ++p) {
    V rows[R];
#pragma GCC unroll 16
    for (Size r = 0; r < R; ++r) rows[r] = *reinterpret_cast<const V*>(a + p * lda + r * W);
#pragma GCC unroll 16
    for (Size j = 0; j < N; ++j) {
      const double factor = b[p * ldb + j];
#pragma GCC unroll 16
      for (Size r = 0; r < R; ++r) sum[r][j] -= rows[r] * factor;
    }
  }
#pragma GCC unroll 16
  for (Size j = 0; j < N; ++j)
#pragma GCC unroll 16
    for (Size r = 0; r < R; ++r) *reinterpret_cast<V*>(c + j * ldc + r * W) = sum[r][j];
}

// What is left of m rows below whole vectors of W: vectors of half the width, down to single rows.
template <Size W, Size N>
[[gnu::always_inline]] inline void RowsLeft(
    double* c, Size ldc, const double* a, Size lda, const double* b, Size ldb, Size m, Size k) {
  if constexpr (W >= 1) {
    if (m >= W) {
      Tile<W, 1, N>(c, ldc, a, lda, b, ldb, k);
      c += W;
      a += W;
      m -= W;
    }
    RowsLeft<W / 2, N>(c, ldc, a, lda, b, ldb, m, k);
  }
}

// N columns.
template <Size W, Size R, Size N>
[[gnu::always_inline]] inline void Columns(
    double* c, Size ldc, const double* a, Size lda, const double* b, Size ldb, Size m, Size k) {
  constexpr Size kRows = W * R;
  Size i = 0;
  for (; i + kRows <= m; i += kRows) Tile<W, R, N>(c + i, ldc, a + i, lda, b, ldb, k);
  if constexpr (R > 1)
    for (; i + W <= m; i += W) Tile<W, 1, N>(c + i, ldc, a + i, lda, b, ldb, k);
  RowsLeft<W / 2, N>(c + i, ldc, a + i, lda, b, ldb, m - i, k);
}

template <Size W, Size R, Size N>
[[gnu::always_inline]] inline void Product(double* c,
                                           Size ldc,
                                           const double* a,
                                           Size lda,
                                           const double* b,
                                           Size ldb,
                                           Size m,
                                           Size n,
                                           Size k) {
  Size j = 0;
  for (; j + N <= n; j += N) Columns<W, R, N>(c + j * ldc, ldc, a, lda, b + j, ldb, m, k);
  for (; j + 2 <= n; j += 2) Columns<W, R, 2>(c + j * ldc, ldc, a, lda, b + j, ldb, m, k);
  if (j < n) Columns<W, R, 1>(c + j * ldc, ldc, a, lda, b + j, ldb, m, k);
}

#define CARDO_PRODUCT_ARGUMENTS \
  double *c, Size ldc, const double *a, Size lda, const double *b, Size ldb, Size m, Size n, Size k

void ProductPortable(CARDO_PRODUCT_ARGUMENTS) { Product<2, 2, 4>(c, ldc, a, lda, b, ldb, m, n, k); }

#if defined(__x86_64__)
[[gnu::target("avx2,fma")]] void ProductAvx2(CARDO_PRODUCT_ARGUMENTS) {
  Product<4, 2, 4>(c, ldc, a, lda, b, ldb, m, n, k);
}
[[gnu::target("avx512f,fma")]] void ProductAvx512(CARDO_PRODUCT_ARGUMENTS) {
  Product<8, 2, 6>(c, ldc, a, lda, b, ldb, m, n, k);
}
#endif

#undef CARDO_PRODUCT_ARGUMENTS

using ProductFunction = decltype(&ProductPortable);

ProductFunction FunctionOf(Variant variant) noexcept {
#if defined(__x86_64__)
  if (variant == Variant::Avx512) return ProductAvx512;
  if (variant == Variant::Avx2) return ProductAvx2;
#endif
  static_cast<void>(variant);
  return ProductPortable;
}

// Columns that are eliminated one by one before the rest of the matrix sees them.
constexpr Size kPanel = 16;

Size CholeskyUnblocked(double* a, Size lda, Size n, const double* limits) {
  for (Size j = 0; j < n; ++j) {
    const double pivot = a[j + j * lda];
    if (!(pivot > limits[j])) return j;
    const double root = std::sqrt(pivot);
    a[j + j * lda] = root;
    const double inverse = 1.0 / root;
    for (Size i = j + 1; i < n; ++i) a[i + j * lda] *= inverse;
    for (Size c = j + 1; c < n; ++c) {
      const double factor = a[c + j * lda];
      for (Size i = c; i < n; ++i) a[i + c * lda] -= a[i + j * lda] * factor;
    }
  }
  return n;
}

}  // namespace

bool IsAvailable(Variant variant) noexcept {
#if defined(__x86_64__)
  if (variant == Variant::Avx512)
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("fma") != 0;
  if (variant == Variant::Avx2)
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
#endif
  return variant == Variant::Portable;
}

Variant BestVariant() noexcept {
  constexpr Variant kWidestFirst[] = {Variant::Avx512, Variant::Avx2, Variant::Portable};
  return *std::ranges::find_if(kWidestFirst, IsAvailable);
}

void SubtractProduct(Variant variant,
                     double* c,
                     Size ldc,
                     const double* a,
                     Size lda,
                     const double* b,
                     Size ldb,
                     Size m,
                     Size n,
                     Size k) {
  FunctionOf(variant)(c, ldc, a, lda, b, ldb, m, n, k);
}

void SubtractProduct(double* c,
                     Size ldc,
                     const double* a,
                     Size lda,
                     const double* b,
                     Size ldb,
                     Size m,
                     Size n,
                     Size k) {
  static const ProductFunction best = FunctionOf(BestVariant());
  best(c, ldc, a, lda, b, ldb, m, n, k);
}

Size Cholesky(double* a, Size lda, Size n, const double* limits) {
  for (Size first = 0; first < n; first += kPanel) {
    const Size width = n - first < kPanel ? n - first : kPanel;
    double* diagonal = a + first + first * lda;
    const Size done = CholeskyUnblocked(diagonal, lda, width, limits + first);
    if (done < width) return first + done;
    const Size rest = n - first - width;
    if (rest == 0) break;
    double* below = diagonal + width;
    SolveTransposedRight(below, lda, diagonal, lda, rest, width);
    // The lower triangle of what remains, in strips.
    for (Size strip = 0; strip < rest; strip += kPanel) {
      const Size columns = rest - strip < kPanel ? rest - strip : kPanel;
      SubtractProduct(diagonal + (width + strip) + (width + strip) * lda,
                      lda,
                      below + strip,
                      lda,
                      below + strip,
                      lda,
                      rest - strip,
                      columns,
                      width);
    }
  }
  return n;
}

void SolveTransposedRight(double* b, Size ldb, const double* l, Size ldl, Size m, Size n) {
  for (Size first = 0; first < n; first += kPanel) {
    const Size width = n - first < kPanel ? n - first : kPanel;
    for (Size j = first; j < first + width; ++j) {
      double* column = b + j * ldb;
      for (Size p = first; p < j; ++p) {
        const double factor = l[j + p * ldl];
        const double* earlier = b + p * ldb;
        for (Size i = 0; i < m; ++i) column[i] -= earlier[i] * factor;
      }
      const double inverse = 1.0 / l[j + j * ldl];
      for (Size i = 0; i < m; ++i) column[i] *= inverse;
    }
    const Size next = first + width;
    if (next < n)
      SubtractProduct(b + next * ldb,
                      ldb,
                      b + first * ldb,
                      ldb,
                      l + next + first * ldl,
                      ldl,
                      m,
                      n - next,
                      width);
  }
}

void InvertLower(double* l, Size ldl, Size n) {
  for (Size j = n; j-- > 0;) {
    // Column j of the inverse: -L22^-1 l21 / l11 below the diagonal.
    const double inverse = 1.0 / l[j + j * ldl];
    l[j + j * ldl] = inverse;
    double* column = l + j * ldl;
    for (Size i = n; i-- > j + 1;) {
      double sum = 0.0;
      for (Size p = j + 1; p <= i; ++p) sum += l[i + p * ldl] * column[p];
      column[i] = -sum * inverse;
    }
    for (Size i = 0; i < j; ++i) l[i + j * ldl] = 0.0;
  }
}

void SolveLower(double* x, const double* l, Size ldl, Size n) {
  for (Size j = 0; j < n; ++j) {
    x[j] /= l[j + j * ldl];
    const double factor = x[j];
    for (Size i = j + 1; i < n; ++i) x[i] -= l[i + j * ldl] * factor;
  }
}

void SolveLowerTransposed(double* x, const double* l, Size ldl, Size n) {
  for (Size j = n; j-- > 0;) {
    double sum = x[j];
    for (Size i = j + 1; i < n; ++i) sum -= l[i + j * ldl] * x[i];
    x[j] = sum / l[j + j * ldl];
  }
}

}  // namespace vermo::dense

#pragma once

#include <cstddef>
#include <cstdint>

namespace vermo {

// Kernels on dense column-major blocks: element (i, j) of a block with leading dimension ld stands
// at block[i + j ld]. The widest vector code that the machine offers is chosen at run time. Vectors
// run across independent elements and every element is summed in the order of k. The portable
// variant rounds products and sums, the others fuse them and round once: each is deterministic, and
// they differ by rounding only.
namespace dense {

using Size = std::size_t;

// C -= A B^T with A of m x k, B of n x k, C of m x n.
void SubtractProduct(double* c,
                     Size ldc,
                     const double* a,
                     Size lda,
                     const double* b,
                     Size ldb,
                     Size m,
                     Size n,
                     Size k);

// Lower triangle L of A = L L^T in place of the lower triangle of A, n x n; the upper one is not
// read, and is undefined afterwards. Returns n, or the first column whose pivot is not above its
// limit.
Size Cholesky(double* a, Size lda, Size n, const double* limits);

// B := B L^-T with L of n x n (lower), B of m x n.
void SolveTransposedRight(double* b, Size ldb, const double* l, Size ldl, Size m, Size n);

// L := L^-1 for a lower triangle of n x n; the upper one becomes 0.
void InvertLower(double* l, Size ldl, Size n);

// x := L^-1 x and x := L^-T x.
void SolveLower(double* x, const double* l, Size ldl, Size n);
void SolveLowerTransposed(double* x, const double* l, Size ldl, Size n);

enum class Variant { Portable, Avx2, Avx512 };
[[nodiscard]] bool IsAvailable(Variant variant) noexcept;
// The widest one that the machine has.
[[nodiscard]] Variant BestVariant() noexcept;
// The variants behind SubtractProduct, for tests.
void SubtractProduct(Variant variant,
                     double* c,
                     Size ldc,
                     const double* a,
                     Size lda,
                     const double* b,
                     Size ldb,
                     Size m,
                     Size n,
                     Size k);

}  // namespace dense
}  // namespace vermo

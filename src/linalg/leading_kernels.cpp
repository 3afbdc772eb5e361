#include "linalg/leading_kernels.h"

#include <algorithm>
#include <initializer_list>

namespace vermo {
namespace {

using dense::Variant;

// A link's rows are taken in pieces whose size is known to the compiler. Pieces are independent: a
// result does not depend on how its rows are cut.
template <typename Piece>
[[gnu::always_inline]] inline void InPieces(std::uint32_t rows, Piece piece) {
  std::uint32_t first = 0;
  for (; rows - first >= 8; first += 8) piece.template operator()<8>(first);
  if (rows - first >= 6) {
    piece.template operator()<6>(first);
    first += 6;
  }
  if (rows - first >= 4) {
    piece.template operator()<4>(first);
    first += 4;
  }
  if (rows - first >= 2) {
    piece.template operator()<2>(first);
    first += 2;
  }
  if (rows - first == 1) piece.template operator()<1>(first);
}

// to(i, j) -= sum over r of a(r, i) b(r, j) for i < N. A depth D of 0 stands for one that is known
// at run time only.
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractOuter(double* to,
                                                 std::size_t stride,
                                                 const double* a,
                                                 const double* b,
                                                 std::size_t width,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (std::uint32_t j = 0; j < columns; ++j) {
    double* column = to + j * stride;
    double sum[N];
    for (std::uint32_t i = 0; i < N; ++i) sum[i] = column[i];
    for (std::uint32_t r = 0; r < d; ++r) {
      const double factor = b[r * width + j];
      for (std::uint32_t i = 0; i < N; ++i) sum[i] -= a[r * width + i] * factor;
    }
    for (std::uint32_t i = 0; i < N; ++i) column[i] = sum[i];
  }
}

template <std::uint32_t D>
[[gnu::always_inline]] inline void SharesBody(const LeadingBlocks& blocks,
                                              const double* w,
                                              const double* y,
                                              double* reduced) {
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingLink& rows = blocks.link[pair->swapped ? z : x];
      const LeadingLink& columns = blocks.link[pair->swapped ? x : z];
      InPieces(rows.size, [&]<std::uint32_t N>(std::uint32_t first) {
        SubtractOuter<D, N>(reduced + pair->offset + first,
                            pair->stride,
                            w + rows.first + first,
                            y + columns.first,
                            blocks.width,
                            blocks.n,
                            columns.size);
      });
    }
}

// cross(:, rows) -= Y(:, columns) Q^T
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractAlong(double* cross,
                                                 const double* y,
                                                 std::size_t width,
                                                 const double* q,
                                                 std::size_t stride,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (std::uint32_t r = 0; r < d; ++r) {
    double sum[N];
    for (std::uint32_t i = 0; i < N; ++i) sum[i] = cross[r * width + i];
    for (std::uint32_t j = 0; j < columns; ++j) {
      const double factor = y[r * width + j];
      for (std::uint32_t i = 0; i < N; ++i) sum[i] -= factor * q[j * stride + i];
    }
    for (std::uint32_t i = 0; i < N; ++i) cross[r * width + i] = sum[i];
  }
}

// cross(:, columns) -= Y(:, rows) Q
template <std::uint32_t D>
[[gnu::always_inline]] inline void SubtractAcross(double* cross,
                                                  const double* y,
                                                  std::size_t width,
                                                  const double* q,
                                                  std::size_t stride,
                                                  std::uint32_t depth,
                                                  std::uint32_t rows,
                                                  std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (std::uint32_t j = 0; j < columns; ++j) {
    double sum[6] = {};
    for (std::uint32_t i = 0; i < rows; ++i)
      for (std::uint32_t r = 0; r < d; ++r) sum[r] += y[r * width + i] * q[j * stride + i];
    for (std::uint32_t r = 0; r < d; ++r) cross[r * width + j] -= sum[r];
  }
}

template <std::uint32_t D>
[[gnu::always_inline]] inline void InverseBody(const LeadingBlocks& blocks,
                                               const double* y,
                                               const double* inverse,
                                               double* cross) {
  std::fill_n(cross, blocks.n * blocks.width, 0.0);
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingLink& rows = blocks.link[pair->swapped ? z : x];
      const LeadingLink& columns = blocks.link[pair->swapped ? x : z];
      const double* q = inverse + pair->offset;
      InPieces(rows.size, [&]<std::uint32_t N>(std::uint32_t first) {
        SubtractAlong<D, N>(cross + rows.first + first,
                            y + columns.first,
                            blocks.width,
                            q + first,
                            pair->stride,
                            blocks.n,
                            columns.size);
      });
      if (x != z)
        SubtractAcross<D>(cross + columns.first,
                          y + rows.first,
                          blocks.width,
                          q,
                          pair->stride,
                          blocks.n,
                          rows.size,
                          columns.size);
    }
}

[[gnu::always_inline]] inline void Shares(const LeadingBlocks& blocks,
                                          const double* w,
                                          const double* y,
                                          double* reduced) {
  if (blocks.n == 3)
    SharesBody<3>(blocks, w, y, reduced);
  else
    SharesBody<0>(blocks, w, y, reduced);
}

[[gnu::always_inline]] inline void Inverse(const LeadingBlocks& blocks,
                                           const double* y,
                                           const double* inverse,
                                           double* cross) {
  if (blocks.n == 3)
    InverseBody<3>(blocks, y, inverse, cross);
  else
    InverseBody<0>(blocks, y, inverse, cross);
}

struct Kernels {
  void (*shares)(const LeadingBlocks&, const double*, const double*, double*);
  void (*inverse)(const LeadingBlocks&, const double*, const double*, double*);
};

void SharesPortable(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  Shares(blocks, w, y, reduced);
}
void InversePortable(const LeadingBlocks& blocks,
                     const double* y,
                     const double* inverse,
                     double* cross) {
  Inverse(blocks, y, inverse, cross);
}
#if defined(__x86_64__)
[[gnu::target("avx2")]] void SharesAvx2(const LeadingBlocks& blocks,
                                        const double* w,
                                        const double* y,
                                        double* reduced) {
  Shares(blocks, w, y, reduced);
}
[[gnu::target("avx2")]] void InverseAvx2(const LeadingBlocks& blocks,
                                         const double* y,
                                         const double* inverse,
                                         double* cross) {
  Inverse(blocks, y, inverse, cross);
}
[[gnu::target("avx512f")]] void SharesAvx512(const LeadingBlocks& blocks,
                                             const double* w,
                                             const double* y,
                                             double* reduced) {
  Shares(blocks, w, y, reduced);
}
[[gnu::target("avx512f")]] void InverseAvx512(const LeadingBlocks& blocks,
                                              const double* y,
                                              const double* inverse,
                                              double* cross) {
  Inverse(blocks, y, inverse, cross);
}
#endif

Kernels KernelsOf(Variant variant) noexcept {
#if defined(__x86_64__)
  if (variant == Variant::Avx512) return {SharesAvx512, InverseAvx512};
  if (variant == Variant::Avx2) return {SharesAvx2, InverseAvx2};
#endif
  static_cast<void>(variant);
  return {SharesPortable, InversePortable};
}

const Kernels& Best() noexcept {
  static const Kernels best = [] {
    for (const Variant variant : {Variant::Avx512, Variant::Avx2})
      if (dense::IsAvailable(variant)) return KernelsOf(variant);
    return KernelsOf(Variant::Portable);
  }();
  return best;
}

}  // namespace

void SubtractShares(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  Best().shares(blocks, w, y, reduced);
}

void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross) {
  Best().inverse(blocks, y, inverse, cross);
}

void SubtractShares(Variant variant,
                    const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  KernelsOf(variant).shares(blocks, w, y, reduced);
}

void MultiplyByInverse(Variant variant,
                       const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross) {
  KernelsOf(variant).inverse(blocks, y, inverse, cross);
}

}  // namespace vermo
